// What one socket may hold, and what happens when it is full.
#include "KitLink.h"
#include "mantle/CMNClock.h"

using namespace kit;

namespace
{

constexpr int s_nDefault = 65535;
constexpr int s_nMost = 512 * 1024;
constexpr int s_nSegment = 536;  // of an MTU of 576, less the IPv4 and TCP headers

// All that is sent stays with the sender: how much that is at most.
std::size_t HeldBySender(unsigned int mtu, int limit)
{
    CWire wire(ipstack::CIPStackWireSettings(), mtu);
    CPair pair = wire.Connect();
    wire.Cut();
    if (limit > 0) {
        EXPECT_EQ(0, SetOption(pair.m_Client.Get(), PS_SOL_SOCKET, PS_SO_SNDBUF, limit));
    }
    return Fill(pair.m_Client.Get(), 1000);
}

// Once the bytes that the handshake promised are used, a receiver of this limit holds no more than `most`.
void ExpectHeldAfterThePromise(int limit, int most)
{
    CWire wire(ipstack::CIPStackWireSettings(), 576);
    CPair pair = wire.Connect();
    EXPECT_EQ(0, ps_set_snd_rcv_buffer(pair.m_Server.Get(), s_nDefault, limit));
    std::size_t sent = 0;
    for (int i = 0; i < 30; ++i) {
        sent += Fill(pair.m_Client.Get(), 4096, sent);
        PassStackTime(500);
    }
    EXPECT_LE(Waiting(pair.m_Server.Get()), s_nDefault);
    std::size_t received = 0;
    while (received < 66000) {
        ASSERT_TRUE(ReceivePattern(pair.m_Server.Get(), received, 1000));
        received += 1000;
        sent += Fill(pair.m_Client.Get(), 4096, sent);
    }
    ASSERT_TRUE(ReceivePattern(pair.m_Server.Get(), received, static_cast<std::size_t>(Waiting(pair.m_Server.Get()))));
    for (int i = 0; i < 10; ++i) {
        PassStackTime(1000);
        EXPECT_LE(Waiting(pair.m_Server.Get()), most);
    }
    EXPECT_GT(Waiting(pair.m_Server.Get()), 0);
}

}  // namespace

TEST(Buffers, Fresh_Limits_Default)
{
    CPair pair = Connected();
    for (const int handle : {pair.m_Client.Get(), pair.m_Server.Get()}) {
        EXPECT_EQ(s_nDefault, GetOption(handle, PS_SOL_SOCKET, PS_SO_SNDBUF));
        EXPECT_EQ(s_nDefault, GetOption(handle, PS_SOL_SOCKET, PS_SO_RCVBUF));
    }
    EXPECT_EQ(s_nDefault, GetOption(BoundUdp().Get(), PS_SOL_SOCKET, PS_SO_RCVBUF));
}

TEST(Buffers, SetBoth_Limits_EachItsOwn)
{
    CPair pair = Connected();
    const int handle = pair.m_Client.Get();
    EXPECT_EQ(0, ps_set_snd_rcv_buffer(handle, 200000, 300000));
    EXPECT_EQ(200000, GetOption(handle, PS_SOL_SOCKET, PS_SO_SNDBUF));
    EXPECT_EQ(300000, GetOption(handle, PS_SOL_SOCKET, PS_SO_RCVBUF));
    EXPECT_EQ(0, ps_set_snd_rcv_buffer(handle, s_nMost, s_nMost));
    EXPECT_EQ(s_nMost, GetOption(handle, PS_SOL_SOCKET_LINUX, PS_SO_LINUX_SNDBUF));
    EXPECT_EQ(s_nMost, GetOption(handle, PS_SOL_SOCKET_LINUX, PS_SO_LINUX_RCVBUF));
}

TEST(Buffers, SetBeyondTheMost_Limits_NeverGreater)
{
    CPair pair = Connected();
    ps_set_snd_rcv_buffer(pair.m_Client.Get(), 4 * s_nMost, 4 * s_nMost);
    EXPECT_LE(GetOption(pair.m_Client.Get(), PS_SOL_SOCKET, PS_SO_SNDBUF), s_nMost);
    EXPECT_LE(GetOption(pair.m_Client.Get(), PS_SOL_SOCKET, PS_SO_RCVBUF), s_nMost);
    EXPECT_LE(Fill(pair.m_Client.Get(), 8192), static_cast<std::size_t>(s_nMost) + s_nDefault);
}

TEST(Buffers, NothingAcknowledged_Sender_HoldsItsLimit)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    const std::size_t byDefault = HeldBySender(1400, 0);
    EXPECT_LE(byDefault, 65535U);
    EXPECT_GT(byDefault, 65535U - 17);
    const std::size_t least = HeldBySender(1400, 20000);
    EXPECT_LE(least, 20000U);
    EXPECT_GT(least, 20000U - 17);
    const std::size_t most = HeldBySender(1400, s_nMost);
    EXPECT_LE(most, static_cast<std::size_t>(s_nMost));
    EXPECT_GT(most, static_cast<std::size_t>(s_nMost) - 17);
}

TEST(Buffers, LimitBelowTwoSegments_Sender_HoldsTwo)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    const std::size_t held = HeldBySender(576, 1);
    EXPECT_LE(held, 2U * s_nSegment);
    EXPECT_GE(held, 2U * s_nSegment - 2 * 40);  // segments may carry options
}

TEST(Buffers, TinyLimits_Transfer_NotStalled)
{
    // A window below two segments makes a sender wait for its timer with each of them.
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    CPair pair = Connected();
    EXPECT_EQ(0, ps_set_snd_rcv_buffer(pair.m_Client.Get(), 1, 1));
    EXPECT_EQ(0, ps_set_snd_rcv_buffer(pair.m_Server.Get(), 1, 1));
    const long long start = StackTimeMs();
    EXPECT_TRUE(Transfer(pair.m_Client.Get(), pair.m_Server.Get(), 500000));
    EXPECT_TRUE(Transfer(pair.m_Server.Get(), pair.m_Client.Get(), 500000));
    EXPECT_LT(StackTimeMs() - start, 2000);
}

TEST(Buffers, TinyLimitsOverAWire_Transfer_NotStalled)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    CWire wire;
    CPair pair = wire.Connect();
    EXPECT_EQ(0, ps_set_snd_rcv_buffer(pair.m_Client.Get(), 2048, 2048));
    EXPECT_EQ(0, ps_set_snd_rcv_buffer(pair.m_Server.Get(), 2048, 2048));
    const long long start = StackTimeMs();
    EXPECT_TRUE(Transfer(pair.m_Client.Get(), pair.m_Server.Get(), 300000));
    EXPECT_LT(StackTimeMs() - start, 5000);
}

TEST(Buffers, NobodyReads_Receiver_HoldsItsLimitAndStopsThePeer)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    CPair pair = Connected();
    std::size_t sent = 0;
    for (int i = 0; i < 20; ++i) {
        sent += Fill(pair.m_Client.Get(), 4096, sent);
        PassStackTime(5000);
        EXPECT_LE(Waiting(pair.m_Server.Get()), s_nDefault);
    }
    EXPECT_LE(sent, 2U * s_nDefault);
    EXPECT_GT(sent, 60000U);
    EXPECT_EQ(0, Look(pair.m_Client.Get(), PS_POLLOUT));
    PassStackTime(1800000);
    EXPECT_EQ(0, ps_is_socket_errno(pair.m_Client.Get()));
    EXPECT_EQ(0, ps_is_socket_errno(pair.m_Server.Get()));
    EXPECT_TRUE(ReceivePattern(pair.m_Server.Get(), 0, sent));
    EXPECT_EQ(PS_POLLOUT, WaitFor(pair.m_Client.Get(), PS_POLLOUT));
    EXPECT_TRUE(Transfer(pair.m_Client.Get(), pair.m_Server.Get(), 200000));
}

TEST(Buffers, NobodyReadsBothWays_TimePasses_AllArrivesLater)
{
    // Two windows of zero must not make both ends answer each other for ever.
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    CPair pair = Connected();
    const std::size_t there = Fill(pair.m_Client.Get(), 4096);
    const std::size_t back = Fill(pair.m_Server.Get(), 4096);
    PassStackTime(7200000);
    EXPECT_TRUE(ReceivePattern(pair.m_Server.Get(), 0, there));
    EXPECT_TRUE(ReceivePattern(pair.m_Client.Get(), 0, back));
    EXPECT_TRUE(Transfer(pair.m_Client.Get(), pair.m_Server.Get(), 200000));
}

TEST(Buffers, NobodyReadsBothWaysOverAWire_TimePasses_AllArrivesLater)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    CWire wire;
    CPair pair = wire.Connect();
    std::size_t there = 0;
    std::size_t back = 0;
    for (int i = 0; i < 20; ++i) {
        there += Fill(pair.m_Client.Get(), 4096, there);
        back += Fill(pair.m_Server.Get(), 4096, back);
        PassStackTime(1000);
    }
    PassStackTime(3600000);
    EXPECT_TRUE(ReceivePattern(pair.m_Server.Get(), 0, there));
    EXPECT_TRUE(ReceivePattern(pair.m_Client.Get(), 0, back));
}

TEST(Buffers, RaisedLimits_NobodyReads_MoreIsHeld)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    CWire wire;
    CPair pair = wire.Connect();
    EXPECT_EQ(0, ps_set_snd_rcv_buffer(pair.m_Client.Get(), s_nMost, s_nMost));
    EXPECT_EQ(0, ps_set_snd_rcv_buffer(pair.m_Server.Get(), s_nMost, s_nMost));
    std::size_t sent = 0;
    for (int i = 0; i < 20; ++i) {
        sent += Fill(pair.m_Client.Get(), 4096, sent);
        PassStackTime(1000);
    }
    EXPECT_LE(Waiting(pair.m_Server.Get()), s_nMost);
    EXPECT_GT(Waiting(pair.m_Server.Get()), 400000);
    EXPECT_TRUE(ReceivePattern(pair.m_Server.Get(), 0, sent));
}

TEST(Buffers, LoweredLimit_NobodyReads_HeldOnceThePromiseIsUsed)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    ExpectHeldAfterThePromise(4096, 4096);
}

TEST(Buffers, LimitBelowTwoSegments_NobodyReads_TwoHeldOnceThePromiseIsUsed)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    ExpectHeldAfterThePromise(1, 2 * s_nSegment);
}

TEST(Buffers, WindowUpdateLost_TimePasses_TransferGoesOn)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    CWire wire;
    CPair pair = wire.Connect();
    std::size_t sent = 0;
    for (int i = 0; i < 10; ++i) {
        sent += Fill(pair.m_Client.Get(), 4096, sent);
        PassStackTime(500);
    }
    wire.Cut();
    const std::size_t waiting = static_cast<std::size_t>(Waiting(pair.m_Server.Get()));
    EXPECT_TRUE(ReceivePattern(pair.m_Server.Get(), 0, waiting));
    PassStackTime(3000);
    wire.Mend();
    EXPECT_TRUE(ReceivePattern(pair.m_Server.Get(), waiting, sent - waiting));
}

TEST(Buffers, DatagramsUnread_Queue_DropsAndCounts)
{
    constexpr std::uint64_t sentCount = 300;
    const CSocket receiver = BoundUdp();
    const CSocket sender = BoundUdp();
    const CAddress to = LocalAddress(receiver.Get());
    EXPECT_EQ(1000, SendTo(sender.Get(), CBytes(1000), to));
    EXPECT_EQ(1000U, ReceiveDatagram(receiver.Get()).size());
    const CCounters before = Counters();
    for (std::uint64_t i = 0; i < sentCount; ++i) {
        EXPECT_EQ(1000, SendTo(sender.Get(), Pattern(i, 1000), to));  // taken all the same
    }
    const CCounters after = Counters();
    std::uint64_t received = 0;
    while (Look(receiver.Get(), PS_POLLIN) == PS_POLLIN) {
        EXPECT_EQ(Pattern(received, 1000), ReceiveDatagram(receiver.Get()));  // the oldest are kept
        ++received;
    }
    EXPECT_GE(received, 30U);
    EXPECT_LE(received * 1000, 65535U);
    bool counted = false;
    for (const std::string& name : Grown(before, after)) {
        counted = counted || Growth(before, after, name) == sentCount - received;
    }
    EXPECT_TRUE(counted) << "no counter grew by the " << sentCount - received << " dropped";
}

TEST(Buffers, DatagramLimitRaisedAndLowered_Queue_Follows)
{
    const CSocket receiver = BoundUdp();
    const CAddress to = LocalAddress(receiver.Get());
    const auto held = [&](int limit) {
        EXPECT_EQ(0, SetOption(receiver.Get(), PS_SOL_SOCKET, PS_SO_RCVBUF, limit));
        for (int i = 0; i < 1000; ++i) {
            EXPECT_EQ(1000, SendTo(receiver.Get(), CBytes(1000), to));
        }
        int count = 0;
        while (Look(receiver.Get(), PS_POLLIN) == PS_POLLIN) {
            EXPECT_EQ(1000U, ReceiveDatagram(receiver.Get()).size());
            ++count;
        }
        return count;
    };
    const int most = held(s_nMost);
    EXPECT_GT(most, 250);
    EXPECT_LE(most, s_nMost / 1000);
    const int few = held(20000);
    EXPECT_GE(few, 5);
    EXPECT_LE(few, 20);
}

TEST(Buffers, ManySmallSegmentsUnread_Receiver_HoldsThemAll)
{
    CPair pair = Connected();
    std::size_t sent = 0;
    while (SendPattern(pair.m_Client.Get(), sent, 1) == 1) {
        ++sent;
    }
    EXPECT_GT(sent, 60000U);
    EXPECT_TRUE(ReceivePattern(pair.m_Server.Get(), 0, sent));
}
