// UDP between a connector and an acceptor, on either reactor.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "ipstack/ipstack.h"
#include "tests/integration/support/CBytes.h"
#include "tests/integration/support/CClient.h"
#include "tests/integration/support/CListener.h"

using namespace uxport;

namespace
{

constexpr unsigned short PORT = 7054;
constexpr std::size_t LARGEST = 65507;  // 65535 less the IPv4 and the UDP header

class UdpEchoTest : public testing::TestWithParam<CNetwork::EKind>
{
protected:
    UdpEchoTest()
    {
        m_Listener.m_dwType = CONNECTION_TYPE_UDP;
        m_Client.m_dwType = CONNECTION_TYPE_UDP;
    }
    ~UdpEchoTest() override
    {
        m_Network.Run([this] {
            m_Listener.Close();
            m_Client.Drop();
            m_Client.ReleaseConnector();
        });
    }

    bool Connect(CClient& client)
    {
        m_Network.Run([&] {
            EXPECT_EQ(MN_OK, client.Connect(Loopback(PORT)));
            EXPECT_FALSE(client.IsConnected());
        });
        return m_Network.WaitFor([&] { return client.IsConnected(); });
    }
    void Listen()
    {
        m_Network.Run([this] { EXPECT_EQ(MN_OK, m_Listener.Listen(Loopback(PORT))); });
    }
    bool HearsEcho(CClient& client, const std::string& text)
    {
        m_Network.Run([&] {
            client.m_strReceived.clear();
            client.Send(text);
        });
        return m_Network.WaitFor([&] { return client.m_strReceived == text; });
    }

    CNetwork m_Network{GetParam()};
    CListener m_Listener{m_Network, true};
    CClient m_Client{m_Network};
};

INSTANTIATE_TEST_SUITE_P(Reactor, UdpEchoTest, testing::Values(CNetwork::EKind::MANAGER, CNetwork::EKind::SELECT),
                         testing::PrintToStringParamName());

TEST_P(UdpEchoTest, Connected_SendsOfEverySize_HearsTheSame)
{
    Listen();
    ASSERT_TRUE(Connect(m_Client));
    EXPECT_EQ((std::vector<long>{0}), m_Client.m_Results);
    CBytes bytes(7);
    for (const std::size_t size : {std::size_t{1}, std::size_t{1472}, std::size_t{9000}, LARGEST})
        EXPECT_TRUE(HearsEcho(m_Client, bytes.Make(size))) << size;
    EXPECT_EQ(1, m_Listener.m_nIndications);
}

TEST_P(UdpEchoTest, NobodyListens_Connect_SucceedsAndStaysOpen)
{
    ASSERT_TRUE(Connect(m_Client));
    m_Network.Run([this] { m_Client.Send("into the void"); });
    m_Network.Turn();
    Listen();
    EXPECT_TRUE(HearsEcho(m_Client, "heard"));
    EXPECT_EQ(0, m_Client.m_nOnDisconnect);
}

TEST_P(UdpEchoTest, TooLarge_Sent_IsRefusedAndTheTransportStaysOpen)
{
    Listen();
    ASSERT_TRUE(Connect(m_Client));
    m_Network.Run([this] {
        const std::string text(LARGEST + 1, 'x');
        CMNMessageBlock block(text.size(), text.data(), CMNMessageBlock::DONT_DELETE, text.size());
        CPSTransportParameter param;
        EXPECT_EQ(MN_ERROR_FAILURE, m_Client.GetTransport()->SendData(block, &param));
        EXPECT_EQ(text.size(), param.SentLength);
        EXPECT_EQ(text.size(), block.GetLength());
    });
    EXPECT_TRUE(HearsEcho(m_Client, "small"));
}

TEST_P(UdpEchoTest, EmptyDatagrams_BetweenOthers_EndPassesAndLoseNothing)
{
    Listen();
    ASSERT_TRUE(Connect(m_Client));
    m_Network.Run([this] {
        for (const char* text : {"a", "", "b", "", "", "c"})
            m_Client.Send(text);
    });
    EXPECT_TRUE(m_Network.WaitFor([&] { return m_Client.m_strReceived == "abc"; }));
    // The other way: what the client's own socket reads.
    m_Network.Run([this] {
        m_Client.m_strReceived.clear();
        for (const char* text : {"d", "", "e"})
            m_Listener.GetPeer().Send(text);
    });
    EXPECT_TRUE(m_Network.WaitFor([&] { return m_Client.m_strReceived == "de"; }));
}

TEST_P(UdpEchoTest, Chain_Sent_OnlyTheFirstBlockArrives)
{
    Listen();
    ASSERT_TRUE(Connect(m_Client));
    m_Network.Run([this] {
        CMNMessageBlock first(5, "first", CMNMessageBlock::DONT_DELETE, 5);
        first.Append(new CMNMessageBlock(6, "second", CMNMessageBlock::DONT_DELETE, 6));
        CPSTransportParameter param;
        EXPECT_EQ(MN_OK, m_Client.GetTransport()->SendData(first, &param));
        EXPECT_EQ(11U, param.SentLength);
        EXPECT_EQ(6U, first.GetChainedLength());
    });
    EXPECT_TRUE(m_Network.WaitFor([&] { return m_Client.m_strReceived == "first"; }));
    m_Network.Turn();
    EXPECT_EQ("first", m_Client.m_strReceived);
}

TEST_P(UdpEchoTest, ManyClients_OneAcceptor_EachHasItsTransport)
{
    constexpr std::size_t CLIENTS = 200;
    Listen();
    std::vector<std::unique_ptr<CClient>> clients;
    for (std::size_t i = 0; i < CLIENTS; ++i) {
        clients.push_back(std::make_unique<CClient>(m_Network));
        clients.back()->m_dwType = CONNECTION_TYPE_UDP;
        ASSERT_TRUE(Connect(*clients.back()));
    }
    for (std::size_t i = 0; i < CLIENTS; ++i)
        EXPECT_TRUE(HearsEcho(*clients[i], "client " + std::to_string(i)));
    EXPECT_EQ(static_cast<int>(CLIENTS), m_Listener.m_nIndications);
}

TEST_P(UdpEchoTest, Options_OnBothKindsOfTransport_AnswerAsAgreed)
{
    Listen();
    ASSERT_TRUE(Connect(m_Client));
    ASSERT_TRUE(HearsEcho(m_Client, "x"));
    m_Network.Run([this] {
        for (IPSTransport* transport : {m_Client.GetTransport(), m_Listener.GetPeer().GetTransport()}) {
            std::uint64_t send = 30000;
            std::uint64_t receive = 50000;
            EXPECT_EQ(MN_OK, transport->SetOption(OPT_SEND_BUFFER, &send));
            EXPECT_EQ(MN_OK, transport->SetOption(OPT_RECEIVE_BUFFER, &receive));
            // Crossed: each is what was set for the other.
            EXPECT_EQ(MN_OK, transport->GetOption(OPT_SEND_BUFFER, &send));
            EXPECT_EQ(MN_OK, transport->GetOption(OPT_RECEIVE_BUFFER, &receive));
            EXPECT_EQ(50000U, send);
            EXPECT_EQ(30000U, receive);
            std::uint64_t type = 0;
            EXPECT_EQ(MN_OK, transport->GetOption(OPT_TYPE, &type));
            EXPECT_EQ(CONNECTION_TYPE_UDP, type);
            std::int32_t number = 0;
            EXPECT_EQ(MN_OK, transport->GetOption(OPT_ALIVE, &number));
            EXPECT_EQ(1, number);
            EXPECT_EQ(MN_OK, transport->GetOption(OPT_BYTES_TO_READ, &number));
            EXPECT_EQ(0, number);
        }
        CMNInetAddr peer;
        CMNInetAddr local;
        EXPECT_EQ(MN_OK, m_Client.GetTransport()->GetPeerAddr(peer));
        EXPECT_EQ(Loopback(PORT), peer);
        EXPECT_EQ(MN_OK, m_Client.GetTransport()->GetLocalAddr(local));
        EXPECT_EQ(MN_OK, m_Listener.GetPeer().GetTransport()->GetPeerAddr(peer));
        EXPECT_EQ(local, peer);
        EXPECT_EQ(MN_OK, m_Listener.GetPeer().GetTransport()->GetLocalAddr(local));
        EXPECT_EQ(Loopback(PORT), local);
    });
}

TEST_P(UdpEchoTest, CancelConnect_RightBehindConnect_ReportsNothing)
{
    const long before = mantle::CMNLiveObjects::Count();
    m_Network.Run([this] {
        EXPECT_EQ(MN_OK, m_Client.Connect(Loopback(PORT), 1));
        EXPECT_EQ(MN_OK, m_Client.GetConnector()->CancelConnect());
    });
    m_Network.Turn();
    EXPECT_EQ((std::vector<long>{}), m_Client.m_Results);
    m_Network.Run([this] { m_Client.ReleaseConnector(); });
    EXPECT_EQ(before, mantle::CMNLiveObjects::Count());
}

TEST_P(UdpEchoTest, AddressInUse_ListenAndConnect_FailAndLeaveNothing)
{
    Listen();
    CListener second(m_Network);
    second.m_dwType = CONNECTION_TYPE_UDP;
    m_Network.Run([&] {
        EXPECT_EQ(MN_ERROR_FAILURE, second.Listen(Loopback(PORT)));
        CMNInetAddr taken = Loopback(PORT);
        EXPECT_EQ(MN_OK, m_Client.Connect(Loopback(PORT), 0, &taken));
        EXPECT_EQ((std::vector<long>{}), m_Client.m_Results);
    });
    EXPECT_TRUE(m_Network.WaitFor([&] { return m_Client.m_Results.size() == 1; }));
    EXPECT_EQ(static_cast<long>(MN_ERROR_FAILURE), m_Client.m_Results.front());
}

}  // namespace
