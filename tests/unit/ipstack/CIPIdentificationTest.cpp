#include "platform/ipstack/CIPIdentification.h"

#include <cstring>
#include <deque>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "PacketMaker.h"
#include "SocketSupport.h"
#include "ipstack/ipstack.h"

namespace
{

using namespace packetmaker;
using CSequence = ipstack::CIPIdentification::CSequence;

constexpr const char* s_szOwn = "10.68.0.1";
constexpr const char* s_szOwn6 = "fd68::1";
constexpr unsigned int s_dwWindow = 32768;  // what must differ, of the 65536 numbers there are
constexpr unsigned int s_dwMtu = 1400;

// RFC 1071: a header with the right checksum sums to this.
unsigned int SumHeader(const CPacket& packet)
{
    std::uint32_t sum = 0;
    for (std::size_t at = 0; at < 20; at += 2) {
        sum += static_cast<std::uint32_t>(packet[at] << 8 | packet[at + 1]);
    }
    sum = (sum & 0xFFFF) + (sum >> 16);
    return (sum & 0xFFFF) + (sum >> 16);
}

unsigned int Id4(const CPacket& packet)
{
    return static_cast<unsigned int>(packet[4] << 8 | packet[5]);
}

std::uint32_t Id6(const CPacket& packet)
{
    return static_cast<std::uint32_t>(packet[44]) << 24 | static_cast<std::uint32_t>(packet[45]) << 16 |
           static_cast<std::uint32_t>(packet[46]) << 8 | packet[47];
}

// Keeps what leaves.
class CKeeper : public ipstack::IIPStackLowLevel
{
public:
    unsigned long IPStackLowLevelOutput(const char* data, unsigned long length, unsigned char) override
    {
        m_Packets.emplace_back(data, data + length);
        return 0;
    }
    std::vector<CPacket> Take()
    {
        std::vector<CPacket> packets;
        packets.swap(m_Packets);
        return packets;
    }

private:
    std::vector<CPacket> m_Packets;
};

class CIPIdentificationTest : public testing::Test
{
protected:
    CIPIdentificationTest()
    {
        socketsupport::Start();
        ipstack::CIPStackConfig config;
        config.m_strAddress = s_szOwn;
        config.m_strAddress6 = s_szOwn6;
        config.m_dwMtu = s_dwMtu;
        EXPECT_EQ(0u, ipstack::IIPStackManager::Instance()->CreateStack(config, &m_Below, m_pStack));
        m_nUdp = ps_socket(PS_AF_INET, PS_SOCK_DGRAM, 0);
        m_nUdp6 = ps_socket(PS_AF_INET6, PS_SOCK_DGRAM, 0);
    }
    ~CIPIdentificationTest() override
    {
        ps_close(m_nUdp);
        ps_close(m_nUdp6);
        EXPECT_EQ(0u, ipstack::IIPStackManager::Instance()->DestroyStack(m_pStack));
    }

    static long Send4(int handle, const CBytes& bytes, const char* to)
    {
        ps_sockaddr_in address{};
        address.sin_len = sizeof(address);
        address.sin_family = PS_AF_INET;
        address.sin_port = 0x0900;
        address.sin_addr = Address4(to);
        return ps_sendto(handle, bytes.data(), bytes.size(), 0, reinterpret_cast<const ps_sockaddr*>(&address),
                         sizeof(address));
    }
    static long Send6(int handle, const CBytes& bytes, const char* to)
    {
        ps_sockaddr_in6 address{};
        address.sin6_len = sizeof(address);
        address.sin6_family = PS_AF_INET6;
        address.sin6_port = 0x0900;
        const auto host = Address6(to);
        std::memcpy(address.sin6_addr, host.data(), host.size());
        return ps_sendto(handle, bytes.data(), bytes.size(), 0, reinterpret_cast<const ps_sockaddr*>(&address),
                         sizeof(address));
    }

    // The identifications of this many datagrams to one peer.
    std::vector<unsigned int> Draw(const char* to, unsigned int count)
    {
        std::vector<unsigned int> ids;
        for (unsigned int i = 0; i < count; ++i) {
            EXPECT_EQ(1, Send4(m_nUdp, CBytes(1), to));
            for (const CPacket& packet : m_Below.Take()) {
                EXPECT_EQ(0xFFFFu, SumHeader(packet));
                ids.push_back(Id4(packet));
            }
        }
        EXPECT_EQ(count, ids.size());
        return ids;
    }

    CKeeper m_Below;
    ipstack::IIPStack* m_pStack = nullptr;
    int m_nUdp = 0;
    int m_nUdp6 = 0;
};

TEST(CIPIdentificationSequenceTest, AnyWindow_ManyDrawn_NoNumberTwice)
{
    CSequence sequence;
    std::vector<bool> seen(65536);
    std::deque<std::uint32_t> window;
    for (unsigned int i = 0; i < 5 * s_dwWindow; ++i) {
        const std::uint32_t id = sequence.Next(16);
        ASSERT_LT(id, 65536u);
        ASSERT_FALSE(seen[id]) << i;
        seen[id] = true;
        window.push_back(id);
        if (window.size() == s_dwWindow) {
            seen[window.front()] = false;
            window.pop_front();
        }
    }
}

TEST(CIPIdentificationSequenceTest, ManyDrawn_Differences_SpreadOverAll)
{
    // With a counter all differences are one; of numbers without order few are any given one.
    for (const unsigned int bits : {16u, 32u}) {
        CSequence sequence;
        const std::uint32_t mask = bits == 32 ? 0xFFFFFFFFu : 0xFFFFu;
        std::set<std::uint32_t> differences;
        unsigned int small = 0;
        std::uint32_t before = sequence.Next(bits);
        constexpr unsigned int draws = 20000;
        for (unsigned int i = 0; i < draws; ++i) {
            const std::uint32_t id = sequence.Next(bits);
            const std::uint32_t difference = (id - before) & mask;
            differences.insert(difference);
            small += difference < 64 || difference > mask - 64 ? 1U : 0U;
            before = id;
        }
        EXPECT_GT(differences.size(), draws / 3) << bits;
        EXPECT_LT(small, draws / 100) << bits;
    }
}

TEST(CIPIdentificationSequenceTest, TwoSequences_SameNumberDrawn_DifferentNumbers)
{
    CSequence one;
    CSequence other;
    unsigned int same = 0;
    for (unsigned int i = 0; i < 1000; ++i) {
        same += one.Next(16) == other.Next(16) ? 1U : 0U;
    }
    EXPECT_LT(same, 10u);
}

TEST_F(CIPIdentificationTest, OnePeer_ManyDatagrams_NoneTwiceAndNoneInOrder)
{
    const std::vector<unsigned int> ids = Draw("10.68.0.2", s_dwWindow);
    EXPECT_EQ(s_dwWindow, std::set<unsigned int>(ids.begin(), ids.end()).size());
    unsigned int consecutive = 0;
    for (std::size_t i = 1; i < ids.size(); ++i) {
        consecutive += ids[i] == ids[i - 1] + 1 ? 1U : 0U;
    }
    EXPECT_LT(consecutive, 50u);
}

// With one counter for all, the gap between two answers tells how much went to others in between.
TEST_F(CIPIdentificationTest, TwoPeers_OneSendsAndTheOtherNot_NothingToBeSeen)
{
    std::vector<unsigned int> quiet;
    std::vector<unsigned int> busy;
    for (unsigned int round = 0; round < 200; ++round) {
        const unsigned int before = Draw("10.68.0.2", 1)[0];
        Draw("10.68.0.3", round % 2 == 0 ? 0 : 7);
        const unsigned int gap = (Draw("10.68.0.2", 1)[0] - before) & 0xFFFF;
        (round % 2 == 0 ? quiet : busy).push_back(gap);
    }
    const auto distinct = [](const std::vector<unsigned int>& gaps) {
        return std::set<unsigned int>(gaps.begin(), gaps.end()).size();
    };
    EXPECT_GT(distinct(quiet), 95u);
    EXPECT_GT(distinct(busy), 95u);
}

// An echo reply is made of the request: its identification would be the asker's choice.
TEST_F(CIPIdentificationTest, EchoRequests_SameIdentification_RepliesDiffer)
{
    std::set<unsigned int> ids;
    for (unsigned int i = 0; i < 100; ++i) {
        const CPacket request = Make4({"10.68.0.2", s_szOwn, 1, 0, 77}, Echo4(1, CBytes(8)));
        EXPECT_EQ(0u, m_pStack->Input(reinterpret_cast<const char*>(request.data()), request.size()));
        const std::vector<CPacket> replies = m_Below.Take();
        ASSERT_EQ(1u, replies.size());
        EXPECT_EQ(0xFFFFu, SumHeader(replies[0]));
        ids.insert(Id4(replies[0]));
    }
    EXPECT_EQ(100u, ids.size());
}

TEST_F(CIPIdentificationTest, LongDatagrams_Ipv4_FragmentsOfEachAgree)
{
    std::set<unsigned int> ids;
    for (unsigned int i = 0; i < 50; ++i) {
        ASSERT_EQ(6000, Send4(m_nUdp, CBytes(6000), "10.68.0.2"));
        const std::vector<CPacket> fragments = m_Below.Take();
        ASSERT_EQ(5u, fragments.size());
        for (const CPacket& fragment : fragments) {
            EXPECT_EQ(Id4(fragments[0]), Id4(fragment));
            EXPECT_EQ(0xFFFFu, SumHeader(fragment));
        }
        ids.insert(Id4(fragments[0]));
    }
    EXPECT_EQ(50u, ids.size());
}

TEST_F(CIPIdentificationTest, LongDatagrams_Ipv6_FragmentsOfEachAgreeWithoutOrder)
{
    std::set<std::uint32_t> ids;
    std::uint32_t before = 0;
    for (unsigned int i = 0; i < 50; ++i) {
        ASSERT_EQ(6000, Send6(m_nUdp6, CBytes(6000), "fd68::2"));
        const std::vector<CPacket> fragments = m_Below.Take();
        ASSERT_EQ(5u, fragments.size());
        for (const CPacket& fragment : fragments) {
            ASSERT_EQ(44, fragment[6]);
            EXPECT_EQ(Id6(fragments[0]), Id6(fragment));
        }
        const std::uint32_t id = Id6(fragments[0]);
        EXPECT_GT(id - before, 1000u);
        EXPECT_GT(before - id, 1000u);
        before = id;
        ids.insert(id);
    }
    EXPECT_EQ(50u, ids.size());
}

TEST_F(CIPIdentificationTest, HeaderOfAProgram_Sent_KeepsItsIdentification)
{
    const int raw = ps_socket(PS_AF_INET, PS_SOCK_RAW, 255);
    for (const std::uint16_t id : {std::uint16_t{0}, std::uint16_t{1}, std::uint16_t{4711}}) {
        const CPacket packet = Make4({s_szOwn, "10.68.0.2", 200, 0, id}, CBytes(8));
        ASSERT_EQ(28, Send4(raw, packet, "10.68.0.2"));
        const CPacket longer = Make4({s_szOwn, "10.68.0.2", 200, 0, id}, CBytes(3000));
        ASSERT_EQ(3020, Send4(raw, longer, "10.68.0.2"));
        const std::vector<CPacket> sent = m_Below.Take();
        ASSERT_EQ(4u, sent.size());
        EXPECT_EQ(packet, sent[0]);
        for (const CPacket& one : sent) {
            EXPECT_EQ(id, Id4(one));
        }
    }
    ps_close(raw);
    const std::vector<unsigned int> after = Draw("10.68.0.2", 3);
    EXPECT_FALSE(after[1] == after[0] + 1 && after[2] == after[1] + 1) << "the stack's own are without order again";
}

TEST_F(CIPIdentificationTest, FragmentOfAProgram_Sent_KeepsItsIdentification)
{
    const int raw = ps_socket(PS_AF_INET6, PS_SOCK_RAW, 44);
    const CBytes fragment = Fragment6(17, 0, true, 0x01020304, CBytes(16));
    ASSERT_EQ(24, Send6(raw, fragment, "fd68::2"));
    const std::vector<CPacket> sent = m_Below.Take();
    ASSERT_EQ(1u, sent.size());
    EXPECT_EQ(fragment, CBytes(sent[0].begin() + 40, sent[0].end()));
    ps_close(raw);
}

// Over a wire: fragments of two datagrams at a time reach the other end whole.
TEST_F(CIPIdentificationTest, LongDatagramsOverAWire_Sent_ArriveWhole)
{
    ipstack::CIPStackWire wire;
    ipstack::CIPStackConfig a;
    a.m_strAddress = "10.69.0.1";
    a.m_strAddress6 = "fd69::1";
    a.m_dwMtu = s_dwMtu;
    ipstack::CIPStackConfig b = a;
    b.m_strAddress = "10.69.0.2";
    b.m_strAddress6 = "fd69::2";
    ASSERT_EQ(0u, wire.Open(a, b, ipstack::CIPStackWireSettings()));
    ps_sockaddr_in local{};
    local.sin_len = sizeof(local);
    local.sin_family = PS_AF_INET;
    local.sin_port = 0x0900;
    const int end = ps_socket(PS_AF_INET, PS_SOCK_DGRAM, 0);
    ASSERT_EQ(0, ps_bind(end, reinterpret_cast<const ps_sockaddr*>(&local), sizeof(local)));
    ps_sockaddr_in6 local6{};
    local6.sin6_len = sizeof(local6);
    local6.sin6_family = PS_AF_INET6;
    local6.sin6_port = 0x0900;
    const int end6 = ps_socket(PS_AF_INET6, PS_SOCK_DGRAM, 0);
    ASSERT_EQ(0, ps_bind(end6, reinterpret_cast<const ps_sockaddr*>(&local6), sizeof(local6)));
    for (const std::size_t length : {5000u, 30000u}) {
        const std::vector<char> text = socketsupport::Pattern(length, length);
        const CBytes bytes(text.begin(), text.end());
        ASSERT_EQ(static_cast<long>(length), Send4(m_nUdp, bytes, "10.69.0.2"));
        ASSERT_EQ(static_cast<long>(length), Send6(m_nUdp6, bytes, "fd69::2"));
        for (const int handle : {end, end6}) {
            ASSERT_EQ(PS_POLLIN, socketsupport::WaitFor(handle, PS_POLLIN));
            std::vector<char> received(65536);
            ASSERT_EQ(static_cast<long>(length), ps_recv(handle, received.data(), received.size(), 0));
            EXPECT_EQ(0, std::memcmp(received.data(), text.data(), length));
        }
    }
    ps_close(end);
    ps_close(end6);
}

}  // namespace
