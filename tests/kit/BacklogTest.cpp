// Connections that wait for ps_accept: how many, in what order, and what becomes of the rest.
#include <set>

#include "KitLink.h"
#include "KitPackets.h"
#include "mantle/CMNClock.h"

using namespace kit;

namespace
{

std::vector<CSocket> ConnectMany(const CAddress& to, int count)
{
    std::vector<CSocket> clients;
    clients.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        clients.push_back(Tcp());
        EXPECT_EQ(0, Connect(clients.back().Get(), to)) << i << ", cause " << get_pserrno();
    }
    return clients;
}

int CountConnected(const std::vector<CSocket>& clients)
{
    int connected = 0;
    for (const CSocket& one : clients) {
        connected += Look(one.Get(), PS_POLLOUT) == PS_POLLOUT ? 1 : 0;
    }
    return connected;
}

std::vector<CSocket> AcceptAllWaiting(int listener)
{
    std::vector<CSocket> accepted;
    for (;;) {
        const bool ready = Look(listener, PS_POLLIN) == PS_POLLIN;
        CSocket one(ps_accept(listener, nullptr, nullptr));
        EXPECT_EQ(ready, one.Get() > 0) << "ready and the accept must agree";
        if (one.Get() <= 0) {
            EXPECT_EQ(PS_EAGAIN, get_pserrno());
            return accepted;
        }
        accepted.push_back(std::move(one));
    }
}

// `asked` connections to a listener of this backlog: `held` at first, the rest once there is room.
void ExpectHeld(int backlog, int asked, int held)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    const CSocket listener = Listener(CAddress::Loopback(), backlog);
    std::vector<CSocket> clients = ConnectMany(LocalAddress(listener.Get()), asked);
    EXPECT_TRUE(WaitUntil([&] { return CountConnected(clients) >= held; }, 1000));
    PassStackTime(1500);  // less than any peer waits before it tries again for the second time
    EXPECT_EQ(held, CountConnected(clients));
    for (const CSocket& one : clients) {
        EXPECT_EQ(0, ps_is_socket_errno(one.Get())) << "not acknowledged is not refused";
    }
    std::vector<CSocket> accepted = AcceptAllWaiting(listener.Get());
    EXPECT_EQ(held, static_cast<int>(accepted.size()));
    while (static_cast<int>(accepted.size()) < asked && WaitFor(listener.Get(), PS_POLLIN) == PS_POLLIN) {
        for (CSocket& one : AcceptAllWaiting(listener.Get())) {
            accepted.push_back(std::move(one));
        }
    }
    EXPECT_EQ(asked, static_cast<int>(accepted.size()));
    EXPECT_TRUE(WaitUntil([&] { return CountConnected(clients) == asked; }));
}

}  // namespace

TEST(Backlog, FiveHeld_TwentyConnect_RestTryAgain)
{
    ExpectHeld(5, 20, 5);
}

TEST(Backlog, OneHeld_ThreeConnect_RestTryAgain)
{
    ExpectHeld(1, 3, 1);
}

TEST(Backlog, MoreThanEightBits_FourHundredConnect_ExactlyAsManyHeld)
{
    ExpectHeld(300, 400, 300);
}

TEST(Backlog, GreatestBacklog_ElevenHundredConnect_ExactlyAsManyHeld)
{
    ExpectHeld(1024, 1100, 1024);
}

TEST(Backlog, BacklogBeyondTheGreatest_ElevenHundredConnect_GreatestHeld)
{
    ExpectHeld(5000, 1100, 1024);
}

TEST(Backlog, SameThread_ConnectBeforeAccept_Works)
{
    const CSocket listener = Listener();
    const CSocket client = BlockingTcp();
    EXPECT_EQ(0, Connect(client.Get(), LocalAddress(listener.Get())));
    const CSocket server(ps_accept(listener.Get(), nullptr, nullptr));
    EXPECT_GE(server.Get(), 1);
    EXPECT_EQ(4, ps_send(client.Get(), "ping", 4, 0));
    char room[8];
    EXPECT_EQ(4, ps_recv(server.Get(), room, sizeof(room), 0));
}

TEST(Backlog, SameThread_BlockingListener_ConnectBeforeAcceptWorks)
{
    const CSocket listener = BlockingTcp();
    EXPECT_EQ(0, Bind(listener.Get(), CAddress::Loopback()));
    EXPECT_EQ(0, ps_listen(listener.Get(), 5));
    const CSocket client = BlockingTcp();
    EXPECT_EQ(0, Connect(client.Get(), LocalAddress(listener.Get())));
    CAddress from;
    int length = CAddress::RoomLength();
    const CSocket server(ps_accept(listener.Get(), from.Room(), &length));
    EXPECT_GE(server.Get(), 1);
    EXPECT_EQ(16, length);
    EXPECT_EQ(LocalAddress(client.Get()), from);
    EXPECT_EQ(16, from.Get()->sa_len);
}

TEST(Backlog, SeveralWaiting_Accept_OldestFirst)
{
    const CSocket listener = Listener();
    const std::vector<CSocket> clients = ConnectMany(LocalAddress(listener.Get()), 10);
    for (const CSocket& client : clients) {
        const CSocket server = Accept(listener);
        EXPECT_EQ(LocalAddress(client.Get()), PeerAddress(server.Get()));
    }
    EXPECT_EQ(0, Look(listener.Get()));
}

TEST(Backlog, DataBeforeAccept_Accepted_DataIsThere)
{
    const CSocket listener = Listener();
    CSocket client = Tcp();
    EXPECT_EQ(0, Connect(client.Get(), LocalAddress(listener.Get())));
    EXPECT_EQ(PS_POLLOUT, WaitFor(client.Get(), PS_POLLOUT));
    EXPECT_EQ(5, ps_send(client.Get(), "early", 5, 0));
    EXPECT_EQ(0, client.Close());
    const CSocket server = Accept(listener);
    EXPECT_EQ(5U, ReceiveBytes(server.Get(), 5).size());
    char room[4];
    EXPECT_EQ(-1, ps_recv(server.Get(), room, sizeof(room), 0));
}

TEST(Backlog, ResetWhileWaiting_ListenerReady_OnlyIfAnAcceptSucceeds)
{
    const CSocket listener = Listener();
    std::vector<CSocket> clients = ConnectMany(LocalAddress(listener.Get()), 3);
    EXPECT_EQ(PS_POLLOUT, WaitFor(clients[1].Get(), PS_POLLOUT));
    clients[1].CloseByReset();
    clients[0].CloseByReset();
    const std::vector<CSocket> accepted = AcceptAllWaiting(listener.Get());
    EXPECT_GE(accepted.size(), 1U);
    EXPECT_LE(accepted.size(), 3U);
    EXPECT_EQ(LocalAddress(clients[2].Get()), PeerAddress(accepted.back().Get()));
}

TEST(Backlog, ListenerClosed_WaitingConnections_End)
{
    CSocket listener = Listener();
    const std::vector<CSocket> clients = ConnectMany(LocalAddress(listener.Get()), 5);
    EXPECT_TRUE(WaitUntil([&] { return CountConnected(clients) == 5; }));
    EXPECT_EQ(0, listener.Close());
    for (const CSocket& client : clients) {
        char room[4];
        EXPECT_NE(0, WaitFor(client.Get(), PS_POLLIN));
        EXPECT_EQ(-1, ps_recv(client.Get(), room, sizeof(room), 0));
    }
}

TEST(Backlog, HalfOpenFinishes_Accept_Handed)
{
    CLink link("10.9.0.1");
    const CSocket listener = Listener(CAddress::V4(10, 9, 0, 1, 0));
    const CAddress at = LocalAddress(listener.Get());
    const CAddress peer = CAddress::V4(10, 9, 0, 2, 20000);
    EXPECT_EQ(0U, link.Inject(TcpPacket(peer, at, s_cTcpSyn, 1000, 0)));
    const CBytes answer = link.Take([](const CBytes& packet) { return IsTcp(packet, 20000); });
    ASSERT_FALSE(answer.empty());
    EXPECT_EQ(0, Look(listener.Get()));
    const std::uint32_t theirs = Get32(answer, HeaderLength(answer) + 4);
    EXPECT_EQ(1001U, Get32(answer, HeaderLength(answer) + 8));
    EXPECT_EQ(0U, link.Inject(TcpPacket(peer, at, s_cTcpAck, 1001, theirs + 1)));
    const CSocket server = Accept(listener);
    EXPECT_EQ(peer, PeerAddress(server.Get()));
    EXPECT_EQ(0U, link.Inject(TcpPacket(peer, at, s_cTcpAck | s_cTcpPsh, 1001, theirs + 1, CBytes{'h', 'i'})));
    EXPECT_EQ((CBytes{'h', 'i'}), ReceiveBytes(server.Get(), 2));
}
