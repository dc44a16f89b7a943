// Options, flags, counts of waiting bytes and addresses.
#include "KitLink.h"
#include "mantle/CMNClock.h"

using namespace kit;

namespace
{

struct COption
{
    int m_nLevel;
    int m_nName;
    int m_nValue;
};

// The value set in one length and read in both.
void ExpectTaken(int handle, const COption& option, int length)
{
    SCOPED_TRACE("level " + std::to_string(option.m_nLevel) + " name " + std::to_string(option.m_nName) + " length " +
                 std::to_string(length));
    const std::int32_t narrow = option.m_nValue;
    const std::int64_t wide = option.m_nValue;
    const void* const value = length == 8 ? static_cast<const void*>(&wide) : static_cast<const void*>(&narrow);
    EXPECT_EQ(0, ps_setsockopt(handle, option.m_nLevel, option.m_nName, value, length)) << "cause " << get_pserrno();

    std::int32_t answer[3] = {-7, -7, -7};
    int room = 4;
    EXPECT_EQ(0, ps_getsockopt(handle, option.m_nLevel, option.m_nName, answer, &room)) << "cause " << get_pserrno();
    EXPECT_EQ(4, room);
    EXPECT_EQ(option.m_nValue, answer[0]);
    EXPECT_EQ(-7, answer[1]);

    struct
    {
        std::int64_t m_Value;
        std::int64_t m_Behind;
    } wideAnswer = {-7, -7};
    room = 8;
    EXPECT_EQ(0, ps_getsockopt(handle, option.m_nLevel, option.m_nName, &wideAnswer.m_Value, &room));
    EXPECT_EQ(8, room);
    EXPECT_EQ(option.m_nValue, wideAnswer.m_Value);
    EXPECT_EQ(-7, wideAnswer.m_Behind);
}

const COption s_StreamOptions[] = {
    {PS_SOL_SOCKET, PS_SO_KEEPALIVE, 1},
    {PS_SOL_SOCKET, PS_SO_KEEPALIVE, 0},
    {PS_SOL_SOCKET, PS_SO_SNDBUF, 100000},
    {PS_SOL_SOCKET, PS_SO_RCVBUF, 110000},
    {PS_SOL_SOCKET, PS_SO_REUSEADDR, 1},
    {PS_SOL_SOCKET_LINUX, PS_SO_LINUX_REUSEADDR, 0},
    {PS_SOL_SOCKET_LINUX, PS_SO_LINUX_REUSEADDR, 1},
    {PS_SOL_SOCKET_LINUX, PS_SO_LINUX_SNDBUF, 120000},
    {PS_SOL_SOCKET_LINUX, PS_SO_LINUX_RCVBUF, 130000},
    {PS_SOL_SOCKET_LINUX, PS_SO_LINUX_KEEPALIVE, 1},
    {PS_IPPROTO_TCP, PS_TCP_KEEPIDLE, 60},
    {PS_IPPROTO_TCP, PS_TCP_KEEPINTVL, 11},
    {PS_IPPROTO_TCP, PS_TCP_KEEPCNT, 4},
    {PS_IPPROTO_TCP, PS_TCP_NODELAY, 1},
    {PS_IPPROTO_TCP, PS_TCP_NODELAY, 0},
    {PS_IPPROTO_IP, PS_IP_TTL, 33},
    {PS_IPPROTO_IP, PS_IP_TOS, 16},
};

// Elapsed stack time until an idle connection whose peer has vanished fails.
long long KeepAliveFailsAfter(const CPair& pair)
{
    const long long start = StackTimeMs();
    EXPECT_NE(0, WaitFor(pair.m_Client.Get(), PS_POLLIN, 10000000) & PS_POLLERR);
    EXPECT_EQ(PS_ETIMEDOUT, ps_is_socket_errno(pair.m_Client.Get()));
    return StackTimeMs() - start;
}

}  // namespace

TEST(Options, Stream_FourAndEightBytes_TakenAndAnswered)
{
    const CSocket fresh = Tcp();
    CPair pair = Connected();
    for (const COption& option : s_StreamOptions) {
        for (const int length : {4, 8}) {
            ExpectTaken(fresh.Get(), option, length);
            ExpectTaken(pair.m_Client.Get(), option, length);
        }
    }
}

TEST(Options, DatagramAndRaw_FourAndEightBytes_TakenAndAnswered)
{
    const CSocket udp = Udp();
    const CSocket raw = Raw(253);
    for (const int length : {4, 8}) {
        ExpectTaken(udp.Get(), {PS_SOL_SOCKET, PS_SO_RCVBUF, 100000}, length);
        ExpectTaken(udp.Get(), {PS_SOL_SOCKET_LINUX, PS_SO_LINUX_RCVBUF, 90000}, length);
        ExpectTaken(udp.Get(), {PS_SOL_SOCKET_LINUX, PS_SO_LINUX_REUSEADDR, 1}, length);
        ExpectTaken(udp.Get(), {PS_SOL_SOCKET, PS_SO_BROADCAST, 1}, length);
        ExpectTaken(udp.Get(), {PS_SOL_SOCKET_LINUX, PS_SO_LINUX_BROADCAST, 0}, length);
        ExpectTaken(udp.Get(), {PS_IPPROTO_IP, PS_IP_TTL, 9}, length);
        ExpectTaken(raw.Get(), {PS_SOL_SOCKET, PS_SO_RCVBUF, 100000}, length);
        ExpectTaken(raw.Get(), {PS_IPPROTO_IP, PS_IP_HDRINCL, 1}, length);
        ExpectTaken(raw.Get(), {PS_IPPROTO_IP, PS_IP_HDRINCL, 0}, length);
    }
}

TEST(Options, BothLevels_OneSet_OtherAnswers)
{
    const CSocket tcp = Tcp();
    EXPECT_EQ(0, SetOption(tcp.Get(), PS_SOL_SOCKET, PS_SO_SNDBUF, 70000));
    EXPECT_EQ(70000, GetOption(tcp.Get(), PS_SOL_SOCKET_LINUX, PS_SO_LINUX_SNDBUF));
    EXPECT_EQ(0, SetOption(tcp.Get(), PS_SOL_SOCKET_LINUX, PS_SO_LINUX_RCVBUF, 80000));
    EXPECT_EQ(80000, GetOption(tcp.Get(), PS_SOL_SOCKET, PS_SO_RCVBUF));
    EXPECT_EQ(0, SetOption(tcp.Get(), PS_SOL_SOCKET, PS_SO_KEEPALIVE, 1));
    EXPECT_EQ(1, GetOption(tcp.Get(), PS_SOL_SOCKET_LINUX, PS_SO_LINUX_KEEPALIVE));
    EXPECT_EQ(0, SetOption(tcp.Get(), PS_SOL_SOCKET_LINUX, PS_SO_LINUX_REUSEADDR, 1));
    EXPECT_EQ(1, GetOption(tcp.Get(), PS_SOL_SOCKET, PS_SO_REUSEADDR));
}

TEST(Options, Fresh_Switches_Off)
{
    const CSocket tcp = Tcp();
    EXPECT_EQ(0, GetOption(tcp.Get(), PS_SOL_SOCKET, PS_SO_KEEPALIVE));
    EXPECT_EQ(0, GetOption(tcp.Get(), PS_SOL_SOCKET_LINUX, PS_SO_LINUX_REUSEADDR));
    EXPECT_EQ(0, GetOption(tcp.Get(), PS_IPPROTO_TCP, PS_TCP_NODELAY));
    EXPECT_EQ(0, GetOption(tcp.Get(), PS_SOL_SOCKET, PS_SO_ERROR));
    EXPECT_EQ(0, GetOption(Raw(253).Get(), PS_IPPROTO_IP, PS_IP_HDRINCL));
}

TEST(Options, Type_Asked_Answered)
{
    EXPECT_EQ(PS_SOCK_STREAM, GetOption(Tcp().Get(), PS_SOL_SOCKET, PS_SO_TYPE));
    EXPECT_EQ(PS_SOCK_DGRAM, GetOption(Udp().Get(), PS_SOL_SOCKET_LINUX, PS_SO_LINUX_TYPE));
    EXPECT_EQ(PS_SOCK_RAW, GetOption(Raw(253).Get(), PS_SOL_SOCKET, PS_SO_TYPE));
}

TEST(Options, NoDelay_ByCallAndByOption_TheSame)
{
    const CSocket tcp = Tcp();
    EXPECT_EQ(0, ps_nodelay(tcp.Get(), 1));
    EXPECT_EQ(1, GetOption(tcp.Get(), PS_IPPROTO_TCP, PS_TCP_NODELAY));
    EXPECT_EQ(0, ps_nodelay(tcp.Get(), 0));
    EXPECT_EQ(0, GetOption(tcp.Get(), PS_IPPROTO_TCP, PS_TCP_NODELAY));
}

TEST(Options, Unknown_NameOrLevel_NoSuchOption)
{
    const CSocket tcp = Tcp();
    int value = 1;
    int length = sizeof(value);
    for (const COption& option :
         {COption{PS_SOL_SOCKET, 0x7777, 0}, COption{PS_SOL_SOCKET_LINUX, 7777, 0}, COption{PS_IPPROTO_TCP, 777, 0},
          COption{PS_IPPROTO_IP, 777, 0}, COption{12345, 2, 0}}) {
        KIT_EXPECT_ERROR(PS_ENOPROTOOPT, ps_setsockopt(tcp.Get(), option.m_nLevel, option.m_nName, &value, 4));
        KIT_EXPECT_ERROR(PS_ENOPROTOOPT, ps_getsockopt(tcp.Get(), option.m_nLevel, option.m_nName, &value, &length));
    }
}

TEST(Options, BadLengthOrPlace_Calls_Refused)
{
    const CSocket tcp = Tcp();
    const std::int64_t value = 1;
    for (const int length : {-1, 0, 1, 2, 3, 5}) {
        KIT_EXPECT_ERROR(PS_EINVAL, ps_setsockopt(tcp.Get(), PS_SOL_SOCKET, PS_SO_KEEPALIVE, &value, length));
        std::int64_t answer = -7;
        int room = length;
        KIT_EXPECT_ERROR(PS_EINVAL, ps_getsockopt(tcp.Get(), PS_SOL_SOCKET, PS_SO_KEEPALIVE, &answer, &room));
        EXPECT_EQ(-7, answer);
    }
    EXPECT_EQ(0, GetOption(tcp.Get(), PS_SOL_SOCKET, PS_SO_KEEPALIVE));
    EXPECT_EQ(-1, ps_setsockopt(tcp.Get(), PS_SOL_SOCKET, PS_SO_KEEPALIVE, nullptr, 4));
    int room = 4;
    EXPECT_EQ(-1, ps_getsockopt(tcp.Get(), PS_SOL_SOCKET, PS_SO_KEEPALIVE, nullptr, &room));
    std::int64_t answer = 0;
    EXPECT_EQ(-1, ps_getsockopt(tcp.Get(), PS_SOL_SOCKET, PS_SO_KEEPALIVE, &answer, nullptr));
}

TEST(Options, KeepAlive_PeerVanished_FailsInTheTimeAsked)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    CWire wire;
    CPair pair = wire.Connect();
    EXPECT_EQ(0, SetOption(pair.m_Client.Get(), PS_SOL_SOCKET, PS_SO_KEEPALIVE, 1));
    EXPECT_EQ(0, SetOption(pair.m_Client.Get(), PS_IPPROTO_TCP, PS_TCP_KEEPIDLE, 60));
    EXPECT_EQ(0, SetOption(pair.m_Client.Get(), PS_IPPROTO_TCP, PS_TCP_KEEPINTVL, 5));
    EXPECT_EQ(0, SetOption(pair.m_Client.Get(), PS_IPPROTO_TCP, PS_TCP_KEEPCNT, 3));
    wire.Cut();
    const long long passed = KeepAliveFailsAfter(pair);
    EXPECT_GE(passed, 60000 + 2 * 5000);
    EXPECT_LE(passed, 60000 + 5 * 5000);
}

TEST(Options, KeepAliveIdleAlone_PeerVanished_FailsInTheEnd)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    CWire wire;
    CPair pair = wire.Connect();
    EXPECT_EQ(0, SetOption(pair.m_Client.Get(), PS_SOL_SOCKET, PS_SO_KEEPALIVE, 1));
    EXPECT_EQ(0, SetOption(pair.m_Client.Get(), PS_IPPROTO_TCP, PS_TCP_KEEPIDLE, 10));
    wire.Cut();
    const long long passed = KeepAliveFailsAfter(pair);
    EXPECT_GE(passed, 10000);
    EXPECT_LE(passed, 1000000);
}

TEST(Options, KeepAlive_PeerThere_ConnectionStays)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    CWire wire;
    CPair pair = wire.Connect();
    EXPECT_EQ(0, SetOption(pair.m_Client.Get(), PS_SOL_SOCKET, PS_SO_KEEPALIVE, 1));
    EXPECT_EQ(0, SetOption(pair.m_Client.Get(), PS_IPPROTO_TCP, PS_TCP_KEEPIDLE, 10));
    PassStackTime(3600000);
    EXPECT_EQ(PS_POLLOUT, Look(pair.m_Client.Get()));
    EXPECT_TRUE(Transfer(pair.m_Client.Get(), pair.m_Server.Get(), 1000));
}

TEST(Options, NoKeepAlive_PeerVanished_NothingNoticed)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    CWire wire;
    CPair pair = wire.Connect();
    wire.Cut();
    EXPECT_EQ(0, WaitFor(pair.m_Client.Get(), PS_POLLIN, 10800000));
    EXPECT_EQ(0, ps_is_socket_errno(pair.m_Client.Get()));
}

TEST(Options, SetBeforeConnect_Made_StillSet)
{
    const CSocket listener = Listener();
    const CSocket client = Tcp();
    EXPECT_EQ(0, ps_set_snd_rcv_buffer(client.Get(), 200000, 300000));
    EXPECT_EQ(0, SetOption(client.Get(), PS_SOL_SOCKET, PS_SO_KEEPALIVE, 1));
    EXPECT_EQ(0, SetOption(client.Get(), PS_IPPROTO_TCP, PS_TCP_KEEPIDLE, 77));
    EXPECT_EQ(0, ps_nodelay(client.Get(), 1));
    EXPECT_EQ(0, Connect(client.Get(), LocalAddress(listener.Get())));
    EXPECT_EQ(PS_POLLOUT, WaitFor(client.Get(), PS_POLLOUT));
    EXPECT_EQ(200000, GetOption(client.Get(), PS_SOL_SOCKET, PS_SO_SNDBUF));
    EXPECT_EQ(300000, GetOption(client.Get(), PS_SOL_SOCKET, PS_SO_RCVBUF));
    EXPECT_EQ(1, GetOption(client.Get(), PS_SOL_SOCKET, PS_SO_KEEPALIVE));
    EXPECT_EQ(77, GetOption(client.Get(), PS_IPPROTO_TCP, PS_TCP_KEEPIDLE));
    EXPECT_EQ(1, GetOption(client.Get(), PS_IPPROTO_TCP, PS_TCP_NODELAY));
}

TEST(Options, Flags_SetAndCleared_ModeFollows)
{
    CPair pair = Connected();
    const int handle = pair.m_Server.Get();
    EXPECT_EQ(PS_O_NONBLOCK, ps_fcntl(handle, PS_F_GETFL, 0) & PS_O_NONBLOCK);
    EXPECT_EQ(0, ps_fcntl(handle, PS_F_SETFL, ps_fcntl(handle, PS_F_GETFL, 0) & ~PS_O_NONBLOCK));
    EXPECT_EQ(0, ps_fcntl(handle, PS_F_GETFL, 0) & PS_O_NONBLOCK);
    EXPECT_EQ(0, ps_fcntl(handle, PS_F_SETFL, PS_O_NONBLOCK));
    EXPECT_EQ(PS_O_NONBLOCK, ps_fcntl(handle, PS_F_GETFL, 0) & PS_O_NONBLOCK);
    char byte;
    EXPECT_EQ(0, ps_recv(handle, &byte, 1, 0));
    KIT_EXPECT_ERROR(PS_EINVAL, ps_fcntl(handle, 777, 0));
}

TEST(Options, BytesWaiting_Stream_Total)
{
    CPair pair = Connected();
    EXPECT_EQ(0, Waiting(pair.m_Server.Get()));
    EXPECT_EQ(300, SendPattern(pair.m_Client.Get(), 0, 300));
    EXPECT_EQ(200, SendPattern(pair.m_Client.Get(), 300, 200));
    EXPECT_TRUE(Arrived(pair.m_Server.Get(), 500));
    EXPECT_TRUE(ReceivePattern(pair.m_Server.Get(), 0, 120));
    EXPECT_EQ(380, Waiting(pair.m_Server.Get()));
    std::int32_t around[3] = {-7, -7, -7};
    EXPECT_EQ(0, ps_ioctl(pair.m_Server.Get(), PS_FIONREAD, &around[1]));
    EXPECT_EQ(-7, around[0]);
    EXPECT_EQ(380, around[1]);
    EXPECT_EQ(-7, around[2]);
}

TEST(Options, BytesWaiting_DatagramAndRaw_NextOnesSize)
{
    const CSocket udp = BoundUdp();
    const CSocket raw = Raw(253);
    EXPECT_EQ(0, Waiting(udp.Get()));
    EXPECT_EQ(0, Waiting(raw.Get()));
    EXPECT_EQ(30, SendTo(udp.Get(), CBytes(30), LocalAddress(udp.Get())));
    EXPECT_EQ(40, SendTo(udp.Get(), CBytes(40), LocalAddress(udp.Get())));
    EXPECT_TRUE(Arrived(udp.Get(), 30));
    EXPECT_EQ(30U, ReceiveDatagram(udp.Get()).size());
    EXPECT_TRUE(Arrived(udp.Get(), 40));
    EXPECT_EQ(10, SendTo(raw.Get(), CBytes(10), CAddress::Loopback()));
    EXPECT_TRUE(Arrived(raw.Get(), 30));  // with the IP header
}

TEST(Options, Ioctl_UnknownCommandOrNoPlace_Refused)
{
    CPair pair = Connected();
    int value = 0;
    EXPECT_EQ(-1, ps_ioctl(pair.m_Client.Get(), 0x7777, &value));
    EXPECT_EQ(-1, ps_ioctl(pair.m_Client.Get(), PS_FIONREAD, nullptr));
}

TEST(Options, PeerName_Unconnected_NotConnected)
{
    CAddress address;
    int length = CAddress::RoomLength();
    KIT_EXPECT_ERROR(PS_ENOTCONN, ps_getpeername(Tcp().Get(), address.Room(), &length));
    KIT_EXPECT_ERROR(PS_ENOTCONN, ps_getpeername(Udp().Get(), address.Room(), &length));
    KIT_EXPECT_ERROR(PS_ENOTCONN, ps_getpeername(Raw(253).Get(), address.Room(), &length));
    KIT_EXPECT_ERROR(PS_ENOTCONN, ps_getpeername(Listener().Get(), address.Room(), &length));
}

TEST(Options, Names_Connected_LengthAndFamilyBytes)
{
    CPair pair = Connected();
    const CAddress local = LocalAddress(pair.m_Client.Get());
    EXPECT_EQ(16, local.Get()->sa_len);
    EXPECT_EQ(PS_AF_INET, local.Family());
    EXPECT_EQ(local, PeerAddress(pair.m_Server.Get()));
    EXPECT_EQ(PeerAddress(pair.m_Client.Get()), LocalAddress(pair.m_Server.Get()));
    CAddress address;
    int length = CAddress::RoomLength();
    EXPECT_EQ(0, ps_getsockname(pair.m_Client.Get(), address.Room(), &length));
    EXPECT_EQ(16, length);
    length = CAddress::RoomLength();
    EXPECT_EQ(0, ps_getpeername(pair.m_Client.Get(), address.Room(), &length));
    EXPECT_EQ(16, length);
}

TEST(Options, Names_Unbound_AnyAddressPortZero)
{
    EXPECT_EQ(CAddress::Any(0), LocalAddress(Tcp().Get()));
    EXPECT_EQ(CAddress::Any(0), LocalAddress(Udp().Get()));
    EXPECT_EQ(CAddress::Any6(0), LocalAddress(Tcp(PS_AF_INET6).Get()));
}
