// Echo over TCP, on either reactor, on one connection and on two thousand.
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

constexpr unsigned short PORT = 7001;

class TcpEchoTest : public testing::TestWithParam<CNetwork::EKind>
{
};

INSTANTIATE_TEST_SUITE_P(Reactor, TcpEchoTest, testing::Values(CNetwork::EKind::MANAGER, CNetwork::EKind::SELECT),
                         testing::PrintToStringParamName());

TEST_P(TcpEchoTest, Connected_SendsOnce_HearsTheSame)
{
    CNetwork network(GetParam());
    const long before = mantle::CMNLiveObjects::Count();
    {
        CListener listener(network, true);
        CClient client(network);
        network.Run([&] {
            ASSERT_EQ(MN_OK, listener.Listen(Loopback(PORT)));
            ASSERT_EQ(MN_OK, client.Connect(Loopback(PORT), 5));
        });
        ASSERT_TRUE(network.WaitFor([&] { return client.IsConnected(); }));
        network.Run([&] { client.Send("anybody there?"); });
        ASSERT_TRUE(network.WaitFor([&] { return client.m_qwReceived == 14; }));
        network.Run([&] {
            EXPECT_EQ("anybody there?", client.m_strReceived);
            EXPECT_EQ(std::vector<long>{0}, client.m_Results);
            EXPECT_EQ(1, listener.m_nIndications);
        });
        network.Turn();
        network.Run([&] {
            EXPECT_EQ(0, client.m_nOnSend) << "nothing was refused";
            EXPECT_EQ(0, listener.GetPeer().m_nOnSend);
            EXPECT_EQ(0, client.m_nOnDisconnect);
        });
    }
    network.Turn();
    EXPECT_EQ(before, mantle::CMNLiveObjects::Count());
}

TEST_P(TcpEchoTest, Connected_SendsMoreThanFits_HearsAllInOrder)
{
    CNetwork network(GetParam());
    constexpr std::size_t LENGTH = 3000001;
    const std::string sent = CBytes(7).Make(LENGTH);
    CListener listener(network, true);
    CClient client(network);
    network.Run([&] {
        ASSERT_EQ(MN_OK, listener.Listen(Loopback(PORT)));
        ASSERT_EQ(MN_OK, client.Connect(Loopback(PORT), 5));
    });
    ASSERT_TRUE(network.WaitFor([&] { return client.IsConnected(); }));
    network.Run([&] { client.Send(sent); });
    ASSERT_TRUE(network.WaitFor([&] { return client.m_qwReceived >= LENGTH; }));
    network.Run([&] {
        EXPECT_TRUE(sent == client.m_strReceived);
        EXPECT_GT(client.m_nRefused, 0);
        EXPECT_EQ(client.m_nRefused, client.m_nOnSend);
        EXPECT_EQ(listener.GetPeer().m_nRefused, listener.GetPeer().m_nOnSend);
    });
}

TEST_P(TcpEchoTest, Connected_AsksForAddresses_EndsNameEachOther)
{
    CNetwork network(GetParam());
    CListener listener(network, true);
    CClient client(network);
    network.Run([&] {
        ASSERT_EQ(MN_OK, listener.Listen(Loopback(PORT)));
        ASSERT_EQ(MN_OK, client.Connect(Loopback(PORT), 5));
    });
    ASSERT_TRUE(network.WaitFor([&] { return client.IsConnected() && listener.GetCount() == 1; }));
    network.Run([&] {
        CMNInetAddr local;
        CMNInetAddr peer;
        client.GetTransport()->GetLocalAddr(local);
        client.GetTransport()->GetPeerAddr(peer);
        EXPECT_EQ(Loopback(PORT), peer) << peer.ToString();
        EXPECT_EQ("127.0.0.1", local.GetHostString());
        CMNInetAddr other;
        listener.GetPeer().GetTransport()->GetPeerAddr(other);
        EXPECT_EQ(local, other) << other.ToString();
    });
}

// A client that sends its own kilobyte again each time that it has come back whole.
class CRoundTripper : public CClient
{
public:
    static constexpr std::size_t s_nLength = 1024;

    CRoundTripper(CNetwork& network, std::uint64_t seed, int rounds)
        : CClient(network), m_Bytes(seed), m_nRoundsLeft(rounds)
    {
        m_fOnReceive = [this](CMNMessageBlock&) {
            if (m_strReceived.size() < s_nLength)
                return;
            m_bWrong = m_bWrong || m_strReceived != m_strSent;
            if (--m_nRoundsLeft > 0)
                SendNext();
        };
    }

    void SendNext()
    {
        m_strReceived.clear();
        m_strSent = m_Bytes.Make(s_nLength);
        Send(m_strSent);
    }

    bool IsDone() const { return m_nRoundsLeft == 0; }
    bool IsWrong() const { return m_bWrong; }

private:
    CBytes m_Bytes;
    std::string m_strSent;
    int m_nRoundsLeft;
    bool m_bWrong = false;
};

TEST(TcpManyTest, TwoThousandOpenAtOnce_EachEchoesTenKilobytes_NothingLost)
{
    // The clock is moved by hand because a burst of connects overflows the queue of half-open connections, and what
    // did not fit tries again after a second or more.
    mantle::CMNManualClock clock;
    CNetwork network;
    constexpr std::size_t CONNECTIONS = 2000;
    constexpr int ROUNDS = 10;
    const long before = mantle::CMNLiveObjects::Count();
    {
        CListener listener(network, true);
        std::vector<std::unique_ptr<CRoundTripper>> clients;
        std::size_t connected = 0;
        network.Run([&] {
            ASSERT_EQ(MN_OK, listener.Listen(Loopback(PORT)));
            for (std::size_t i = 0; i < CONNECTIONS; ++i) {
                clients.push_back(std::make_unique<CRoundTripper>(network, i, ROUNDS));
                clients.back()->m_fOnResult = [&](long result) { connected += result == 0 ? 1 : 0; };
                ASSERT_EQ(MN_OK, clients.back()->Connect(Loopback(PORT)));
            }
        });
        ASSERT_TRUE(
            network.WaitFor([&] { return connected == CONNECTIONS && listener.GetCount() == CONNECTIONS; }, 600))
            << connected << " connected, " << listener.GetCount() << " accepted";
        EXPECT_EQ(static_cast<int>(CONNECTIONS), listener.m_nIndications);

        std::size_t done = 0;
        network.Run([&] {
            for (auto& client : clients) {
                client->SendNext();
                const auto inner = client->m_fOnReceive;
                CRoundTripper* self = client.get();
                client->m_fOnReceive = [&done, inner, self](CMNMessageBlock& data) {
                    inner(data);
                    if (self->IsDone())
                        ++done;
                };
            }
        });
        ASSERT_TRUE(network.WaitFor([&] { return done == CONNECTIONS; }, 600)) << done;
        network.Run([&] {
            for (std::size_t i = 0; i < CONNECTIONS; ++i) {
                EXPECT_FALSE(clients[i]->IsWrong()) << i;
                EXPECT_EQ(CRoundTripper::s_nLength * ROUNDS, clients[i]->m_qwReceived) << i;
                EXPECT_EQ(CRoundTripper::s_nLength * ROUNDS, listener.GetPeer(i).m_qwReceived) << i;
                EXPECT_EQ(0, clients[i]->m_nOnDisconnect) << i;
            }
            clients.clear();
        });
        ASSERT_TRUE(network.WaitFor([&] {
            std::size_t ended = 0;
            for (std::size_t i = 0; i < CONNECTIONS; ++i)
                ended += listener.GetPeer(i).m_nOnDisconnect == 1 ? 1 : 0;
            return ended == CONNECTIONS;
        }));
    }
    network.Turn();
    EXPECT_EQ(before, mantle::CMNLiveObjects::Count());
}

}  // namespace
