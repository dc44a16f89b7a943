#include "platform/ipstack/CIPIsn.h"

#include <set>

#include <gtest/gtest.h>

#include "platform/ipstack/CIPRandom.h"

namespace
{

using ipstack::CIPIsn;
using ipstack::CIPRandom;

using CKey = std::uint8_t[mantle::CMNSipHash::KeyLength];

ip_addr_t Ip(unsigned int last)
{
    ip_addr_t address = IPADDR4_INIT_BYTES(10, 0, 0, static_cast<u8_t>(last));
    return address;
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

}  // namespace
