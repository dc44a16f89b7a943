// UDP and raw endpoints that the main thread owns.
#include <gtest/gtest.h>

#include <array>

#include "ipstack/ipstack.h"
#include "tests/integration/support/CUserClient.h"
#include "tests/integration/support/CUserServer.h"

using namespace uxport;

namespace
{

constexpr unsigned short PORT = 7071;
constexpr unsigned short PROTOCOL = 253;  // for experiments (RFC 3692)

class ProxyDatagramTest : public testing::TestWithParam<unsigned long>
{
protected:
    static constexpr std::size_t s_nPeers = 3;

    ProxyDatagramTest()
    {
        m_pServer->m_dwType = GetParam();
        SetNumbers(*m_pServer);
    }
    void TearDown() override
    {
        m_Clients = {};
        m_pServer.reset();
        EXPECT_EQ(m_lBefore, m_User.SettleTo(m_lBefore));
    }

    bool IsUdp() const { return GetParam() == CONNECTION_TYPE_UDP; }
    CMNInetAddr Address() const { return Loopback(IsUdp() ? PORT : 0); }

    template <class End>
    void SetNumbers(End& end) const
    {
        end.m_wFamily = IsUdp() ? 0 : CMNInetAddr::s_wFamilyIpv4;
        end.m_wProtocol = IsUdp() ? 0 : PROTOCOL;
    }

    // A raw peer is known by its address alone: one is all that loopback has.
    std::size_t CountPeers() const { return IsUdp() ? s_nPeers : 1; }

    CUserClient& Connect(std::size_t index)
    {
        m_Clients[index] = std::make_unique<CUserClient>(m_User);
        CUserClient& client = *m_Clients[index];
        client.m_dwType = GetParam();
        SetNumbers(client);
        EXPECT_EQ(MN_OK, client.Connect(Address(), 5));
        EXPECT_TRUE(client.m_Results.empty()) << "not inside the call";
        EXPECT_TRUE(m_User.RunUntil([&] { return client.IsConnected(); }));
        return client;
    }

    void LetNetworkWork()
    {
        for (int i = 0; i < 5; ++i)
            m_Network.Turn();
    }

    CNetwork m_Network;
    CUserLoop m_User{m_Network};
    const long m_lBefore = mantle::CMNLiveObjects::Count();
    std::unique_ptr<CUserServer> m_pServer = std::make_unique<CUserServer>(m_User);
    std::array<std::unique_ptr<CUserClient>, s_nPeers> m_Clients;
};

INSTANTIATE_TEST_SUITE_P(Protocol, ProxyDatagramTest, testing::Values(CONNECTION_TYPE_UDP, CONNECTION_TYPE_RAW),
                         [](const auto& type) { return type.param == CONNECTION_TYPE_UDP ? "Udp" : "Raw"; });

TEST_P(ProxyDatagramTest, FirstDatagram_OfEachPeer_OneIndicationAndItsOwnTransport)
{
    ASSERT_EQ(MN_OK, m_pServer->Listen(Address()));
    for (std::size_t i = 0; i < CountPeers(); ++i) {
        CUserClient& client = Connect(i);
        client.Send("first");
        ASSERT_TRUE(m_User.RunUntil([&] { return m_pServer->GetCount() == i + 1; }));
        CUserPeer& peer = m_pServer->GetPeer(i);
        ASSERT_TRUE(m_User.RunUntil([&] { return peer.m_nOnReceive == 1; }));
        client.Send("second");
        ASSERT_TRUE(m_User.RunUntil([&] { return peer.m_nOnReceive == 2; }));
        if (IsUdp()) {
            EXPECT_EQ("firstsecond", peer.m_strReceived);
            peer.Send("answer");
            ASSERT_TRUE(m_User.RunUntil([&] { return client.m_strReceived == "answer"; }));
        }
    }
    EXPECT_EQ(static_cast<int>(CountPeers()), m_pServer->m_nIndications);
}

TEST_P(ProxyDatagramTest, Stopped_PeersKept_NothingComesAnyMore)
{
    ASSERT_EQ(MN_OK, m_pServer->Listen(Address()));
    CUserClient& client = Connect(0);
    client.Send("heard");
    ASSERT_TRUE(m_User.RunUntil([&] { return m_pServer->GetCount() == 1 && m_pServer->GetPeer().m_nOnReceive == 1; }));
    ASSERT_EQ(MN_OK, m_pServer->Stop());
    LetNetworkWork();
    client.Send("not heard");
    LetNetworkWork();
    m_User.Settle();
    EXPECT_EQ(1, m_pServer->GetPeer().m_nOnReceive);
    EXPECT_EQ(1, m_pServer->m_nIndications);
}

// A peer's reference keeps the acceptor, not its service: nothing may call the sink of a server that has gone.
TEST_P(ProxyDatagramTest, ReleasedWithoutStop_PeerKept_AnotherPeerReachesNobody)
{
    ASSERT_EQ(MN_OK, m_pServer->Listen(Address()));
    CUserClient& client = Connect(0);
    client.Send("first");
    ASSERT_TRUE(m_User.RunUntil([&] { return m_pServer->GetCount() == 1; }));
    m_pServer->ReleaseAcceptor();
    m_User.Settle();
    LetNetworkWork();
    CUserClient& second = Connect(1);
    second.Send("nobody hears this");
    client.Send("nor this");
    LetNetworkWork();
    m_User.Settle();
    EXPECT_EQ(1, m_pServer->m_nIndications);
    EXPECT_LE(m_pServer->GetPeer().m_nOnReceive, 1);
}

TEST_P(ProxyDatagramTest, IndicationQueued_Stopped_NothingIsDeliveredAndNothingStays)
{
    ASSERT_EQ(MN_OK, m_pServer->Listen(Address()));
    CUserClient& client = Connect(0);
    client.Send("too late");
    LetNetworkWork();
    ASSERT_EQ(MN_OK, m_pServer->Stop());
    m_User.Settle();
    EXPECT_EQ(0, m_pServer->m_nIndications);
}

TEST_P(ProxyDatagramTest, PeerDisconnected_SendsAgain_IsIndicatedAgain)
{
    ASSERT_EQ(MN_OK, m_pServer->Listen(Address()));
    CUserClient& client = Connect(0);
    for (std::size_t i = 0; i < 5; ++i) {
        client.Send("hello");
        ASSERT_TRUE(m_User.RunUntil([&] { return m_pServer->GetCount() == i + 1; }));
        m_pServer->GetPeer(i).Drop();
        LetNetworkWork();
        m_User.Settle();
    }
}

TEST_P(ProxyDatagramTest, Cancelled_BeforeTheIndicationRuns_NothingIsDelivered)
{
    m_Clients[0] = std::make_unique<CUserClient>(m_User);
    CUserClient& client = *m_Clients[0];
    client.m_dwType = GetParam();
    SetNumbers(client);
    ASSERT_EQ(MN_OK, client.Connect(Address(), 5));
    LetNetworkWork();
    EXPECT_EQ(MN_OK, client.Cancel());
    m_User.Settle();
    EXPECT_TRUE(client.m_Results.empty());
    EXPECT_EQ(1U, client.Cancel());
}

// A refused datagram is dropped for UDP and keeps its place in the queue for raw, where it is refused for ever.
TEST_P(ProxyDatagramTest, SendData_LongerThanADatagram_IsDroppedForUdpAndQueuedForRaw)
{
    ASSERT_EQ(MN_OK, m_pServer->Listen(Address()));
    CUserClient& client = Connect(0);
    client.Send(std::string(65536, 'x'));
    client.Send("fits");
    LetNetworkWork();
    m_User.Settle();
    EXPECT_EQ(IsUdp() ? 1 : 0, m_pServer->m_nIndications);
    EXPECT_EQ(0, client.GetCallbacks()) << "no OnSend either";
}

}  // namespace
