// Family 10: TCP, UDP and raw sockets.
#include "KitLink.h"
#include "KitPackets.h"

using namespace kit;

namespace
{

const std::uint8_t s_OwnBytes[16] = {0xFD, 9, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
const std::uint8_t s_PeerBytes[16] = {0xFD, 9, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2};
const CAddress s_Own = CAddress::V6(s_OwnBytes, 0);
const CAddress s_Peer = CAddress::V6(s_PeerBytes, 0);

}  // namespace

TEST(Ipv6, Stream_Loopback_AllArrives)
{
    CPair pair = Connected(CAddress::Loopback6());
    EXPECT_EQ(PS_AF_INET6, LocalAddress(pair.m_Server.Get()).Family());
    EXPECT_EQ(28, LocalAddress(pair.m_Server.Get()).Get()->sa_len);
    EXPECT_EQ(LocalAddress(pair.m_Client.Get()), PeerAddress(pair.m_Server.Get()));
    EXPECT_TRUE(Transfer(pair.m_Client.Get(), pair.m_Server.Get(), 1000000));
    EXPECT_TRUE(Transfer(pair.m_Server.Get(), pair.m_Client.Get(), 1000000));
}

TEST(Ipv6, Stream_AcceptedAddress_Filled)
{
    const CSocket listener = Listener(CAddress::Loopback6());
    const CSocket client = Tcp(PS_AF_INET6);
    EXPECT_EQ(0, Connect(client.Get(), LocalAddress(listener.Get())));
    EXPECT_EQ(PS_POLLIN, WaitFor(listener.Get(), PS_POLLIN));
    CAddress from;
    int length = CAddress::RoomLength();
    const CSocket server(ps_accept(listener.Get(), from.Room(), &length));
    EXPECT_EQ(28, length);
    EXPECT_EQ(LocalAddress(client.Get()), from);
}

TEST(Ipv6, Stream_NobodyListens_Refused)
{
    const CSocket client = Tcp(PS_AF_INET6);
    EXPECT_EQ(0, Connect(client.Get(), CAddress::Loopback6(9)));
    EXPECT_NE(0, WaitFor(client.Get(), PS_POLLOUT) & PS_POLLERR);
    EXPECT_EQ(PS_ECONNREFUSED, ps_is_socket_errno(client.Get()));
}

TEST(Ipv6, Datagram_Loopback_ArrivesWithItsSource)
{
    const CSocket a = BoundUdp(CAddress::Loopback6());
    const CSocket b = BoundUdp(CAddress::Any6());
    const CAddress to = CAddress::Loopback6(LocalAddress(b.Get()).Port());
    CAddress from;
    EXPECT_EQ(100, SendTo(a.Get(), Pattern(0, 100), to));
    EXPECT_EQ(Pattern(0, 100), ReceiveDatagram(b.Get(), &from));
    EXPECT_EQ(LocalAddress(a.Get()), from);
    EXPECT_EQ(5, SendTo(b.Get(), Pattern(0, 5), from));
    EXPECT_EQ(5U, ReceiveDatagram(a.Get()).size());
}

TEST(Ipv6, Ipv4Any_Bind_OwnAny)
{
    for (const int type : {PS_SOCK_STREAM, PS_SOCK_DGRAM}) {
        StartStack();
        const CSocket socket(ps_socket(PS_AF_INET6, type, 0));
        EXPECT_EQ(0, Bind(socket.Get(), CAddress::Any())) << "cause " << get_pserrno();
        const CAddress local = LocalAddress(socket.Get());
        EXPECT_EQ(PS_AF_INET6, local.Family());
        EXPECT_EQ(CAddress::Any6().Host(), local.Host());
        EXPECT_NE(0U, local.Port());
    }
}

TEST(Ipv6, Ipv4AnyWithAPort_BoundListener_ReachedOverIpv6)
{
    const CSocket listener = Tcp(PS_AF_INET6);
    EXPECT_EQ(0, Bind(listener.Get(), CAddress::Any(4321)));
    EXPECT_EQ(4321U, LocalAddress(listener.Get()).Port());
    EXPECT_EQ(0, ps_listen(listener.Get(), 5));
    const CSocket client = Tcp(PS_AF_INET6);
    EXPECT_EQ(0, Connect(client.Get(), CAddress::Loopback6(4321)));
    const CSocket server = Accept(listener);
    EXPECT_EQ(CAddress::Loopback6(4321), LocalAddress(server.Get()));
}

TEST(Ipv6, Ipv4AnyOnARawSocket_Bind_Works)
{
    const CSocket raw = Raw(253, PS_AF_INET6);
    EXPECT_EQ(0, Bind(raw.Get(), CAddress::Any())) << "cause " << get_pserrno();
}

TEST(Ipv6, OtherFamily_Calls_Refused)
{
    EXPECT_EQ(-1, Bind(Tcp(PS_AF_INET6).Get(), CAddress::Loopback()));
    EXPECT_EQ(-1, Connect(Tcp(PS_AF_INET6).Get(), CAddress::Loopback(4000)));
    EXPECT_EQ(-1, Bind(Tcp().Get(), CAddress::Loopback6()));
    EXPECT_EQ(-1, Connect(Tcp().Get(), CAddress::Loopback6(4000)));
    EXPECT_EQ(-1, SendTo(Udp().Get(), CBytes(1), CAddress::Loopback6(4000)));
    KIT_EXPECT_ERROR(PS_EINVAL, ps_bind(Tcp(PS_AF_INET6).Get(), CAddress::Any6().Get(), 16));
}

TEST(Ipv6, SamePort_BothFamilies_BothListen)
{
    const CSocket v4 = Listener();
    const unsigned int port = LocalAddress(v4.Get()).Port();
    const CSocket v6 = Listener(CAddress::Loopback6(port));
    KIT_EXPECT_ERROR(PS_EADDRINUSE, Bind(Tcp(PS_AF_INET6).Get(), CAddress::Loopback6(port)));
    CPair four = ConnectedThrough(v4);
    CPair six = ConnectedThrough(v6);
    EXPECT_TRUE(Transfer(four.m_Client.Get(), four.m_Server.Get(), 10000));
    EXPECT_TRUE(Transfer(six.m_Client.Get(), six.m_Server.Get(), 10000));
}

TEST(Ipv6, ForeignAddress_Bind_NotAvailable)
{
    KIT_EXPECT_ERROR(PS_EADDRNOTAVAIL, Bind(Tcp(PS_AF_INET6).Get(), s_Own.WithPort(4000)));
}

TEST(Ipv6, Echo_FromALink_AnsweredAlsoWithRawSockets)
{
    CLink link("10.9.0.1", "fd09::1");
    const CSocket first = Raw(PS_IPPROTO_ICMPV6, PS_AF_INET6);
    const CSocket second = Raw(PS_IPPROTO_ICMPV6, PS_AF_INET6);
    const CSocket v4 = Raw(PS_IPPROTO_ICMP);
    const CBytes request = EchoRequest(s_Peer, s_Own, 5, 6, Pattern(0, 60));
    EXPECT_EQ(0U, link.Inject(request));
    const CBytes reply = link.Take([](const CBytes& packet) { return IsEchoReply(packet, 5, 6); });
    ASSERT_EQ(s_dwIp6Header + 8 + 60, reply.size());
    EXPECT_EQ(Pattern(0, 60), CBytes(reply.end() - 60, reply.end()));
    for (const int handle : {first.Get(), second.Get()}) {
        CAddress from;
        EXPECT_EQ(CBytes(request.begin() + s_dwIp6Header, request.end()), ReceiveDatagram(handle, &from));
        EXPECT_EQ(s_Peer, from);  // port 0, no header
        EXPECT_EQ(0, Look(handle, PS_POLLIN));
    }
    EXPECT_EQ(0, Look(v4.Get(), PS_POLLIN));
}

TEST(Ipv6, RawSocket_Loopback_NoHeaderInFront)
{
    const CSocket a = Raw(253, PS_AF_INET6);
    const CSocket b = Raw(253, PS_AF_INET6);
    EXPECT_EQ(30, SendTo(a.Get(), Pattern(0, 30), CAddress::Loopback6()));
    CAddress from;
    EXPECT_EQ(Pattern(0, 30), ReceiveDatagram(b.Get(), &from));
    EXPECT_EQ(CAddress::Loopback6(), from);
    EXPECT_EQ(Pattern(0, 30), ReceiveDatagram(a.Get()));
}

TEST(Ipv6, RawIcmp_PingOverLoopback_Answered)
{
    const CSocket raw = Raw(PS_IPPROTO_ICMPV6, PS_AF_INET6);
    const CAddress loop = CAddress::Loopback6();
    const CBytes message = EchoMessage(loop, loop, 79, 1, Pattern(0, 24));
    EXPECT_EQ(static_cast<long>(message.size()), SendTo(raw.Get(), message, loop));
    bool reply = false;
    for (int i = 0; i < 2; ++i) {
        const CBytes got = ReceiveDatagram(raw.Get());
        ASSERT_EQ(message.size(), got.size());
        reply = reply || got[0] == 129;
    }
    EXPECT_TRUE(reply);
}

TEST(Ipv6, ChecksumOffset_RawSend_StackWritesIt)
{
    CLink link("10.9.0.1", "fd09::1");
    const CSocket raw = Raw(253, PS_AF_INET6);
    EXPECT_EQ(0, SetOption(raw.Get(), PS_IPPROTO_IPV6, PS_IPV6_CHECKSUM, 2));
    EXPECT_EQ(2, GetOption(raw.Get(), PS_IPPROTO_IPV6, PS_IPV6_CHECKSUM));
    CBytes message = Pattern(0, 40);
    message[2] = message[3] = 0;
    EXPECT_EQ(40, SendTo(raw.Get(), message, s_Peer));
    const CBytes packet = link.Take([](const CBytes& one) { return one[0] >> 4 == 6 && one[6] == 253; });
    ASSERT_EQ(s_dwIp6Header + 40, packet.size());
    CBytes all = s_Own.Host();
    const CBytes peer = s_Peer.Host();
    all.insert(all.end(), peer.begin(), peer.end());
    all.insert(all.end(), {0, 0, 0, 40, 0, 0, 0, 253});
    all.insert(all.end(), packet.begin() + s_dwIp6Header, packet.end());
    EXPECT_EQ(0, Checksum(all));
    EXPECT_NE(0U, Get16(packet, s_dwIp6Header + 2));
}

TEST(Ipv6, WakeUpPortNumber_OnIpv6Loopback_OrdinaryPort)
{
    const CSocket pipe = Listener(CAddress::Loopback(5555));
    const CSocket first = Listener(CAddress::Loopback6(5555));
    KIT_EXPECT_ERROR(PS_EADDRINUSE, Bind(Tcp(PS_AF_INET6).Get(), CAddress::Loopback6(5555)));
}
