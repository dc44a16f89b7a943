// Sinks that release, stop, cancel, connect again and disconnect from inside their callbacks.
#include <gtest/gtest.h>

#include "tests/integration/support/CBytes.h"
#include "tests/integration/support/CClient.h"
#include "tests/integration/support/CListener.h"

using namespace uxport;

namespace
{

constexpr unsigned short PORT = 7007;
constexpr unsigned short OTHER_PORT = 7011;
constexpr unsigned short NOBODYS_PORT = 7008;

class ReentryTest : public testing::Test
{
protected:
    void SetUp() override { m_lLiveBefore = mantle::CMNLiveObjects::Count(); }

    void TearDown() override
    {
        m_pClient.reset();
        m_pListener.reset();
        m_Network.Turn();
        EXPECT_EQ(m_lLiveBefore, mantle::CMNLiveObjects::Count());
    }

    void Listen()
    {
        m_Network.Run([this] { ASSERT_EQ(MN_OK, m_pListener->Listen(Loopback(PORT))); });
    }

    void Connect(unsigned short port = PORT)
    {
        m_Network.Run([this, port] { ASSERT_EQ(MN_OK, m_pClient->Connect(Loopback(port), 5)); });
    }

    void ConnectBoth()
    {
        Listen();
        Connect();
        ASSERT_TRUE(m_Network.WaitFor([this] { return m_pClient->IsConnected() && m_pListener->GetCount() == 1; }));
    }

    CPeer& Server() { return m_pListener->GetPeer(); }
    std::size_t Results() const { return m_pClient->m_Results.size(); }

    // Lets time pass and shows that what was counted stays.
    void ExpectNoMore(const std::function<int()>& count)
    {
        const int before = count();
        EXPECT_FALSE(m_Network.WaitFor([&] { return count() != before; }, 60));
    }

    mantle::CMNManualClock m_Clock;
    CNetwork m_Network;
    long m_lLiveBefore = 0;
    std::unique_ptr<CListener> m_pListener = std::make_unique<CListener>(m_Network);
    std::unique_ptr<CClient> m_pClient = std::make_unique<CClient>(m_Network);
};

TEST_F(ReentryTest, ConnectSucceeds_SinkReleasesConnector_ConnectionLives)
{
    m_pClient->m_fOnResult = [this](long) { m_pClient->ReleaseConnector(); };
    ConnectBoth();
    m_Network.Run([this] { m_pClient->Send("alive"); });
    ASSERT_TRUE(m_Network.WaitFor([this] { return Server().m_strReceived == "alive"; }));
    EXPECT_EQ(1U, Results());
}

TEST_F(ReentryTest, ConnectRefused_SinkReleasesConnector_OneIndication)
{
    m_pClient->m_fOnResult = [this](long) { m_pClient->ReleaseConnector(); };
    Connect(NOBODYS_PORT);
    ASSERT_TRUE(m_Network.WaitFor([this] { return Results() == 1; }));
    ExpectNoMore([this] { return static_cast<int>(Results()); });
}

TEST_F(ReentryTest, ConnectRefused_SinkDestroysItself_NothingDangles)
{
    bool destroyed = false;
    m_pClient->m_fOnResult = [&](long) {
        m_pClient.reset();
        destroyed = true;
    };
    Connect(NOBODYS_PORT);
    ASSERT_TRUE(m_Network.WaitFor([&] { return destroyed; }));
    m_Network.Turn();
}

TEST_F(ReentryTest, ConnectRefused_SinkConnectsAgainElsewhere_SecondSucceeds)
{
    Listen();
    m_pClient->m_fOnResult = [this](long result) {
        if (result != 0) {
            EXPECT_EQ(MN_OK, m_pClient->Connect(Loopback(PORT), 5));
        }
    };
    Connect(NOBODYS_PORT);
    ASSERT_TRUE(m_Network.WaitFor([this] { return m_pClient->IsConnected(); }));
    EXPECT_EQ((std::vector<long>{10001, 0}), m_pClient->m_Results);
    ExpectNoMore([this] { return static_cast<int>(Results()); });
}

TEST_F(ReentryTest, ConnectRefused_SinkConnectsAgainFiveTimes_OneIndicationEach)
{
    m_pClient->m_fOnResult = [this](long) {
        if (Results() < 6) {
            EXPECT_EQ(MN_OK, m_pClient->Connect(Loopback(NOBODYS_PORT), 5));
        }
    };
    Connect(NOBODYS_PORT);
    ASSERT_TRUE(m_Network.WaitFor([this] { return Results() == 6; }));
    EXPECT_EQ(std::vector<long>(6, 10001), m_pClient->m_Results);
    ExpectNoMore([this] { return static_cast<int>(Results()); });
}

TEST_F(ReentryTest, ConnectSucceeds_SinkCancelsAndConnectsAgain_TwoConnections)
{
    Listen();
    CMNInetAddr address = Loopback(PORT);
    mantle::CMNAutoPtr<IPSTransport> first;
    m_pClient->m_fOnResult = [&](long result) {
        EXPECT_EQ(0, result);
        if (Results() == 1) {
            EXPECT_EQ(1UL, m_pClient->GetConnector()->CancelConnect());
            EXPECT_EQ(MN_OK, m_pClient->Connect(address, 5));
        }
    };
    Connect();
    ASSERT_TRUE(m_Network.WaitFor([this] { return Results() == 2 && m_pListener->GetCount() == 2; }));
    ExpectNoMore([this] { return static_cast<int>(Results()); });
}

TEST_F(ReentryTest, PeersWaiting_SinkStopsListening_OneIndicationOnly)
{
    Listen();
    m_pListener->m_fAfter = [this] { EXPECT_EQ(MN_OK, m_pListener->GetAcceptor()->StopListen(0)); };
    CClient second(m_Network);
    CClient third(m_Network);
    m_Network.Run([&] {
        ASSERT_EQ(MN_OK, m_pClient->Connect(Loopback(PORT), 5));
        ASSERT_EQ(MN_OK, second.Connect(Loopback(PORT), 5));
        ASSERT_EQ(MN_OK, third.Connect(Loopback(PORT), 5));
    });
    ASSERT_TRUE(m_Network.WaitFor([this] { return m_pListener->m_nIndications == 1; }));
    ExpectNoMore([this] { return m_pListener->m_nIndications; });
}

TEST_F(ReentryTest, PeersWaiting_SinkReleasesAcceptor_OneIndicationOnly)
{
    Listen();
    m_pListener->m_fAfter = [this] { m_pListener->Close(); };
    CClient second(m_Network);
    m_Network.Run([&] {
        ASSERT_EQ(MN_OK, m_pClient->Connect(Loopback(PORT), 5));
        ASSERT_EQ(MN_OK, second.Connect(Loopback(PORT), 5));
    });
    ASSERT_TRUE(m_Network.WaitFor([this] { return m_pListener->m_nIndications == 1; }));
    ExpectNoMore([this] { return m_pListener->m_nIndications; });
    m_Network.Run([this] { m_pClient->Send("the accepted one lives on"); });
    CListener& listener = *m_pListener;
    ASSERT_TRUE(m_Network.WaitFor([&] { return listener.GetPeer().m_qwReceived != 0; }));
}

TEST_F(ReentryTest, PeerAccepted_SinkStopsAndListensElsewhere_BothPeersServed)
{
    Listen();
    m_pListener->m_fAfter = [this] {
        if (m_pListener->m_nIndications == 1) {
            EXPECT_EQ(MN_OK, m_pListener->GetAcceptor()->StopListen(0));
            EXPECT_EQ(MN_OK, m_pListener->Listen(Loopback(OTHER_PORT)));
        }
    };
    Connect();
    ASSERT_TRUE(m_Network.WaitFor([this] { return m_pListener->m_nIndications == 1; }));
    CClient second(m_Network);
    m_Network.Run([&] { ASSERT_EQ(MN_OK, second.Connect(Loopback(OTHER_PORT), 5)); });
    ASSERT_TRUE(m_Network.WaitFor([this] { return m_pListener->m_nIndications == 2; }));
    m_Network.Run([&] {
        m_pClient->Send("first");
        second.Send("second");
    });
    ASSERT_TRUE(m_Network.WaitFor([this] { return m_pListener->GetPeer(1).m_strReceived == "second"; }));
    ASSERT_TRUE(m_Network.WaitFor([this] { return m_pListener->GetPeer(0).m_strReceived == "first"; }));
}

// The stack keeps a port from new listeners while accepted connections on it are open, not while they close.
TEST_F(ReentryTest, PeerAccepted_SinkDropsItStopsAndListensAgain_NextPeerAccepted)
{
    Listen();
    m_pListener->m_fAfter = [this] {
        if (m_pListener->m_nIndications == 1) {
            EXPECT_EQ(MN_OK, m_pListener->GetAcceptor()->StopListen(0));
            EXPECT_EQ(10001UL, m_pListener->Listen(Loopback(PORT)));
            Server().Drop();
            EXPECT_EQ(MN_OK, m_pListener->Listen(Loopback(PORT)));
        }
    };
    Connect();
    ASSERT_TRUE(m_Network.WaitFor([this] { return m_pListener->m_nIndications == 1; }));
    CClient second(m_Network);
    m_Network.Run([&] { ASSERT_EQ(MN_OK, second.Connect(Loopback(PORT), 5)); });
    ASSERT_TRUE(m_Network.WaitFor([this] { return m_pListener->m_nIndications == 2; }));
    m_Network.Run([&] { second.Send("second"); });
    ASSERT_TRUE(m_Network.WaitFor([this] { return m_pListener->GetPeer(1).m_strReceived == "second"; }));
    EXPECT_EQ(1, m_pClient->m_nOnDisconnect);
}

TEST_F(ReentryTest, DataArrives_SinkDisconnectsAndReleases_NothingMoreArrives)
{
    ConnectBoth();
    int receives = 0;
    Server().m_fOnReceive = [&](CMNMessageBlock&) {
        ++receives;
        Server().Drop();
    };
    const std::string much = CBytes(9).Make(60000);
    m_Network.Run([&] {
        for (int i = 0; i < 4; ++i)
            m_pClient->Send(much);
    });
    ASSERT_TRUE(m_Network.WaitFor([this] { return m_pClient->m_nOnDisconnect == 1; }, 300));
    EXPECT_EQ(1, receives);
    EXPECT_EQ(0, Server().m_nOnDisconnect);
}

TEST_F(ReentryTest, RoomAgain_SinkDisconnectsAndReleases_NothingDangles)
{
    ConnectBoth();
    const std::string much = CBytes(10).Make(500000);
    m_pClient->m_fOnSend = [this] { m_pClient->Drop(); };
    m_Network.Run([&] { m_pClient->Send(much); });
    ASSERT_TRUE(m_Network.WaitFor([this] { return Server().m_nOnDisconnect == 1; }, 300));
    EXPECT_EQ(1, m_pClient->m_nOnSend);
    EXPECT_EQ(0, m_pClient->m_nOnDisconnect);
    // What was accepted for sending before the disconnect has arrived.
    EXPECT_EQ(0, much.compare(0, Server().m_strReceived.size(), Server().m_strReceived));
}

TEST_F(ReentryTest, PeerGone_SinkReleasesAndConnectsAgain_NewConnectionWorks)
{
    ConnectBoth();
    m_pClient->m_fOnDisconnect = [this] {
        m_pClient->Drop();
        m_pClient->m_nOnDisconnect = 0;
        EXPECT_EQ(MN_OK, m_pClient->Connect(Loopback(PORT), 5));
    };
    m_Network.Run([this] { Server().Drop(); });
    ASSERT_TRUE(m_Network.WaitFor([this] { return m_pListener->GetCount() == 2 && m_pClient->IsConnected(); }));
    m_Network.Run([this] { m_pClient->Send("again"); });
    ASSERT_TRUE(m_Network.WaitFor([this] { return m_pListener->GetPeer(1).m_strReceived == "again"; }));
}

TEST_F(ReentryTest, PeerGone_SinkDestroysItself_NothingDangles)
{
    ConnectBoth();
    bool destroyed = false;
    m_pClient->m_fOnDisconnect = [&] {
        m_pClient.reset();
        destroyed = true;
    };
    m_Network.Run([this] { Server().Drop(); });
    ASSERT_TRUE(m_Network.WaitFor([&] { return destroyed; }));
    m_Network.Turn();
}

TEST_F(ReentryTest, DataArrives_SinkIsReplaced_RestGoesToTheNewOne)
{
    ConnectBoth();
    CPeer other(m_Network);
    Server().m_fOnReceive = [&](CMNMessageBlock&) { other.Take(Server().GetTransport()); };
    m_Network.Run([this] { m_pClient->Send("first"); });
    ASSERT_TRUE(m_Network.WaitFor([this] { return Server().m_qwReceived == 5; }));
    m_Network.Run([this] { m_pClient->Send("second"); });
    ASSERT_TRUE(m_Network.WaitFor([&] { return other.m_strReceived == "second"; }));
    EXPECT_EQ("first", Server().m_strReceived);
}

}  // namespace
