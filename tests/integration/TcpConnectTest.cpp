// How attempts to connect end.
#include <gtest/gtest.h>

#include "ipstack/ipstack.h"
#include "tests/integration/support/CClient.h"
#include "tests/integration/support/CListener.h"

using namespace uxport;

namespace
{

constexpr unsigned short PORT = 7003;
const std::vector<long> FAILED_ONCE{static_cast<long>(MN_ERROR_FAILURE)};

long long NowMs()
{
    return mantle::CMNClock::NowUs() / 1000;
}

// Lets `seconds` pass and shows that nothing more is indicated.
void ExpectSilence(CNetwork& network, CClient& client, long seconds)
{
    const std::size_t indications = client.m_Results.size();
    EXPECT_FALSE(network.WaitFor([&] { return client.m_Results.size() != indications; }, seconds));
}

TEST(TcpConnectTest, NobodyListens_Connect_OneIndicationOfFailure)
{
    mantle::CMNManualClock clock;
    CNetwork network;
    const long before = mantle::CMNLiveObjects::Count();
    {
        CClient client(network);
        network.Run([&] {
            EXPECT_EQ(MN_OK, client.Connect(Loopback(PORT), 5));
            EXPECT_TRUE(client.m_Results.empty()) << "from inside AsycConnect";
        });
        const long long start = NowMs();
        ASSERT_TRUE(network.WaitFor([&] { return !client.m_Results.empty(); }));
        EXPECT_EQ(FAILED_ONCE, client.m_Results);
        EXPECT_LT(NowMs() - start, 5000) << "refused, not timed out";
        ExpectSilence(network, client, 20);
        EXPECT_FALSE(client.IsConnected());
    }
    network.Turn();
    EXPECT_EQ(before, mantle::CMNLiveObjects::Count());
}

TEST(TcpConnectTest, NobodyListensNoTimeout_Connect_OneIndicationAndNoTimerLeft)
{
    mantle::CMNManualClock clock;
    CNetwork network;
    CClient client(network);
    network.Run([&] { EXPECT_EQ(MN_OK, client.Connect(Loopback(PORT))); });
    ASSERT_TRUE(network.WaitFor([&] { return !client.m_Results.empty(); }));
    EXPECT_EQ(FAILED_ONCE, client.m_Results);
    ExpectSilence(network, client, 200);
    network.Run([&] { EXPECT_EQ(1UL, client.GetConnector()->CancelConnect()) << "nothing was under way"; });
}

// A wire whose far end's network has nobody but the far end itself.
struct CWired
{
    explicit CWired(const ipstack::CIPStackWireSettings& settings = ipstack::CIPStackWireSettings())
    {
        ipstack::CIPStackConfig left;
        left.m_strAddress = "10.1.0.1";
        ipstack::CIPStackConfig right;
        right.m_strAddress = "10.2.0.1";
        EXPECT_EQ(MN_OK, m_Wire.Open(left, right, settings));
    }

    mantle::CMNManualClock m_Clock;
    CNetwork m_Network;
    ipstack::CIPStackWire m_Wire;
};

TEST(TcpConnectTest, NobodyBehindTheWire_TimeoutPasses_OneIndicationAtThatTime)
{
    CWired wired;
    CNetwork& network = wired.m_Network;
    const long before = mantle::CMNLiveObjects::Count();
    {
        CClient client(network);
        long long end = 0;
        client.m_fOnResult = [&](long) { end = NowMs(); };
        const long long start = NowMs();
        network.Run([&] { EXPECT_EQ(MN_OK, client.Connect(CMNInetAddr("10.1.0.99", PORT), 3)); });
        ASSERT_TRUE(network.WaitFor([&] { return !client.m_Results.empty(); }));
        EXPECT_EQ(FAILED_ONCE, client.m_Results);
        EXPECT_EQ(3000, end - start);
        ExpectSilence(network, client, 600);
        network.Run([&] { EXPECT_EQ(1UL, client.GetConnector()->CancelConnect()); });
    }
    network.Turn();
    EXPECT_EQ(before, mantle::CMNLiveObjects::Count());
}

TEST(TcpConnectTest, NobodyBehindTheWireNoTimeout_StackGivesUp_OneIndication)
{
    CWired wired;
    CClient client(wired.m_Network);
    wired.m_Network.Run([&] { EXPECT_EQ(MN_OK, client.Connect(CMNInetAddr("10.1.0.99", PORT))); });
    ASSERT_TRUE(wired.m_Network.WaitFor([&] { return !client.m_Results.empty(); }, 3600));
    EXPECT_EQ(FAILED_ONCE, client.m_Results);
    ExpectSilence(wired.m_Network, client, 3600);
}

TEST(TcpConnectTest, NobodyBehindTheWire_Cancelled_NoIndication)
{
    CWired wired;
    CClient client(wired.m_Network);
    wired.m_Network.Run([&] {
        EXPECT_EQ(MN_OK, client.Connect(CMNInetAddr("10.1.0.99", PORT), 3));
        EXPECT_EQ(MN_OK, client.GetConnector()->CancelConnect());
        EXPECT_EQ(1UL, client.GetConnector()->CancelConnect());
    });
    ExpectSilence(wired.m_Network, client, 3600);
}

TEST(TcpConnectTest, FirstAttemptUnderWay_SecondAttempt_OneIndicationOfTheSecond)
{
    CWired wired;
    CListener listener(wired.m_Network);
    CClient client(wired.m_Network);
    wired.m_Network.Run([&] {
        ASSERT_EQ(MN_OK, listener.Listen(Loopback(PORT)));
        EXPECT_EQ(MN_OK, client.Connect(CMNInetAddr("10.1.0.99", PORT), 3));
        EXPECT_EQ(MN_OK, client.Connect(Loopback(PORT), 3));
    });
    ASSERT_TRUE(wired.m_Network.WaitFor([&] { return client.IsConnected(); }));
    ExpectSilence(wired.m_Network, client, 600);
    EXPECT_EQ(std::vector<long>{0}, client.m_Results);
}

TEST(TcpConnectTest, SlowWire_Connect_MadeAfterOneRoundTrip)
{
    ipstack::CIPStackWireSettings settings;
    settings.m_dwDelayUs = 300000;
    CWired wired(settings);
    CNetwork& network = wired.m_Network;
    CListener listener(network, true);
    CClient client(network);
    CMNInetAddr local("10.1.0.1", 0);
    const long long start = NowMs();
    long long connected = 0;
    client.m_fOnResult = [&](long) { connected = NowMs(); };
    network.Run([&] {
        ASSERT_EQ(MN_OK, listener.Listen(CMNInetAddr("10.2.0.1", PORT)));
        ASSERT_EQ(MN_OK, client.Connect(CMNInetAddr("10.2.0.1", PORT), 3, &local));
    });
    ASSERT_TRUE(network.WaitFor([&] { return client.IsConnected(); }));
    EXPECT_EQ(600, connected - start);
    network.Run([&] { client.Send("ping"); });
    ASSERT_TRUE(network.WaitFor([&] { return client.m_qwReceived == 4; }));
    EXPECT_EQ(1200, NowMs() - start);
    EXPECT_EQ(std::vector<long>{0}, client.m_Results);
}

TEST(TcpConnectTest, SlowWire_TimeoutBeforeTheAnswer_FailureOnly)
{
    ipstack::CIPStackWireSettings settings;
    settings.m_dwDelayUs = 2000000;
    CWired wired(settings);
    CNetwork& network = wired.m_Network;
    CListener listener(network);
    CClient client(network);
    CMNInetAddr local("10.1.0.1", 0);
    network.Run([&] {
        ASSERT_EQ(MN_OK, listener.Listen(CMNInetAddr("10.2.0.1", PORT)));
        ASSERT_EQ(MN_OK, client.Connect(CMNInetAddr("10.2.0.1", PORT), 3, &local));
    });
    ASSERT_TRUE(network.WaitFor([&] { return !client.m_Results.empty(); }));
    EXPECT_EQ(FAILED_ONCE, client.m_Results);
    ExpectSilence(network, client, 600);
    EXPECT_FALSE(client.IsConnected());
}

TEST(TcpConnectTest, SinkDoesNotKeepTheTransport_Connected_PeerHearsTheEnd)
{
    CNetwork network;
    const long before = mantle::CMNLiveObjects::Count();
    {
        CListener listener(network);
        CClient client(network);
        client.m_bTake = false;
        network.Run([&] {
            ASSERT_EQ(MN_OK, listener.Listen(Loopback(PORT)));
            ASSERT_EQ(MN_OK, client.Connect(Loopback(PORT), 5));
        });
        ASSERT_TRUE(
            network.WaitFor([&] { return listener.GetCount() == 1 && listener.GetPeer().m_nOnDisconnect == 1; }));
        EXPECT_EQ(std::vector<long>{0}, client.m_Results);
    }
    network.Turn();
    EXPECT_EQ(before, mantle::CMNLiveObjects::Count());
}

TEST(TcpConnectTest, AcceptorDoesNotKeepTheTransport_Connected_ClientHearsTheEnd)
{
    CNetwork network;
    const long before = mantle::CMNLiveObjects::Count();
    {
        CListener listener(network);
        listener.m_bTake = false;
        CClient client(network);
        network.Run([&] {
            ASSERT_EQ(MN_OK, listener.Listen(Loopback(PORT)));
            ASSERT_EQ(MN_OK, client.Connect(Loopback(PORT), 5));
        });
        ASSERT_TRUE(network.WaitFor([&] { return client.m_nOnDisconnect == 1; }));
        EXPECT_EQ(1, listener.m_nIndications);
        EXPECT_EQ(10001, client.m_lReason);
    }
    network.Turn();
    EXPECT_EQ(before, mantle::CMNLiveObjects::Count());
}

TEST(TcpConnectTest, AddressInUse_StartListen_FailsAndMayBeTriedAgain)
{
    CNetwork network;
    CListener first(network);
    CListener second(network, true);
    network.Run([&] {
        ASSERT_EQ(MN_OK, first.Listen(Loopback(PORT)));
        EXPECT_EQ(10003UL, first.Listen(Loopback(PORT)));
        EXPECT_EQ(10001UL, second.Listen(Loopback(PORT)));
        first.Close();
        EXPECT_EQ(MN_OK, second.Listen(Loopback(PORT)));
    });
    CClient client(network);
    network.Run([&] { EXPECT_EQ(MN_OK, client.Connect(Loopback(PORT), 5)); });
    ASSERT_TRUE(network.WaitFor([&] { return second.GetCount() == 1; }));
    EXPECT_EQ(0, first.m_nIndications);
}

}  // namespace
