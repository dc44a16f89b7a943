// A keyed hash for short messages.
#ifndef MANTLE_CMNSIPHASH_H
#define MANTLE_CMNSIPHASH_H

#include <cstddef>
#include <cstdint>

#include "mantle/MNDefines.h"

namespace mantle
{

// SipHash as in Aumasson and Bernstein, "SipHash: a fast short-input PRF", INDOCRYPT 2012.
class MANTLE_API CMNSipHash
{
public:
    static constexpr std::size_t KeyLength = 16;

    // SipHash-2-4. Units: `key` and the message are byte strings; words are read little-endian, as the paper has it.
    static std::uint64_t Hash(const std::uint8_t (&key)[KeyLength], const std::uint8_t* message,
                              std::size_t length) noexcept;

    // The key as the two words that it is read as.
    struct CKey
    {
        std::uint64_t m_K0;
        std::uint64_t m_K1;
    };

    // SipHash-1-3, for tables, whose hashes nobody gets to see, of a message of `count` words and LastLength bytes behind
    // them, which are the lower ones of `last`.
    static constexpr std::size_t LastLength = 7;
    static std::uint64_t HashForTable(const CKey& key, const std::uint64_t* words, std::size_t count,
                                      std::uint64_t last) noexcept;
};

}  // namespace mantle

#endif
