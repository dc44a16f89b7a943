#include "connhub/CMNPairInetAddr.h"

#include <gtest/gtest.h>

#include <limits>
#include <unordered_set>

#include "tests/support/CollidingAddresses.h"

namespace connhub
{
namespace
{

using mantle::CMNInetAddr;

TEST(CMNPairInetAddrTest, Pairs_Compared_BothAddressesCount)
{
    const CMNInetAddr a("1.2.3.4", 1);
    const CMNInetAddr b("1.2.3.4", 2);
    EXPECT_EQ((CMNPairInetAddr{a, b}), (CMNPairInetAddr{a, b}));
    EXPECT_NE((CMNPairInetAddr{a, b}), (CMNPairInetAddr{b, a}));
    EXPECT_NE((CMNPairInetAddr{a, b}), (CMNPairInetAddr{a, a}));
    EXPECT_NE((CMNPairInetAddr{a, b}), (CMNPairInetAddr{b, b}));
}

// Worked by hand: the value, on it itself shifted by 16, on that itself shifted by 8.
TEST(FoldInetAddrHashTest, PositiveValue_Folded_ZerosShiftedIn)
{
    EXPECT_EQ(FoldInetAddrHash(0), 0u);
    EXPECT_EQ(FoldInetAddrHash(1), 1u);
    EXPECT_EQ(FoldInetAddrHash(0x12345678), 0x12267008u);
    EXPECT_EQ(FoldInetAddrHash(0x7fffffff), 0x7f807f80u);
}

// Logical shifts would give 0xff00ff00 for -1 and 0x80808080 for the smallest.
TEST(FoldInetAddrHashTest, NegativeValue_Folded_TheSignIsShiftedIn)
{
    EXPECT_EQ(FoldInetAddrHash(-1), 0u);
    EXPECT_EQ(FoldInetAddrHash(std::numeric_limits<std::int32_t>::min()), 0x7f807f80u);
    EXPECT_EQ(FoldInetAddrHash(static_cast<std::int32_t>(0xff000000u)), 0x00ff00ffu);
    EXPECT_EQ(FoldInetAddrHash(static_cast<std::int32_t>(0xdeadbeefu)), 0x21733222u);
}

TEST(InetAddrHashTest, PairWhoseHashesMeetNegative_Hashed_FoldOfTheirExclusiveOr)
{
    int negative = 0;
    for (unsigned short port = 0; port < 100; ++port) {
        const CMNPairInetAddr pair{CMNInetAddr("10.0.0.1", port), CMNInetAddr("10.0.0.2", 80)};
        const auto both = static_cast<std::int32_t>(pair.first.hash() ^ pair.second.hash());
        negative += both < 0 ? 1 : 0;
        EXPECT_EQ(InetAddrHash()(pair), FoldInetAddrHash(both));
    }
    EXPECT_GT(negative, 20);
    EXPECT_EQ(InetAddrHash()(CMNPairInetAddr{CMNInetAddr("1.1.1.1", 1), CMNInetAddr("1.1.1.1", 1)}), 0u);
}

// The session table's buckets, whatever peers choose.
TEST(InetAddrHashTest, PeersOfOneUnkeyedHash_InATable_ChainsStayShort)
{
    std::unordered_set<CMNPairInetAddr, InetAddrHash> table;
    for (const CMNInetAddr& peer : CUnkeyedHash::Collide(300))
        table.insert({peer, CMNInetAddr("10.0.0.1", 7)});
    ASSERT_EQ(table.size(), 300u);
    std::size_t longest = 0;
    for (std::size_t bucket = 0; bucket < table.bucket_count(); ++bucket)
        longest = std::max(longest, table.bucket_size(bucket));
    EXPECT_LE(longest, 14u);
}

}  // namespace
}  // namespace connhub
