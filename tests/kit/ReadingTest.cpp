// What a read answers: data, nothing for now, the end, or a failure.
#include <algorithm>
#include <iterator>
#include <thread>

#include "KitLink.h"
#include "KitPackets.h"

using namespace kit;

namespace
{

long Peek(int handle, void* room, unsigned long length)
{
    return ps_recv(handle, room, length, PS_MSG_PEEK);
}

}  // namespace

TEST(Reading, Fresh_EverySocketAndAcceptedOnes_Blocking)
{
    StartStack();
    const CSocket udp(ps_socket(PS_AF_INET, PS_SOCK_DGRAM, 0));
    const CSocket raw(ps_socket(PS_AF_INET, PS_SOCK_RAW, PS_IPPROTO_ICMP));
    const CSocket client = BlockingTcp();
    const CSocket listener = Listener();  // itself non-blocking
    EXPECT_EQ(0, ps_fcntl(udp.Get(), PS_F_GETFL, 0) & PS_O_NONBLOCK);
    EXPECT_EQ(0, ps_fcntl(raw.Get(), PS_F_GETFL, 0) & PS_O_NONBLOCK);
    EXPECT_EQ(0, ps_fcntl(client.Get(), PS_F_GETFL, 0) & PS_O_NONBLOCK);
    EXPECT_EQ(0, Connect(client.Get(), LocalAddress(listener.Get())));
    const CSocket accepted(ps_accept(listener.Get(), nullptr, nullptr));
    EXPECT_EQ(0, ps_fcntl(accepted.Get(), PS_F_GETFL, 0) & PS_O_NONBLOCK);
}

TEST(Reading, NothingWaiting_NonBlocking_Zero)
{
    CPair pair = Connected();
    const CSocket udp = BoundUdp();
    const CSocket raw = Raw(253);
    char room[8];
    EXPECT_EQ(0, ps_recv(pair.m_Client.Get(), room, sizeof(room), 0));
    EXPECT_EQ(0, ps_recv(pair.m_Server.Get(), room, sizeof(room), 0));
    EXPECT_EQ(0, ps_recvfrom(pair.m_Client.Get(), room, sizeof(room), 0, nullptr, nullptr));
    EXPECT_EQ(0, ps_recv(udp.Get(), room, sizeof(room), 0));
    EXPECT_EQ(0, ps_recv(raw.Get(), room, sizeof(room), 0));
}

TEST(Reading, DataThenOrderlyClose_ReadOn_DataThenFailure)
{
    CPair pair = Connected();
    char room[4];
    EXPECT_EQ(5, ps_send(pair.m_Client.Get(), "hello", 5, 0));
    EXPECT_EQ(0, pair.m_Client.Close());
    EXPECT_TRUE(Arrived(pair.m_Server.Get(), 5));
    EXPECT_EQ(4, ps_recv(pair.m_Server.Get(), room, sizeof(room), 0));
    EXPECT_EQ(1, ps_recv(pair.m_Server.Get(), room, sizeof(room), 0));
    EXPECT_EQ(PS_POLLIN, WaitFor(pair.m_Server.Get(), PS_POLLIN));
    EXPECT_EQ(-1, ps_recv(pair.m_Server.Get(), room, sizeof(room), 0));
    EXPECT_NE(PS_EINPROGRESS, get_pserrno());
    EXPECT_EQ(-1, ps_recv(pair.m_Server.Get(), room, sizeof(room), 0));  // and again
    EXPECT_EQ(0, ps_is_socket_errno(pair.m_Server.Get()));
}

TEST(Reading, PeerReset_Read_ConnectionReset)
{
    CPair pair = Connected();
    char room[4];
    pair.m_Client.CloseByReset();
    EXPECT_NE(0, WaitFor(pair.m_Server.Get(), PS_POLLIN));
    KIT_EXPECT_ERROR(PS_ECONNRESET, ps_recv(pair.m_Server.Get(), room, sizeof(room), 0));
    EXPECT_EQ(-1, ps_recv(pair.m_Server.Get(), room, sizeof(room), 0));
    EXPECT_EQ(PS_ECONNRESET, ps_is_socket_errno(pair.m_Server.Get()));
}

TEST(Reading, IdleConnection_Peek_InProgress)
{
    CPair pair = Connected();
    char byte;
    KIT_EXPECT_ERROR(PS_EINPROGRESS, Peek(pair.m_Client.Get(), &byte, 1));
    KIT_EXPECT_ERROR(PS_EINPROGRESS, Peek(pair.m_Server.Get(), &byte, 1));
    EXPECT_EQ(0, ps_is_socket_errno(pair.m_Client.Get()));
    EXPECT_EQ(0, ps_recv(pair.m_Client.Get(), &byte, 1, 0));
}

TEST(Reading, IdleDatagramSocket_Peek_InProgress)
{
    const CSocket udp = BoundUdp();
    char byte;
    KIT_EXPECT_ERROR(PS_EINPROGRESS, Peek(udp.Get(), &byte, 1));
}

TEST(Reading, DataWaiting_Peek_DataStays)
{
    CPair pair = Connected();
    char room[8] = {};
    EXPECT_EQ(6, ps_send(pair.m_Client.Get(), "abcdef", 6, 0));
    EXPECT_TRUE(Arrived(pair.m_Server.Get(), 6));
    EXPECT_EQ(3, Peek(pair.m_Server.Get(), room, 3));
    EXPECT_EQ(6, Peek(pair.m_Server.Get(), room, sizeof(room)));
    EXPECT_STREQ("abcdef", room);
    EXPECT_EQ(6, Waiting(pair.m_Server.Get()));
    EXPECT_EQ(PS_POLLIN, Look(pair.m_Server.Get(), PS_POLLIN));
    EXPECT_EQ(6, ps_recv(pair.m_Server.Get(), room, sizeof(room), 0));
    KIT_EXPECT_ERROR(PS_EINPROGRESS, Peek(pair.m_Server.Get(), room, 1));
}

TEST(Reading, PeeksOverAndOver_Sender_StoppedByTheWindow)
{
    CPair pair = Connected();
    const std::size_t taken = Fill(pair.m_Client.Get(), 4096);
    const int waiting = Waiting(pair.m_Server.Get());
    CBytes room(70000);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(waiting, Peek(pair.m_Server.Get(), room.data(), room.size()));
    }
    EXPECT_EQ(0U, Fill(pair.m_Client.Get(), 4096, taken));
    EXPECT_TRUE(ReceivePattern(pair.m_Server.Get(), 0, taken));
}

TEST(Reading, ClosedByPeer_Peek_DataThenZero)
{
    CPair pair = Connected();
    char room[4];
    EXPECT_EQ(2, ps_send(pair.m_Client.Get(), "ab", 2, 0));
    EXPECT_EQ(0, pair.m_Client.Close());
    EXPECT_TRUE(Arrived(pair.m_Server.Get(), 2));
    EXPECT_EQ(2, Peek(pair.m_Server.Get(), room, sizeof(room)));
    EXPECT_EQ(2, ps_recv(pair.m_Server.Get(), room, sizeof(room), 0));
    EXPECT_EQ(PS_POLLIN, WaitFor(pair.m_Server.Get(), PS_POLLIN));
    EXPECT_EQ(0, Peek(pair.m_Server.Get(), room, sizeof(room)));
    EXPECT_EQ(0, Peek(pair.m_Server.Get(), room, 1));
}

TEST(Reading, ResetByPeer_Peek_NotTakenForIdle)
{
    CPair pair = Connected();
    char byte;
    pair.m_Client.CloseByReset();
    EXPECT_NE(0, WaitFor(pair.m_Server.Get(), 0) & PS_POLLERR);
    const long peeked = Peek(pair.m_Server.Get(), &byte, 1);
    EXPECT_LE(peeked, 0);
    EXPECT_TRUE(peeked == 0 || get_pserrno() != PS_EINPROGRESS);
}

TEST(Reading, ManySends_OneRead_AllThatWaits)
{
    CPair pair = Connected();
    EXPECT_EQ(0, ps_nodelay(pair.m_Client.Get(), 1));
    for (std::size_t i = 0; i < 50; ++i) {
        EXPECT_EQ(100, SendPattern(pair.m_Client.Get(), i * 100, 100));
    }
    EXPECT_TRUE(Arrived(pair.m_Server.Get(), 5000));
    CBytes room(6000);
    EXPECT_EQ(250, ps_recv(pair.m_Server.Get(), room.data(), 250, 0));
    EXPECT_EQ(PS_POLLIN, Look(pair.m_Server.Get(), PS_POLLIN));  // ready as long as data waits
    EXPECT_EQ(4750, ps_recv(pair.m_Server.Get(), room.data() + 250, room.size() - 250, 0));
    room.resize(5000);
    EXPECT_EQ(Pattern(0, 5000), room);
    EXPECT_EQ(0, Look(pair.m_Server.Get(), PS_POLLIN));
}

TEST(Reading, ManySegments_OneRead_AllThatWaits)
{
    CWire wire(ipstack::CIPStackWireSettings(), 576);
    CPair pair = wire.Connect();
    EXPECT_TRUE(SendAll(pair.m_Client.Get(), Pattern(0, 20000)));
    EXPECT_TRUE(Arrived(pair.m_Server.Get(), 20000));
    CBytes room(30000);
    EXPECT_EQ(20000, ps_recv(pair.m_Server.Get(), room.data(), room.size(), 0));
    room.resize(20000);
    EXPECT_EQ(Pattern(0, 20000), room);
}

TEST(Reading, NothingToAccept_NonBlocking_Again)
{
    const CSocket listener = Listener();
    KIT_EXPECT_ERROR(PS_EAGAIN, ps_accept(listener.Get(), nullptr, nullptr));
    CAddress from;
    int length = CAddress::RoomLength();
    KIT_EXPECT_ERROR(PS_EAGAIN, ps_accept(listener.Get(), from.Room(), &length));
}

TEST(Reading, NotListening_Accept_Fails)
{
    const CSocket tcp = Tcp();
    EXPECT_EQ(-1, ps_accept(tcp.Get(), nullptr, nullptr));
    EXPECT_NE(PS_EAGAIN, get_pserrno());
}

TEST(Reading, UnconnectedDatagramSocket_PortUnreachable_NoFailure)
{
    CAddress closed;
    {
        const CSocket gone = BoundUdp();
        closed = LocalAddress(gone.Get());
    }
    const CSocket udp = BoundUdp();
    char room[8];
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(4, SendTo(udp.Get(), CBytes(4), closed));
        EXPECT_EQ(0, Look(udp.Get(), PS_POLLIN));
        EXPECT_EQ(0, ps_recv(udp.Get(), room, sizeof(room), 0));
        EXPECT_EQ(0, ps_is_socket_errno(udp.Get()));
    }
    EXPECT_EQ(4, SendTo(udp.Get(), CBytes(4), LocalAddress(udp.Get())));
    EXPECT_EQ(4U, ReceiveDatagram(udp.Get()).size());
}

TEST(Reading, UnconnectedDatagramSocket_UnreachableFromALink_NoFailure)
{
    CLink link("10.9.0.1");
    const CAddress own = CAddress::V4(10, 9, 0, 1, 0);
    const CAddress peer = CAddress::V4(10, 9, 0, 2, 4001);
    const CSocket udp = BoundUdp(CAddress::Any(4000));
    for (unsigned char code = 0; code < 4; ++code) {
        EXPECT_EQ(4, SendTo(udp.Get(), CBytes(4), peer));
        const CBytes sent = link.Take([](const CBytes& packet) { return packet[9] == PS_IPPROTO_UDP; });
        ASSERT_FALSE(sent.empty());
        constexpr unsigned char unreachable = 3;
        CBytes message = {unreachable, code, 0, 0, 0, 0, 0, 0};
        std::copy_n(sent.begin(), s_dwIpHeader + s_dwUdpHeader, std::back_inserter(message));
        Put16(message, 2, Checksum(message));
        EXPECT_EQ(0U, link.Inject(IpPacket(peer, own, PS_IPPROTO_ICMP, message)));
        char room[8];
        EXPECT_EQ(0, Look(udp.Get(), PS_POLLIN));
        EXPECT_EQ(0, ps_recv(udp.Get(), room, sizeof(room), 0));
        EXPECT_EQ(0, ps_is_socket_errno(udp.Get()));
    }
}

TEST(Reading, Datagram_ReadInFull_SourceAndBoundaries)
{
    const CSocket a = BoundUdp();
    const CSocket b = BoundUdp();
    EXPECT_EQ(10, SendTo(a.Get(), Pattern(0, 10), LocalAddress(b.Get())));
    EXPECT_EQ(20, SendTo(a.Get(), Pattern(10, 20), LocalAddress(b.Get())));
    CAddress from;
    EXPECT_EQ(Pattern(0, 10), ReceiveDatagram(b.Get(), &from));
    EXPECT_EQ(LocalAddress(a.Get()), from);
    EXPECT_EQ(16, from.Get()->sa_len);
    EXPECT_EQ(Pattern(10, 20), ReceiveDatagram(b.Get(), &from));
    EXPECT_EQ(0, Look(b.Get(), PS_POLLIN));
}

TEST(Reading, DatagramLongerThanRoom_Read_RestIsGone)
{
    const CSocket udp = BoundUdp();
    EXPECT_EQ(100, SendTo(udp.Get(), Pattern(0, 100), LocalAddress(udp.Get())));
    EXPECT_EQ(5, SendTo(udp.Get(), Pattern(100, 5), LocalAddress(udp.Get())));
    CBytes room(30);
    EXPECT_TRUE(Arrived(udp.Get(), 100));
    EXPECT_EQ(30, ps_recv(udp.Get(), room.data(), room.size(), 0));
    EXPECT_EQ(Pattern(0, 30), room);
    EXPECT_EQ(Pattern(100, 5), ReceiveDatagram(udp.Get()));
}

TEST(Reading, EmptyDatagram_Waiting_InputUntilRead)
{
    const CSocket udp = BoundUdp();
    EXPECT_EQ(0, SendTo(udp.Get(), CBytes(), LocalAddress(udp.Get())));
    EXPECT_EQ(3, SendTo(udp.Get(), CBytes(3), LocalAddress(udp.Get())));
    char room[8];
    EXPECT_EQ(PS_POLLIN, WaitFor(udp.Get(), PS_POLLIN));
    EXPECT_EQ(0, ps_recv(udp.Get(), room, sizeof(room), 0));
    EXPECT_EQ(PS_POLLIN, WaitFor(udp.Get(), PS_POLLIN));
    EXPECT_EQ(3, ps_recv(udp.Get(), room, sizeof(room), 0));
    EXPECT_EQ(0, Look(udp.Get(), PS_POLLIN));
}

TEST(Reading, Blocking_DataComesLater_CallWaits)
{
    CPair pair = Connected();
    EXPECT_EQ(0, ps_fcntl(pair.m_Server.Get(), PS_F_SETFL, 0));
    std::thread writer([&] {
        CSocket shakeHands = BoundUdp();
        EXPECT_EQ(0, WaitFor(shakeHands.Get(), PS_POLLIN, 20));  // the reader most likely waits by now
        EXPECT_EQ(5, ps_send(pair.m_Client.Get(), "later", 5, 0));
    });
    char room[16];
    EXPECT_EQ(5, ps_recv(pair.m_Server.Get(), room, sizeof(room), 0));
    writer.join();
}

TEST(Reading, Blocking_PeerCloses_CallEnds)
{
    CPair pair = Connected();
    EXPECT_EQ(0, ps_fcntl(pair.m_Server.Get(), PS_F_SETFL, 0));
    std::thread closer([&] { EXPECT_EQ(0, pair.m_Client.Close()); });
    char room[16];
    EXPECT_EQ(-1, ps_recv(pair.m_Server.Get(), room, sizeof(room), 0));
    closer.join();
}

TEST(Reading, Blocking_DatagramAndAcceptComeLater_CallsWait)
{
    const CSocket udp = BoundUdp();
    const CSocket listener = Listener();
    EXPECT_EQ(0, ps_fcntl(udp.Get(), PS_F_SETFL, 0));
    EXPECT_EQ(0, ps_fcntl(listener.Get(), PS_F_SETFL, 0));
    std::thread other([&] {
        const CSocket sender = BoundUdp();
        EXPECT_EQ(7, SendTo(sender.Get(), CBytes(7), LocalAddress(udp.Get())));
        const CSocket client = BlockingTcp();
        EXPECT_EQ(0, Connect(client.Get(), LocalAddress(listener.Get())));
        char room[4];
        EXPECT_EQ(1, ps_recv(client.Get(), room, sizeof(room), 0));
    });
    char room[16];
    EXPECT_EQ(7, ps_recv(udp.Get(), room, sizeof(room), 0));
    CAddress from;
    int length = CAddress::RoomLength();
    const CSocket accepted(ps_accept(listener.Get(), from.Room(), &length));
    EXPECT_GE(accepted.Get(), 1);
    EXPECT_EQ(PeerAddress(accepted.Get()), from);
    EXPECT_EQ(1, ps_send(accepted.Get(), "x", 1, 0));
    other.join();
}
