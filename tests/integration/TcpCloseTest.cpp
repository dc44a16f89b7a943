// How connections end.
#include <gtest/gtest.h>

#include "ipstack/ipstack.h"
#include "tests/integration/support/CBytes.h"
#include "tests/integration/support/CClient.h"
#include "tests/integration/support/CListener.h"

using namespace uxport;

namespace
{

constexpr unsigned short PORT = 7004;

// A client and a server that are connected.
class TcpCloseTest : public testing::Test
{
protected:
    void SetUp() override
    {
        m_lLiveBefore = mantle::CMNLiveObjects::Count();
        m_pListener = std::make_unique<CListener>(m_Network);
        m_pClient = std::make_unique<CClient>(m_Network);
        m_Network.Run([this] {
            ASSERT_EQ(MN_OK, m_pListener->Listen(Loopback(PORT)));
            ASSERT_EQ(MN_OK, m_pClient->Connect(Loopback(PORT), 5));
        });
        ASSERT_TRUE(m_Network.WaitFor([this] { return m_pClient->IsConnected() && m_pListener->GetCount() == 1; }));
    }

    void TearDown() override
    {
        m_pClient.reset();
        m_pListener.reset();
        m_Network.Turn();
        EXPECT_EQ(m_lLiveBefore, mantle::CMNLiveObjects::Count());
    }

    CPeer& Server() { return m_pListener->GetPeer(); }

    // Lets `seconds` pass; nobody is told anything more of the end.
    void ExpectOneEnd(long seconds)
    {
        const int client = m_pClient->m_nOnDisconnect;
        const int server = Server().m_nOnDisconnect;
        EXPECT_FALSE(m_Network.WaitFor(
            [&] { return m_pClient->m_nOnDisconnect != client || Server().m_nOnDisconnect != server; }, seconds));
    }

    mantle::CMNManualClock m_Clock;
    CNetwork m_Network;
    long m_lLiveBefore = 0;
    std::unique_ptr<CListener> m_pListener;
    std::unique_ptr<CClient> m_pClient;
};

TEST_F(TcpCloseTest, Connected_PeerDisconnects_OnDisconnectOnce)
{
    m_Network.Run([this] { Server().Drop(); });
    ASSERT_TRUE(m_Network.WaitFor([this] { return m_pClient->m_nOnDisconnect != 0; }));
    ExpectOneEnd(600);
    EXPECT_EQ(1, m_pClient->m_nOnDisconnect);
    EXPECT_EQ(10001, m_pClient->m_lReason);
    EXPECT_EQ(0, Server().m_nOnDisconnect) << "the side that disconnected is not told";
    m_Network.Run([this] {
        CMNMessageBlock block(1, "x", CMNMessageBlock::DONT_DELETE, 1);
        EXPECT_EQ(10002UL, m_pClient->GetTransport()->SendData(block, nullptr));
        EXPECT_EQ(nullptr, m_pClient->GetTransport()->GetSink());
    });
}

TEST_F(TcpCloseTest, Connected_PeerResets_OnDisconnectOnce)
{
    m_Network.Run([this] { Server().Reset(); });
    ASSERT_TRUE(m_Network.WaitFor([this] { return m_pClient->m_nOnDisconnect != 0; }));
    ExpectOneEnd(600);
    EXPECT_EQ(1, m_pClient->m_nOnDisconnect);
    EXPECT_EQ(10001, m_pClient->m_lReason);
    EXPECT_EQ(0, Server().m_nOnDisconnect);
}

TEST_F(TcpCloseTest, BlockedSender_PeerResets_OnDisconnectOnceAndNoOnSend)
{
    const std::string much = CBytes(1).Make(1000000);
    m_Network.Run([&] {
        m_pClient->Send(much);
        EXPECT_EQ(1, m_pClient->m_nRefused);
        Server().Reset();
    });
    ASSERT_TRUE(m_Network.WaitFor([this] { return m_pClient->m_nOnDisconnect != 0; }));
    ExpectOneEnd(600);
    EXPECT_EQ(1, m_pClient->m_nOnDisconnect);
    EXPECT_EQ(0, m_pClient->m_nOnSend);
}

TEST_F(TcpCloseTest, Connected_BothDisconnect_NobodyIsTold)
{
    m_Network.Run([this] {
        Server().Drop();
        m_pClient->Drop();
    });
    ExpectOneEnd(600);
    EXPECT_EQ(0, m_pClient->m_nOnDisconnect);
    EXPECT_EQ(0, Server().m_nOnDisconnect);
}

TEST_F(TcpCloseTest, SentThenDisconnected_AllArrivesBeforeOnDisconnect)
{
    const std::string last = CBytes(2).Make(50000);
    std::uint64_t receivedAtEnd = 0;
    m_pClient->m_fOnDisconnect = [&] { receivedAtEnd = m_pClient->m_qwReceived; };
    m_Network.Run([&] {
        Server().Send(last);
        EXPECT_FALSE(Server().IsSending());
        Server().Drop();
    });
    ASSERT_TRUE(m_Network.WaitFor([this] { return m_pClient->m_nOnDisconnect != 0; }));
    EXPECT_EQ(last.size(), receivedAtEnd);
    EXPECT_TRUE(last == m_pClient->m_strReceived);
    EXPECT_EQ(1, m_pClient->m_nOnDisconnect);
}

// What the other side sent meanwhile, unread, must not turn the close into a reset that throws the data away.
TEST_F(TcpCloseTest, SentThenDisconnectedWithUnreadInput_AllArrivesBeforeOnDisconnect)
{
    const std::string last = CBytes(3).Make(50000);
    m_Network.Run([&] {
        m_pClient->Send("unread");
        Server().Send(last);
        Server().Drop();
    });
    ASSERT_TRUE(m_Network.WaitFor([this] { return m_pClient->m_nOnDisconnect != 0; }));
    EXPECT_TRUE(last == m_pClient->m_strReceived) << m_pClient->m_strReceived.size();
    EXPECT_EQ(0U, Server().m_qwReceived);
}

TEST_F(TcpCloseTest, PeerGone_StillSending_OnDisconnectOnceAndNoCrash)
{
    m_Network.Run([this] { Server().Drop(); });
    m_Network.Run([this] {
        // Whatever the stack knows by now, the answers are those of an open, a failed or a closed transport.
        for (int i = 0; i < 10 && m_pClient->m_nOnDisconnect == 0; ++i) {
            CMNMessageBlock block(5, "hello", CMNMessageBlock::DONT_DELETE, 5);
            const MNResult result = m_pClient->GetTransport()->SendData(block, nullptr);
            EXPECT_TRUE(result == MN_OK || result == 20001UL || result == 10013UL || result == 10002UL) << result;
        }
    });
    ASSERT_TRUE(m_Network.WaitFor([this] { return m_pClient->m_nOnDisconnect != 0; }));
    ExpectOneEnd(600);
    EXPECT_EQ(1, m_pClient->m_nOnDisconnect);
}

// Option 103: the transport forgets the socket, which stays open and is the caller's from then on.
TEST_F(TcpCloseTest, SocketForgotten_Released_ConnectionStaysOpenAndNothingDangles)
{
    std::int32_t handle = PS_INVALID_HANDLE;
    m_Network.Run([&] {
        IPSTransport* transport = m_pClient->GetTransport();
        EXPECT_EQ(MN_OK, transport->GetOption(OPT_FD, &handle));
        std::int32_t none = PS_INVALID_HANDLE;
        EXPECT_EQ(MN_OK, transport->SetOption(OPT_FD, &none));
        m_pClient->Drop();
        m_pClient->ReleaseConnector();
    });
    m_Network.Turn(3);
    m_Network.Run([&] { Server().Send("still there?"); });
    ExpectOneEnd(600);
    EXPECT_EQ(0, m_pClient->m_nOnDisconnect);
    EXPECT_EQ(0U, m_pClient->m_qwReceived);
    EXPECT_EQ(0, Server().m_nOnDisconnect);
    char text[32];
    EXPECT_EQ(12, ps_recv(handle, text, sizeof text, 0));
    EXPECT_EQ(0, ps_close(handle));
    ASSERT_TRUE(m_Network.WaitFor([this] { return Server().m_nOnDisconnect == 1; }));
}

TEST_F(TcpCloseTest, Connected_OptionsAsked_AnswerWhatTheStackKnows)
{
    m_Network.Run([this] {
        IPSTransport* transport = m_pClient->GetTransport();
        std::int32_t alive = 0;
        EXPECT_EQ(MN_OK, transport->GetOption(OPT_ALIVE, &alive));
        EXPECT_EQ(1, alive);
        std::int32_t waiting = -1;
        EXPECT_EQ(MN_OK, transport->GetOption(OPT_BYTES_TO_READ, &waiting));
        EXPECT_EQ(0, waiting);
        Server().Send("four");
        EXPECT_EQ(MN_OK, transport->GetOption(OPT_BYTES_TO_READ, &waiting));
        EXPECT_EQ(4, waiting);
        std::uint64_t type = 0;
        EXPECT_EQ(MN_OK, transport->GetOption(OPT_TYPE, &type));
        EXPECT_EQ(2U, type);
        std::uint64_t size = 0;
        EXPECT_EQ(MN_OK, transport->GetOption(OPT_SEND_BUFFER, &size));
        EXPECT_EQ(65535U, size);
        std::uint64_t seconds = 30;
        EXPECT_EQ(MN_OK, transport->SetOption(OPT_KEEPALIVE, &seconds));
        EXPECT_EQ(10008UL, transport->GetOption(OPT_ALIVE, nullptr));
        EXPECT_EQ(10008UL, transport->GetOption(OPT_RESERVED_102, &alive));
        m_pClient->Drop();
    });
}

TEST(TcpLinkDownTest, ConnectedOverAWire_WireTakenDown_BothHearTheEndOnce)
{
    mantle::CMNManualClock clock;
    CNetwork network;
    ipstack::CIPStackConfig left;
    left.m_strAddress = "10.1.0.1";
    ipstack::CIPStackConfig right;
    right.m_strAddress = "10.2.0.1";
    ipstack::CIPStackWire wire;
    ASSERT_EQ(MN_OK, wire.Open(left, right, ipstack::CIPStackWireSettings()));
    CListener listener(network);
    CClient client(network);
    CMNInetAddr local("10.1.0.1", 0);
    network.Run([&] {
        ASSERT_EQ(MN_OK, listener.Listen(CMNInetAddr("10.2.0.1", PORT)));
        ASSERT_EQ(MN_OK, client.Connect(CMNInetAddr("10.2.0.1", PORT), 5, &local));
    });
    ASSERT_TRUE(network.WaitFor([&] { return client.IsConnected() && listener.GetCount() == 1; }));
    wire.Close();
    ASSERT_TRUE(
        network.WaitFor([&] { return client.m_nOnDisconnect == 1 && listener.GetPeer().m_nOnDisconnect == 1; }));
    EXPECT_FALSE(network.WaitFor([&] { return client.m_nOnDisconnect + listener.GetPeer().m_nOnDisconnect > 2; }, 600));
}

}  // namespace
