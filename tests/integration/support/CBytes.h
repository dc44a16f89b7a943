// A stream of bytes that a seed determines.
#ifndef TESTS_INTEGRATION_SUPPORT_CBYTES_H
#define TESTS_INTEGRATION_SUPPORT_CBYTES_H

#include <cstdint>
#include <cstring>
#include <string>

// Every position of the stream has other bytes, so that what is lost, doubled or out of order shows.
class CBytes
{
public:
    explicit CBytes(std::uint64_t seed) : m_qwState(seed * 2 + 1) {}

    // The next `length` bytes, a multiple of eight but for the last call.
    void Fill(char* data, std::size_t length)
    {
        for (std::size_t i = 0; i < length; i += sizeof m_qwState) {
            // xorshift64* (Vigna 2016)
            m_qwState ^= m_qwState >> 12;
            m_qwState ^= m_qwState << 25;
            m_qwState ^= m_qwState >> 27;
            const std::uint64_t word = m_qwState * 0x2545F4914F6CDD1DULL;
            std::memcpy(data + i, &word, length - i < sizeof word ? length - i : sizeof word);
        }
    }

    std::string Make(std::size_t length)
    {
        std::string text(length, '\0');
        Fill(text.data(), length);
        return text;
    }

private:
    std::uint64_t m_qwState;
};

#endif
