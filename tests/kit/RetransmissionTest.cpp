// When what was lost is sent again (RFC 6298).
#include "KitLink.h"
#include "KitPackets.h"
#include "mantle/CMNClock.h"

using namespace kit;

namespace
{

constexpr int s_nLeastMs = 1000;  // of the time-out, as long as nothing but the handshake has been measured
constexpr int s_nTickMs = 100;    // of the stack's timer

// How long after a send the data arrives, of which the first copy is lost.
long long TimeToArrive(CWire& wire, const CSocket& from, const CSocket& to)
{
    const long long start = StackTimeMs();
    wire.Cut();
    EXPECT_EQ(100, SendPattern(from.Get(), 0, 100));
    PassStackTime(1);
    wire.Mend();
    EXPECT_TRUE(ReceivePattern(to.Get(), 0, 100));
    return StackTimeMs() - start;
}

// A connection whose requests were lost for so long.
CPair ConnectThroughOutage(CWire& wire, int milliseconds)
{
    const CSocket listener = Listener(CWire::EndB(7000));
    CPair pair;
    pair.m_Client = Tcp();
    wire.Cut();
    EXPECT_EQ(0, Connect(pair.m_Client.Get(), CWire::EndB(7000)));
    PassStackTime(milliseconds);
    wire.Mend();
    EXPECT_EQ(PS_POLLOUT, WaitFor(pair.m_Client.Get(), PS_POLLOUT));
    pair.m_Server = Accept(listener);
    return pair;
}

}  // namespace

TEST(Retransmission, FirstSegmentLostEitherWay_SentAgain_AfterASecond)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    CWire wire;
    for (const bool client : {true, false}) {
        const CPair pair = wire.Connect();
        const long long time =
            TimeToArrive(wire, client ? pair.m_Client : pair.m_Server, client ? pair.m_Server : pair.m_Client);
        EXPECT_GE(time, s_nLeastMs - s_nTickMs) << client;
        EXPECT_LE(time, s_nLeastMs + s_nTickMs) << client;
    }
}

// The silence before the first data was once measured as a round trip: what was lost came again after minutes.
TEST(Retransmission, SilenceAfterTheConnect_SegmentLost_SentAgainAfterASecond)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    CWire wire;
    // The stack's timer rests while every connection does.
    const CPair other = Connected();
    EXPECT_EQ(0, SetOption(other.m_Client.Get(), PS_SOL_SOCKET, PS_SO_KEEPALIVE, 1));
    for (const bool client : {true, false}) {
        const CPair pair = wire.Connect();
        const CSocket& from = client ? pair.m_Client : pair.m_Server;
        const CSocket& to = client ? pair.m_Server : pair.m_Client;
        PassStackTime(60000);
        EXPECT_EQ(1, SendPattern(from.Get(), 0, 1));
        EXPECT_TRUE(ReceivePattern(to.Get(), 0, 1));
        PassStackTime(500);  // acknowledged
        EXPECT_LE(TimeToArrive(wire, from, to), s_nLeastMs + s_nTickMs) << client;
    }
}

TEST(Retransmission, ShortRoundTripsMeasured_SegmentLost_SentAgainSooner)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    CWire wire;
    const CPair pair = wire.Connect();
    for (int i = 0; i < 40; ++i) {
        EXPECT_TRUE(Transfer(pair.m_Client.Get(), pair.m_Server.Get(), 100));
        PassStackTime(300);
    }
    EXPECT_LE(TimeToArrive(wire, pair.m_Client, pair.m_Server), 500);
}

TEST(Retransmission, LongRoundTripOfTheHandshake_NoAnswer_SentAgainAfterThreeOfIt)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    // RFC 6298, section 2.2: the round trip and four times half of it.
    constexpr int roundTripMs = 2400;
    for (const bool active : {false, true}) {
        CLink link("10.9.0.1");
        const CSocket listener = Listener(CAddress::V4(10, 9, 0, 1, 7001));
        const CAddress peer = CAddress::V4(10, 9, 0, 2, 20000);
        const auto isTcp = [](const CBytes& packet) { return IsTcp(packet, 20000); };
        CAddress at = LocalAddress(listener.Get());
        CSocket socket;
        if (active) {
            socket = Tcp();
            EXPECT_EQ(0, Connect(socket.Get(), peer));
            at = LocalAddress(socket.Get());
        } else {
            link.Inject(TcpPacket(peer, at, s_cTcpSyn, 1000, 0));
        }
        const CBytes first = link.Take(isTcp);
        ASSERT_FALSE(first.empty());
        const std::uint32_t next = Get32(first, HeaderLength(first) + 4) + 1;
        PassStackTime(roundTripMs);
        if (active) {
            link.Inject(TcpPacket(peer, at, s_cTcpSyn | s_cTcpAck, 1000, next));
            EXPECT_EQ(PS_POLLOUT, WaitFor(socket.Get(), PS_POLLOUT));
        } else {
            link.Inject(TcpPacket(peer, at, s_cTcpAck, 1001, next));
            socket = Accept(listener);
        }
        PassStackTime(s_nTickMs);
        link.TakeAll();
        EXPECT_EQ(100, SendPattern(socket.Get(), 0, 100));
        EXPECT_EQ(1U, link.TakeAll().size());
        PassStackTime(3 * roundTripMs - 3 * s_nTickMs);
        EXPECT_TRUE(link.TakeAll().empty()) << active;
        PassStackTime(5 * s_nTickMs);
        EXPECT_EQ(1U, link.TakeAll().size()) << active;
        socket.CloseByReset();
    }
}

TEST(Retransmission, RequestOfTheConnectionLost_LaterSegmentLost_ThreeSeconds)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    // A handshake that had to repeat itself measures nothing (Karn's algorithm): the timer begins with 3 s.
    CWire wire;
    const CPair pair = ConnectThroughOutage(wire, 100);
    const long long time = TimeToArrive(wire, pair.m_Client, pair.m_Server);
    EXPECT_GE(time, 3000 - s_nTickMs);
    EXPECT_LE(time, 3000 + s_nTickMs);
}

TEST(Retransmission, RequestOfTheConnectionLost_DataLostTwice_DoublesOnceOnly)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    // The request's own repetitions once counted for the data: it waited four times as long.
    CWire wire;
    const CPair pair = ConnectThroughOutage(wire, 4000);  // two requests
    const long long start = StackTimeMs();
    wire.Cut();
    EXPECT_EQ(100, SendPattern(pair.m_Client.Get(), 0, 100));
    PassStackTime(3500);
    wire.Mend();
    EXPECT_TRUE(ReceivePattern(pair.m_Server.Get(), 0, 100));
    EXPECT_LE(StackTimeMs() - start, 9000 + s_nTickMs);
}

TEST(Retransmission, NobodyAnswersAnyMore_GivenUp_NotBefore100Seconds)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    // RFC 1122, 4.2.3.5.
    CWire wire;
    const CPair pair = wire.Connect();
    for (int i = 0; i < 40; ++i) {
        EXPECT_TRUE(Transfer(pair.m_Client.Get(), pair.m_Server.Get(), 100));
        PassStackTime(300);
    }
    wire.Cut();
    const long long start = StackTimeMs();
    EXPECT_EQ(100, SendPattern(pair.m_Client.Get(), 0, 100));
    EXPECT_TRUE(WaitUntil([&] { return ps_is_socket_errno(pair.m_Client.Get()) != 0; }, 1000000));
    EXPECT_EQ(PS_ETIMEDOUT, ps_is_socket_errno(pair.m_Client.Get()));
    EXPECT_GE(StackTimeMs() - start, 100000);
}
