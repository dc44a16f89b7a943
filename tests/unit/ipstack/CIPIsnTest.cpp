#include "platform/ipstack/CIPIsn.h"

#include <set>

#include <gtest/gtest.h>

#include "platform/ipstack/CIPRandom.h"

namespace
{

using ipstack::CIPIsn;
using ipstack::CIPRandom;
using ipstack::CIPSipHash;

using CKey = std::uint8_t[CIPSipHash::KeyLength];

ip_addr_t Ip(unsigned int last)
{
    ip_addr_t address = IPADDR4_INIT_BYTES(10, 0, 0, static_cast<u8_t>(last));
    return address;
}

TEST(CIPSipHashTest, PaperKey_PaperMessage_PaperResult)
{
    // Appendix A of the paper: key 00 01 .. 0f, message 00 01 .. 0e.
    CKey key;
    std::uint8_t message[15];
    for (std::size_t i = 0; i < sizeof(key); ++i) {
        key[i] = static_cast<std::uint8_t>(i);
    }
    for (std::size_t i = 0; i < sizeof(message); ++i) {
        message[i] = static_cast<std::uint8_t>(i);
    }
    EXPECT_EQ(0xa129ca6149be45e5U, CIPSipHash::Hash(key, message, sizeof(message)));
}

TEST(CIPSipHashTest, AnyLength_OneBitChanged_OtherHash)
{
    CKey key{};
    std::uint8_t message[24] = {};
    for (std::size_t length = 1; length <= sizeof(message); ++length) {
        const std::uint64_t before = CIPSipHash::Hash(key, message, length);
        message[length - 1] ^= 0x80;
        EXPECT_NE(before, CIPSipHash::Hash(key, message, length)) << length;
        message[length - 1] ^= 0x80;
        EXPECT_NE(before, CIPSipHash::Hash(key, message, length - 1)) << length;
    }
}

TEST(CIPIsnTest, OneConnection_TimePasses_NumberGrowsOncePerFourMicroseconds)
{
    const CKey key{1, 2, 3};
    const std::uint32_t first = CIPIsn::Compute(key, 1000000, Ip(1), 1000, Ip(2), 80);
    EXPECT_EQ(first, CIPIsn::Compute(key, 1000003, Ip(1), 1000, Ip(2), 80));
    EXPECT_EQ(first + 1, CIPIsn::Compute(key, 1000004, Ip(1), 1000, Ip(2), 80));
    EXPECT_EQ(first + 250000, CIPIsn::Compute(key, 2000000, Ip(1), 1000, Ip(2), 80));
}

TEST(CIPIsnTest, OtherConnectionOrKey_SameTime_OtherNumber)
{
    const CKey key{1, 2, 3};
    const CKey otherKey{1, 2, 4};
    ip_addr_t six = IPADDR6_INIT(0x0a000001, 0, 0, 0);
    const std::set<std::uint32_t> numbers{
        CIPIsn::Compute(key, 0, Ip(1), 1000, Ip(2), 80), CIPIsn::Compute(otherKey, 0, Ip(1), 1000, Ip(2), 80),
        CIPIsn::Compute(key, 0, Ip(3), 1000, Ip(2), 80), CIPIsn::Compute(key, 0, Ip(1), 1001, Ip(2), 80),
        CIPIsn::Compute(key, 0, Ip(1), 1000, Ip(3), 80), CIPIsn::Compute(key, 0, Ip(1), 1000, Ip(2), 81),
        CIPIsn::Compute(key, 0, Ip(2), 80, Ip(1), 1000), CIPIsn::Compute(key, 0, six, 1000, six, 80)};
    EXPECT_EQ(8U, numbers.size());
}

TEST(CIPIsnTest, ProcessKey_NeighbouringPorts_NumbersFarApart)
{
    // Without the hash the numbers of connections that open together lie within a few ticks of the clock.
    unsigned int close = 0;
    std::uint32_t before = CIPIsn::Make(Ip(1), 1000, Ip(2), 80);
    for (std::uint16_t port = 1001; port < 2001; ++port) {
        const std::uint32_t number = CIPIsn::Make(Ip(1), port, Ip(2), 80);
        close += number - before < 1000000 || before - number < 1000000 ? 1U : 0U;
        before = number;
    }
    EXPECT_LT(close, 20U);
}

TEST(CIPRandomTest, Bound_ManyNumbers_BelowAndSpread)
{
    EXPECT_EQ(0U, CIPRandom::GetBelow(0));
    EXPECT_EQ(0U, CIPRandom::GetBelow(1));
    unsigned int counts[10] = {};
    for (int i = 0; i < 10000; ++i) {
        const std::uint32_t number = CIPRandom::GetBelow(10);
        ASSERT_LT(number, 10U);
        ++counts[number];
    }
    for (const unsigned int count : counts) {
        EXPECT_GT(count, 700U);
        EXPECT_LT(count, 1300U);
    }
}

TEST(CIPRandomTest, Fill_LongBuffer_NotConstant)
{
    unsigned char bytes[1000] = {};
    CIPRandom::Fill(bytes, sizeof(bytes));
    const std::set<unsigned char> values(bytes, bytes + sizeof(bytes));
    EXPECT_GT(values.size(), 200U);
}

}  // namespace
