// Segments for a connection from who does not know its numbers (RFC 9293, section 3.10.7.4; RFC 5961).
#include <functional>

#include "KitLink.h"
#include "KitPackets.h"
#include "mantle/CMNClock.h"

using namespace kit;

namespace
{

constexpr std::uint32_t s_dwHalf = 0x80000000U;
constexpr int s_nProtocolTcp = 6;

// A connection whose peer is the test, established, nothing in flight.
class CForged
{
public:
    CForged() : m_Link("10.9.0.1"), m_Listener(Listener(CAddress::V4(10, 9, 0, 1, 0)))
    {
        m_At = LocalAddress(m_Listener.Get());
        Send(s_cTcpSyn, m_dwNext, 0);
        const CBytes answer = m_Link.Take(IsOurs);
        EXPECT_FALSE(answer.empty());
        ++m_dwNext;
        m_dwTheirs = Get32(answer, HeaderLength(answer) + 4) + 1;
        Send(s_cTcpAck, m_dwNext, m_dwTheirs);
        m_Server = Accept(m_Listener);
        m_Link.TakeAll();
    }

    static bool IsOurs(const CBytes& packet) { return IsTcp(packet, s_Peer.Port()); }

    void Send(unsigned char flags, std::uint32_t sequence, std::uint32_t acknowledged, const CBytes& data = CBytes(),
              unsigned int window = 65535)
    {
        EXPECT_EQ(0U, m_Link.Inject(TcpPacket(s_Peer, m_At, flags, sequence, acknowledged, data, CBytes(), window)));
    }

    // Bare acknowledgements and nothing else that were sent since; how many.
    std::size_t TakeAnswers()
    {
        std::size_t count = 0;
        for (const CBytes& packet : m_Link.TakeAll()) {
            EXPECT_EQ(s_cTcpAck, TcpFlags(packet));
            EXPECT_EQ(m_dwNext, Get32(packet, HeaderLength(packet) + 8));
            ++count;
        }
        return count;
    }

    // Data pass in both directions, and nothing else has been read.
    void ExpectAlive()
    {
        m_Link.TakeAll();
        const CBytes question{'q', '?'};
        Send(s_cTcpAck | s_cTcpPsh, m_dwNext, m_dwTheirs, question);
        m_dwNext += static_cast<std::uint32_t>(question.size());
        EXPECT_EQ(question, ReceiveBytes(m_Server.Get(), question.size()));
        EXPECT_EQ(0, Look(m_Server.Get(), PS_POLLIN)) << "forged data or a forged end were taken";
        EXPECT_EQ(100, SendPattern(m_Server.Get(), 0, 100));
        const CBytes data = m_Link.Take([](const CBytes& packet) {
            return IsOurs(packet) && packet.size() == HeaderLength(packet) + s_dwTcpHeader + 100;
        });
        EXPECT_FALSE(data.empty()) << "its sender has stopped";
        m_dwTheirs += 100;
        Send(s_cTcpAck, m_dwNext, m_dwTheirs);
        m_Link.TakeAll();
    }

    CLink m_Link;
    CSocket m_Listener;
    CAddress m_At;
    CSocket m_Server;
    std::uint32_t m_dwNext = 50000;  // the peer's next number
    std::uint32_t m_dwTheirs = 0;    // the stack's next number

    static const CAddress s_Peer;
};

const CAddress CForged::s_Peer = CAddress::V4(10, 9, 0, 2, 20000);

}  // namespace

// Two bare acknowledgements with window 0 once stopped a connection for good, whatever its numbers were.
TEST(ForgedSegments, WindowZeroFromHalfTheNumbersEach_ConnectionGoesOn)
{
    CForged forged;
    for (std::uint32_t guess = 12345; guess < 0xF0000000U; guess += 0x08000001U) {
        forged.Send(s_cTcpAck, guess, guess + s_dwHalf, CBytes(), 0);
        forged.Send(s_cTcpAck, guess + s_dwHalf + 1, guess, CBytes(), 0);
    }
    forged.ExpectAlive();
}

TEST(ForgedSegments, SequenceRight_AcknowledgementWrong_WindowNotTaken)
{
    CForged forged;
    forged.Send(s_cTcpAck, forged.m_dwNext, forged.m_dwTheirs + s_dwHalf, CBytes(), 0);
    forged.Send(s_cTcpAck, forged.m_dwNext, forged.m_dwTheirs + 1, CBytes(), 0);
    forged.Send(s_cTcpAck, forged.m_dwNext, forged.m_dwTheirs - 70000, CBytes(), 0);
    EXPECT_EQ(3U, forged.TakeAnswers());
    forged.ExpectAlive();
}

TEST(ForgedSegments, NoAckFlag_DataAndEnd_NotTakenNotAnswered)
{
    CForged forged;
    const CBytes data(1340, 'x');
    forged.Send(0, forged.m_dwNext, forged.m_dwTheirs, data);
    forged.Send(s_cTcpPsh, forged.m_dwNext, 0, data);
    forged.Send(s_cTcpFin, forged.m_dwNext, forged.m_dwTheirs);
    EXPECT_EQ(0U, forged.TakeAnswers());
    forged.ExpectAlive();
}

TEST(ForgedSegments, AcknowledgementOutOfReach_DataAndEnd_NotTaken)
{
    CForged forged;
    const CBytes data(1340, 'x');
    for (const std::uint32_t off : {1U, 65536U, s_dwHalf, 0xFFFF0000U - 1U}) {
        forged.Send(s_cTcpAck, forged.m_dwNext, forged.m_dwTheirs + off, data);
        forged.Send(s_cTcpAck | s_cTcpFin, forged.m_dwNext, forged.m_dwTheirs + off);
    }
    EXPECT_EQ(8U, forged.TakeAnswers());
    forged.ExpectAlive();
}

TEST(ForgedSegments, OldAcknowledgementWithinTheLargestWindow_DataTaken)
{
    CForged forged;
    const CBytes data{'o', 'l', 'd'};
    forged.Send(s_cTcpAck, forged.m_dwNext, forged.m_dwTheirs - 65535, data);
    EXPECT_EQ(data, ReceiveBytes(forged.m_Server.Get(), data.size()));
}

TEST(ForgedSegments, OutsideTheWindow_AnsweredWithinALimit)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    CForged forged;
    for (unsigned int i = 0; i < 1000; ++i) {
        forged.Send(s_cTcpAck, forged.m_dwNext + 65536 + i, forged.m_dwTheirs);
        forged.Send(s_cTcpAck, forged.m_dwNext - 2000 + i, forged.m_dwTheirs, CBytes(1000, 'x'));
    }
    EXPECT_EQ(10U, forged.TakeAnswers());
    PassStackTime(1000);
    forged.Send(s_cTcpAck, forged.m_dwNext - 1, forged.m_dwTheirs);  // a keep-alive probe
    EXPECT_EQ(1U, forged.TakeAnswers());
    forged.ExpectAlive();
}

TEST(ForgedSegments, ResetsInsideTheWindow_ChallengedWithinALimit)
{
    CForged forged;
    forged.Send(s_cTcpRst, forged.m_dwNext + 1, 0);
    EXPECT_EQ(1U, forged.TakeAnswers());
    forged.Send(s_cTcpRst, forged.m_dwNext - 1, 0);
    forged.Send(s_cTcpRst, forged.m_dwNext + 70000, 0);
    EXPECT_EQ(0U, forged.TakeAnswers());
    for (unsigned int i = 1; i < 1000; ++i) {
        forged.Send(s_cTcpRst | s_cTcpAck, forged.m_dwNext + i, forged.m_dwTheirs);
    }
    EXPECT_LE(forged.TakeAnswers(), 20U);  // the second may have changed
    forged.ExpectAlive();
    forged.Send(s_cTcpRst, forged.m_dwNext, 0);
    EXPECT_NE(0, WaitFor(forged.m_Server.Get(), PS_POLLIN));
    EXPECT_EQ(PS_ECONNRESET, ps_is_socket_errno(forged.m_Server.Get()));
}

TEST(ForgedSegments, RequestsInsideAConnection_ChallengedWithinALimit)
{
    CForged forged;
    forged.Send(s_cTcpSyn, forged.m_dwNext, 0);
    forged.Send(s_cTcpSyn, forged.m_dwNext + s_dwHalf, 0);
    forged.Send(s_cTcpSyn | s_cTcpAck, forged.m_dwNext, forged.m_dwTheirs);
    EXPECT_EQ(3U, forged.TakeAnswers());
    for (unsigned int i = 0; i < 1000; ++i) {
        forged.Send(s_cTcpSyn, forged.m_dwNext + i * 100000, 0);
    }
    EXPECT_LE(forged.TakeAnswers(), 20U);
    forged.ExpectAlive();
}

TEST(ForgedSegments, RequestUnderWay_ForgedAnswers_ConnectsAllTheSame)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    CLink link("10.9.0.1");
    const CSocket client = Tcp();
    EXPECT_EQ(0, Connect(client.Get(), CForged::s_Peer));
    const CAddress at = LocalAddress(client.Get());
    const CBytes request = link.Take(CForged::IsOurs);
    ASSERT_FALSE(request.empty());
    const std::uint32_t next = Get32(request, HeaderLength(request) + 4) + 1;
    const auto send = [&](unsigned char flags, std::uint32_t acknowledged) {
        link.Inject(TcpPacket(CForged::s_Peer, at, flags, 1000, acknowledged));
    };
    // Each wrong acknowledgement used up one of the request's repetitions.
    for (std::uint32_t i = 0; i < 1000; ++i) {
        send(s_cTcpAck, next + s_dwHalf + i);
        send(s_cTcpRst | s_cTcpAck, next + 1 + i);
        send(s_cTcpRst, next);
    }
    send(s_cTcpAck, next);
    PassStackTime(3000);
    EXPECT_EQ(0, Look(client.Get()));
    EXPECT_LE(link.TakeAll().size(), 15U);
    send(s_cTcpSyn | s_cTcpAck, next);
    EXPECT_EQ(PS_POLLOUT, WaitFor(client.Get(), PS_POLLOUT));
}

TEST(ForgedSegments, HalfOpen_WrongLastSteps_ResetWithinALimitThenServed)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    CLink link("10.9.0.1");
    const CSocket listener = Listener(CAddress::V4(10, 9, 0, 1, 0));
    const CAddress at = LocalAddress(listener.Get());
    const auto send = [&](unsigned char flags, std::uint32_t sequence, std::uint32_t acknowledged) {
        link.Inject(TcpPacket(CForged::s_Peer, at, flags, sequence, acknowledged));
    };
    send(s_cTcpSyn, 1000, 0);
    const CBytes answer = link.Take(CForged::IsOurs);
    ASSERT_FALSE(answer.empty());
    const std::uint32_t next = Get32(answer, HeaderLength(answer) + 4) + 1;
    for (std::uint32_t i = 0; i < 1000; ++i) {
        send(s_cTcpAck, 1001, next + 1 + i);
        send(0, 1001, next);
        send(s_cTcpSyn, 1000, 0);
        send(s_cTcpSyn, 5000 + i, 0);
    }
    EXPECT_EQ(10U, link.TakeAll().size());
    send(s_cTcpAck, 1001, next);
    EXPECT_EQ(CForged::s_Peer, PeerAddress(Accept(listener).Get()));
}

// An acknowledgement of data never sent was answered with an acknowledgement, at both ends, for ever.
TEST(ForgedSegments, TwoStacks_OneForgedSegment_NoStorm)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    ipstack::CIPStackWireSettings settings;
    settings.m_dwDelayUs = 1000;
    CWire wire(settings);
    const CSocket raw = Raw(s_nProtocolTcp);
    EXPECT_EQ(0, SetOption(raw.Get(), PS_SOL_SOCKET, PS_SO_RCVBUF, 500000));
    const CPair pair = wire.Connect();
    EXPECT_TRUE(Transfer(pair.m_Client.Get(), pair.m_Server.Get(), 100));
    EXPECT_TRUE(Transfer(pair.m_Server.Get(), pair.m_Client.Get(), 100));
    PassStackTime(1000);
    // The numbers as the last packet from A to B has them.
    const CAddress from = LocalAddress(pair.m_Client.Get());
    const CAddress to = PeerAddress(pair.m_Client.Get());
    std::uint32_t sequence = 0;
    std::uint32_t acknowledged = 0;
    for (CBytes packet = ReceiveDatagram(raw.Get()); !packet.empty();
         packet = Look(raw.Get(), PS_POLLIN) != 0 ? ReceiveDatagram(raw.Get()) : CBytes()) {
        if (IsTcp(packet, to.Port()) && packet.size() == s_dwIpHeader + s_dwTcpHeader) {
            sequence = Get32(packet, s_dwIpHeader + 4);
            acknowledged = Get32(packet, s_dwIpHeader + 8);
        }
    }
    ASSERT_NE(0U, sequence);
    for (const std::uint32_t off : {1000U, s_dwHalf, 0xFFF00000U}) {
        const CBytes forged = TcpPacket(from, to, s_cTcpAck, sequence, acknowledged + off);
        EXPECT_EQ(static_cast<long>(forged.size() - s_dwIpHeader),
                  SendTo(raw.Get(), CBytes(forged.begin() + s_dwIpHeader, forged.end()), to));
    }
    int packets = 0;
    PassStackTime(3000);
    while (Look(raw.Get(), PS_POLLIN) != 0) {
        packets += ReceiveDatagram(raw.Get()).empty() ? 0 : 1;
    }
    EXPECT_GE(packets, 6) << "the forged ones and an answer to each";
    EXPECT_LE(packets, 20);
    EXPECT_TRUE(Transfer(pair.m_Client.Get(), pair.m_Server.Get(), 100));
}
