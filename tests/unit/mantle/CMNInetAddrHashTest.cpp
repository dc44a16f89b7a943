// Addresses as strangers choose them, in tables built on their hash.
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <set>
#include <unordered_set>

#include "mantle/CMNInetAddr.h"
#include "tests/support/CollidingAddresses.h"

namespace mantle
{
namespace
{

constexpr const char* PRINT = "MANTLE_TEST_PRINTS_HASHES";

struct CHash
{
    std::size_t operator()(const CMNInetAddr& address) const { return address.hash(); }
};

std::string PrintHashes()
{
    std::string text;
    for (const char* host : {"1.2.3.4", "10.0.0.1", "::1", "fe80::1"})
        text += std::to_string(CMNInetAddr(host, 80).hash()) + " ";
    return text;
}

// What this very case prints when it runs in a new process.
std::string AskNewProcess()
{
    std::array<char, PATH_MAX> self{};
    if (::readlink("/proc/self/exe", self.data(), self.size() - 1) < 0)
        return "";
    const std::string command = std::string(PRINT) + "=1 '" + self.data() +
                                "' --gtest_filter=CMNInetAddrHashTest.SameAddresses_AnotherProcess_OtherHashes";
    const std::unique_ptr<FILE, int (*)(FILE*)> output(::popen(command.c_str(), "r"), &::pclose);
    std::array<char, 1024> line{};
    while (output && std::fgets(line.data(), line.size(), output.get())) {
        const std::string text(line.data());
        if (text.rfind("hashes: ", 0) == 0)
            return text.substr(8, text.size() - 9);
    }
    return "";
}

std::size_t LongestChain(const std::unordered_set<CMNInetAddr, CHash>& table)
{
    std::size_t longest = 0;
    for (std::size_t bucket = 0; bucket < table.bucket_count(); ++bucket)
        longest = std::max(longest, table.bucket_size(bucket));
    return longest;
}

// Strangers could compute the hash: 20 000 peers of one bucket took ten times the processor time.
TEST(CMNInetAddrHashTest, AddressesOfOneUnkeyedHash_InATable_ChainsStayShort)
{
    const std::vector<CMNInetAddr> peers = CUnkeyedHash::Collide(300);
    ASSERT_EQ(peers.size(), 300u);
    std::set<std::uint32_t> unkeyed;
    std::set<std::uint32_t> keyed;
    std::unordered_set<CMNInetAddr, CHash> table;
    for (const CMNInetAddr& peer : peers) {
        unkeyed.insert(CUnkeyedHash::Of(peer));
        keyed.insert(peer.hash());
        table.insert(peer);
    }
    EXPECT_EQ(unkeyed.size(), 1u);
    EXPECT_EQ(table.size(), 300u);
    EXPECT_GE(keyed.size(), 298u);
    EXPECT_LE(LongestChain(table), 12u);
}

TEST(CMNInetAddrHashTest, OneBitChanged_Hashed_HalfOfTheBitsChange)
{
    for (const char* host : {"1.2.3.4", "fe80::1:2:3:4"}) {
        const CMNInetAddr address(host, 1000);
        int changed = 0;
        int cases = 0;
        for (int byte = 2; byte < address.GetSize(); ++byte) {
            for (int bit = 0; bit < 8; ++bit) {
                CMNInetAddr other(address);
                static_cast<unsigned char*>(other.GetPtr())[byte] ^= static_cast<unsigned char>(1 << bit);
                if (other == address)
                    continue;  // neither port nor address
                changed += __builtin_popcount(other.hash() ^ address.hash());
                ++cases;
            }
        }
        EXPECT_EQ(cases, host[0] == '1' ? 48 : 144);
        EXPECT_NEAR(static_cast<double>(changed) / cases, 16.0, 3.5) << host;
    }
}

TEST(CMNInetAddrHashTest, SameAddresses_AnotherProcess_OtherHashes)
{
    const std::string own = PrintHashes();
    EXPECT_EQ(own, PrintHashes());
    if (std::getenv(PRINT)) {
        std::printf("hashes: %s\n", own.c_str());
        return;
    }
    const std::string one = AskNewProcess();
    const std::string two = AskNewProcess();
    ASSERT_NE(one, "");
    ASSERT_NE(two, "");
    EXPECT_NE(one, two);
    EXPECT_NE(one, own);
}

}  // namespace
}  // namespace mantle
