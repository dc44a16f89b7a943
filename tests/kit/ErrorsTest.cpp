// Where the cause of a failure is kept, and what starting the stack answers.
#include <thread>

#include "KitLink.h"

using namespace kit;

namespace
{

constexpr unsigned long s_dwNotInitialized = 10002;
constexpr unsigned long s_dwAlready = 10003;
constexpr unsigned long s_dwInvalid = 10008;

class CNowhere : public ipstack::IIPStackLowLevel
{
public:
    unsigned long IPStackLowLevelOutput(const char*, unsigned long, unsigned char) override { return 0; }
};

// Leaves a cause that nothing below produces.
void LeaveMark()
{
    ASSERT_EQ(-1, ps_socket(99, PS_SOCK_STREAM, 0));
    ASSERT_EQ(PS_EAFNOSUPPORT, get_pserrno());
}

#define KIT_EXPECT_MARK_KEPT(call)                               \
  do {                                                           \
    EXPECT_NE(-1, static_cast<long>(call)) << #call;             \
    EXPECT_EQ(PS_EAFNOSUPPORT, get_pserrno()) << "after " #call; \
  } while (false)

}  // namespace

TEST(Errors, Failure_InAnotherThread_OwnCauseKept)
{
    StartStack();
    LeaveMark();
    std::thread([] { KIT_EXPECT_ERROR(PS_EBADF, ps_close(77777)); }).join();
    EXPECT_EQ(PS_EAFNOSUPPORT, get_pserrno());
}

TEST(Errors, Failure_NextFailure_NewestCause)
{
    StartStack();
    LeaveMark();
    KIT_EXPECT_ERROR(PS_EBADF, ps_close(77777));
    LeaveMark();
}

TEST(Errors, Failure_StreamCallsSucceed_CauseKept)
{
    StartStack();
    LeaveMark();
    int made = 0;
    KIT_EXPECT_MARK_KEPT(made = ps_socket(PS_AF_INET, PS_SOCK_STREAM, 0));
    const CSocket listener(made);
    const CAddress at = CAddress::Loopback();
    KIT_EXPECT_MARK_KEPT(ps_socket_nonblock(listener.Get()));
    KIT_EXPECT_MARK_KEPT(ps_bind(listener.Get(), at.Get(), at.Length()));
    KIT_EXPECT_MARK_KEPT(ps_listen(listener.Get(), 5));
    const CAddress server = LocalAddress(listener.Get());
    const CSocket client = Tcp();
    KIT_EXPECT_MARK_KEPT(Connect(client.Get(), server));
    WaitFor(listener.Get(), PS_POLLIN);
    KIT_EXPECT_MARK_KEPT(made = ps_accept(listener.Get(), nullptr, nullptr));
    CSocket accepted(made);
    KIT_EXPECT_MARK_KEPT(ps_socket_nonblock(accepted.Get()));
    KIT_EXPECT_MARK_KEPT(WaitFor(client.Get(), PS_POLLOUT));

    char room[64];
    KIT_EXPECT_MARK_KEPT(ps_recv(accepted.Get(), room, sizeof(room), 0));  // nothing waits: 0
    KIT_EXPECT_MARK_KEPT(ps_send(client.Get(), "hello", 5, 0));
    const ps_iovec piece = {room, 3};
    KIT_EXPECT_MARK_KEPT(ps_writev(client.Get(), &piece, 1));
    WaitFor(accepted.Get(), PS_POLLIN);
    KIT_EXPECT_MARK_KEPT(ps_recv(accepted.Get(), room, sizeof(room), PS_MSG_PEEK));
    KIT_EXPECT_MARK_KEPT(ps_recv(accepted.Get(), room, sizeof(room), 0));
    Fill(client.Get(), 4096);
    KIT_EXPECT_MARK_KEPT(ps_send(client.Get(), room, sizeof(room), 0));  // no room: 0
    KIT_EXPECT_MARK_KEPT(PeerAddress(client.Get()).Length());
    KIT_EXPECT_MARK_KEPT(ps_fcntl(client.Get(), PS_F_GETFL, 0));
    KIT_EXPECT_MARK_KEPT(Waiting(client.Get()));
    KIT_EXPECT_MARK_KEPT(GetOption(client.Get(), PS_SOL_SOCKET, PS_SO_SNDBUF));
    KIT_EXPECT_MARK_KEPT(SetOption(client.Get(), PS_SOL_SOCKET, PS_SO_KEEPALIVE, 1));
    KIT_EXPECT_MARK_KEPT(ps_nodelay(client.Get(), 1));
    KIT_EXPECT_MARK_KEPT(ps_set_snd_rcv_buffer(client.Get(), 100000, 100000));
    KIT_EXPECT_MARK_KEPT(ps_is_socket_errno(client.Get()));
    KIT_EXPECT_MARK_KEPT(ps_shutdown(client.Get(), PS_SHUT_WR));
    KIT_EXPECT_MARK_KEPT(accepted.Close());
}

TEST(Errors, Failure_DatagramAndWaitingCallsSucceed_CauseKept)
{
    const CSocket udp = BoundUdp();
    LeaveMark();
    const CAddress own = LocalAddress(udp.Get());
    char room[16];
    CAddress from;
    int length = CAddress::RoomLength();
    KIT_EXPECT_MARK_KEPT(ps_recvfrom(udp.Get(), room, sizeof(room), 0, from.Room(), &length));
    KIT_EXPECT_MARK_KEPT(SendTo(udp.Get(), CBytes(4), own));
    KIT_EXPECT_MARK_KEPT(WaitFor(udp.Get(), PS_POLLIN));
    KIT_EXPECT_MARK_KEPT(Waiting(udp.Get()));
    KIT_EXPECT_MARK_KEPT(ps_recvfrom(udp.Get(), room, sizeof(room), 0, from.Room(), &length));
    KIT_EXPECT_MARK_KEPT(Look(udp.Get(), PS_POLLIN));
    ps_pollfd unknown = {77777, PS_POLLIN, 0};
    KIT_EXPECT_MARK_KEPT(ps_poll(&unknown, 1, 0));
    ps_fdsets sets = {};
    const ps_timeval atOnce = {0, 0};
    KIT_EXPECT_MARK_KEPT(ps_select(0, &sets, &sets, &atOnce));
}

TEST(Errors, Socket_UnknownFamilyOrType_Refused)
{
    StartStack();
    KIT_EXPECT_ERROR(PS_EAFNOSUPPORT, ps_socket(99, PS_SOCK_STREAM, 0));
    KIT_EXPECT_ERROR(PS_EAFNOSUPPORT, ps_socket(1, PS_SOCK_STREAM, 0));
    EXPECT_EQ(-1, ps_socket(PS_AF_INET, 77, 0));
    KIT_EXPECT_ERROR(PS_EPROTONOSUPPORT, ps_socket(PS_AF_INET, PS_SOCK_STREAM, PS_IPPROTO_UDP));
    KIT_EXPECT_ERROR(PS_EPROTONOSUPPORT, ps_socket(PS_AF_INET, PS_SOCK_DGRAM, PS_IPPROTO_TCP));
}

TEST(Errors, NotStarted_Manager_SaysSo)
{
    ipstack::IIPStackManager* const manager = ipstack::IIPStackManager::Instance();
    ASSERT_NE(nullptr, manager);
    EXPECT_EQ(manager, ipstack::IIPStackManager::Instance());
    EXPECT_FALSE(manager->IsInitialized());
    CNowhere nowhere;
    ipstack::CIPStackConfig config;
    config.m_strAddress = "10.9.0.1";
    ipstack::IIPStack* stack = nullptr;
    EXPECT_EQ(s_dwNotInitialized, manager->CreateStack(config, &nowhere, stack));
    EXPECT_EQ(nullptr, stack);

    EXPECT_EQ(0U, manager->Startup(ipstack::CIPStackSettings()));
    EXPECT_TRUE(manager->IsInitialized());
    EXPECT_EQ(s_dwAlready, manager->Startup(ipstack::CIPStackSettings()));
    EXPECT_TRUE(manager->IsInitialized());
    EXPECT_EQ(0U, manager->AttachThread());
}

TEST(Errors, Link_BadSettings_RefusedAndNothingMade)
{
    StartStack();
    ipstack::IIPStackManager* const manager = ipstack::IIPStackManager::Instance();
    CNowhere nowhere;
    ipstack::IIPStack* stack = nullptr;
    ipstack::CIPStackConfig good;
    good.m_strAddress = "10.9.0.1";
    EXPECT_EQ(s_dwInvalid, manager->CreateStack(good, nullptr, stack));

    std::vector<ipstack::CIPStackConfig> bad;
    for (const char* address : {"", "10.9.0", "10.9.0.256", "localhost", "::1"}) {
        bad.push_back(good);
        bad.back().m_strAddress = address;
    }
    bad.push_back(good);
    bad.back().m_strMask = "mask";
    bad.push_back(good);
    bad.back().m_strGateway = "10.9.0.x";
    bad.push_back(good);
    bad.back().m_strAddress6 = "10.9.0.1";
    for (const unsigned int mtu : {0U, 575U, 65536U}) {
        bad.push_back(good);
        bad.back().m_dwMtu = mtu;
    }
    bad.push_back(good);
    bad.back().m_strAddress6 = "fd09::1";
    bad.back().m_dwMtu = 1279;
    for (const ipstack::CIPStackConfig& one : bad) {
        EXPECT_EQ(s_dwInvalid, manager->CreateStack(one, &nowhere, stack))
            << "'" << one.m_strAddress << "' '" << one.m_strMask << "' '" << one.m_strGateway << "' '"
            << one.m_strAddress6 << "' " << one.m_dwMtu;
        EXPECT_EQ(nullptr, stack);
    }
    EXPECT_EQ(s_dwInvalid, manager->DestroyStack(nullptr));
}

TEST(Errors, Link_AddressTaken_RefusedUntilTakenDown)
{
    StartStack();
    ipstack::IIPStackManager* const manager = ipstack::IIPStackManager::Instance();
    CNowhere nowhere;
    ipstack::CIPStackConfig config;
    config.m_strAddress = "10.9.0.1";
    ipstack::IIPStack* first = nullptr;
    ipstack::IIPStack* second = nullptr;
    ASSERT_EQ(0U, manager->CreateStack(config, &nowhere, first));
    ASSERT_NE(nullptr, first);
    EXPECT_EQ(s_dwInvalid, manager->CreateStack(config, &nowhere, second));
    EXPECT_EQ(nullptr, second);
    EXPECT_EQ(0U, manager->DestroyStack(first));
    ASSERT_EQ(0U, manager->CreateStack(config, &nowhere, second));
    EXPECT_EQ(0U, manager->DestroyStack(second));
}

TEST(Errors, Link_TakenDown_ItsConnectionsFail)
{
    StartStack();
    CPair pair;
    {
        CWire wire;
        pair = wire.Connect();
        EXPECT_EQ(0, Look(pair.m_Client.Get(), PS_POLLIN));
    }
    EXPECT_NE(0, WaitFor(pair.m_Client.Get(), PS_POLLIN) & PS_POLLERR);
    EXPECT_NE(0, WaitFor(pair.m_Server.Get(), PS_POLLIN) & PS_POLLERR);
    EXPECT_EQ(-1, ps_send(pair.m_Client.Get(), "x", 1, 0));
}

TEST(Errors, Counters_LessRoom_CountIsTheSame)
{
    StartStack();
    ipstack::IIPStackManager* const manager = ipstack::IIPStackManager::Instance();
    const std::size_t count = manager->GetCounters(nullptr, 0);
    ASSERT_GE(count, 2U);
    ipstack::CIPStackCounter counters[2] = {{nullptr, 0}, {"untouched", 7}};
    EXPECT_EQ(count, manager->GetCounters(counters, 1));
    EXPECT_NE(nullptr, counters[0].m_szName);
    EXPECT_STREQ("untouched", counters[1].m_szName);
}
