// ICMP echo and raw sockets.
#include "KitLink.h"
#include "KitPackets.h"

using namespace kit;

namespace
{

constexpr int s_nProtocol = 253;  // for experiments, RFC 3692

const CAddress s_Own = CAddress::V4(10, 9, 0, 1, 0);
const CAddress s_Peer = CAddress::V4(10, 9, 0, 2, 0);

CBytes Body(const CBytes& packet)
{
    return CBytes(packet.begin() + static_cast<std::ptrdiff_t>(HeaderLength(packet)), packet.end());
}

}  // namespace

TEST(RawAndIcmp, Echo_FromALink_Answered)
{
    CLink link("10.9.0.1", "fd09::1");
    EXPECT_EQ(0U, link.Inject(EchoRequest(s_Peer, s_Own, 5, 6, Pattern(0, 100))));
    const CBytes reply = link.Take([](const CBytes& packet) { return IsEchoReply(packet, 5, 6); });
    ASSERT_EQ(s_dwIpHeader + 8 + 100, reply.size());
    EXPECT_EQ(Pattern(0, 100), CBytes(reply.end() - 100, reply.end()));
    EXPECT_EQ(s_Peer.Host(), CBytes(reply.begin() + 16, reply.begin() + 20));
    EXPECT_EQ(0, Checksum(CBytes(reply.begin(), reply.begin() + 20)));
    EXPECT_EQ(0, Checksum(Body(reply)));
}

TEST(RawAndIcmp, Echo_RawSocketsOpen_StillAnsweredAndEachHasItsCopy)
{
    CLink link("10.9.0.1");
    const CSocket first = Raw(PS_IPPROTO_ICMP);
    const CSocket second = Raw(PS_IPPROTO_ICMP);
    const CSocket other = Raw(s_nProtocol);
    const CBytes request = EchoRequest(s_Peer, s_Own, 5, 6, Pattern(0, 60));
    EXPECT_EQ(0U, link.Inject(request));
    EXPECT_FALSE(link.Take([](const CBytes& packet) { return IsEchoReply(packet, 5, 6); }).empty());
    for (const int handle : {first.Get(), second.Get()}) {
        CAddress from;
        EXPECT_EQ(request, ReceiveDatagram(handle, &from));
        EXPECT_EQ(s_Peer, from);  // port 0
        EXPECT_EQ(0U, from.Port());
        EXPECT_EQ(0, Look(handle, PS_POLLIN));
    }
    EXPECT_EQ(0, Look(other.Get(), PS_POLLIN));
}

TEST(RawAndIcmp, EchoOverLoopback_RawSocket_SeesRequestAndReply)
{
    const CSocket raw = Raw(PS_IPPROTO_ICMP);
    const CAddress loop = CAddress::Loopback();
    const CBytes message = EchoMessage(loop, loop, 77, 1, Pattern(0, 24));
    EXPECT_EQ(static_cast<long>(message.size()), SendTo(raw.Get(), message, loop));
    bool reply = false;
    bool request = false;
    for (int i = 0; i < 2; ++i) {
        CAddress from;
        const CBytes packet = ReceiveDatagram(raw.Get(), &from);
        ASSERT_EQ(s_dwIpHeader + message.size(), packet.size());
        EXPECT_EQ(loop, from);
        EXPECT_EQ(0x45, packet[0]);
        reply = reply || IsEchoReply(packet, 77, 1);
        request = request || Body(packet) == message;
    }
    EXPECT_TRUE(reply);
    EXPECT_TRUE(request);
    EXPECT_EQ(0, Look(raw.Get(), PS_POLLIN));
}

TEST(RawAndIcmp, OwnLinkAddress_Pinged_Answered)
{
    CLink link("10.9.0.1");
    const CSocket raw = Raw(PS_IPPROTO_ICMP);
    const CBytes message = EchoMessage(s_Own, s_Own, 78, 1, Pattern(0, 24));
    EXPECT_EQ(static_cast<long>(message.size()), SendTo(raw.Get(), message, s_Own));
    bool reply = false;
    for (int i = 0; i < 2; ++i) {
        reply = IsEchoReply(ReceiveDatagram(raw.Get()), 78, 1) || reply;
    }
    EXPECT_TRUE(reply);
    EXPECT_EQ(0U, link.TakeAll().size());
}

TEST(RawAndIcmp, SeveralRawSockets_OnePacket_EachItsCopyWithHeader)
{
    std::vector<CSocket> sockets;
    sockets.reserve(5);
    for (int i = 0; i < 5; ++i) {
        sockets.push_back(Raw(s_nProtocol));
    }
    const CSocket sender = Raw(254);
    const CSocket writer = Raw(s_nProtocol);
    EXPECT_EQ(33, SendTo(writer.Get(), Pattern(0, 33), CAddress::Loopback()));
    for (const CSocket& one : sockets) {
        const CBytes packet = ReceiveDatagram(one.Get());
        ASSERT_EQ(s_dwIpHeader + 33, packet.size());
        EXPECT_EQ(s_nProtocol, packet[9]);
        EXPECT_EQ(s_dwIpHeader + 33, Get16(packet, 2));
        EXPECT_EQ(CAddress::Loopback().Host(), CBytes(packet.begin() + 12, packet.begin() + 16));
        EXPECT_EQ(Pattern(0, 33), Body(packet));
    }
    EXPECT_EQ(0, Look(sender.Get(), PS_POLLIN));
}

TEST(RawAndIcmp, RawUdpSocket_DatagramComes_BothHaveIt)
{
    const CSocket raw = Raw(PS_IPPROTO_UDP);
    const CSocket udp = BoundUdp();
    EXPECT_EQ(9, SendTo(udp.Get(), Pattern(0, 9), LocalAddress(udp.Get())));
    EXPECT_EQ(Pattern(0, 9), ReceiveDatagram(udp.Get()));
    const CBytes packet = ReceiveDatagram(raw.Get());
    ASSERT_EQ(s_dwIpHeader + s_dwUdpHeader + 9, packet.size());
    EXPECT_EQ(LocalAddress(udp.Get()).Port(), Get16(packet, s_dwIpHeader + 2));
}

TEST(RawAndIcmp, RawTcpSocket_ConnectionBeside_Works)
{
    const CSocket raw = Raw(PS_IPPROTO_TCP);
    CPair pair = Connected();
    EXPECT_TRUE(Transfer(pair.m_Client.Get(), pair.m_Server.Get(), 300000));
    EXPECT_EQ(PS_POLLIN, WaitFor(raw.Get(), PS_POLLIN));
}

TEST(RawAndIcmp, SendToALink_NoHeaderAsked_StackWritesIt)
{
    CLink link("10.9.0.1");
    const CSocket raw = Raw(s_nProtocol);
    EXPECT_EQ(40, SendTo(raw.Get(), Pattern(0, 40), s_Peer));
    const CBytes packet = link.Take([](const CBytes& one) { return one[9] == s_nProtocol; });
    ASSERT_EQ(s_dwIpHeader + 40, packet.size());
    EXPECT_EQ(s_Own.Host(), CBytes(packet.begin() + 12, packet.begin() + 16));
    EXPECT_EQ(s_Peer.Host(), CBytes(packet.begin() + 16, packet.begin() + 20));
    EXPECT_EQ(0, Checksum(CBytes(packet.begin(), packet.begin() + 20)));
    EXPECT_EQ(Pattern(0, 40), Body(packet));
}

TEST(RawAndIcmp, HeaderIncluded_SendToALink_GoesOutAsWritten)
{
    CLink link("10.9.0.1");
    const CSocket raw = Raw(s_nProtocol);
    CBytes packet = IpPacket(s_Own, s_Peer, s_nProtocol, Pattern(0, 40));
    packet[8] = 77;  // time to live
    FixIpChecksum(packet);
    EXPECT_EQ(0, SetOption(raw.Get(), PS_IPPROTO_IP, PS_IP_HDRINCL, 1));
    EXPECT_EQ(1, GetOption(raw.Get(), PS_IPPROTO_IP, PS_IP_HDRINCL));
    EXPECT_EQ(static_cast<long>(packet.size()), SendTo(raw.Get(), packet, s_Peer));
    EXPECT_EQ(packet, link.Take([](const CBytes& one) { return one[9] == s_nProtocol; }));

    EXPECT_EQ(0, SetOption(raw.Get(), PS_IPPROTO_IP, PS_IP_HDRINCL, 0));
    EXPECT_EQ(static_cast<long>(packet.size()), SendTo(raw.Get(), packet, s_Peer));
    EXPECT_EQ(s_dwIpHeader + packet.size(), link.Take([](const CBytes& one) { return one[9] == s_nProtocol; }).size());
}

TEST(RawAndIcmp, HeaderIncludedByAnEightByteValue_Send_GoesOutAsWritten)
{
    CLink link("10.9.0.1");
    const CSocket raw = Raw(s_nProtocol);
    const CBytes packet = IpPacket(s_Own, s_Peer, s_nProtocol, Pattern(0, 10));
    const std::int64_t on = 1;
    EXPECT_EQ(0, ps_setsockopt(raw.Get(), PS_IPPROTO_IP, PS_IP_HDRINCL, &on, sizeof(on)));
    EXPECT_EQ(static_cast<long>(packet.size()), SendTo(raw.Get(), packet, s_Peer));
    EXPECT_EQ(packet, link.Take([](const CBytes& one) { return one[9] == s_nProtocol; }));
}

TEST(RawAndIcmp, HeaderIncluded_TooShort_Refused)
{
    const CSocket raw = Raw(s_nProtocol);
    EXPECT_EQ(0, SetOption(raw.Get(), PS_IPPROTO_IP, PS_IP_HDRINCL, 1));
    KIT_EXPECT_ERROR(PS_EINVAL, SendTo(raw.Get(), CBytes(19), CAddress::Loopback()));
}

TEST(RawAndIcmp, LongMessageOverALink_Sent_Fragmented)
{
    CLink link("10.9.0.1");
    const CSocket raw = Raw(s_nProtocol);
    EXPECT_EQ(5000, SendTo(raw.Get(), CBytes(5000), s_Peer));
    std::size_t payload = 0;
    while (payload < 5000) {
        const CBytes packet = link.Take([](const CBytes& one) { return one[9] == s_nProtocol; });
        ASSERT_FALSE(packet.empty());
        EXPECT_LE(packet.size(), 1400U);
        payload += packet.size() - s_dwIpHeader;
    }
    EXPECT_EQ(5000U, payload);
}

TEST(RawAndIcmp, RawSocketUnread_ManyPackets_QueueBounded)
{
    const CSocket raw = Raw(s_nProtocol);
    for (int i = 0; i < 300; ++i) {
        EXPECT_EQ(980, SendTo(raw.Get(), CBytes(980), CAddress::Loopback()));
    }
    int received = 0;
    while (Look(raw.Get(), PS_POLLIN) == PS_POLLIN) {
        EXPECT_EQ(1000U, ReceiveDatagram(raw.Get()).size());
        ++received;
    }
    EXPECT_GE(received, 30);
    EXPECT_LE(received, 65);
}

TEST(RawAndIcmp, NoDestination_Send_DestinationRequired)
{
    const CSocket raw = Raw(s_nProtocol);
    KIT_EXPECT_ERROR(PS_EDESTADDRREQ, ps_send(raw.Get(), "x", 1, 0));
}

TEST(RawAndIcmp, UnansweredDatagram_ClosedPort_PortUnreachable)
{
    CLink link("10.9.0.1");
    const CSocket raw = Raw(PS_IPPROTO_UDP);
    EXPECT_EQ(0U, link.Inject(UdpPacket(s_Peer.WithPort(9), s_Own.WithPort(9), Pattern(0, 10))));
    constexpr unsigned char unreachable = 3;
    EXPECT_FALSE(
        link.Take([](const CBytes& one) { return one[9] == PS_IPPROTO_ICMP && one[20] == unreachable; }).empty());
    EXPECT_EQ(s_dwIpHeader + s_dwUdpHeader + 10, ReceiveDatagram(raw.Get()).size());
}
