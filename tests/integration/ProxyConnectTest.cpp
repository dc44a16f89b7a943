// How attempts of the main thread to connect end: one indication, or none.
#include <gtest/gtest.h>

#include "ipstack/ipstack.h"
#include "tests/integration/support/CUserClient.h"
#include "tests/integration/support/CUserServer.h"

using namespace uxport;

namespace
{

constexpr unsigned short PORT = 7032;
const std::vector<long> SUCCESS_ONCE{0};
const std::vector<long> FAILED_ONCE{static_cast<long>(MN_ERROR_FAILURE)};

// A wire whose far end's network has nobody but the far end itself, by the hand-moved clock.
class ProxyConnectTest : public testing::Test
{
protected:
    ProxyConnectTest()
    {
        ipstack::CIPStackConfig left;
        left.m_strAddress = "10.1.0.1";
        ipstack::CIPStackConfig right;
        right.m_strAddress = "10.2.0.1";
        EXPECT_EQ(MN_OK, m_Wire.Open(left, right, ipstack::CIPStackWireSettings()));
    }

    void SetUp() override
    {
        m_pServer = std::make_unique<CUserServer>(m_User);
        m_pClient = std::make_unique<CUserClient>(m_User);
        ASSERT_EQ(MN_OK, m_pServer->Listen(Loopback(PORT)));
    }

    void TearDown() override
    {
        m_pClient.reset();
        m_pServer.reset();
        EXPECT_EQ(m_lBefore, m_User.SettleTo(m_lBefore));
    }

    // Lets the network thread finish what it does by itself; main runs nothing.
    void LetNetworkWork()
    {
        for (int i = 0; i < 5; ++i)
            m_Network.Turn();
    }

    // Shows that nothing more is indicated.
    void ExpectSilence()
    {
        const std::size_t results = m_pClient->m_Results.size();
        EXPECT_TRUE(m_User.StaysFalse([&] { return m_pClient->m_Results.size() != results; }, 600));
    }

    const CMNInetAddr m_Nobody{"10.1.0.99", PORT};
    mantle::CMNManualClock m_Clock;
    CNetwork m_Network;
    ipstack::CIPStackWire m_Wire;
    CUserLoop m_User{m_Network};
    const long m_lBefore = mantle::CMNLiveObjects::Count();
    std::unique_ptr<CUserServer> m_pServer;
    std::unique_ptr<CUserClient> m_pClient;
};

TEST_F(ProxyConnectTest, SomebodyListens_OneIndicationOfSuccess)
{
    ASSERT_EQ(MN_OK, m_pClient->Connect(Loopback(PORT), 3));
    EXPECT_TRUE(m_pClient->m_Results.empty()) << "from inside AsycConnect";
    ASSERT_TRUE(m_User.RunUntil([this] { return m_pClient->IsConnected(); }));
    EXPECT_EQ(1UL, m_pClient->Cancel()) << "nothing is under way any more";
    ExpectSilence();
    EXPECT_EQ(SUCCESS_ONCE, m_pClient->m_Results);
    EXPECT_EQ(0, m_pClient->m_nOnDisconnect);
}

TEST_F(ProxyConnectTest, NobodyListens_OneIndicationOfFailure)
{
    ASSERT_EQ(MN_OK, m_pClient->Connect(Loopback(PORT + 1), 3));
    ASSERT_TRUE(m_User.RunUntil([this] { return !m_pClient->m_Results.empty(); }));
    EXPECT_EQ(1UL, m_pClient->Cancel());
    ExpectSilence();
    EXPECT_EQ(FAILED_ONCE, m_pClient->m_Results);
}

TEST_F(ProxyConnectTest, NobodyThere_TimeoutPasses_OneIndicationOfFailure)
{
    const long long start = mantle::CMNClock::NowUs();
    long long end = 0;
    m_pClient->m_fOnResult = [&](long) { end = mantle::CMNClock::NowUs(); };
    ASSERT_EQ(MN_OK, m_pClient->Connect(m_Nobody, 3));
    ASSERT_TRUE(m_User.RunUntil([this] { return !m_pClient->m_Results.empty(); }));
    EXPECT_EQ(3000000, end - start);
    ExpectSilence();
    EXPECT_EQ(FAILED_ONCE, m_pClient->m_Results);
}

TEST_F(ProxyConnectTest, CancelledAtOnce_NoIndication)
{
    ASSERT_EQ(MN_OK, m_pClient->Connect(Loopback(PORT), 3));
    EXPECT_EQ(MN_OK, m_pClient->Cancel());
    EXPECT_EQ(1UL, m_pClient->Cancel()) << "again";
    ExpectSilence();
    EXPECT_TRUE(m_pClient->m_Results.empty());
}

TEST_F(ProxyConnectTest, CancelledUnderWay_NoIndication)
{
    ASSERT_EQ(MN_OK, m_pClient->Connect(m_Nobody, 3));
    LetNetworkWork();
    EXPECT_EQ(MN_OK, m_pClient->Cancel());
    ExpectSilence();
    EXPECT_TRUE(m_pClient->m_Results.empty());
}

TEST_F(ProxyConnectTest, SuccessQueued_CancelledAndConnectedAgain_OneIndicationOfTheSecond)
{
    ASSERT_EQ(MN_OK, m_pClient->Connect(Loopback(PORT), 3));
    LetNetworkWork();
    EXPECT_EQ(MN_OK, m_pClient->Cancel());
    ASSERT_EQ(MN_OK, m_pClient->Connect(Loopback(PORT), 3));
    ASSERT_TRUE(m_User.RunUntil([this] { return m_pServer->GetCount() == 2 && m_pClient->IsConnected(); }));
    ASSERT_TRUE(m_User.RunUntil([this] { return m_pServer->GetPeer(0).m_nOnDisconnect == 1; }));
    ExpectSilence();
    EXPECT_EQ(SUCCESS_ONCE, m_pClient->m_Results);
    EXPECT_EQ(0, m_pServer->GetPeer(1).m_nOnDisconnect) << "the second";
}

TEST_F(ProxyConnectTest, SuccessQueued_ConnectedElsewhere_FirstSinkHearsNothing)
{
    CUserClient first(m_User);
    ASSERT_EQ(MN_OK, m_pClient->Connect(Loopback(PORT), 3, &first));
    LetNetworkWork();
    ASSERT_EQ(MN_OK, m_pClient->Connect(Loopback(PORT + 1), 3));
    ASSERT_TRUE(m_User.RunUntil([this] { return !m_pClient->m_Results.empty(); }));
    ASSERT_TRUE(m_User.RunUntil([this] { return m_pServer->GetPeer(0).m_nOnDisconnect == 1; }));
    ExpectSilence();
    EXPECT_EQ(FAILED_ONCE, m_pClient->m_Results);
    EXPECT_TRUE(first.m_Results.empty());
}

TEST_F(ProxyConnectTest, FailureQueued_ConnectedAgain_OneIndicationOfTheSecond)
{
    ASSERT_EQ(MN_OK, m_pClient->Connect(Loopback(PORT + 1), 3));
    LetNetworkWork();
    ASSERT_EQ(MN_OK, m_pClient->Connect(Loopback(PORT), 3));
    ASSERT_TRUE(m_User.RunUntil([this] { return !m_pClient->m_Results.empty(); }));
    ExpectSilence();
    EXPECT_EQ(SUCCESS_ONCE, m_pClient->m_Results);
}

TEST_F(ProxyConnectTest, ConnectorReleasedWithSuccessQueued_ItsEventKeepsItUntilDelivered)
{
    ASSERT_EQ(MN_OK, m_pClient->Connect(Loopback(PORT), 3));
    LetNetworkWork();
    m_pClient->Cancel();
    m_pClient->ReleaseConnector();
    ASSERT_TRUE(m_User.RunUntil([this] { return m_pServer->GetCount() == 1; }));
    ASSERT_TRUE(m_User.RunUntil([this] { return m_pServer->GetPeer(0).m_nOnDisconnect == 1; }));
    EXPECT_TRUE(m_pClient->m_Results.empty());
}

TEST_F(ProxyConnectTest, ConnectorReleasedUnderWay_NoIndication)
{
    ASSERT_EQ(MN_OK, m_pClient->Connect(m_Nobody, 3));
    LetNetworkWork();
    m_pClient->ReleaseConnector();
    ExpectSilence();
    EXPECT_TRUE(m_pClient->m_Results.empty());
}

TEST_F(ProxyConnectTest, ConnectsAgainInsideTheIndication_OneIndicationMore)
{
    int left = 3;
    m_pClient->m_fOnResult = [&](long) {
        if (--left > 0) {
            EXPECT_EQ(MN_OK, m_pClient->Connect(Loopback(PORT + 1), 3));
        }
    };
    ASSERT_EQ(MN_OK, m_pClient->Connect(Loopback(PORT + 1), 3));
    ASSERT_TRUE(m_User.RunUntil([this] { return m_pClient->m_Results.size() == 3; }));
    ExpectSilence();
}

TEST_F(ProxyConnectTest, IndicatedAndNotTaken_PeerHearsTheEnd)
{
    m_pClient->m_bTake = false;
    ASSERT_EQ(MN_OK, m_pClient->Connect(Loopback(PORT), 3));
    ASSERT_TRUE(m_User.RunUntil([this] { return m_pServer->GetCount() == 1; }));
    ASSERT_TRUE(m_User.RunUntil([this] { return m_pServer->GetPeer(0).m_nOnDisconnect == 1; }));
    EXPECT_EQ(SUCCESS_ONCE, m_pClient->m_Results);
}

TEST_F(ProxyConnectTest, UnknownType_NothingIsIndicated)
{
    mantle::CMNAutoPtr<IPSConnector> connector;
    ASSERT_EQ(MN_OK, IPSConnectionManager::Instance()->CreateConnectionClient(99, connector.ParaOut()));
    EXPECT_EQ(MN_OK, connector->AsycConnect(m_pClient.get(), Loopback(PORT), nullptr, nullptr, 0, 0));
    ExpectSilence();
    EXPECT_TRUE(m_pClient->m_Results.empty());
}

}  // namespace
