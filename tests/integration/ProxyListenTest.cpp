// Acceptors that the main thread owns: start, stop, start again.
#include <gtest/gtest.h>

#include "ipstack/ipstack.h"
#include "tests/integration/support/CUserClient.h"
#include "tests/integration/support/CUserServer.h"

using namespace uxport;

namespace
{

constexpr unsigned short PORT = 7033;

class ProxyListenTest : public testing::Test
{
protected:
    void TearDown() override
    {
        m_pClient.reset();
        m_pServer.reset();
        EXPECT_EQ(m_lBefore, m_User.SettleTo(m_lBefore));
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
    std::unique_ptr<CUserClient> m_pClient = std::make_unique<CUserClient>(m_User);
};

TEST_F(ProxyListenTest, Listening_StartedAgain_IsRefused)
{
    ASSERT_EQ(MN_OK, m_pServer->Listen(Loopback(PORT)));
    EXPECT_EQ(MN_ERROR_ALREADY_INITIALIZED, m_pServer->Listen(Loopback(PORT)));
    EXPECT_EQ(MN_OK, m_pServer->Stop());
    EXPECT_EQ(MN_OK, m_pServer->Stop()) << "again";
    EXPECT_EQ(MN_ERROR_INVALID_ARG, m_pServer->GetAcceptor()->StartListen(nullptr, Loopback(PORT), 0, 0));
    EXPECT_EQ(MN_OK, m_pServer->Listen(Loopback(PORT)));
}

TEST_F(ProxyListenTest, IndicationQueued_Stopped_NothingIsDeliveredAndPeerHearsTheEnd)
{
    ASSERT_EQ(MN_OK, m_pServer->Listen(Loopback(PORT)));
    ASSERT_EQ(MN_OK, m_pClient->Connect(Loopback(PORT), 5));
    LetNetworkWork();
    EXPECT_EQ(MN_OK, m_pServer->Stop());
    ASSERT_TRUE(m_User.RunUntil([this] { return m_pClient->m_nOnDisconnect == 1; }));
    EXPECT_EQ(0, m_pServer->m_nIndications);
}

TEST_F(ProxyListenTest, IndicationQueued_StoppedAndStarted_OnlyNewOnesAreDelivered)
{
    ASSERT_EQ(MN_OK, m_pServer->Listen(Loopback(PORT)));
    ASSERT_EQ(MN_OK, m_pClient->Connect(Loopback(PORT), 5));
    LetNetworkWork();
    EXPECT_EQ(MN_OK, m_pServer->Stop());
    EXPECT_EQ(MN_OK, m_pServer->Listen(Loopback(PORT + 1)));
    ASSERT_TRUE(m_User.RunUntil([this] { return m_pClient->m_nOnDisconnect == 1; }));
    EXPECT_EQ(0, m_pServer->m_nIndications);

    CUserClient next(m_User);
    ASSERT_EQ(MN_OK, next.Connect(Loopback(PORT + 1), 5));
    ASSERT_TRUE(m_User.RunUntil([&] { return m_pServer->m_nIndications == 1 && next.IsConnected(); }));
}

TEST_F(ProxyListenTest, HundredStopsAndStarts_LastOneListens)
{
    ASSERT_EQ(MN_OK, m_pServer->Listen(Loopback(PORT)));
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(MN_OK, m_pServer->Stop());
        ASSERT_EQ(MN_OK, m_pServer->Listen(Loopback(PORT)));
    }
    ASSERT_EQ(MN_OK, m_pClient->Connect(Loopback(PORT), 5));
    ASSERT_TRUE(m_User.RunUntil([this] { return m_pServer->m_nIndications == 1 && m_pClient->IsConnected(); }));
}

// Documented: the failure stays on the network thread. Connecting to oneself tells.
TEST_F(ProxyListenTest, AddressInUse_SecondStarts_NothingIsReportedAndNobodyIsThere)
{
    ASSERT_EQ(MN_OK, m_pServer->Listen(Loopback(PORT)));
    CUserServer second(m_User);
    EXPECT_EQ(MN_OK, second.Listen(Loopback(PORT)));
    LetNetworkWork();
    EXPECT_EQ(MN_OK, m_pServer->Stop());
    ASSERT_EQ(MN_OK, m_pClient->Connect(Loopback(PORT), 5));
    ASSERT_TRUE(m_User.RunUntil([this] { return !m_pClient->m_Results.empty(); }));
    EXPECT_EQ(std::vector<long>{static_cast<long>(MN_ERROR_FAILURE)}, m_pClient->m_Results);
    EXPECT_EQ(0, second.m_nIndications);
    EXPECT_EQ(MN_ERROR_ALREADY_INITIALIZED, second.Listen(Loopback(PORT))) << "it takes itself for started";
    EXPECT_EQ(MN_OK, second.Stop());
    EXPECT_EQ(MN_OK, second.Listen(Loopback(PORT)));
    ASSERT_EQ(MN_OK, m_pClient->Connect(Loopback(PORT), 5));
    ASSERT_TRUE(m_User.RunUntil([&] { return second.m_nIndications == 1 && m_pClient->IsConnected(); }));
}

// Documented, too: a connection accepted there keeps its address from being bound.
TEST_F(ProxyListenTest, ConnectionStillOpen_StoppedAndStarted_ListensOnlyWhenItHasGone)
{
    ASSERT_EQ(MN_OK, m_pServer->Listen(Loopback(PORT)));
    ASSERT_EQ(MN_OK, m_pClient->Connect(Loopback(PORT), 5));
    ASSERT_TRUE(m_User.RunUntil([this] { return m_pServer->m_nIndications == 1 && m_pClient->IsConnected(); }));
    CUserClient next(m_User);
    for (const bool open : {true, false}) {
        if (!open)
            m_pServer->GetPeer().Drop();
        EXPECT_EQ(MN_OK, m_pServer->Stop());
        EXPECT_EQ(MN_OK, m_pServer->Listen(Loopback(PORT)));
        const std::size_t results = next.m_Results.size();
        ASSERT_EQ(MN_OK, next.Connect(Loopback(PORT), 5));
        ASSERT_TRUE(m_User.RunUntil([&] { return next.m_Results.size() > results; }));
        EXPECT_EQ(open ? static_cast<long>(MN_ERROR_FAILURE) : 0, next.m_Results.back());
    }
    ASSERT_TRUE(m_User.RunUntil([this] { return m_pServer->m_nIndications == 2; }));
}

TEST_F(ProxyListenTest, ReleasedWithoutStop_AddressIsFreeAgain)
{
    ASSERT_EQ(MN_OK, m_pServer->Listen(Loopback(PORT)));
    m_pServer->ReleaseAcceptor();
    ASSERT_EQ(m_lBefore, m_User.SettleTo(m_lBefore)) << "the acceptor has died on the network thread";
    ASSERT_EQ(MN_OK, m_pServer->Listen(Loopback(PORT)));
    ASSERT_EQ(MN_OK, m_pClient->Connect(Loopback(PORT), 5));
    ASSERT_TRUE(m_User.RunUntil([this] { return m_pServer->m_nIndications == 1 && m_pClient->IsConnected(); }));
}

TEST_F(ProxyListenTest, StoppedInsideTheIndication_TransportStays)
{
    ASSERT_EQ(MN_OK, m_pServer->Listen(Loopback(PORT)));
    m_pServer->m_fOnPeer = [this](CUserPeer& peer) {
        peer.m_bEcho = true;
        EXPECT_EQ(MN_OK, m_pServer->Stop());
    };
    ASSERT_EQ(MN_OK, m_pClient->Connect(Loopback(PORT), 5));
    ASSERT_TRUE(m_User.RunUntil([this] { return m_pClient->IsConnected(); }));
    m_pClient->Send("still there?");
    ASSERT_TRUE(m_User.RunUntil([this] { return m_pClient->m_qwReceived == 12; }));
}

}  // namespace
