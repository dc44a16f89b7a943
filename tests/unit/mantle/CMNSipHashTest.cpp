#include "mantle/CMNSipHash.h"

#include <gtest/gtest.h>

namespace mantle
{
namespace
{

using CKey = std::uint8_t[CMNSipHash::KeyLength];

TEST(CMNSipHashTest, PaperKey_PaperMessage_PaperResult)
{
    // Appendix A of the paper: key 00 01 .. 0f, message 00 01 .. 0e.
    CKey key;
    std::uint8_t message[15];
    for (std::size_t i = 0; i < sizeof(key); ++i)
        key[i] = static_cast<std::uint8_t>(i);
    for (std::size_t i = 0; i < sizeof(message); ++i)
        message[i] = static_cast<std::uint8_t>(i);
    EXPECT_EQ(0xa129ca6149be45e5U, CMNSipHash::Hash(key, message, sizeof(message)));
}

// The paper's algorithm with any numbers of rounds, of bytes 00 01 .. and so on; written down a second time.
std::uint64_t Reference(int compression, int finalization, std::uint64_t length)
{
    std::uint64_t v[] = {0x0706050403020100U ^ 0x736f6d6570736575U, 0x0f0e0d0c0b0a0908U ^ 0x646f72616e646f6dU,
                         0x0706050403020100U ^ 0x6c7967656e657261U, 0x0f0e0d0c0b0a0908U ^ 0x7465646279746573U};
    const auto half = [&v](int a, int b, int c, int d, int s, int t) {
        const auto rotate = [](std::uint64_t word, int bits) { return word << bits | word >> (64 - bits); };
        v[a] += v[b];
        v[c] += v[d];
        v[b] = rotate(v[b], s) ^ v[a];
        v[d] = rotate(v[d], t) ^ v[c];
        v[a] = rotate(v[a], 32);
    };
    const auto rounds = [&half](int count) {
        for (int i = 0; i < count; ++i) {
            half(0, 1, 2, 3, 13, 16);
            half(2, 1, 0, 3, 17, 21);
        }
    };
    for (std::uint64_t at = 0; at <= length; at += 8) {
        std::uint64_t word = at + 8 > length ? length << 56 : 0;
        for (std::uint64_t i = 0; i < 8 && at + i < length; ++i)
            word |= (at + i) << (8 * i);
        v[3] ^= word;
        rounds(compression);
        v[0] ^= word;
    }
    v[2] ^= 0xFF;
    rounds(finalization);
    return v[0] ^ v[1] ^ v[2] ^ v[3];
}

TEST(CMNSipHashTest, WordsAndALastOne_HashedForATable_AsTheirBytesWithFewerRounds)
{
    const CMNSipHash::CKey key{0x0706050403020100U, 0x0f0e0d0c0b0a0908U};
    const std::uint64_t words[] = {0x0706050403020100U, 0x0f0e0d0c0b0a0908U};
    ASSERT_EQ(0xa129ca6149be45e5U, Reference(2, 4, 15));
    EXPECT_EQ(Reference(1, 3, 7), CMNSipHash::HashForTable(key, words, 0, 0x06050403020100U));
    EXPECT_EQ(Reference(1, 3, 15), CMNSipHash::HashForTable(key, words, 1, 0x0e0d0c0b0a0908U));
    EXPECT_EQ(Reference(1, 3, 23), CMNSipHash::HashForTable(key, words, 2, 0x16151413121110U));
}

TEST(CMNSipHashTest, AnyLength_OneBitChanged_OtherHash)
{
    CKey key{};
    std::uint8_t message[24] = {};
    for (std::size_t length = 1; length <= sizeof(message); ++length) {
        const std::uint64_t before = CMNSipHash::Hash(key, message, length);
        message[length - 1] ^= 0x80;
        EXPECT_NE(before, CMNSipHash::Hash(key, message, length)) << length;
        message[length - 1] ^= 0x80;
        EXPECT_NE(before, CMNSipHash::Hash(key, message, length - 1)) << length;
    }
}

}  // namespace
}  // namespace mantle
