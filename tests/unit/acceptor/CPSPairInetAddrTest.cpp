#include "acceptor/CPSPairInetAddr.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace uxport
{
namespace
{

const CPSPairInetAddr PAIR{mantle::CMNInetAddr("10.0.0.2", 4000), mantle::CMNInetAddr("10.0.0.1", 53)};

std::int32_t Meeting(const CPSPairInetAddr& pair)
{
    return static_cast<std::int32_t>(pair.first.hash() ^ pair.second.hash());
}

// What an arithmetic shift does, as a division that rounds down.
std::int64_t ShiftDown(std::int64_t value, std::int64_t divisor)
{
    return value >= 0 ? value / divisor : -((-value + divisor - 1) / divisor);
}

std::size_t Expected(std::int32_t value)
{
    std::int64_t folded = value;
    folded ^= ShiftDown(folded, 65536);
    folded ^= ShiftDown(folded, 256);
    return static_cast<std::size_t>(folded);
}

CPSPairInetAddr PairMeeting(bool negative)
{
    CPSPairInetAddr pair = PAIR;
    for (unsigned short port = 1; port != 0 && (Meeting(pair) < 0) != negative; ++port)
        pair.first.SetPort(port);
    return pair;
}

TEST(CPSPairInetAddrTest, Pairs_Compared_BothAddressesCount)
{
    CPSPairInetAddr other = PAIR;
    EXPECT_EQ(other, PAIR);
    other.first.SetPort(4001);
    EXPECT_NE(other, PAIR);
    other = PAIR;
    other.second.SetPort(54);
    EXPECT_NE(other, PAIR);
    EXPECT_NE((CPSPairInetAddr{PAIR.second, PAIR.first}), PAIR);
}

TEST(PSInetAddrHashTest, HashesMeetPositive_Hashed_ZerosAreShiftedIn)
{
    const CPSPairInetAddr pair = PairMeeting(false);
    ASSERT_GE(Meeting(pair), 0);
    EXPECT_EQ(PSInetAddrHash()(pair), Expected(Meeting(pair)));
}

TEST(PSInetAddrHashTest, HashesMeetNegative_Hashed_TheSignIsShiftedIn)
{
    const CPSPairInetAddr pair = PairMeeting(true);
    ASSERT_LT(Meeting(pair), 0);
    EXPECT_EQ(PSInetAddrHash()(pair), Expected(Meeting(pair)));
    // With zeros shifted in it would be another one.
    auto bits = static_cast<std::uint32_t>(Meeting(pair));
    bits ^= bits >> 16;
    bits ^= bits >> 8;
    EXPECT_NE(PSInetAddrHash()(pair), std::size_t{bits});
}

TEST(PSInetAddrHashTest, KnownNegativeValue_Folded_IsTheKnownNumber)
{
    EXPECT_EQ(connhub::FoldInetAddrHash(INT32_MIN), 0x7F807F80u);
    EXPECT_EQ(Expected(INT32_MIN), 0x7F807F80u);
}

TEST(PSInetAddrHashTest, AddressWithItself_Hashed_IsZero)
{
    EXPECT_EQ(PSInetAddrHash()({PAIR.first, PAIR.first}), 0u);
}

}  // namespace
}  // namespace uxport
