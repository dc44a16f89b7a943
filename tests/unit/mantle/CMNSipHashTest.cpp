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

TEST(CMNSipHashTest, WordsAndALastOne_Hashed_AsTheirBytes)
{
    CKey key;
    std::uint8_t message[23];
    for (std::size_t i = 0; i < sizeof(key); ++i)
        key[i] = static_cast<std::uint8_t>(i);
    for (std::size_t i = 0; i < sizeof(message); ++i)
        message[i] = static_cast<std::uint8_t>(i);
    const CMNSipHash::CKey words{0x0706050403020100U, 0x0f0e0d0c0b0a0908U};
    const std::uint64_t whole[] = {0x0706050403020100U, 0x0f0e0d0c0b0a0908U};
    EXPECT_EQ(CMNSipHash::Hash(key, message, 7), CMNSipHash::Hash(words, whole, 0, 0x06050403020100U));
    EXPECT_EQ(0xa129ca6149be45e5U, CMNSipHash::Hash(words, whole, 1, 0x0e0d0c0b0a0908U));
    EXPECT_EQ(CMNSipHash::Hash(key, message, 23), CMNSipHash::Hash(words, whole, 2, 0x16151413121110U));
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
