// The addresses of a link's network that are nobody's, as a source and as a destination.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "PacketMaker.h"
#include "SocketSupport.h"
#include "ipstack/ipstack.h"

namespace
{

using namespace packetmaker;
using socketsupport::GetCounter;

constexpr const char* s_szPeer = "10.70.0.6";
constexpr const char* s_szAll = "255.255.255.255";
constexpr int s_nReassemblyMs = 20000;  // longer than a fragment is kept

class CKeeper : public ipstack::IIPStackLowLevel
{
public:
    unsigned long IPStackLowLevelOutput(const char* data, unsigned long length, unsigned char) override
    {
        m_Packets.emplace_back(data, data + length);
        return 0;
    }
    std::vector<CPacket> m_Packets;
};

// A link with this address and mask.
class CMaskedLink
{
public:
    CMaskedLink(const char* address, const char* mask)
    {
        socketsupport::Start();
        ipstack::CIPStackConfig config;
        config.m_strAddress = address;
        config.m_strMask = mask;
        config.m_strGateway = s_szPeer;  // so that every answer has a way out
        EXPECT_EQ(0u, ipstack::IIPStackManager::Instance()->CreateStack(config, &m_Below, m_pStack));
    }
    ~CMaskedLink() { EXPECT_EQ(0u, ipstack::IIPStackManager::Instance()->DestroyStack(m_pStack)); }
    CMaskedLink(const CMaskedLink&) = delete;
    CMaskedLink& operator=(const CMaskedLink&) = delete;

    void Input(const CPacket& packet) { m_pStack->Input(reinterpret_cast<const char*>(packet.data()), packet.size()); }

    std::size_t CountSent() const { return m_Below.m_Packets.size(); }

    // Whether an echo request from this source is answered. One that is not must be counted by this name.
    bool IsAnswered(const char* source, const char* destination, const char* counter)
    {
        const std::uint64_t before = GetCounter(counter);
        m_Below.m_Packets.clear();
        Input(Make4({source, destination, 1}, Echo4(1, CBytes(8))));
        EXPECT_EQ(before + (m_Below.m_Packets.empty() ? 1 : 0), GetCounter(counter)) << source;
        return !m_Below.m_Packets.empty();
    }
    bool IsAnsweredTo(const char* source, const char* destination)
    {
        return IsAnswered(source, destination, "filter.source_not_unicast");
    }

private:
    CKeeper m_Below;
    ipstack::IIPStack* m_pStack = nullptr;
};

TEST(CIPBroadcastTest, Mask24_FirstAndLastAddressAsSource_Dropped)
{
    CMaskedLink link("10.70.0.1", "255.255.255.0");
    EXPECT_FALSE(link.IsAnsweredTo("10.70.0.0", "10.70.0.1"));
    EXPECT_FALSE(link.IsAnsweredTo("10.70.0.255", "10.70.0.1"));
    EXPECT_TRUE(link.IsAnsweredTo("10.70.0.254", "10.70.0.1"));
    EXPECT_TRUE(link.IsAnsweredTo("10.71.0.255", "10.70.0.1")) << "another network's mask is not known";
}

TEST(CIPBroadcastTest, Mask30_FirstAndLastAddressAsSource_Dropped)
{
    CMaskedLink link("10.70.0.5", "255.255.255.252");
    EXPECT_FALSE(link.IsAnsweredTo("10.70.0.4", "10.70.0.5"));
    EXPECT_FALSE(link.IsAnsweredTo("10.70.0.7", "10.70.0.5"));
    EXPECT_TRUE(link.IsAnsweredTo("10.70.0.6", "10.70.0.5"));
    EXPECT_TRUE(link.IsAnsweredTo("10.70.0.8", "10.70.0.5"));
}

TEST(CIPBroadcastTest, Mask31_BothAddresses_AreHosts)
{
    CMaskedLink upper("10.70.0.7", "255.255.255.254");
    EXPECT_TRUE(upper.IsAnsweredTo("10.70.0.6", "10.70.0.7"));
    CMaskedLink lower("10.70.0.10", "255.255.255.254");
    EXPECT_TRUE(lower.IsAnsweredTo("10.70.0.11", "10.70.0.10"));
}

TEST(CIPBroadcastTest, Mask32_Neighbours_AreHosts)
{
    CMaskedLink link("10.70.0.4", "255.255.255.255");
    for (const char* source : {"10.70.0.3", "10.70.0.5", "10.70.0.0", "10.70.0.255"}) {
        EXPECT_TRUE(link.IsAnsweredTo(source, "10.70.0.4")) << source;
    }
}

TEST(CIPBroadcastTest, Wire_EndsOfAMask31_ReachEachOther)
{
    socketsupport::Start();
    ipstack::CIPStackWire wire;
    ipstack::CIPStackConfig a;
    a.m_strAddress = "10.72.0.0";
    a.m_strMask = "255.255.255.254";
    ipstack::CIPStackConfig b = a;
    b.m_strAddress = "10.72.0.1";
    const std::uint64_t before = GetCounter("filter.source_not_unicast");
    ASSERT_EQ(0u, wire.Open(a, b, ipstack::CIPStackWireSettings()));
    const int raw = ps_socket(PS_AF_INET, PS_SOCK_RAW, 200);
    ps_sockaddr_in to{};
    to.sin_len = sizeof(to);
    to.sin_family = PS_AF_INET;
    for (const char* end : {"10.72.0.0", "10.72.0.1"}) {
        to.sin_addr = Address4(end);
        EXPECT_EQ(4, ps_sendto(raw, "ping", 4, 0, reinterpret_cast<const ps_sockaddr*>(&to), sizeof(to)));
        ASSERT_EQ(PS_POLLIN, socketsupport::WaitFor(raw, PS_POLLIN));
        char packet[100];
        EXPECT_EQ(24, ps_recv(raw, packet, sizeof(packet), 0));
    }
    ps_close(raw);
    EXPECT_EQ(before, GetCounter("filter.source_not_unicast"));
}

TEST(CIPBroadcastTest, NetworksBroadcastAddressAsDestination_AnyPacket_Unanswered)
{
    CMaskedLink link("10.70.0.1", "255.255.255.0");
    EXPECT_FALSE(link.IsAnswered(s_szPeer, "10.70.0.255", "filter.not_ours"));
    EXPECT_FALSE(link.IsAnswered(s_szPeer, "10.70.0.0", "filter.not_ours"));
}

TEST(CIPBroadcastTest, AllOnesAsDestination_AnyPacket_Unanswered)
{
    socketsupport::CTime time;
    CMaskedLink link("10.70.0.1", "255.255.255.0");
    EXPECT_FALSE(link.IsAnswered(s_szPeer, s_szAll, "lwip.icmp.err"));
    CHeader4 header{s_szPeer, s_szAll};
    link.Input(Make4(header, Udp4(header, 1000, 1001, CBytes(10))));  // nobody has the port
    header.m_bProtocol = 6;
    CTcp segment;
    segment.m_wSource = 1000;
    segment.m_wDestination = 1001;
    segment.m_bFlags = Syn;
    link.Input(Make4(header, Tcp4(header, segment)));
    segment.m_bFlags = Ack;
    link.Input(Make4(header, Tcp4(header, segment)));
    header.m_bProtocol = 200;  // nobody speaks it
    link.Input(Make4(header, CBytes(20)));
    header.m_bProtocol = 17;
    header.m_wFragment = 0x2000;
    link.Input(Make4(header, CBytes(16)));  // and no second fragment
    socketsupport::CTime::Pass(s_nReassemblyMs);
    EXPECT_EQ(0u, link.CountSent());
    EXPECT_EQ(1u, GetCounter("icmp.of_broadcast"));
    header.m_szDestination = "10.70.0.1";
    link.Input(Make4(header, CBytes(16)));
    socketsupport::CTime::Pass(s_nReassemblyMs);
    EXPECT_EQ(1u, link.CountSent()) << "of what was for this address alone the sender is told";
}

}  // namespace
