// Links: how the stack emits, and what a peer behind a link may do to a connection.
#include <algorithm>
#include <atomic>
#include <thread>

#include "KitLink.h"
#include "KitPackets.h"
#include "mantle/CMNClock.h"

using namespace kit;

namespace
{

const CAddress s_Own = CAddress::V4(10, 9, 0, 1, 0);
const CAddress s_Peer = CAddress::V4(10, 9, 0, 2, 20000);

// The layer below that answers each ping from inside the output, and notices two outputs at a time.
class CAnswering : public ipstack::IIPStackLowLevel
{
public:
    CAnswering()
    {
        StartStack();
        ipstack::CIPStackConfig config;
        config.m_strAddress = "10.9.0.1";
        EXPECT_EQ(0U, ipstack::IIPStackManager::Instance()->CreateStack(config, this, m_pStack));
    }
    ~CAnswering() override { EXPECT_EQ(0U, ipstack::IIPStackManager::Instance()->DestroyStack(m_pStack)); }

    unsigned long IPStackLowLevelOutput(const char* data, unsigned long length, unsigned char) override
    {
        m_bTwoAtOnce = m_bTwoAtOnce || m_nInside.fetch_add(1) != 0;
        CBytes packet(data, data + length);
        ++m_nPackets;
        constexpr unsigned char echoRequest = 8;
        if (packet[9] == PS_IPPROTO_ICMP && packet[20] == echoRequest) {
            const CBytes source(packet.begin() + 12, packet.begin() + 16);
            std::copy(packet.begin() + 16, packet.begin() + 20, packet.begin() + 12);
            std::copy(source.begin(), source.end(), packet.begin() + 16);
            packet[20] = 0;
            Put16(packet, 22, 0);
            Put16(packet, 22, Checksum(CBytes(packet.begin() + 20, packet.end())));
            EXPECT_EQ(0U, m_pStack->Input(reinterpret_cast<const char*>(packet.data()), packet.size()));
        }
        --m_nInside;
        return 0;
    }

    ipstack::IIPStack* m_pStack = nullptr;
    std::atomic<int> m_nInside{0};
    std::atomic<int> m_nPackets{0};
    std::atomic<bool> m_bTwoAtOnce{false};
};

// A TCP peer made by hand, with a connection that the stack has accepted.
class CHandMadePeer
{
public:
    explicit CHandMadePeer(const CBytes& options = CBytes()) : m_Link("10.9.0.1"), m_Listener(Listener(s_Own))
    {
        m_At = LocalAddress(m_Listener.Get());
        Send(s_cTcpSyn, CBytes(), options);
        const CBytes answer = m_Link.Take([](const CBytes& packet) { return IsTcp(packet, 20000); });
        EXPECT_FALSE(answer.empty());
        m_dwTheirs = answer.empty() ? 0 : Get32(answer, HeaderLength(answer) + 4) + 1;
        ++m_dwOwn;
        Send(s_cTcpAck);
        m_Socket = Accept(m_Listener);
    }

    void Send(unsigned char flags, const CBytes& payload = CBytes(), const CBytes& options = CBytes(),
              std::uint32_t ahead = 0, unsigned int window = 65535)
    {
        m_Link.Inject(TcpPacket(s_Peer, m_At, flags, m_dwOwn + ahead, m_dwTheirs, payload, options, window));
    }

    // Data in order; takes part in the sequence.
    void SendData(const CBytes& payload)
    {
        Send(s_cTcpAck | s_cTcpPsh, payload);
        m_dwOwn += static_cast<std::uint32_t>(payload.size());
    }

    // Takes and acknowledges the stack's data until so much has come; the longest packet.
    std::size_t TakeData(std::size_t count)
    {
        std::size_t longest = 0;
        while (count > 0) {
            const CBytes packet = m_Link.Take([](const CBytes& one) { return IsTcp(one, 20000); });
            if (packet.empty()) {
                ADD_FAILURE() << count << " bytes missing";
                break;
            }
            const std::size_t at = HeaderLength(packet);
            const std::size_t length = packet.size() - at - (packet[at + 12] >> 4) * 4U;
            if (Get32(packet, at + 4) == m_dwTheirs && length > 0) {
                longest = std::max(longest, packet.size());
                m_dwTheirs += static_cast<std::uint32_t>(length);
                count -= std::min(count, length);
                Send(s_cTcpAck);
            }
        }
        return longest;
    }

    CLink m_Link;
    CSocket m_Listener;
    CSocket m_Socket;
    CAddress m_At;
    std::uint32_t m_dwOwn = 1000;
    std::uint32_t m_dwTheirs = 0;
};

const CBytes s_Mss1000 = {2, 4, 0x03, 0xE8};

}  // namespace

TEST(Links, AnsweredInsideTheOutput_Ping_NoDeadlock)
{
    CAnswering link;
    const CSocket raw = Raw(PS_IPPROTO_ICMP);
    for (unsigned int i = 0; i < 100; ++i) {
        const CBytes message = EchoMessage(s_Own, s_Peer, 5, i, Pattern(0, 30));
        EXPECT_EQ(static_cast<long>(message.size()), SendTo(raw.Get(), message, s_Peer.WithPort(0)));
        EXPECT_TRUE(IsEchoReply(ReceiveDatagram(raw.Get()), 5, i));
    }
}

TEST(Links, ManyThreadsSend_Output_NeverTwoAtATime)
{
    CAnswering link;
    constexpr int each = 1500;
    InThreads(4, [&](int number) {
        const CSocket udp = Udp();
        for (int i = 0; i < each; ++i) {
            while (SendTo(udp.Get(), CBytes(static_cast<std::size_t>(100 + number)), s_Peer) != 100 + number) {
                ASSERT_EQ(PS_ENOBUFS, get_pserrno());  // the link is behind
                std::this_thread::yield();
            }
        }
    });
    EXPECT_FALSE(link.m_bTwoAtOnce);
    EXPECT_TRUE(WaitUntil([&] { return link.m_nPackets == 4 * each; }));
}

TEST(Links, PacketsOfOneThread_Output_InOrder)
{
    CLink link("10.9.0.1");
    const CSocket udp = Udp();
    for (std::size_t i = 1; i <= 200; ++i) {
        EXPECT_EQ(static_cast<long>(i), SendTo(udp.Get(), CBytes(i), s_Peer));
    }
    for (std::size_t i = 1; i <= 200; ++i) {
        EXPECT_EQ(s_dwIpHeader + s_dwUdpHeader + i, link.Take([](const CBytes&) { return true; }).size());
    }
}

TEST(Links, Datagram_LongerThanTheMtu_FragmentsInAnyOrderAreJoined)
{
    CLink link("10.9.0.1");
    const CSocket udp = BoundUdp(CAddress::Any(4000));
    const CBytes whole = UdpPacket(s_Peer, s_Own.WithPort(4000), Pattern(0, 3000));
    const CBytes body(whole.begin() + s_dwIpHeader, whole.end());
    constexpr std::size_t piece = 1000;  // a multiple of 8
    for (std::size_t i = (body.size() - 1) / piece + 1; i-- > 0;) {
        const std::size_t end = std::min(body.size(), (i + 1) * piece);
        CBytes part(body.begin() + static_cast<std::ptrdiff_t>(i * piece),
                    body.begin() + static_cast<std::ptrdiff_t>(end));
        CBytes packet = IpPacket(s_Peer, s_Own, PS_IPPROTO_UDP, part);
        Put16(packet, 6, static_cast<unsigned int>(i * piece / 8) | (end < body.size() ? 0x2000U : 0U));
        FixIpChecksum(packet);
        EXPECT_EQ(0, Look(udp.Get(), PS_POLLIN));
        EXPECT_EQ(0U, link.Inject(packet));
    }
    EXPECT_EQ(Pattern(0, 3000), ReceiveDatagram(udp.Get()));
}

TEST(Links, PartOfADatagram_NeverCompleted_ForgottenInTime)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    CLink link("10.9.0.1");
    const CSocket udp = BoundUdp(CAddress::Any(4000));
    const CBytes whole = UdpPacket(s_Peer, s_Own.WithPort(4000), Pattern(0, 1008));
    const CBytes body(whole.begin() + s_dwIpHeader, whole.end());
    const auto part = [&](std::size_t from, std::size_t to, unsigned int flags) {
        CBytes packet = IpPacket(
            s_Peer, s_Own, PS_IPPROTO_UDP,
            CBytes(body.begin() + static_cast<std::ptrdiff_t>(from), body.begin() + static_cast<std::ptrdiff_t>(to)));
        Put16(packet, 6, static_cast<unsigned int>(from / 8) | flags);
        FixIpChecksum(packet);
        EXPECT_EQ(0U, link.Inject(packet));
    };
    part(0, 504, 0x2000);
    PassStackTime(120000);
    part(504, body.size(), 0);
    PassStackTime(100);
    EXPECT_EQ(0, Look(udp.Get(), PS_POLLIN));
    part(0, 504, 0x2000);
    EXPECT_EQ(Pattern(0, 1008), ReceiveDatagram(udp.Get()));
}

TEST(Links, SegmentsOutOfOrder_Connection_DeliveredInOrder)
{
    CHandMadePeer peer;
    peer.Send(s_cTcpAck, Pattern(200, 100), CBytes(), 200);
    peer.Send(s_cTcpAck, Pattern(100, 100), CBytes(), 100);
    EXPECT_EQ(0, Look(peer.m_Socket.Get(), PS_POLLIN));
    peer.Send(s_cTcpAck, Pattern(50, 100), CBytes(), 50);  // overlaps
    peer.Send(s_cTcpAck, Pattern(0, 60));
    EXPECT_TRUE(ReceivePattern(peer.m_Socket.Get(), 0, 300));
    EXPECT_EQ(0, Waiting(peer.m_Socket.Get()));
}

TEST(Links, ProcessStoppedForAnHour_DataUnderWay_ConnectionLives)
{
    // Missed timer ticks, made up for in a burst, gave up the connection before its peer could answer once.
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    CHandMadePeer peer;
    EXPECT_EQ(3000, SendPattern(peer.m_Socket.Get(), 0, 3000));
    PassStackTime(100);
    clock.Advance(mantle::CMNTimeValue(3600, 0));
    PassStackTime(100);
    EXPECT_EQ(0, Look(peer.m_Socket.Get()) & PS_POLLERR);
    peer.TakeData(3000);
    peer.SendData(Pattern(0, 100));
    EXPECT_TRUE(ReceivePattern(peer.m_Socket.Get(), 0, 100));
}

TEST(Links, SegmentsPastTheWindow_Connection_NotDelivered)
{
    CHandMadePeer peer;
    for (const std::uint32_t ahead : {65000U, 65535U, 65536U, 70000U, 1000000U, 0x7FFFFFFFU}) {
        peer.Send(s_cTcpAck, Pattern(0, 1000), CBytes(), ahead);
        peer.Send(s_cTcpAck | s_cTcpFin, Pattern(0, 1000), CBytes(), ahead);
    }
    EXPECT_EQ(0, Look(peer.m_Socket.Get(), PS_POLLIN));
    EXPECT_EQ(0, ps_is_socket_errno(peer.m_Socket.Get()));
    for (std::size_t i = 0; i < 60; ++i) {
        peer.SendData(Pattern(i * 1000, 1000));
    }
    EXPECT_TRUE(ReceivePattern(peer.m_Socket.Get(), 0, 60000));
    EXPECT_EQ(PS_POLLOUT, Look(peer.m_Socket.Get()));
}

TEST(Links, MssInALaterSegment_Connection_NotObeyed)
{
    for (const CBytes& later : {CBytes{2, 4, 0, 1}, CBytes{2, 4, 0xFF, 0xFF}, CBytes{2, 4, 0, 0}}) {
        CHandMadePeer peer(s_Mss1000);
        EXPECT_EQ(500, SendPattern(peer.m_Socket.Get(), 0, 500));
        peer.Send(s_cTcpAck, CBytes(), later);
        EXPECT_EQ(20000, SendPattern(peer.m_Socket.Get(), 500, 20000));
        const std::size_t longest = peer.TakeData(20500);
        EXPECT_LE(longest, s_dwIpHeader + s_dwTcpHeader + 1000);
        EXPECT_GE(longest, 500U);
    }
}

TEST(Links, SynWithATinyMss_Connection_DataArrives)
{
    CHandMadePeer peer(CBytes{2, 4, 0, 1});
    EXPECT_EQ(2000, SendPattern(peer.m_Socket.Get(), 0, 2000));
    EXPECT_LE(peer.TakeData(2000), 1400U);
}

TEST(Links, BadTcpOptions_Syn_NoHarm)
{
    CLink link("10.9.0.1");
    const CSocket listener = Listener(s_Own);
    const CAddress at = LocalAddress(listener.Get());
    unsigned int port = 20000;
    for (const CBytes& options : {CBytes{2, 0, 0, 0}, CBytes{2, 1, 0, 0}, CBytes{2, 40, 1, 1}, CBytes{3, 3}, CBytes{2},
                                  CBytes{3, 3, 255, 0}, CBytes{4, 1}, CBytes{253, 255, 1, 1}, CBytes{1, 1, 1, 2}}) {
        const CAddress from = s_Peer.WithPort(++port);
        link.Inject(TcpPacket(from, at, s_cTcpSyn, 1, 0, CBytes(), options));
        link.Inject(TcpPacket(from, at, s_cTcpSyn | s_cTcpFin, 1, 0));
        link.Inject(TcpPacket(from, at, s_cTcpSyn | s_cTcpRst, 1, 0));
        link.Inject(TcpPacket(from, at, 0xFF, 1, 0));
        link.Inject(TcpPacket(from, at, 0, 1, 0));
    }
    EXPECT_EQ(0, Look(listener.Get()));
    EXPECT_EQ(0U, link.Inject(TcpPacket(s_Peer, at, s_cTcpSyn, 1000, 0)));
    EXPECT_FALSE(link.Take([](const CBytes& packet) { return IsTcp(packet, 20000); }).empty());
}

TEST(Links, ResetOutsideTheWindow_Connection_Stays)
{
    CHandMadePeer peer;
    peer.Send(s_cTcpRst, CBytes(), CBytes(), 0x40000000);
    peer.Send(s_cTcpRst, CBytes(), CBytes(), 0x90000000);
    EXPECT_EQ(0, Look(peer.m_Socket.Get(), PS_POLLIN));
    peer.SendData(Pattern(0, 10));
    EXPECT_TRUE(ReceivePattern(peer.m_Socket.Get(), 0, 10));
    peer.Send(s_cTcpRst);
    EXPECT_NE(0, WaitFor(peer.m_Socket.Get(), PS_POLLIN) & PS_POLLERR);
    EXPECT_EQ(PS_ECONNRESET, ps_is_socket_errno(peer.m_Socket.Get()));
}

TEST(Links, SmallSegments_Unread_WindowHolds)
{
    // One byte a segment: what is held must not grow beyond the limit, and all of it can be read.
    CHandMadePeer peer;
    for (std::size_t i = 0; i < 20000; ++i) {
        peer.SendData(Pattern(i, 1));
    }
    EXPECT_EQ(20000, Waiting(peer.m_Socket.Get()));
    EXPECT_TRUE(ReceivePattern(peer.m_Socket.Get(), 0, 20000));
}
