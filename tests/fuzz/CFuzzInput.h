// The bytes of a fuzzer as a script.
#ifndef TESTS_FUZZ_CFUZZINPUT_H
#define TESTS_FUZZ_CFUZZINPUT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

// Read from the front; everything is 0 once it is over.
class CFuzzInput
{
public:
    CFuzzInput(const std::uint8_t* data, std::size_t size) : m_pAt(data), m_nLeft(size) {}

    bool IsOver() const { return m_nLeft == 0; }
    std::size_t GetLeft() const { return m_nLeft; }

    std::uint8_t Byte()
    {
        if (m_nLeft == 0) {
            return 0;
        }
        --m_nLeft;
        return *m_pAt++;
    }
    std::uint16_t Word()
    {
        const unsigned int high = Byte();
        return static_cast<std::uint16_t>(high << 8 | Byte());
    }
    std::uint32_t DWord()
    {
        const std::uint32_t high = Word();
        return high << 16 | Word();
    }

    // As many of `length` bytes as there are.
    std::vector<std::uint8_t> Bytes(std::size_t length)
    {
        const std::uint8_t* const from = m_pAt;
        length = std::min(length, m_nLeft);
        m_pAt += length;
        m_nLeft -= length;
        return {from, m_pAt};
    }
    std::string Text(std::size_t length)
    {
        const std::vector<std::uint8_t> bytes = Bytes(length);
        return {bytes.begin(), bytes.end()};
    }

private:
    const std::uint8_t* m_pAt;
    std::size_t m_nLeft;
};

// Ends the process when something that must hold does not: a find.
inline void Require(bool holds, const char* what)
{
    if (!holds) {
        std::fprintf(stderr, "does not hold: %s\n", what);
        std::abort();
    }
}

#endif
