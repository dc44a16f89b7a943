// Making connections: while under way, when made, and each way to fail.
#include "KitLink.h"
#include "mantle/CMNClock.h"

using namespace kit;

namespace
{

const CAddress s_Nobody = CAddress::V4(10, 9, 0, 77, 4000);  // an address on the test's link that never answers

CAddress ClosedPort()
{
    const CSocket gone = Listener();
    return LocalAddress(gone.Get());
}

}  // namespace

TEST(Connecting, Listener_NonBlocking_ZeroThenOutput)
{
    const CSocket listener = Listener();
    const CSocket client = Tcp();
    EXPECT_EQ(0, Connect(client.Get(), LocalAddress(listener.Get())));
    EXPECT_EQ(PS_POLLOUT, WaitFor(client.Get(), s_nInOut));
    EXPECT_EQ(0, ps_is_socket_errno(client.Get()));
    EXPECT_EQ(LocalAddress(listener.Get()), PeerAddress(client.Get()));
    EXPECT_NE(0U, LocalAddress(client.Get()).Port());
}

TEST(Connecting, UnderWay_Look_NeitherReadableNorWritable)
{
    CLink link("10.9.0.1");
    const CSocket client = Tcp();
    EXPECT_EQ(0, Connect(client.Get(), s_Nobody));
    EXPECT_EQ(0, Look(client.Get()));
    EXPECT_EQ(0, ps_is_socket_errno(client.Get()));
}

TEST(Connecting, UnderWay_ReadAndWrite_NothingForNow)
{
    CLink link("10.9.0.1");
    const CSocket client = Tcp();
    char room[4] = {};
    EXPECT_EQ(0, Connect(client.Get(), s_Nobody));
    EXPECT_EQ(0, ps_recv(client.Get(), room, sizeof(room), 0));
    EXPECT_EQ(0, ps_send(client.Get(), room, sizeof(room), 0));
    CAddress peer;
    int length = CAddress::RoomLength();
    KIT_EXPECT_ERROR(PS_ENOTCONN, ps_getpeername(client.Get(), peer.Room(), &length));
}

TEST(Connecting, UnderWay_ConnectAgain_Already)
{
    CLink link("10.9.0.1");
    const CSocket client = Tcp();
    EXPECT_EQ(0, Connect(client.Get(), s_Nobody));
    KIT_EXPECT_ERROR(PS_EALREADY, Connect(client.Get(), s_Nobody));
}

TEST(Connecting, Made_ConnectAgain_IsConnected)
{
    CPair pair = Connected();
    KIT_EXPECT_ERROR(PS_EISCONN, Connect(pair.m_Client.Get(), PeerAddress(pair.m_Client.Get())));
    KIT_EXPECT_ERROR(PS_EISCONN, Connect(pair.m_Server.Get(), PeerAddress(pair.m_Server.Get())));
}

TEST(Connecting, Refused_NonBlocking_ZeroThenErrorThatStays)
{
    const CAddress closed = ClosedPort();
    const CSocket client = Tcp();
    EXPECT_EQ(0, Connect(client.Get(), closed));
    EXPECT_NE(0, WaitFor(client.Get(), PS_POLLOUT) & PS_POLLERR);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(PS_ECONNREFUSED, ps_is_socket_errno(client.Get()));
    }
    EXPECT_NE(0, Look(client.Get(), PS_POLLOUT) & PS_POLLERR);
    KIT_EXPECT_ERROR(PS_ECONNREFUSED, ps_send(client.Get(), "x", 1, 0));
}

TEST(Connecting, Refused_NothingAsked_ErrorStillReported)
{
    const CAddress closed = ClosedPort();
    const CSocket client = Tcp();
    EXPECT_EQ(0, Connect(client.Get(), closed));
    EXPECT_NE(0, WaitFor(client.Get(), 0) & PS_POLLERR);
    EXPECT_NE(0, WaitFor(client.Get(), PS_POLLIN) & PS_POLLERR);
}

TEST(Connecting, Refused_ErrorOption_ClearedByReading)
{
    const CAddress closed = ClosedPort();
    for (const int level : {PS_SOL_SOCKET, PS_SOL_SOCKET_LINUX}) {
        const CSocket client = Tcp();
        EXPECT_EQ(0, Connect(client.Get(), closed));
        EXPECT_NE(0, WaitFor(client.Get(), PS_POLLOUT) & PS_POLLERR);
        const int name = level == PS_SOL_SOCKET ? PS_SO_ERROR : PS_SO_LINUX_ERROR;
        EXPECT_EQ(PS_ECONNREFUSED, ps_is_socket_errno(client.Get()));
        EXPECT_EQ(PS_ECONNREFUSED, GetOption(client.Get(), level, name));
        EXPECT_EQ(0, GetOption(client.Get(), level, name));
    }
}

TEST(Connecting, Refused_Blocking_Refused)
{
    const CAddress closed = ClosedPort();
    const CSocket client = BlockingTcp();
    KIT_EXPECT_ERROR(PS_ECONNREFUSED, Connect(client.Get(), closed));
}

TEST(Connecting, Listener_Blocking_Zero)
{
    const CSocket listener = Listener();
    const CSocket client = BlockingTcp();
    EXPECT_EQ(0, Connect(client.Get(), LocalAddress(listener.Get())));
    EXPECT_EQ(PS_POLLOUT, Look(client.Get()));
}

TEST(Connecting, NobodyAnswers_NonBlocking_TimedOut)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    CLink link("10.9.0.1");
    const CSocket client = Tcp();
    const long long start = StackTimeMs();
    EXPECT_EQ(0, Connect(client.Get(), s_Nobody));
    EXPECT_NE(0, WaitFor(client.Get(), PS_POLLOUT, 600000) & PS_POLLERR);
    EXPECT_EQ(PS_ETIMEDOUT, ps_is_socket_errno(client.Get()));
    EXPECT_EQ(PS_ETIMEDOUT, ps_is_socket_errno(client.Get()));
    EXPECT_GE(StackTimeMs() - start, 5000);
    EXPECT_LE(StackTimeMs() - start, 300000);
    EXPECT_GE(link.TakeAll().size(), 3U);  // it asked more than once
}

TEST(Connecting, NobodyAnswers_Blocking_TimedOut)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    CLink link("10.9.0.1");
    const CSocket client = BlockingTcp();
    KIT_EXPECT_ERROR(PS_ETIMEDOUT, Connect(client.Get(), s_Nobody));
}

TEST(Connecting, FirstPacketsLost_WireMends_Made)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    CWire wire;
    wire.Cut();
    const CSocket listener = Listener(CWire::EndB());
    const CSocket client = Tcp();
    EXPECT_EQ(0, Connect(client.Get(), LocalAddress(listener.Get())));
    EXPECT_EQ(0, WaitFor(client.Get(), s_nInOut, 4000));
    wire.Mend();
    EXPECT_EQ(PS_POLLOUT, WaitFor(client.Get(), s_nInOut));
    EXPECT_GE(Accept(listener).Get(), 1);
}

TEST(Connecting, NoRoute_Stream_NetworkUnreachableAtOnce)
{
    const CSocket client = Tcp();
    KIT_EXPECT_ERROR(PS_ENETUNREACH, Connect(client.Get(), CAddress::V4(203, 0, 113, 1, 80)));
    const CSocket blocking = BlockingTcp();
    KIT_EXPECT_ERROR(PS_ENETUNREACH, Connect(blocking.Get(), CAddress::V4(203, 0, 113, 1, 80)));
}

TEST(Connecting, BadAddress_AnySocket_Refused)
{
    const CSocket tcp = Tcp();
    const CSocket udp = Udp();
    const CAddress good = CAddress::Loopback(4000);
    for (const int handle : {tcp.Get(), udp.Get()}) {
        KIT_EXPECT_ERROR(PS_EINVAL, ps_connect(handle, good.Get(), 7));
        EXPECT_EQ(-1, ps_connect(handle, nullptr, 16));
        ps_sockaddr_in unknown = {16, 77, 0, 0, {}};
        EXPECT_EQ(-1, ps_connect(handle, reinterpret_cast<ps_sockaddr*>(&unknown), 16));
    }
}

TEST(Connecting, Datagram_Connect_CompletesAtOnce)
{
    const CSocket a = BoundUdp();
    const CSocket b = BoundUdp();
    EXPECT_EQ(0, Connect(a.Get(), LocalAddress(b.Get())));
    EXPECT_EQ(LocalAddress(b.Get()), PeerAddress(a.Get()));
    EXPECT_EQ(5, ps_send(a.Get(), "hello", 5, 0));
    CAddress from;
    EXPECT_EQ(5U, ReceiveDatagram(b.Get(), &from).size());
    EXPECT_EQ(LocalAddress(a.Get()), from);
    const CSocket nobodyThere = Udp();
    EXPECT_EQ(0, Connect(nobodyThere.Get(), CAddress::Loopback(9)));
}

TEST(Connecting, ConnectedDatagram_OthersSend_OnlyThePeerIsHeard)
{
    const CSocket a = BoundUdp();
    const CSocket b = BoundUdp();
    const CSocket stranger = BoundUdp();
    EXPECT_EQ(0, Connect(a.Get(), LocalAddress(b.Get())));
    EXPECT_EQ(3, SendTo(stranger.Get(), CBytes(3), LocalAddress(a.Get())));
    EXPECT_EQ(0, Look(a.Get(), PS_POLLIN));
    EXPECT_EQ(4, SendTo(b.Get(), CBytes(4), LocalAddress(a.Get())));
    EXPECT_EQ(4U, ReceiveDatagram(a.Get()).size());
}

TEST(Connecting, Raw_Connect_CompletesAtOnce)
{
    const CSocket raw = Raw(253);
    const CSocket other = Raw(253);
    EXPECT_EQ(0, Connect(raw.Get(), CAddress::Loopback()));
    EXPECT_EQ(3, ps_send(raw.Get(), "abc", 3, 0));
    EXPECT_EQ(20U + 3U, ReceiveDatagram(other.Get()).size());
}

TEST(Connecting, BoundClient_Connect_SourceKept)
{
    const CSocket listener = Listener();
    const CSocket client = Tcp();
    EXPECT_EQ(0, Bind(client.Get(), CAddress::Loopback()));
    const CAddress local = LocalAddress(client.Get());
    EXPECT_NE(0U, local.Port());
    EXPECT_EQ(0, Connect(client.Get(), LocalAddress(listener.Get())));
    const CSocket server = Accept(listener);
    EXPECT_EQ(local, PeerAddress(server.Get()));
    EXPECT_EQ(LocalAddress(listener.Get()), LocalAddress(server.Get()));
}
