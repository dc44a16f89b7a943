// How connections that the main thread owns end, and what is delivered until then and behind.
#include <gtest/gtest.h>

#include "ipstack/ipstack.h"
#include "ipstack/ps_socket.h"
#include "tests/integration/support/CBytes.h"
#include "tests/integration/support/CUserClient.h"
#include "tests/integration/support/CUserServer.h"

using namespace uxport;

namespace
{

constexpr unsigned short PORT = 7031;

class ProxyCloseTest : public testing::Test
{
protected:
    void SetUp() override
    {
        m_pServer = std::make_unique<CUserServer>(m_User);
        m_pClient = std::make_unique<CUserClient>(m_User);
        ASSERT_EQ(MN_OK, m_pServer->Listen(Loopback(PORT)));
        Connect();
    }

    void Connect()
    {
        const std::size_t count = m_pServer->GetCount() + 1;
        ASSERT_EQ(MN_OK, m_pClient->Connect(Loopback(PORT), 5));
        ASSERT_TRUE(m_User.RunUntil([&] { return m_pClient->IsConnected() && m_pServer->GetCount() == count; }));
    }

    void TearDown() override
    {
        m_pClient.reset();
        m_pServer.reset();
        EXPECT_EQ(m_lBefore, m_User.SettleTo(m_lBefore));
    }

    // Keeps the network thread from its events until the next call.
    void HoldNetwork()
    {
        m_Held.Reset();
        m_Network.Post([this] { m_Held.Wait(); });
    }
    void ReleaseNetwork() { m_Held.Signal(); }

    CNetwork m_Network;
    CUserLoop m_User{m_Network};
    const long m_lBefore = mantle::CMNLiveObjects::Count();
    mantle::CMNEventThread m_Held{1, 0};
    std::unique_ptr<CUserServer> m_pServer;
    std::unique_ptr<CUserClient> m_pClient;
};

TEST_F(ProxyCloseTest, PeerSendsAndDisconnects_DataArrivesBeforeTheEnd)
{
    const std::string sent = CBytes(3).Make(60000);
    m_pServer->GetPeer().Send(sent);
    m_pServer->GetPeer().Drop();
    ASSERT_TRUE(m_User.RunUntil([this] { return m_pClient->m_nOnDisconnect == 1; }));
    EXPECT_TRUE(sent == m_pClient->m_strReceived);
    EXPECT_EQ(static_cast<long>(MN_ERROR_FAILURE), m_pClient->m_lReason);
    m_User.Settle();
    EXPECT_EQ(1, m_pClient->m_nOnDisconnect);
    EXPECT_EQ(0, m_pServer->GetPeer().GetCallbacks()) << "it disconnected itself";
}

TEST_F(ProxyCloseTest, BacklogLeft_Disconnects_PeerHasABeginningOnly)
{
    const std::string sent = CBytes(4).Make(3000000);
    HoldNetwork();
    m_pServer->GetPeer().Send(sent);
    m_pServer->GetPeer().Drop();
    ReleaseNetwork();
    ASSERT_TRUE(m_User.RunUntil([this] { return m_pClient->m_nOnDisconnect == 1; }));
    EXPECT_LT(m_pClient->m_qwReceived, sent.size());
    EXPECT_EQ(sent.substr(0, m_pClient->m_qwReceived), m_pClient->m_strReceived);
}

TEST_F(ProxyCloseTest, EventsOnTheirWay_Disconnects_NothingIsDelivered)
{
    m_pServer->GetPeer().Send("too late");
    m_pServer->GetPeer().Drop();
    m_Network.Turn();
    m_Network.Turn();
    EXPECT_GT(m_User.GetThread().GetEventQueue()->GetPendingEventsCount(), 0U);
    EXPECT_EQ(MN_OK, m_pClient->GetTransport()->Disconnect(0));
    EXPECT_EQ(MN_OK, m_pClient->GetTransport()->Disconnect(0)) << "again";
    EXPECT_EQ(nullptr, m_pClient->GetTransport()->GetSink());
    m_User.Settle();
    EXPECT_EQ(0, m_pClient->GetCallbacks());
}

TEST_F(ProxyCloseTest, DisconnectsInsideOnReceive_RestIsNotDelivered)
{
    CUserPeer& peer = m_pServer->GetPeer();
    m_pClient->m_fOnReceive = [&](CMNMessageBlock&) { m_pClient->GetTransport()->Disconnect(0); };
    for (int i = 0; i < 3; ++i) {
        peer.Send("piece");
        m_Network.Turn();  // one event each
    }
    ASSERT_TRUE(m_User.RunUntil([&] { return peer.m_nOnDisconnect == 1; }));
    m_User.Settle();
    EXPECT_EQ(1, m_pClient->m_nOnReceive);
    EXPECT_EQ("piece", m_pClient->m_strReceived);
    EXPECT_EQ(0, m_pClient->m_nOnDisconnect);
}

TEST_F(ProxyCloseTest, ReleasedInsideOnReceive_PeerHearsTheEnd)
{
    m_pClient->m_fOnReceive = [&](CMNMessageBlock&) { m_pClient->Release(); };
    m_pServer->GetPeer().Send("piece");
    ASSERT_TRUE(m_User.RunUntil([&] { return m_pServer->GetPeer().m_nOnDisconnect == 1; }));
    EXPECT_EQ(1, m_pClient->GetCallbacks());
}

TEST_F(ProxyCloseTest, ReleasedInsideOnDisconnect_NothingLeft)
{
    m_pClient->m_fOnDisconnect = [&] { m_pClient->Release(); };
    m_pServer->GetPeer().Drop();
    ASSERT_TRUE(m_User.RunUntil([&] { return m_pClient->m_nOnDisconnect == 1; }));
}

TEST_F(ProxyCloseTest, ReleasedWithDataFlowing_DiesAndPeerHearsTheEnd)
{
    CUserPeer& peer = m_pServer->GetPeer();
    peer.m_bKeep = false;
    for (int i = 0; i < 100; ++i) {
        m_pClient->Send(std::string(50000, 'x'));
        peer.Send(std::string(50000, 'y'));
    }
    m_pClient->Release();
    ASSERT_TRUE(m_User.RunUntil([&] { return peer.m_nOnDisconnect == 1; }));
}

TEST_F(ProxyCloseTest, PeerResets_OneOnDisconnect)
{
    m_pServer->GetPeer().Send("may be lost");
    std::int32_t handle = PS_INVALID_HANDLE;
    ASSERT_EQ(MN_OK, m_pServer->GetPeer().GetTransport()->GetOption(OPT_FD, &handle));
    const std::int32_t linger[] = {1, 0};  // on, no time: the close aborts
    ASSERT_EQ(0, ps_setsockopt(handle, PS_SOL_SOCKET, PS_SO_LINGER, linger, sizeof linger));
    m_pServer->GetPeer().Drop();
    ASSERT_TRUE(m_User.RunUntil([this] { return m_pClient->m_nOnDisconnect == 1; }));
    EXPECT_EQ(static_cast<long>(MN_ERROR_FAILURE), m_pClient->m_lReason);
    m_User.Settle();
    EXPECT_EQ(1, m_pClient->m_nOnDisconnect);
}

TEST_F(ProxyCloseTest, SendsAfterTheEnd_BlockIsConsumedAndNothingHappens)
{
    m_pServer->GetPeer().Drop();
    ASSERT_TRUE(m_User.RunUntil([this] { return m_pClient->m_nOnDisconnect == 1; }));
    m_pClient->Send("nobody hears this");
    m_User.Settle();
    EXPECT_EQ(1, m_pClient->GetCallbacks());
}

TEST_F(ProxyCloseTest, IndicatedAndNotTaken_IsDisconnected)
{
    m_pServer->m_bTake = false;
    CUserClient other(m_User);
    ASSERT_EQ(MN_OK, other.Connect(Loopback(PORT), 5));
    ASSERT_TRUE(m_User.RunUntil([&] { return other.m_nOnDisconnect == 1; }));
    EXPECT_EQ(std::vector<long>{0}, other.m_Results);
    EXPECT_EQ(2, m_pServer->m_nIndications);
}

TEST_F(ProxyCloseTest, DataBeforeOpenWithSink_IsLost)
{
    m_pServer->m_bOpen = false;
    Connect();
    CUserPeer& late = m_pServer->GetPeer(1);
    m_pClient->Send("lost");
    m_User.Settle();
    EXPECT_EQ(MN_OK, late.GetTransport()->OpenWithSink(&late));
    m_pClient->Send("heard");
    ASSERT_TRUE(m_User.RunUntil([&] { return late.m_qwReceived != 0; }));
    EXPECT_EQ("heard", late.m_strReceived);
}

TEST_F(ProxyCloseTest, ReleasedLastOnTheNetworkThread_DiesWithoutAReport)
{
    mantle::CMNAutoPtr<IPSTransport> last(m_pClient->GetTransport());
    m_pClient->Release();
    m_Network.Run([&] { last = nullptr; });
    ASSERT_TRUE(m_User.RunUntil([&] { return m_pServer->GetPeer().m_nOnDisconnect == 1; }));
}

std::atomic<int> s_nReports{0};

TEST_F(ProxyCloseTest, ReleasedLastOnAThirdThread_IsReportedAndDies)
{
    mantle::CMNAutoPtr<IPSTransport> last(m_pClient->GetTransport());
    m_pClient->Release();
    const auto before = mantle::CMNEnsureSingleThread::SetHandler(
        [](const mantle::CMNSingleThreadReport&) { s_nReports.fetch_add(1); });
    mantle::CMNThreadUser third;
    ASSERT_EQ(MN_OK, third.Create(mantle::CMNThreadManager::Instance()->GetNewThreadType()));
    third.SendEvent(new CWorkEvent([&] { last = nullptr; }));
    ASSERT_TRUE(m_User.RunUntil([&] { return m_pServer->GetPeer().m_nOnDisconnect == 1; }));
    third.Stop();
    third.Join();
    mantle::CMNEnsureSingleThread::SetHandler(before);
    EXPECT_EQ(1, s_nReports.load());
}

}  // namespace
