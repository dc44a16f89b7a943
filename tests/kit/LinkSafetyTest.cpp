// Packets that a link must not let in, and that the stack must not pass on.
#include <random>

#include "KitLink.h"
#include "KitPackets.h"

using namespace kit;

namespace
{

const CAddress s_Own = CAddress::V4(10, 9, 0, 1, 4000);
const CAddress s_Peer = CAddress::V4(10, 9, 0, 2, 4001);
const std::uint8_t s_Own6Bytes[16] = {0xFD, 9, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
const std::uint8_t s_Peer6Bytes[16] = {0xFD, 9, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2};
const CAddress s_Own6 = CAddress::V6(s_Own6Bytes, 4000);
const CAddress s_Peer6 = CAddress::V6(s_Peer6Bytes, 4001);

// A link with sockets behind it that take all good packets.
class CGuardedLink
{
public:
    CGuardedLink() : m_Link("10.9.0.1", "fd09::1")
    {
        m_Udp = BoundUdp(CAddress::Any(4000));
        m_Udp6 = BoundUdp(CAddress::Any6(4000));
        m_Listener = Listener(CAddress::Any(4000));
        const CCounters before = Counters();
        EXPECT_EQ(0U, m_Link.Inject(UdpPacket(s_Peer, s_Own, Pattern(0, 10))));
        EXPECT_EQ(Pattern(0, 10), ReceiveDatagram(m_Udp.Get()));
        EXPECT_EQ(0U, m_Link.Inject(UdpPacket(s_Peer6, s_Own6, Pattern(0, 10))));
        EXPECT_EQ(Pattern(0, 10), ReceiveDatagram(m_Udp6.Get()));
        EXPECT_TRUE(Alive());
        m_Good = Grown(before, Counters());
    }

    // The stack answers pings of both families.
    bool Alive()
    {
        ++m_dwPing;
        EXPECT_EQ(0U, m_Link.Inject(EchoRequest(s_Peer, s_Own, 99, m_dwPing, Pattern(0, 32))));
        EXPECT_EQ(0U, m_Link.Inject(EchoRequest(s_Peer6, s_Own6, 98, m_dwPing, Pattern(0, 32))));
        const bool v4 = !m_Link.Take([&](const CBytes& packet) { return IsEchoReply(packet, 99, m_dwPing); }).empty();
        return v4 && !m_Link.Take([&](const CBytes& packet) { return IsEchoReply(packet, 98, m_dwPing); }).empty();
    }

    // The packet reaches nobody, is answered by nothing, and a counter that good packets leave alone grows.
    void ExpectDropped(const std::string& what, const CBytes& packet, bool refusedAtTheLink = false)
    {
        SCOPED_TRACE(what);
        m_Link.TakeAll();
        const CCounters before = Counters();
        const unsigned long answer = m_Link.Inject(packet);
        EXPECT_TRUE(answer == 10008U || (answer == 0 && !refusedAtTheLink)) << answer;
        std::set<std::string> grown = Grown(before, Counters());
        for (const std::string& good : m_Good) {
            grown.erase(good);
        }
        EXPECT_FALSE(grown.empty()) << "not counted";
        EXPECT_EQ(0, Look(m_Udp.Get(), PS_POLLIN));
        EXPECT_EQ(0, Look(m_Udp6.Get(), PS_POLLIN));
        EXPECT_EQ(0, Look(m_Listener.Get(), PS_POLLIN));
        EXPECT_EQ(0U, m_Link.TakeAll().size()) << "answered";
    }

    CLink m_Link;
    CSocket m_Udp;
    CSocket m_Udp6;
    CSocket m_Listener;
    std::set<std::string> m_Good;
    unsigned int m_dwPing = 0;
};

CBytes Cut(CBytes packet, std::size_t length)
{
    packet.resize(length);
    return packet;
}

CBytes With(CBytes packet, std::size_t at, unsigned char value, bool fix = true)
{
    packet.at(at) = value;
    if (fix && packet[0] >> 4 == 4) {
        FixIpChecksum(packet);
    }
    return packet;
}

CBytes With16(CBytes packet, std::size_t at, unsigned int value)
{
    Put16(packet, at, value);
    if (packet[0] >> 4 == 4) {
        FixIpChecksum(packet);
    }
    return packet;
}

}  // namespace

TEST(LinkSafety, LoopbackAddress_FromALink_DroppedAndCounted)
{
    CGuardedLink guarded;
    const CAddress loop = CAddress::Loopback(4000);
    guarded.ExpectDropped("udp from 127.0.0.1", UdpPacket(loop, s_Own, Pattern(0, 10)), true);
    guarded.ExpectDropped("udp to 127.0.0.1", UdpPacket(s_Peer, loop, Pattern(0, 10)), true);
    guarded.ExpectDropped("udp from 127.9.9.9", UdpPacket(CAddress::V4(127, 9, 9, 9, 5), s_Own, Pattern(0, 10)), true);
    guarded.ExpectDropped("udp to 127.9.9.9", UdpPacket(s_Peer, CAddress::V4(127, 9, 9, 9, 4000), Pattern(0, 10)),
                          true);
    guarded.ExpectDropped("ping from 127.0.0.1", EchoRequest(loop, s_Own, 1, 1), true);
    guarded.ExpectDropped("syn to 127.0.0.1", TcpPacket(s_Peer, loop, s_cTcpSyn, 1, 0), true);
    guarded.ExpectDropped("udp from ::1", UdpPacket(CAddress::Loopback6(4000), s_Own6, Pattern(0, 10)), true);
    guarded.ExpectDropped("udp to ::1", UdpPacket(s_Peer6, CAddress::Loopback6(4000), Pattern(0, 10)), true);
    guarded.ExpectDropped("ping to ::1", EchoRequest(s_Peer6, CAddress::Loopback6(), 1, 1), true);
    EXPECT_TRUE(guarded.Alive());
}

TEST(LinkSafety, OwnSource_FromALink_DroppedAndCounted)
{
    CGuardedLink guarded;
    CLink other("10.10.0.1", "fd10::1");
    const std::uint8_t other6[16] = {0xFD, 0x10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    guarded.ExpectDropped("own to own", UdpPacket(s_Own, s_Own, Pattern(0, 10)), true);
    guarded.ExpectDropped("land", TcpPacket(s_Own, s_Own, s_cTcpSyn, 1, 0), true);
    guarded.ExpectDropped("ping own to own", EchoRequest(s_Own, s_Own, 1, 1), true);
    guarded.ExpectDropped("own v6 to own", UdpPacket(s_Own6, s_Own6, Pattern(0, 10)), true);
    guarded.ExpectDropped("another link's", UdpPacket(CAddress::V4(10, 10, 0, 1, 9), s_Own, Pattern(0, 10)), true);
    guarded.ExpectDropped("another link's v6", UdpPacket(CAddress::V6(other6, 9), s_Own6, Pattern(0, 10)), true);
    EXPECT_EQ(0U, other.TakeAll().size());
    EXPECT_TRUE(guarded.Alive());
}

TEST(LinkSafety, PartnersAddress_OverTheWire_LetIn)
{
    CWire wire;
    const CSocket a = BoundUdp(CWire::EndA());
    const CSocket b = BoundUdp(CWire::EndB());
    EXPECT_EQ(5, SendTo(a.Get(), CBytes(5), LocalAddress(b.Get())));
    CAddress from;
    EXPECT_EQ(5U, ReceiveDatagram(b.Get(), &from).size());
    EXPECT_EQ(LocalAddress(a.Get()), from);
}

TEST(LinkSafety, TwoLinks_PacketForTheOthersNetwork_NotForwarded)
{
    CGuardedLink guarded;
    CLink other("10.10.0.1", "fd10::1");
    const std::uint8_t beyond6[16] = {0xFD, 0x10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 9};
    const CAddress beyond = CAddress::V4(10, 10, 0, 9, 4000);
    guarded.ExpectDropped("udp", UdpPacket(s_Peer, beyond, Pattern(0, 10)));
    guarded.ExpectDropped("ping", EchoRequest(s_Peer, beyond, 1, 1));
    guarded.ExpectDropped("syn", TcpPacket(s_Peer, beyond, s_cTcpSyn, 1, 0));
    guarded.ExpectDropped("udp v6", UdpPacket(s_Peer6, CAddress::V6(beyond6, 4000), Pattern(0, 10)));
    EXPECT_TRUE(guarded.Alive());
    EXPECT_EQ(0U, other.TakeAll().size());
}

TEST(LinkSafety, MalformedIpv4_Any_DroppedAndCounted)
{
    CGuardedLink guarded;
    const CBytes udp = UdpPacket(s_Peer, s_Own, Pattern(0, 40));
    for (std::size_t length = 0; length < udp.size(); length += length < 20 ? 1 : 7) {
        guarded.ExpectDropped("cut to " + std::to_string(length), Cut(udp, length), length < 20);
    }
    for (const unsigned int version : {0U, 1U, 5U, 7U, 15U}) {
        guarded.ExpectDropped("version", With(udp, 0, static_cast<unsigned char>(version << 4 | 5), false), true);
    }
    for (unsigned char words = 0; words < 5; ++words) {
        guarded.ExpectDropped("header too short", With(udp, 0, static_cast<unsigned char>(0x40 | words)), true);
    }
    guarded.ExpectDropped("header longer than the packet", With(Cut(udp, 40), 0, 0x4F), true);
    guarded.ExpectDropped("total below the header", With16(udp, 2, 19), true);
    guarded.ExpectDropped("total above what came", With16(udp, 2, static_cast<unsigned int>(udp.size()) + 1), true);
    guarded.ExpectDropped("checksum", With(udp, 10, static_cast<unsigned char>(udp[10] + 1), false));
    guarded.ExpectDropped("longer than the MTU", UdpPacket(s_Peer, s_Own, Pattern(0, 1400)), true);
    guarded.ExpectDropped("fragment past 65535", With16(udp, 6, 0x1FFF));
    guarded.ExpectDropped("fragment without payload", With16(With16(Cut(udp, 20), 2, 20), 6, 0x2001));
    EXPECT_TRUE(guarded.Alive());
}

TEST(LinkSafety, MalformedTransport_Any_DroppedAndCounted)
{
    CGuardedLink guarded;
    const CBytes udp = UdpPacket(s_Peer, s_Own, Pattern(0, 40));
    guarded.ExpectDropped("udp length below its header", With16(With16(udp, 26, 0), 24, 7));
    guarded.ExpectDropped("udp length 0", With16(With16(udp, 26, 0), 24, 0));
    guarded.ExpectDropped("udp length above what came", With16(With16(udp, 26, 0), 24, 49));
    guarded.ExpectDropped("udp checksum", With16(udp, 26, Get16(udp, 26) ^ 0x0101));
    guarded.ExpectDropped("udp header cut", IpPacket(s_Peer, s_Own, PS_IPPROTO_UDP, CBytes(7)));

    const CBytes syn = TcpPacket(s_Peer, s_Own, s_cTcpSyn, 1, 0);
    guarded.ExpectDropped("tcp checksum", With16(syn, 36, Get16(syn, 36) ^ 0x0101));
    guarded.ExpectDropped("tcp header cut", IpPacket(s_Peer, s_Own, PS_IPPROTO_TCP, CBytes(19)));
    guarded.ExpectDropped("tcp empty", IpPacket(s_Peer, s_Own, PS_IPPROTO_TCP, CBytes()));

    const CBytes ping = EchoRequest(s_Peer, s_Own, 1, 1, Pattern(0, 8));
    guarded.ExpectDropped("icmp checksum", With16(ping, 22, Get16(ping, 22) ^ 0x0101));
    guarded.ExpectDropped("icmp cut", IpPacket(s_Peer, s_Own, PS_IPPROTO_ICMP, CBytes(3)));
    EXPECT_TRUE(guarded.Alive());
}

TEST(LinkSafety, TcpOffsetOutOfRange_Syn_NotAnswered)
{
    CGuardedLink guarded;
    for (const unsigned int words : {0U, 1U, 4U, 6U, 15U}) {
        // The checksum is right for the changed header.
        CBytes syn = TcpPacket(s_Peer, s_Own, s_cTcpSyn, 1, 0);
        const unsigned int old = Get16(syn, 32);
        const unsigned int changed = (words << 12) | s_cTcpSyn;
        std::uint32_t sum = (~Get16(syn, 36) & 0xFFFFU) + (~old & 0xFFFFU) + changed;
        sum = (sum & 0xFFFF) + (sum >> 16);
        sum = (sum & 0xFFFF) + (sum >> 16);
        Put16(syn, 32, changed);
        Put16(syn, 36, ~sum & 0xFFFFU);
        guarded.ExpectDropped("offset " + std::to_string(words), syn);
    }
    EXPECT_TRUE(guarded.Alive());
}

TEST(LinkSafety, MalformedIpv6_Any_DroppedAndCounted)
{
    CGuardedLink guarded;
    const CBytes udp = UdpPacket(s_Peer6, s_Own6, Pattern(0, 40));
    for (std::size_t length = 1; length < udp.size(); length += length < 40 ? 3 : 7) {
        guarded.ExpectDropped("cut to " + std::to_string(length), Cut(udp, length), true);
    }
    guarded.ExpectDropped("payload longer than what came", With16(udp, 4, static_cast<unsigned int>(udp.size())), true);
    guarded.ExpectDropped("udp checksum 0", With16(udp, 46, 0));
    guarded.ExpectDropped("udp checksum", With16(udp, 46, Get16(udp, 46) ^ 0x0101));
    guarded.ExpectDropped("udp length below its header", With16(udp, 44, 4));

    CBytes chain;
    for (int i = 0; i < 40; ++i) {
        chain.insert(chain.end(), {60, 0, 1, 4, 0, 0, 0, 0});
    }
    guarded.ExpectDropped("destination options without end", IpPacket(s_Peer6, s_Own6, 60, chain));
    guarded.ExpectDropped("extension header over the end",
                          IpPacket(s_Peer6, s_Own6, 60, CBytes{17, 200, 1, 4, 0, 0, 0, 0}));
    guarded.ExpectDropped("extension header cut", IpPacket(s_Peer6, s_Own6, 60, CBytes{17}));
    guarded.ExpectDropped("hop-by-hop not first",
                          IpPacket(s_Peer6, s_Own6, 60, CBytes{0, 0, 1, 4, 0, 0, 0, 0, 17, 0, 1, 4, 0, 0, 0, 0}));
    CBytes fragment = {17, 0, 0, 1, 0, 0, 0, 7};
    guarded.ExpectDropped("fragment without payload", IpPacket(s_Peer6, s_Own6, 44, fragment));
    fragment = {44, 0, 0, 1, 0, 0, 0, 7, 17, 0, 0, 1, 0, 0, 0, 8, 1, 2, 3, 4, 5, 6, 7, 8};
    guarded.ExpectDropped("fragment in a fragment", IpPacket(s_Peer6, s_Own6, 44, fragment));
    fragment = {17, 0, 0xFF, 0xF8, 0, 0, 0, 9};
    fragment.resize(8 + 64);
    guarded.ExpectDropped("fragment past the end", IpPacket(s_Peer6, s_Own6, 44, fragment));
    EXPECT_TRUE(guarded.Alive());
}

TEST(LinkSafety, RandomAndChangedPackets_Many_StackLives)
{
    CGuardedLink guarded;
    std::mt19937 random(20240607);
    const std::vector<CBytes> good = {
        UdpPacket(s_Peer, s_Own, Pattern(0, 100)),
        EchoRequest(s_Peer, s_Own, 1, 1),
        TcpPacket(s_Peer, s_Own, s_cTcpSyn, 7, 0, CBytes(), {2, 4, 5, 0xB4, 3, 3, 7, 4, 2}),
        UdpPacket(s_Peer6, s_Own6, Pattern(0, 100)),
        EchoRequest(s_Peer6, s_Own6, 1, 1),
        TcpPacket(s_Peer6, s_Own6, s_cTcpSyn, 7, 0, CBytes(), {2, 4, 5, 0xB4})};
    for (int i = 0; i < 20000; ++i) {
        CBytes packet = good[random() % good.size()];
        if (i % 5 == 0) {
            packet.resize(random() % 200);
            for (unsigned char& byte : packet) {
                byte = static_cast<unsigned char>(random());
            }
            if (!packet.empty()) {
                packet[0] = random() % 2 ? 0x45 : 0x60;
            }
        }
        for (unsigned int changes = random() % 4; changes > 0 && !packet.empty(); --changes) {
            packet[random() % packet.size()] = static_cast<unsigned char>(random());
        }
        if (random() % 4 == 0) {
            packet.resize(random() % (packet.size() + 1));
        }
        if (packet.size() >= s_dwIpHeader && packet[0] >> 4 == 4) {
            FixIpChecksum(packet);
        }
        const unsigned long answer = guarded.m_Link.Inject(packet);
        ASSERT_TRUE(answer == 0 || answer == 10008U) << answer;
        if (i % 1000 == 0) {
            guarded.m_Link.TakeAll();
            ASSERT_TRUE(guarded.Alive());
        }
    }
    EXPECT_TRUE(guarded.Alive());
}

TEST(LinkSafety, TenDropped_Counter_GrowsByTen)
{
    CGuardedLink guarded;
    const CCounters before = Counters();
    for (int i = 0; i < 10; ++i) {
        guarded.m_Link.Inject(UdpPacket(s_Peer, CAddress::Loopback(4000), Pattern(0, 10)));
    }
    const CCounters after = Counters();
    bool exactly = false;
    for (const std::string& name : Grown(before, after)) {
        exactly = exactly || (guarded.m_Good.count(name) == 0 && Growth(before, after, name) == 10);
    }
    EXPECT_TRUE(exactly) << "no counter grew by the ten packets dropped";
}
