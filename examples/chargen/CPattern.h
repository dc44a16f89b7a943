// The characters of the character generator (RFC 864): lines of 72 of the 95 printing ones, each line a character on.
#ifndef CHARGEN_CPATTERN_H
#define CHARGEN_CPATTERN_H

#include <cstddef>
#include <cstdint>

namespace chargen
{

inline constexpr unsigned int LINE_LENGTH = 72;
inline constexpr unsigned int CHARACTERS = 95;

// The stream's character at `at`.
inline char At(std::uint64_t at)
{
    constexpr unsigned int withEnd = LINE_LENGTH + 2;
    const std::uint64_t line = at / withEnd;
    const std::uint64_t column = at % withEnd;
    if (column >= LINE_LENGTH)
        return column == LINE_LENGTH ? '\r' : '\n';
    return static_cast<char>(' ' + (line + column) % CHARACTERS);
}

inline void Fill(char* to, std::size_t length, std::uint64_t at)
{
    for (std::size_t i = 0; i < length; ++i)
        to[i] = At(at + i);
}

// Whether these are the stream's characters from `at` on.
inline bool Matches(const char* from, std::size_t length, std::uint64_t at)
{
    for (std::size_t i = 0; i < length; ++i) {
        if (from[i] != At(at + i))
            return false;
    }
    return true;
}

}  // namespace chargen

#endif
