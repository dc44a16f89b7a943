#include "platform/ipstack/CIPChecksum.h"

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace
{

using ipstack::CIPChecksum;

// RFC 1071, word by word.
std::uint16_t Plain(const unsigned char* data, std::size_t length)
{
    std::uint32_t sum = 0;
    for (std::size_t at = 0; at < length; at += 2) {
        unsigned char bytes[2] = {data[at], at + 1 < length ? data[at + 1] : static_cast<unsigned char>(0)};
        std::uint16_t word;
        std::memcpy(&word, bytes, sizeof(word));
        sum += word;
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    return static_cast<std::uint16_t>(sum);
}

TEST(CIPChecksumTest, AnyLengthAndPlace_Summed_AsWordByWord)
{
    std::mt19937 random(1);
    std::vector<unsigned char> data(2048);
    for (unsigned char& byte : data) {
        byte = static_cast<unsigned char>(random());
    }
    for (std::size_t begin = 0; begin < 16; ++begin) {
        for (std::size_t length = 0; length <= 1500; ++length) {
            ASSERT_EQ(CIPChecksum::Sum(data.data() + begin, length), Plain(data.data() + begin, length))
                << begin << ' ' << length;
        }
    }
}

TEST(CIPChecksumTest, LargestSums_Summed_NothingIsCarriedAway)
{
    const std::vector<unsigned char> ones(65536, 0xFF);
    for (const std::size_t length : {1u, 2u, 3u, 7u, 31u, 33u, 65535u, 65536u}) {
        EXPECT_EQ(CIPChecksum::Sum(ones.data(), length), Plain(ones.data(), length)) << length;
    }
    EXPECT_EQ(CIPChecksum::Sum(ones.data(), 0), 0);
}

// The example of RFC 1071, section 3.
TEST(CIPChecksumTest, KnownWords_Summed_KnownSum)
{
    const unsigned char words[] = {0x00, 0x01, 0xF2, 0x03, 0xF4, 0xF5, 0xF6, 0xF7};
    const std::uint16_t sum = CIPChecksum::Sum(words, sizeof(words));
    unsigned char bytes[2];
    std::memcpy(bytes, &sum, sizeof(sum));
    EXPECT_EQ(bytes[0], 0xDD);
    EXPECT_EQ(bytes[1], 0xF2);
}

}  // namespace
