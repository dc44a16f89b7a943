// Numbers of sockets: where they start, how many there are, and how long a closed one stays invalid.
#include <algorithm>

#include "KitSupport.h"

using namespace kit;

namespace
{

constexpr int s_nMaxOpen = 8192;
constexpr int s_nNumberRests = 1 << 15;  // sockets until a closed number may come back

// Opens sockets until so many are open in the process.
std::vector<CSocket> OpenSockets(int count)
{
    std::vector<CSocket> open;
    open.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        open.push_back(i % 2 == 0 ? Udp() : Tcp());
        if (testing::Test::HasFailure()) {
            break;
        }
    }
    return open;
}

void ExpectNoSocket(int handle)
{
    char byte = 0;
    int length = CAddress::RoomLength();
    CAddress address = CAddress::Loopback(4000);
    const ps_iovec piece = {&byte, 1};
    int value = 1;
    int valueLength = sizeof(value);

    KIT_EXPECT_ERROR(PS_EBADF, ps_bind(handle, address.Get(), address.Length()));
    KIT_EXPECT_ERROR(PS_EBADF, ps_listen(handle, 1));
    KIT_EXPECT_ERROR(PS_EBADF, ps_accept(handle, address.Room(), &length));
    KIT_EXPECT_ERROR(PS_EBADF, ps_connect(handle, CAddress::Loopback(4000).Get(), 16));
    KIT_EXPECT_ERROR(PS_EBADF, ps_send(handle, &byte, 1, 0));
    KIT_EXPECT_ERROR(PS_EBADF, ps_sendto(handle, &byte, 1, 0, CAddress::Loopback(4000).Get(), 16));
    KIT_EXPECT_ERROR(PS_EBADF, ps_writev(handle, &piece, 1));
    KIT_EXPECT_ERROR(PS_EBADF, ps_recv(handle, &byte, 1, 0));
    KIT_EXPECT_ERROR(PS_EBADF, ps_recv(handle, &byte, 1, PS_MSG_PEEK));
    KIT_EXPECT_ERROR(PS_EBADF, ps_recvfrom(handle, &byte, 1, 0, address.Room(), &length));
    KIT_EXPECT_ERROR(PS_EBADF, ps_shutdown(handle, PS_SHUT_WR));
    KIT_EXPECT_ERROR(PS_EBADF, ps_getsockname(handle, address.Room(), &length));
    KIT_EXPECT_ERROR(PS_EBADF, ps_getpeername(handle, address.Room(), &length));
    KIT_EXPECT_ERROR(PS_EBADF, ps_setsockopt(handle, PS_SOL_SOCKET_LINUX, PS_SO_LINUX_REUSEADDR, &value, 4));
    KIT_EXPECT_ERROR(PS_EBADF, ps_getsockopt(handle, PS_SOL_SOCKET, PS_SO_SNDBUF, &value, &valueLength));
    KIT_EXPECT_ERROR(PS_EBADF, ps_fcntl(handle, PS_F_GETFL, 0));
    KIT_EXPECT_ERROR(PS_EBADF, ps_ioctl(handle, PS_FIONREAD, &value));
    KIT_EXPECT_ERROR(PS_EBADF, ps_socket_nonblock(handle));
    KIT_EXPECT_ERROR(PS_EBADF, ps_nodelay(handle, 1));
    KIT_EXPECT_ERROR(PS_EBADF, ps_set_snd_rcv_buffer(handle, 65535, 65535));
    KIT_EXPECT_ERROR(PS_EBADF, ps_close(handle));
    EXPECT_EQ(-1, ps_is_socket_errno(handle));
}

// So many further sockets never get the number, and it stays without meaning meanwhile.
void ExpectNumberRests(int stale)
{
    for (int i = 0; i < s_nNumberRests; ++i) {
        const CSocket further(ps_socket(PS_AF_INET, i % 2 == 0 ? PS_SOCK_DGRAM : PS_SOCK_STREAM, 0));
        ASSERT_GE(further.Get(), 1) << "socket " << i << ", cause " << get_pserrno();
        ASSERT_NE(stale, further.Get()) << "after " << i << " further sockets";
        if (i % 256 == 0) {
            ASSERT_EQ(-1, ps_fcntl(stale, PS_F_GETFL, 0));
            ASSERT_EQ(PS_EBADF, get_pserrno());
        }
    }
    ExpectNoSocket(stale);
}

}  // namespace

TEST(Handles, Fresh_ManySockets_AllFromOneUpAndDifferent)
{
    const std::vector<CSocket> open = OpenSockets(1000);
    std::vector<int> numbers;
    numbers.reserve(open.size());
    for (const CSocket& one : open) {
        EXPECT_GE(one.Get(), 1);
        numbers.push_back(one.Get());
    }
    std::sort(numbers.begin(), numbers.end());
    EXPECT_EQ(numbers.end(), std::unique(numbers.begin(), numbers.end()));
}

TEST(Handles, NeverOpened_EveryCall_BadHandle)
{
    StartStack();
    ExpectNoSocket(0);
    ExpectNoSocket(-1);
    ExpectNoSocket(1234567);
    ExpectNoSocket(0x7FFFFFFF);
}

TEST(Handles, Closed_EveryCall_BadHandle)
{
    CSocket tcp = Tcp();
    CSocket udp = Udp();
    CSocket raw = Raw(PS_IPPROTO_ICMP);
    CPair pair = Connected();
    const int numbers[] = {tcp.Get(), udp.Get(), raw.Get(), pair.m_Client.Get(), pair.m_Server.Get()};
    EXPECT_EQ(0, tcp.Close());
    EXPECT_EQ(0, udp.Close());
    EXPECT_EQ(0, raw.Close());
    EXPECT_EQ(0, pair.m_Client.Close());
    EXPECT_EQ(0, pair.m_Server.Close());
    for (const int number : numbers) {
        ExpectNoSocket(number);
    }
}

TEST(Handles, Closed_ManyFurtherSockets_NumberStaysInvalid)
{
    CSocket first = Tcp();
    const int stale = first.Get();
    EXPECT_EQ(0, first.Close());
    ExpectNumberRests(stale);
}

TEST(Handles, TableAlmostFull_ManyFurtherSockets_NumberStaysInvalid)
{
    std::vector<CSocket> open = OpenSockets(s_nMaxOpen);
    ASSERT_FALSE(HasFailure());
    const int stale = open[4711].Get();
    EXPECT_EQ(0, open[4711].Close());
    ExpectNumberRests(stale);
}

TEST(Handles, AcceptedClosed_ManyFurtherSockets_NumberStaysInvalid)
{
    CPair pair = Connected();
    const int stale = pair.m_Server.Get();
    EXPECT_EQ(0, pair.m_Server.Close());
    ExpectNumberRests(stale);
}

TEST(Handles, StaleNumber_OthersOpen_NeverTouchesThem)
{
    CSocket first = BoundUdp();
    const int stale = first.Get();
    EXPECT_EQ(0, first.Close());
    std::vector<CSocket> open = OpenSockets(200);
    KIT_EXPECT_ERROR(PS_EBADF, Bind(stale, CAddress::Loopback()));
    KIT_EXPECT_ERROR(PS_EBADF, ps_close(stale));
    EXPECT_EQ(PS_POLLHUP, Look(stale));
    for (const CSocket& one : open) {
        EXPECT_EQ(0U, LocalAddress(one.Get()).Port());
        EXPECT_NE(-1, ps_fcntl(one.Get(), PS_F_GETFL, 0));
    }
}

TEST(Handles, LimitOpen_OneMore_TooMany)
{
    std::vector<CSocket> open = OpenSockets(s_nMaxOpen);
    ASSERT_FALSE(HasFailure());
    KIT_EXPECT_ERROR(PS_EMFILE, ps_socket(PS_AF_INET, PS_SOCK_STREAM, 0));
    KIT_EXPECT_ERROR(PS_EMFILE, ps_socket(PS_AF_INET, PS_SOCK_DGRAM, 0));
    KIT_EXPECT_ERROR(PS_EMFILE, ps_socket(PS_AF_INET, PS_SOCK_RAW, PS_IPPROTO_ICMP));
    EXPECT_EQ(0, open.back().Close());
    open.back() = Tcp();
    EXPECT_GE(open.back().Get(), 1);
    KIT_EXPECT_ERROR(PS_EMFILE, ps_socket(PS_AF_INET, PS_SOCK_STREAM, 0));
}

TEST(Handles, LimitOpen_ConnectionWaits_ListenerReadyOnceAnAcceptCanSucceed)
{
    const CSocket listener = Listener();
    const CSocket client = Tcp();
    std::vector<CSocket> open = OpenSockets(s_nMaxOpen - 2);
    ASSERT_FALSE(HasFailure());

    ASSERT_EQ(0, Connect(client.Get(), LocalAddress(listener.Get())));
    EXPECT_EQ(PS_POLLOUT, WaitFor(client.Get(), PS_POLLOUT));
    EXPECT_EQ(0, Look(listener.Get()));
    EXPECT_EQ(-1, ps_accept(listener.Get(), nullptr, nullptr));

    EXPECT_EQ(0, open.front().Close());
    EXPECT_EQ(PS_POLLIN, WaitFor(listener.Get(), PS_POLLIN));
    const CSocket accepted(ps_accept(listener.Get(), nullptr, nullptr));
    EXPECT_GE(accepted.Get(), 1) << "cause " << get_pserrno();
    KIT_EXPECT_ERROR(PS_EMFILE, ps_socket(PS_AF_INET, PS_SOCK_STREAM, 0));
}

TEST(Handles, ConnectionWaits_LimitReachedByOthers_ListenerNoLongerReady)
{
    const CSocket listener = Listener();
    const CSocket client = Tcp();
    ASSERT_EQ(0, Connect(client.Get(), LocalAddress(listener.Get())));
    EXPECT_EQ(PS_POLLIN, WaitFor(listener.Get(), PS_POLLIN));
    std::vector<CSocket> open = OpenSockets(s_nMaxOpen - 2);
    ASSERT_FALSE(HasFailure());
    EXPECT_EQ(0, Look(listener.Get()));
    open.clear();
    EXPECT_EQ(PS_POLLIN, WaitFor(listener.Get(), PS_POLLIN));
    EXPECT_GE(Accept(listener).Get(), 1);
}

TEST(Handles, LimitRaised_MoreThanTheDefault_AllOpen)
{
    ipstack::CIPStackSettings settings;
    settings.m_dwMaxSockets = 10000;
    ASSERT_EQ(0U, ipstack::IIPStackManager::Instance()->Startup(settings));
    std::vector<CSocket> open = OpenSockets(10000);
    ASSERT_FALSE(HasFailure());
    KIT_EXPECT_ERROR(PS_EMFILE, ps_socket(PS_AF_INET, PS_SOCK_STREAM, 0));
    const int stale = open.back().Get();
    EXPECT_EQ(0, open.back().Close());
    ExpectNumberRests(stale);
}
