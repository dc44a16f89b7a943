// Raw IP between the library and a far side that the test plays, IPv4 and IPv6; ICMP with the stack itself.
#include <gtest/gtest.h>

#include "tests/integration/support/CClient.h"
#include "tests/integration/support/CForgedLink.h"
#include "tests/integration/support/CListener.h"

using namespace uxport;

namespace
{

constexpr std::size_t HEADER4 = 20;
constexpr unsigned short FAMILY4 = CMNInetAddr::s_wFamilyIpv4;
constexpr unsigned short FAMILY6 = CMNInetAddr::s_wFamilyIpv6;

class RawLinkTest : public testing::TestWithParam<unsigned short>
{
protected:
    RawLinkTest()
    {
        m_Listener.m_dwType = CONNECTION_TYPE_RAW;
        m_Listener.m_wNumber1 = GetParam();
        m_Listener.m_wNumber2 = CForgedLink::s_bRawProtocol;
        m_Client.m_dwType = CONNECTION_TYPE_RAW;
        m_Client.m_wNumber1 = GetParam();
        m_Client.m_wNumber2 = CForgedLink::s_bRawProtocol;
    }
    ~RawLinkTest() override
    {
        m_Network.Run([this] {
            m_Listener.Close();
            m_Client.Drop();
            m_Client.ReleaseConnector();
        });
        m_Network.Turn();
    }

    bool IsIpv6() const { return GetParam() == FAMILY6; }
    std::string Peer(unsigned int peer) const
    {
        return IsIpv6() ? CForgedLink::PeerName6(peer) : CForgedLink::PeerName(peer);
    }
    void Input(unsigned int peer, const std::string& text)
    {
        m_Network.Run([&] {
            EXPECT_EQ(0UL, m_Link.Input(IsIpv6() ? CForgedLink::Raw6(peer, text) : CForgedLink::Raw(peer, text)));
        });
    }

    // What the library hands out for a packet: IPv4 with the header in front.
    bool Received(const CPeer& peer, const std::string& text) const
    {
        const std::string& all = peer.m_strReceived;
        const std::size_t header = IsIpv6() ? 0 : HEADER4;
        return all.size() == header + text.size() && all.substr(header) == text && (IsIpv6() || all[0] == 0x45);
    }

    void Listen()
    {
        const CMNInetAddr address(IsIpv6() ? "::" : "0.0.0.0", 0);
        m_Network.Run([&] { EXPECT_EQ(MN_OK, m_Listener.Listen(address)); });
    }
    bool Connect(unsigned int peer)
    {
        m_Network.Run([&] {
            CMNInetAddr local(IsIpv6() ? "fd09::1" : "10.9.0.1", 0);
            EXPECT_EQ(MN_OK, m_Client.Connect(CMNInetAddr(Peer(peer), 0), 0, &local));
            EXPECT_FALSE(m_Client.IsConnected());
        });
        return m_Network.WaitFor([&] { return m_Client.IsConnected(); });
    }

    CNetwork m_Network;
    CForgedLink m_Link;
    CListener m_Listener{m_Network};
    CClient m_Client{m_Network};
};

INSTANTIATE_TEST_SUITE_P(Family, RawLinkTest, testing::Values(FAMILY4, FAMILY6),
                         [](const auto& tested) { return tested.param == FAMILY4 ? "Ipv4" : "Ipv6"; });

TEST_P(RawLinkTest, Acceptor_PacketsOfTwoSources_HaveATransportEachAndAreAnswered)
{
    Listen();
    Input(0, "one");
    Input(1, "two");
    ASSERT_TRUE(m_Network.WaitFor([&] { return m_Listener.GetCount() == 2; }));
    EXPECT_TRUE(Received(m_Listener.GetPeer(0), "one"));
    EXPECT_TRUE(Received(m_Listener.GetPeer(1), "two"));
    m_Network.Run([this] {
        CMNInetAddr peer;
        EXPECT_EQ(MN_OK, m_Listener.GetPeer(1).GetTransport()->GetPeerAddr(peer));
        EXPECT_EQ(CMNInetAddr(Peer(1), 0), peer);
        m_Link.TakeOutput();
        m_Listener.GetPeer(1).Send("answer");
    });
    EXPECT_EQ((std::vector<std::string>{Peer(1) + " answer"}), m_Link.TakeOutput());
    EXPECT_EQ(2, m_Listener.m_nIndications);
}

TEST_P(RawLinkTest, Connector_WithALocalAddress_SendsToItsPeerAndHearsItAlone)
{
    ASSERT_TRUE(Connect(0));
    m_Link.TakeOutput();
    m_Network.Run([this] { m_Client.Send("request"); });
    EXPECT_EQ((std::vector<std::string>{Peer(0) + " request"}), m_Link.TakeOutput());
    Input(1, "stranger");
    Input(0, "reply");
    ASSERT_TRUE(m_Network.WaitFor([&] { return !m_Client.m_strReceived.empty(); }));
    m_Network.Turn();
    EXPECT_TRUE(Received(m_Client, "reply"));
}

TEST_P(RawLinkTest, OtherProtocol_Arrives_IsNotSeen)
{
    m_Listener.m_wNumber2 = CForgedLink::s_bRawProtocol + 1;
    Listen();
    Input(0, "not for us");
    m_Network.Turn();
    EXPECT_EQ(0, m_Listener.m_nIndications);
}

TEST_P(RawLinkTest, Type_OfARawTransport_IsAnsweredAsEight)
{
    ASSERT_TRUE(Connect(0));
    m_Network.Run([this] {
        std::uint64_t type = 0;
        EXPECT_EQ(MN_OK, m_Client.GetTransport()->GetOption(OPT_TYPE, &type));
        EXPECT_EQ(8U, type);
    });
}

TEST_P(RawLinkTest, HeaderIncluded_Set_TheSenderWritesTheHeaderOfIpv4)
{
    ASSERT_TRUE(Connect(0));
    m_Network.Run([this] {
        std::uint64_t on = 1;
        const MNResult result = m_Client.GetTransport()->SetOption(OPT_RAW_HEADER_INCLUDED, &on);
        EXPECT_EQ(IsIpv6() ? MN_ERROR_NETWORK_SOCKET_ERROR : MN_OK, result);
        if (IsIpv6())
            return;
        m_Link.TakeOutput();
        const std::string to = Peer(0);
        const packetmaker::CPacket packet =
            packetmaker::Make4({"10.9.0.1", to.c_str(), CForgedLink::s_bRawProtocol}, {'o', 'w', 'n'});
        m_Client.Send(std::string(packet.begin(), packet.end()));
        EXPECT_EQ((std::vector<std::string>{to + " own"}), m_Link.TakeOutput());
    });
}

TEST_P(RawLinkTest, UnknownFamily_ListenAndConnect_Fail)
{
    m_Listener.m_wNumber1 = 3;
    m_Client.m_wNumber1 = 3;
    m_Network.Run([this] {
        EXPECT_EQ(MN_ERROR_FAILURE, m_Listener.Listen(CMNInetAddr("0.0.0.0", 0)));
        EXPECT_EQ(MN_OK, m_Client.Connect(CMNInetAddr(Peer(0), 0)));
    });
    EXPECT_TRUE(m_Network.WaitFor([&] { return m_Client.m_Results == std::vector<long>{10001}; }));
}

// ICMP type 8 goes to the stack, which answers with type 0 (RFC 792).
TEST(RawIcmpTest, EchoRequest_ToAnAddressOfTheStack_IsAnsweredByTheStack)
{
    constexpr unsigned char ICMP = 1;
    CNetwork network;
    CClient client(network);
    client.m_dwType = CONNECTION_TYPE_RAW;
    client.m_wNumber1 = FAMILY4;
    client.m_wNumber2 = ICMP;
    network.Run([&] { EXPECT_EQ(MN_OK, client.Connect(Loopback(0))); });
    ASSERT_TRUE(network.WaitFor([&] { return client.IsConnected(); }));
    const packetmaker::CBytes request = packetmaker::Echo4(77, {'p', 'i', 'n', 'g'});
    network.Run([&] { client.Send(std::string(request.begin(), request.end())); });
    // The own request comes back first: a raw socket gets a copy of everything of its protocol.
    const std::size_t size = HEADER4 + request.size();
    ASSERT_TRUE(network.WaitFor([&] { return client.m_strReceived.size() == 2 * size; }));
    EXPECT_EQ(8, client.m_strReceived[HEADER4]);
    EXPECT_EQ(0, client.m_strReceived[size + HEADER4]);
    EXPECT_EQ("ping", client.m_strReceived.substr(2 * size - 4));
    network.Run([&] { client.Drop(); });
}

}  // namespace
