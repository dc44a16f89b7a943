#include "mantle/CMNSipHash.h"

namespace mantle
{

namespace
{

constexpr std::uint64_t RotateLeft(std::uint64_t value, int count) noexcept
{
    return (value << count) | (value >> (64 - count));
}

std::uint64_t LoadWord(const std::uint8_t* bytes, std::size_t count) noexcept
{
    std::uint64_t word = 0;
    for (std::size_t i = 0; i < count; ++i)
        word |= static_cast<std::uint64_t>(bytes[i]) << (8 * i);
    return word;
}

// The internal state v0 to v3. Rounds for each word, and at the end.
template <int COMPRESSION, int FINALIZATION>
struct CState
{
    std::uint64_t m_V0;
    std::uint64_t m_V1;
    std::uint64_t m_V2;
    std::uint64_t m_V3;

    explicit CState(const CMNSipHash::CKey& key) noexcept
        : m_V0(key.m_K0 ^ 0x736f6d6570736575U),
          m_V1(key.m_K1 ^ 0x646f72616e646f6dU),
          m_V2(key.m_K0 ^ 0x6c7967656e657261U),
          m_V3(key.m_K1 ^ 0x7465646279746573U)
    {
    }

    void Round() noexcept
    {
        m_V0 += m_V1;
        m_V2 += m_V3;
        m_V1 = RotateLeft(m_V1, 13) ^ m_V0;
        m_V3 = RotateLeft(m_V3, 16) ^ m_V2;
        m_V0 = RotateLeft(m_V0, 32);
        m_V2 += m_V1;
        m_V0 += m_V3;
        m_V1 = RotateLeft(m_V1, 17) ^ m_V2;
        m_V3 = RotateLeft(m_V3, 21) ^ m_V0;
        m_V2 = RotateLeft(m_V2, 32);
    }

    void Compress(std::uint64_t word) noexcept
    {
        m_V3 ^= word;
        for (int i = 0; i < COMPRESSION; ++i)
            Round();
        m_V0 ^= word;
    }

    std::uint64_t End(std::uint64_t last) noexcept
    {
        Compress(last);
        m_V2 ^= 0xFF;
        for (int i = 0; i < FINALIZATION; ++i)
            Round();
        return m_V0 ^ m_V1 ^ m_V2 ^ m_V3;
    }
};

}  // namespace

std::uint64_t CMNSipHash::Hash(const std::uint8_t (&key)[KeyLength], const std::uint8_t* message,
                               std::size_t length) noexcept
{
    CState<2, 4> state(CKey{LoadWord(key, 8), LoadWord(key + 8, 8)});
    std::size_t at = 0;
    for (; at + 8 <= length; at += 8)
        state.Compress(LoadWord(message + at, 8));
    return state.End(LoadWord(message + at, length - at) | static_cast<std::uint64_t>(length & 0xFF) << 56);
}

std::uint64_t CMNSipHash::HashForTable(const CKey& key, const std::uint64_t* words, std::size_t count,
                                       std::uint64_t last) noexcept
{
    CState<1, 3> state(key);
    for (std::size_t i = 0; i < count; ++i)
        state.Compress(words[i]);
    return state.End(last | static_cast<std::uint64_t>((8 * count + LastLength) & 0xFF) << 56);
}

}  // namespace mantle
