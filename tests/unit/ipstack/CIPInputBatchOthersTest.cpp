// Packets that are handed in during a burst: links that feed each other, other threads, and links taken down.
#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include "InputBatchTest.h"
#include "mantle/CMNEventThread.h"
#include "platform/ipstack/CIPCore.h"
#include "platform/ipstack/CIPTimerSource.h"

namespace
{

using namespace inputbatch;

class CIPInputBatchOthersTest : public InputBatchTest
{
};

// A connection inside one thread and its burst, over a wire between two links: every answer comes by the thread itself.
TEST_F(CIPInputBatchOthersTest, Burst_ConnectOverAWire_DoneWithoutRetransmission)
{
    ipstack::CIPStackWire wire;
    ipstack::CIPStackConfig endA;
    ipstack::CIPStackConfig endB;
    endA.m_strAddress = "10.8.3.1";
    endB.m_strAddress = "10.8.3.2";
    ASSERT_EQ(wire.Open(endA, endB, {}), 0u);
    ps_sockaddr_in address{};
    address.sin_len = sizeof(address);
    address.sin_family = PS_AF_INET;
    address.sin_port = 0x5010;
    address.sin_addr = packetmaker::Address4("10.8.3.2");
    const auto* record = reinterpret_cast<const ps_sockaddr*>(&address);
    const int listener = ps_socket(PS_AF_INET, PS_SOCK_STREAM, 0);
    ASSERT_EQ(ps_bind(listener, record, sizeof(address)), 0);
    ASSERT_EQ(ps_listen(listener, 5), 0);
    {
        mantle::CMNBurst burst;
        const int blocking = ps_socket(PS_AF_INET, PS_SOCK_STREAM, 0);
        EXPECT_EQ(ps_connect(blocking, record, sizeof(address)), 0);
        const int client = ps_socket(PS_AF_INET, PS_SOCK_STREAM, 0);
        ps_socket_nonblock(client);
        EXPECT_EQ(ps_connect(client, record, sizeof(address)), 0);
        ps_pollfd entry{client, PS_POLLOUT, 0};
        EXPECT_EQ(ps_poll(&entry, 1, 0), 1);
        ps_close(blocking);
        ps_close(client);
    }
    ps_close(listener);
}

int s_nOther = 0;
std::atomic<bool> s_bPolled{false};
thread_local mantle::CMNBurstWork t_Polls([]() noexcept {
    ps_pollfd entry{s_nOther, PS_POLLIN, 0};
    ps_poll(&entry, 1, 1);
    s_bPolled.store(true);
});

// Work that waits itself must not hide the sleeper from its waker.
TEST_F(CIPInputBatchOthersTest, Burst_WorkPollsInsideThePoll_TheOuterOneIsWokenAllTheSame)
{
    MakeSocket();
    s_nOther = socketsupport::MakeUdp();
    s_bPolled.store(false);
    std::thread sender([this] {
        while (!s_bPolled.load()) {
            std::this_thread::yield();
        }
        Input(m_pLinkA, Datagram("10.8.0.1", "one"));
    });
    {
        mantle::CMNBurst burst;
        EXPECT_TRUE(mantle::CMNBurst::PutOff(t_Polls));
        ps_pollfd entry{m_nSocket, PS_POLLIN, 0};
        EXPECT_EQ(ps_poll(&entry, 1, -1), 1);  // would sleep for ever
    }
    sender.join();
    ps_close(s_nOther);
}

// What a call may not send any more is left to the stack's own thread; here that one is busy until both have left some.
class CBusySource : public ipstack::CIPTimerSource
{
public:
    long long NextDeadlineUs() override { return m_bDone.load() ? NoDeadline : 0; }
    void Run(long long) override
    {
        m_Running.Signal();
        m_Go.Wait();
        m_bDone.store(true);
    }

    mantle::CMNEventThread m_Running{1, 0};
    mantle::CMNEventThread m_Go{1, 0};
    std::atomic<bool> m_bDone{false};
};

TEST_F(CIPInputBatchOthersTest, TwoCallsLeaveOutputOfALink_TakenDownLater_DoesNotWaitForEver)
{
    CBusySource source;
    ipstack::CIPCore::Instance().AddTimerSource(&source);
    source.m_Running.Wait();
    const std::uint64_t before = socketsupport::GetCounter("drain.limit");
    bool more = true;
    m_BelowA.m_fOnOutput = [&](const CPacket&) {
        m_BelowA.m_Sent.clear();
        if (more) {
            Input(m_pLinkA, Ping("10.8.0.1", 1));
        }
    };
    for (int call = 0; call < 2; ++call) {
        Input(m_pLinkA, Ping("10.8.0.1", 1));
    }
    EXPECT_EQ(socketsupport::GetCounter("drain.limit"), before + 2);
    more = false;
    source.m_Go.Signal();
    ipstack::CIPCore::Instance().RemoveTimerSource(&source);
    EXPECT_EQ(IIPStackManager::Instance()->DestroyStack(m_pLinkA), 0u);
    m_pLinkA = nullptr;
}

thread_local int t_nDone = 0;
thread_local mantle::CMNBurstWork t_Count([]() noexcept { ++t_nDone; });

// A packet that leaves alone inside the caller's burst: no other thread may send for the link before it is done.
TEST_F(CIPInputBatchOthersTest, BurstOfTheCaller_LowLevelPutsOff_DoneWhenTheOutputHasBeenSent)
{
    t_nDone = 0;
    m_BelowA.m_fOnOutput = [](const CPacket&) { EXPECT_TRUE(mantle::CMNBurst::PutOff(t_Count)); };
    mantle::CMNBurst burst;
    Input(m_pLinkA, Ping("10.8.0.1", 1));
    EXPECT_EQ(t_nDone, 0);
    EXPECT_EQ(IIPStackManager::Instance()->DestroyStack(m_pLinkA), 0u);
    m_pLinkA = nullptr;
    EXPECT_EQ(t_nDone, 1);
}

TEST_F(CIPInputBatchOthersTest, BurstOfAnotherThread_ManyLinksTakenDown_ItsLinkStays)
{
    mantle::CMNBurst burst;
    Input(m_pLinkA, Ping("10.8.0.1", 1));
    const std::uint64_t closing = socketsupport::GetCounter("link.in");
    Input(m_pLinkA, Ping("10.8.0.1", 2));
    std::thread([this] {
        EXPECT_EQ(IIPStackManager::Instance()->DestroyStack(m_pLinkA), 0u);
        CBelow below;
        for (int round = 0; round < 1100; ++round) {
            EXPECT_EQ(IIPStackManager::Instance()->DestroyStack(MakeLink(below, "10.8.4.1")), 0u);
        }
    }).join();
    m_pLinkA = nullptr;
    EXPECT_EQ(socketsupport::GetCounter("link.in"), closing + 1);  // seen, and too late
    EXPECT_EQ(m_BelowA.m_Sent.size(), 1u);
}

TEST_F(CIPInputBatchOthersTest, Burst_LinkTakenDownByAnotherThread_DroppedAndCounted)
{
    const std::uint64_t in = socketsupport::GetCounter("link.in");
    const std::uint64_t closing = socketsupport::GetCounter("filter.link_closing");
    {
        mantle::CMNBurst burst;
        Input(m_pLinkA, Ping("10.8.0.1", 1));
        std::thread([this] { EXPECT_EQ(IIPStackManager::Instance()->DestroyStack(m_pLinkA), 0u); }).join();
    }
    m_pLinkA = nullptr;
    EXPECT_EQ(socketsupport::GetCounter("link.in"), in + 1);
    EXPECT_EQ(socketsupport::GetCounter("filter.link_closing"), closing + 1);
    EXPECT_TRUE(m_BelowA.m_Sent.empty());
}

TEST_F(CIPInputBatchOthersTest, Burst_LinkTakenDownByItsOwnThread_WhatWasHandedInIsAnswered)
{
    {
        mantle::CMNBurst burst;
        Input(m_pLinkA, Ping("10.8.0.1", 1));
        EXPECT_EQ(IIPStackManager::Instance()->DestroyStack(m_pLinkA), 0u);
    }
    m_pLinkA = nullptr;
    EXPECT_EQ(m_BelowA.m_Sent.size(), 1u);
}

// Each link answers the other's packets inside its output: the road back must not grow with the packets.
TEST_F(CIPInputBatchOthersTest, TwoLinksFeedEachOther_ManyRounds_EndsWithoutDeepCalls)
{
    constexpr int rounds = 9000;  // fewer than one call may drain
    int left = rounds;
    int depth = 0;
    int deepest = 0;
    const auto answer = [&](IIPStack* link, const char* address) {
        deepest = std::max(deepest, ++depth);
        if (left > 0) {
            --left;
            Input(link, Ping(address, 1));
        }
        --depth;
    };
    m_BelowA.m_fOnOutput = [&](const CPacket&) { answer(m_pLinkB, "10.8.1.1"); };
    m_BelowB.m_fOnOutput = [&](const CPacket&) { answer(m_pLinkA, "10.8.0.1"); };
    {
        mantle::CMNBurst burst;
        for (std::uint16_t id = 0; id < 10; ++id) {
            Input(m_pLinkA, Ping("10.8.0.1", id));
        }
    }
    EXPECT_EQ(left, 0);
    EXPECT_LE(deepest, 4);
    EXPECT_EQ(m_BelowA.m_Sent.size() + m_BelowB.m_Sent.size(), rounds + 10u);
}

TEST_F(CIPInputBatchOthersTest, BurstsOfManyThreads_Packets_AllAnsweredOrCounted)
{
    constexpr int threads = 4;
    constexpr int bursts = 300;
    constexpr int each = 20;
    const std::uint64_t full = socketsupport::GetCounter("link.output_full");
    std::atomic<std::uint64_t> answered{0};
    m_BelowA.m_fOnOutput = [&](const CPacket&) { ++answered; };
    std::vector<std::thread> senders;
    for (int thread = 0; thread < threads; ++thread) {
        senders.emplace_back([this] {
            for (int round = 0; round < bursts; ++round) {
                mantle::CMNBurst burst;
                for (std::uint16_t id = 0; id < each; ++id) {
                    Input(m_pLinkA, Ping("10.8.0.1", id));
                }
            }
        });
    }
    for (std::thread& sender : senders) {
        sender.join();
    }
    IIPStackManager::Instance()->DestroyStack(m_pLinkA);  // has sent what it had
    m_pLinkA = nullptr;
    EXPECT_EQ(answered.load() + socketsupport::GetCounter("link.output_full") - full,
              std::uint64_t{threads} * bursts * each);
}

}  // namespace
