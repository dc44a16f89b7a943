// 127.0.0.1 port 5555, which may be listened on several times, and all other addresses, which may not.
#include "KitLink.h"

using namespace kit;

namespace
{

constexpr unsigned int s_dwWakeUpPort = 5555;

// Connects to the port; which of the listeners has the connection.
int WhoGetsIt(const std::vector<CSocket>& listeners)
{
    const CSocket client = Tcp();
    EXPECT_EQ(0, Connect(client.Get(), CAddress::Loopback(s_dwWakeUpPort)));
    EXPECT_EQ(PS_POLLOUT, WaitFor(client.Get(), PS_POLLOUT));
    std::vector<ps_pollfd> entries;
    entries.reserve(listeners.size());
    for (const CSocket& listener : listeners) {
        entries.push_back({listener.Get(), PS_POLLIN, 0});
    }
    EXPECT_EQ(1, ps_poll(entries.data(), static_cast<unsigned int>(entries.size()), s_nLimitMs));
    int who = -1;
    for (std::size_t i = 0; i < listeners.size(); ++i) {
        if (entries[i].revents != 0) {
            EXPECT_EQ(-1, who) << "two listeners have one connection";
            who = static_cast<int>(i);
            EXPECT_GE(Accept(listeners[i]).Get(), 1);
        }
    }
    return who;
}

CSocket SecondWith(const CAddress& at, bool reuse)
{
    CSocket second = Tcp(at.Family());
    EXPECT_EQ(0, SetOption(second.Get(), PS_SOL_SOCKET_LINUX, PS_SO_LINUX_REUSEADDR, reuse ? 1 : 0));
    return second;
}

}  // namespace

TEST(WakeUpPort, ThreeListeners_Connect_NewestHasIt)
{
    std::vector<CSocket> listeners;
    for (int i = 0; i < 3; ++i) {
        listeners.push_back(Listener(CAddress::Loopback(s_dwWakeUpPort), 5));
        EXPECT_EQ(i, WhoGetsIt(listeners));
    }
    EXPECT_EQ(2, WhoGetsIt(listeners));
    EXPECT_EQ(0, listeners[2].Close());
    EXPECT_EQ(1, WhoGetsIt(listeners));
    EXPECT_EQ(0, listeners[0].Close());
    EXPECT_EQ(1, WhoGetsIt(listeners));
    listeners.push_back(Listener(CAddress::Loopback(s_dwWakeUpPort), 5));
    EXPECT_EQ(3, WhoGetsIt(listeners));
}

TEST(WakeUpPort, ListenerWithConnections_AnotherListens_ConnectionsStay)
{
    const CSocket first = Listener(CAddress::Loopback(s_dwWakeUpPort), 5);
    CPair pair = ConnectedThrough(first);
    const CSocket waiting = Tcp();
    EXPECT_EQ(0, Connect(waiting.Get(), CAddress::Loopback(s_dwWakeUpPort)));
    CSocket second = Listener(CAddress::Loopback(s_dwWakeUpPort), 5);
    EXPECT_EQ(4, ps_send(pair.m_Client.Get(), "ping", 4, 0));
    EXPECT_EQ(4U, ReceiveBytes(pair.m_Server.Get(), 4).size());
    EXPECT_EQ(0, second.Close());
    EXPECT_EQ(LocalAddress(waiting.Get()), PeerAddress(Accept(first).Get()));
}

TEST(WakeUpPort, ManyListenersAndConnections_OpenedAndClosed_AllWork)
{
    // Each as a reactor's pipe does it: listen, connect, accept, the listener closes.
    std::vector<CPair> pipes;
    pipes.reserve(200);
    for (int i = 0; i < 200; ++i) {
        pipes.push_back(Connected(CAddress::Loopback(s_dwWakeUpPort)));
    }
    for (const CPair& pipe : pipes) {
        EXPECT_EQ(16, SendPattern(pipe.m_Client.Get(), 0, 16));
        EXPECT_TRUE(ReceivePattern(pipe.m_Server.Get(), 0, 16));
    }
}

TEST(WakeUpPort, OtherPortListened_SecondBind_AddressInUse)
{
    const CSocket first = Listener();
    const CAddress at = LocalAddress(first.Get());
    KIT_EXPECT_ERROR(PS_EADDRINUSE, Bind(SecondWith(at, false).Get(), at));
    KIT_EXPECT_ERROR(PS_EADDRINUSE, Bind(SecondWith(at, true).Get(), at));
}

TEST(WakeUpPort, OtherPortBound_SecondBind_AddressInUse)
{
    const CSocket first = SecondWith(CAddress::Loopback(), true);
    EXPECT_EQ(0, Bind(first.Get(), CAddress::Loopback()));
    const CAddress at = LocalAddress(first.Get());
    KIT_EXPECT_ERROR(PS_EADDRINUSE, Bind(SecondWith(at, true).Get(), at));
    KIT_EXPECT_ERROR(PS_EADDRINUSE, Bind(SecondWith(at, false).Get(), at));
}

TEST(WakeUpPort, WildcardAndSpecific_SamePort_AddressInUse)
{
    const CSocket specific = Listener();
    const unsigned int port = LocalAddress(specific.Get()).Port();
    KIT_EXPECT_ERROR(PS_EADDRINUSE, Bind(SecondWith(CAddress::Any(), true).Get(), CAddress::Any(port)));
    const CSocket any = Listener(CAddress::Any());
    const unsigned int anyPort = LocalAddress(any.Get()).Port();
    KIT_EXPECT_ERROR(PS_EADDRINUSE, Bind(SecondWith(CAddress::Any(), true).Get(), CAddress::Loopback(anyPort)));
    KIT_EXPECT_ERROR(PS_EADDRINUSE, Bind(SecondWith(CAddress::Any(), true).Get(), CAddress::Any(anyPort)));
}

TEST(WakeUpPort, SamePortOfAnotherAddress_SecondListener_AddressInUse)
{
    CLink link("10.9.0.1");
    const CAddress at = CAddress::V4(10, 9, 0, 1, s_dwWakeUpPort);
    const CSocket pipe = Listener(CAddress::Loopback(s_dwWakeUpPort));
    const CSocket first = Listener(at);
    KIT_EXPECT_ERROR(PS_EADDRINUSE, Bind(SecondWith(at, true).Get(), at));
}

TEST(WakeUpPort, DatagramPortBound_SecondBind_AddressInUse)
{
    const CSocket first = BoundUdp();
    const CAddress at = LocalAddress(first.Get());
    const CSocket second = Udp();
    EXPECT_EQ(0, SetOption(second.Get(), PS_SOL_SOCKET_LINUX, PS_SO_LINUX_REUSEADDR, 1));
    KIT_EXPECT_ERROR(PS_EADDRINUSE, Bind(second.Get(), at));
    const CSocket stream = Tcp();
    EXPECT_EQ(0, Bind(stream.Get(), at));  // another protocol has ports of its own
}

TEST(WakeUpPort, OpenConnectionOnThePort_BindWithReuse_AddressInUse)
{
    CSocket listener = Listener();
    const CAddress at = LocalAddress(listener.Get());
    CPair pair = ConnectedThrough(listener);
    EXPECT_EQ(0, listener.Close());
    KIT_EXPECT_ERROR(PS_EADDRINUSE, Bind(SecondWith(at, true).Get(), at));
}

TEST(WakeUpPort, ClosingConnectionOnThePort_Bind_OnlyWithReuse)
{
    CSocket listener = Listener();
    const CAddress at = LocalAddress(listener.Get());
    CPair pair = ConnectedThrough(listener);
    EXPECT_EQ(0, listener.Close());
    Fill(pair.m_Server.Get(), 8192);  // nobody reads it: the close cannot end
    EXPECT_EQ(0, pair.m_Server.Close());
    KIT_EXPECT_ERROR(PS_EADDRINUSE, Bind(SecondWith(at, false).Get(), at));
    const CSocket again = SecondWith(at, true);
    EXPECT_EQ(0, Bind(again.Get(), at)) << "cause " << get_pserrno();
    EXPECT_EQ(0, ps_listen(again.Get(), 5));
    CPair fresh = ConnectedThrough(again);
    EXPECT_EQ(1, ps_send(fresh.m_Client.Get(), "x", 1, 0));
    EXPECT_EQ(1U, ReceiveBytes(fresh.m_Server.Get(), 1).size());
}

TEST(WakeUpPort, ServerClosedFirst_BindWithReuse_AtOnce)
{
    for (int i = 0; i < 20; ++i) {
        CSocket listener = SecondWith(CAddress::Loopback(), true);
        ASSERT_EQ(0, Bind(listener.Get(), CAddress::Loopback(4321))) << i << ", cause " << get_pserrno();
        ASSERT_EQ(0, ps_listen(listener.Get(), 5));
        CPair pair = ConnectedThrough(listener);
        EXPECT_EQ(0, pair.m_Server.Close());
        EXPECT_EQ(0, pair.m_Client.Close());
        EXPECT_EQ(0, listener.Close());
    }
}

TEST(WakeUpPort, Closed_BindAgain_AddressFree)
{
    CSocket first = Listener();
    const CAddress at = LocalAddress(first.Get());
    EXPECT_EQ(0, first.Close());
    EXPECT_EQ(0, Bind(Tcp().Get(), at));
}

TEST(WakeUpPort, ForeignAddress_Bind_NotAvailable)
{
    const CAddress foreign = CAddress::V4(203, 0, 113, 1, 4000);
    KIT_EXPECT_ERROR(PS_EADDRNOTAVAIL, Bind(Tcp().Get(), foreign));
    KIT_EXPECT_ERROR(PS_EADDRNOTAVAIL, Bind(Udp().Get(), foreign));
}

TEST(WakeUpPort, BoundOnce_BindAgain_Invalid)
{
    const CSocket tcp = Tcp();
    EXPECT_EQ(0, Bind(tcp.Get(), CAddress::Loopback()));
    KIT_EXPECT_ERROR(PS_EINVAL, Bind(tcp.Get(), CAddress::Loopback()));
    const CAddress cutShort = CAddress::Loopback();
    KIT_EXPECT_ERROR(PS_EINVAL, ps_bind(Tcp().Get(), cutShort.Get(), 7));
    EXPECT_EQ(-1, ps_bind(Tcp().Get(), nullptr, 16));
}
