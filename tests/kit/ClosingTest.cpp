// Ends of connections: what still goes out, how long it may take, and what is free again afterwards.
#include "KitLink.h"
#include "KitPackets.h"
#include "mantle/CMNClock.h"

using namespace kit;

namespace
{

// The stream arrives whole and ends in order: no reset.
void ExpectStreamThenEnd(int handle, std::size_t count)
{
    int end = 0;
    const CBytes all = ReceiveToEnd(handle, end);
    EXPECT_EQ(count, all.size());
    EXPECT_TRUE(all == Pattern(0, all.size()));
    EXPECT_NE(-2, end) << "no end within the limit";
    EXPECT_NE(PS_ECONNRESET, end);
    EXPECT_EQ(0, ps_is_socket_errno(handle));
}

std::size_t SendStream(int handle, std::size_t count)
{
    const long taken = SendPattern(handle, 0, count);
    EXPECT_GT(taken, 0);
    return static_cast<std::size_t>(taken);
}

// Connections from any port, made and closed one after the other.
void ConnectAndClose(int count, bool clientFirst)
{
    const CSocket listener = Listener();
    const CAddress at = LocalAddress(listener.Get());
    for (int i = 0; i < count; ++i) {
        CSocket client(ps_socket(PS_AF_INET, PS_SOCK_STREAM, 0));
        ASSERT_EQ(0, Connect(client.Get(), at)) << "connection " << i << ", cause " << get_pserrno();
        CSocket server(ps_accept(listener.Get(), nullptr, nullptr));
        ASSERT_GE(server.Get(), 1) << i << ", cause " << get_pserrno();
        ASSERT_EQ(0, (clientFirst ? client : server).Close());
        ASSERT_EQ(0, (clientFirst ? server : client).Close());
    }
}

}  // namespace

TEST(Closing, DataAccepted_Close_AllArrivesThenTheEnd)
{
    CPair pair = Connected();
    const std::size_t sent = SendStream(pair.m_Client.Get(), 60000);
    EXPECT_EQ(0, pair.m_Client.Close());
    ExpectStreamThenEnd(pair.m_Server.Get(), sent);
}

TEST(Closing, ReceivedDataUnread_Close_AllArrivesThenTheEnd)
{
    CPair pair = Connected();
    EXPECT_EQ(100, SendPattern(pair.m_Server.Get(), 0, 100));
    const std::size_t sent = SendStream(pair.m_Client.Get(), 60000);
    EXPECT_TRUE(Arrived(pair.m_Client.Get(), 100));
    EXPECT_EQ(0, pair.m_Client.Close());
    ExpectStreamThenEnd(pair.m_Server.Get(), sent);
}

TEST(Closing, OwnWindowHeldBack_Close_AllArrivesThenTheEnd)
{
    CPair pair = Connected();
    EXPECT_EQ(0, ps_set_snd_rcv_buffer(pair.m_Client.Get(), 65535, 2048));
    EXPECT_EQ(30000, SendPattern(pair.m_Server.Get(), 0, 30000));
    EXPECT_TRUE(ReceivePattern(pair.m_Client.Get(), 0, 10000));  // the rest stays unread
    const std::size_t sent = SendStream(pair.m_Client.Get(), 50000);
    EXPECT_EQ(0, pair.m_Client.Close());
    ExpectStreamThenEnd(pair.m_Server.Get(), sent);
}

TEST(Closing, LowReceiveLimit_Close_EndsInOrder)
{
    CPair pair = Connected();
    EXPECT_EQ(0, ps_set_snd_rcv_buffer(pair.m_Client.Get(), 65535, 20000));
    EXPECT_EQ(0, ps_set_snd_rcv_buffer(pair.m_Server.Get(), 65535, 20000));
    EXPECT_TRUE(Transfer(pair.m_Server.Get(), pair.m_Client.Get(), 100000));
    const std::size_t sent = SendStream(pair.m_Client.Get(), 20000);
    EXPECT_EQ(0, pair.m_Client.Close());
    ExpectStreamThenEnd(pair.m_Server.Get(), sent);
}

TEST(Closing, PeerReadsLate_Close_AllArrivesThenTheEnd)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    CPair pair = Connected();
    const std::size_t sent = Fill(pair.m_Client.Get(), 8192);
    EXPECT_GT(sent, 65535U);  // more than the peer's buffer holds
    EXPECT_EQ(0, pair.m_Client.Close());
    PassStackTime(30000);
    ExpectStreamThenEnd(pair.m_Server.Get(), sent);
}

TEST(Closing, PeerReadsSlowly_Close_AllArrivesHoweverLong)
{
    // Each read is progress: the bound on what a close leaves behind starts again.
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    CPair pair = Connected();
    EXPECT_EQ(0, ps_set_snd_rcv_buffer(pair.m_Client.Get(), 524288, 65535));
    const std::size_t sent = Fill(pair.m_Client.Get(), 8192);
    EXPECT_EQ(0, pair.m_Client.Close());
    std::size_t received = 0;
    while (sent - received > 80000) {
        ASSERT_TRUE(ReceivePattern(pair.m_Server.Get(), received, 40000));
        received += 40000;
        PassStackTime(30000);
    }
    int end = 0;
    const CBytes rest = ReceiveToEnd(pair.m_Server.Get(), end);
    EXPECT_TRUE(rest == Pattern(received, sent - received));
    EXPECT_NE(PS_ECONNRESET, end);
}

TEST(Closing, IdleForLongThenLosses_Close_AllArrivesThenTheEnd)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    CWire wire;
    CPair pair = wire.Connect();
    EXPECT_EQ(0, ps_set_snd_rcv_buffer(pair.m_Client.Get(), 524288, 65535));
    EXPECT_EQ(0, ps_shutdown(pair.m_Server.Get(), PS_SHUT_WR));
    PassStackTime(600000);
    wire.Cut();
    const std::size_t sent = Fill(pair.m_Client.Get(), 65536);
    EXPECT_GT(sent, 500000U);
    EXPECT_EQ(0, pair.m_Client.Close());
    PassStackTime(3000);
    wire.Mend();
    ExpectStreamThenEnd(pair.m_Server.Get(), sent);
}

TEST(Closing, LossyWire_Close_AllArrivesThenTheEnd)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    ipstack::CIPStackWireSettings settings;
    settings.m_dwLossPerMille = 100;
    CWire wire;
    CPair pair = wire.Connect();
    wire.m_Wire.SetSettings(settings);
    const std::size_t sent = SendStream(pair.m_Client.Get(), 60000);
    EXPECT_EQ(0, pair.m_Client.Close());
    ExpectStreamThenEnd(pair.m_Server.Get(), sent);
}

TEST(Closing, PeerNeverReads_Closed_OverAfterAboutAMinute)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    CSocket listener = Listener();
    const CAddress at = LocalAddress(listener.Get());
    CPair pair = ConnectedThrough(listener);
    EXPECT_EQ(0, listener.Close());
    Fill(pair.m_Server.Get(), 8192);
    EXPECT_EQ(0, pair.m_Server.Close());
    const long long start = StackTimeMs();
    // Its port tells when it is over.
    EXPECT_TRUE(WaitUntil(
        [&] {
            const CSocket probe = Tcp();
            return Bind(probe.Get(), at) == 0;
        },
        600000));
    EXPECT_GE(StackTimeMs() - start, 50000);
    EXPECT_LE(StackTimeMs() - start, 130000);
}

TEST(Closing, PeerVanished_Closed_OverAfterAboutAMinute)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    CWire wire;
    CSocket listener = Listener(CWire::EndB());
    const CAddress at = LocalAddress(listener.Get());
    CPair pair = ConnectedThrough(listener);
    EXPECT_EQ(0, listener.Close());
    wire.Cut();
    SendStream(pair.m_Server.Get(), 1000);
    EXPECT_EQ(0, pair.m_Server.Close());
    const long long start = StackTimeMs();
    EXPECT_TRUE(WaitUntil(
        [&] {
            const CSocket probe = Tcp();
            return Bind(probe.Get(), at) == 0;
        },
        600000));
    EXPECT_GE(StackTimeMs() - start, 50000);
    EXPECT_LE(StackTimeMs() - start, 130000);
}

TEST(Closing, LingerZero_Close_PeerReset)
{
    CPair pair = Connected();
    SendStream(pair.m_Client.Get(), 1000);
    EXPECT_EQ(0, pair.m_Client.CloseByReset());
    EXPECT_NE(0, WaitFor(pair.m_Server.Get(), PS_POLLIN) & PS_POLLERR);
    EXPECT_EQ(PS_ECONNRESET, ps_is_socket_errno(pair.m_Server.Get()));
}

TEST(Closing, PeerSendsAfterClose_Sender_GetsReset)
{
    CPair pair = Connected();
    EXPECT_EQ(0, pair.m_Client.Close());
    EXPECT_EQ(4, ps_send(pair.m_Server.Get(), "more", 4, 0));
    EXPECT_NE(0, WaitFor(pair.m_Server.Get(), PS_POLLIN) & PS_POLLERR);
}

TEST(Closing, WritingShut_HalfClosed_OtherDirectionWorks)
{
    CPair pair = Connected();
    EXPECT_EQ(10, SendPattern(pair.m_Client.Get(), 0, 10));
    EXPECT_EQ(0, ps_shutdown(pair.m_Client.Get(), PS_SHUT_WR));
    ExpectStreamThenEnd(pair.m_Server.Get(), 10);
    EXPECT_TRUE(Transfer(pair.m_Server.Get(), pair.m_Client.Get(), 300000));
    char room[4];
    EXPECT_EQ(0, ps_recv(pair.m_Client.Get(), room, sizeof(room), 0));
    EXPECT_EQ(0, pair.m_Server.Close());
    EXPECT_EQ(PS_POLLIN, WaitFor(pair.m_Client.Get(), PS_POLLIN));
    EXPECT_EQ(-1, ps_recv(pair.m_Client.Get(), room, sizeof(room), 0));
}

TEST(Closing, HalfClosedForLong_OtherDirection_StillWorks)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    CPair pair = Connected();
    EXPECT_EQ(0, ps_shutdown(pair.m_Client.Get(), PS_SHUT_WR));
    PassStackTime(3600000);
    EXPECT_TRUE(Transfer(pair.m_Server.Get(), pair.m_Client.Get(), 100000));
}

TEST(Closing, ReadingShut_Write_StillWorks)
{
    CPair pair = Connected();
    EXPECT_EQ(0, ps_shutdown(pair.m_Client.Get(), PS_SHUT_RD));
    EXPECT_TRUE(Transfer(pair.m_Client.Get(), pair.m_Server.Get(), 100000));
}

TEST(Closing, Shutdown_BadCalls_Refused)
{
    CPair pair = Connected();
    KIT_EXPECT_ERROR(PS_EINVAL, ps_shutdown(pair.m_Client.Get(), 7));
    KIT_EXPECT_ERROR(PS_EINVAL, ps_shutdown(pair.m_Client.Get(), -1));
    KIT_EXPECT_ERROR(PS_ENOTCONN, ps_shutdown(Tcp().Get(), PS_SHUT_WR));
}

TEST(Closing, ThousandsInARow_ClientFirst_PortsLast)
{
    ConnectAndClose(20000, true);
}

TEST(Closing, ThousandsInARow_ServerFirst_PortsLast)
{
    ConnectAndClose(20000, false);
}

TEST(Closing, ThousandsInARow_NoTimePasses_PortsLast)
{
    const mantle::CMNManualClock clock(false);
    ConnectAndClose(20000, true);
}

TEST(Closing, ThousandsInARow_OverAWire_PortsLast)
{
    CWire wire;
    const CSocket listener = Listener(CWire::EndB());
    const CAddress at = LocalAddress(listener.Get());
    for (int i = 0; i < 5000; ++i) {
        CSocket client(ps_socket(PS_AF_INET, PS_SOCK_STREAM, 0));
        ASSERT_EQ(0, Connect(client.Get(), at)) << "connection " << i << ", cause " << get_pserrno();
        CSocket server = Accept(listener);
        ASSERT_GE(server.Get(), 1);
        ASSERT_EQ(0, (i % 2 == 0 ? client : server).Close());
    }
}
