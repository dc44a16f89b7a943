// Packets that are handed in during a burst.
#include "platform/ipstack/CIPInputBatch.h"

#include <algorithm>
#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "PacketMaker.h"
#include "SocketSupport.h"
#include "ipstack/ipstack.h"
#include "mantle/CMNBurst.h"
#include "mantle/CMNEventThread.h"
#include "mantle/MNDefines.h"
#include "platform/ipstack/CIPCore.h"
#include "platform/ipstack/CIPTimerSource.h"

namespace
{

using ipstack::IIPStack;
using ipstack::IIPStackManager;
using packetmaker::CBytes;
using packetmaker::CPacket;

const char* const s_szPeer = "10.8.9.9";
constexpr std::uint16_t s_wPort = 4242;

// Keeps what the link sends, and may do something with it.
class CBelow : public ipstack::IIPStackLowLevel
{
public:
    unsigned long IPStackLowLevelOutput(const char* data, unsigned long length, unsigned char) override
    {
        m_bInBurst = mantle::CMNBurst::IsOpen();
        m_Sent.emplace_back(data, data + length);
        if (m_fOnOutput) {
            m_fOnOutput(m_Sent.back());
        }
        return 0;
    }

    std::vector<CPacket> m_Sent;
    bool m_bInBurst = false;
    std::function<void(const CPacket&)> m_fOnOutput;
};

IIPStack* MakeLink(CBelow& below, const char* address)
{
    ipstack::CIPStackConfig config;
    config.m_strAddress = address;
    IIPStack* stack = nullptr;
    EXPECT_EQ(IIPStackManager::Instance()->CreateStack(config, &below, stack), 0u);
    return stack;
}

CPacket Ping(const char* to, std::uint16_t id)
{
    return packetmaker::Make4({s_szPeer, to, 1}, packetmaker::Echo4(id, CBytes(8)));
}

CPacket Datagram(const char* to, const std::string& text)
{
    const packetmaker::CHeader4 header{s_szPeer, to};
    return packetmaker::Make4(header, packetmaker::Udp4(header, 1000, s_wPort, CBytes(text.begin(), text.end())));
}

unsigned long Input(IIPStack* stack, const CPacket& packet)
{
    return stack->Input(reinterpret_cast<const char*>(packet.data()), packet.size());
}

// The identifier of an answered ping.
unsigned int IdOf(const CPacket& packet)
{
    return static_cast<unsigned int>(packet[24]) << 8 | packet[25];
}

class CIPInputBatchTest : public testing::Test
{
protected:
    CIPInputBatchTest()
    {
        socketsupport::Start();
        m_pLinkA = MakeLink(m_BelowA, "10.8.0.1");
        m_pLinkB = MakeLink(m_BelowB, "10.8.1.1");
    }

    ~CIPInputBatchTest() override
    {
        for (IIPStack* link : {m_pLinkA, m_pLinkB}) {
            if (link) {
                EXPECT_EQ(IIPStackManager::Instance()->DestroyStack(link), 0u);
            }
        }
        if (m_nSocket > 0) {
            ps_close(m_nSocket);
        }
    }

    // A socket that gets the datagrams of both links.
    void MakeSocket()
    {
        m_nSocket = ps_socket(PS_AF_INET, PS_SOCK_DGRAM, 0);
        ASSERT_GT(m_nSocket, 0);
        ASSERT_EQ(ps_socket_nonblock(m_nSocket), 0);
        ps_sockaddr_in any{};
        any.sin_len = sizeof(any);
        any.sin_family = PS_AF_INET;
        any.sin_port = static_cast<std::uint16_t>(s_wPort << 8 | s_wPort >> 8);
        ASSERT_EQ(ps_bind(m_nSocket, reinterpret_cast<const ps_sockaddr*>(&any), sizeof(any)), 0);
    }

    std::string Receive() const
    {
        char text[100];
        const long length = ps_recv(m_nSocket, text, sizeof(text), 0);
        return length < 0 ? "failed" : std::string(text, static_cast<std::size_t>(length));
    }

    CBelow m_BelowA;
    CBelow m_BelowB;
    IIPStack* m_pLinkA = nullptr;
    IIPStack* m_pLinkB = nullptr;
    int m_nSocket = 0;
};

TEST_F(CIPInputBatchTest, Burst_Packets_TakenInAtItsEndInOrder)
{
    {
        mantle::CMNBurst burst;
        for (std::uint16_t id = 1; id <= 5; ++id) {
            EXPECT_EQ(Input(m_pLinkA, Ping("10.8.0.1", id)), 0u);
        }
        EXPECT_TRUE(m_BelowA.m_Sent.empty());
        EXPECT_FALSE(ipstack::CIPInputBatch::IsEmpty());
    }
    EXPECT_TRUE(ipstack::CIPInputBatch::IsEmpty());
    ASSERT_EQ(m_BelowA.m_Sent.size(), 5u);
    for (unsigned int index = 0; index < 5; ++index) {
        EXPECT_EQ(IdOf(m_BelowA.m_Sent[index]), index + 1);
    }
    EXPECT_TRUE(m_BelowA.m_bInBurst);  // the answers left together
}

TEST_F(CIPInputBatchTest, NoBurst_Packet_TakenInAtOnceAndAnswerLeavesAlone)
{
    EXPECT_EQ(Input(m_pLinkA, Ping("10.8.0.1", 1)), 0u);
    EXPECT_EQ(m_BelowA.m_Sent.size(), 1u);
    EXPECT_FALSE(m_BelowA.m_bInBurst);
}

TEST_F(CIPInputBatchTest, Burst_AsManyAsOneHoldOfTheLock_TakenInBeforeItsEnd)
{
    mantle::CMNBurst burst;
    for (unsigned int id = 1; id < ipstack::CIPCore::s_dwStretch; ++id) {
        Input(m_pLinkA, Ping("10.8.0.1", static_cast<std::uint16_t>(id)));
    }
    EXPECT_TRUE(m_BelowA.m_Sent.empty());
    Input(m_pLinkA, Ping("10.8.0.1", 1000));
    EXPECT_EQ(m_BelowA.m_Sent.size(), static_cast<std::size_t>(ipstack::CIPCore::s_dwStretch));
}

TEST_F(CIPInputBatchTest, Burst_AnotherLinksPacket_FirstLinksComeFirst)
{
    mantle::CMNBurst burst;
    Input(m_pLinkA, Ping("10.8.0.1", 1));
    Input(m_pLinkB, Ping("10.8.1.1", 2));
    EXPECT_EQ(m_BelowA.m_Sent.size(), 1u);
    EXPECT_TRUE(m_BelowB.m_Sent.empty());
}

TEST_F(CIPInputBatchTest, Burst_OwnReceive_SeesWhatWasHandedIn)
{
    MakeSocket();
    mantle::CMNBurst burst;
    Input(m_pLinkA, Datagram("10.8.0.1", "one"));
    EXPECT_EQ(Receive(), "one");
    Input(m_pLinkA, Datagram("10.8.0.1", "two"));
    EXPECT_EQ(Receive(), "two");
    EXPECT_EQ(Receive(), "");
}

TEST_F(CIPInputBatchTest, Burst_OwnPoll_SeesWhatWasHandedIn)
{
    MakeSocket();
    mantle::CMNBurst burst;
    Input(m_pLinkA, Datagram("10.8.0.1", "one"));
    ps_pollfd entry{m_nSocket, PS_POLLIN, 0};
    EXPECT_EQ(ps_poll(&entry, 1, 0), 1);
    EXPECT_EQ(Receive(), "one");
    Input(m_pLinkA, Datagram("10.8.0.1", "two"));
    EXPECT_EQ(ps_poll(&entry, 1, -1), 1);  // would wait for ever
}

TEST_F(CIPInputBatchTest, Burst_OwnSelect_SeesWhatWasHandedIn)
{
    MakeSocket();
    mantle::CMNBurst burst;
    Input(m_pLinkA, Datagram("10.8.0.1", "one"));
    ps_fdsets sets{};
    sets.read.count = 1;
    sets.read.handles[0] = m_nSocket;
    const ps_timeval now{0, 0};
    EXPECT_EQ(ps_select(0, &sets, &sets, &now), 1);
}

TEST_F(CIPInputBatchTest, Burst_OwnCounters_HaveWhatWasHandedIn)
{
    const std::uint64_t before = socketsupport::GetCounter("link.in");
    mantle::CMNBurst burst;
    Input(m_pLinkA, Ping("10.8.0.1", 1));
    EXPECT_EQ(socketsupport::GetCounter("link.in"), before + 1);
}

TEST_F(CIPInputBatchTest, Burst_PacketThatMayNotPass_KeptAndCountedAtTheEnd)
{
    const std::uint64_t in = socketsupport::GetCounter("link.in");
    const std::uint64_t notOurs = socketsupport::GetCounter("filter.not_ours");
    const std::uint64_t tooShort = socketsupport::GetCounter("filter.too_short");
    {
        mantle::CMNBurst burst;
        EXPECT_EQ(Input(m_pLinkA, Ping("10.8.7.7", 1)), 0u);
        EXPECT_EQ(m_pLinkA->Input("E", 1), 0u);
    }
    EXPECT_EQ(socketsupport::GetCounter("link.in"), in + 2);
    EXPECT_EQ(socketsupport::GetCounter("filter.not_ours"), notOurs + 1);
    EXPECT_EQ(socketsupport::GetCounter("filter.too_short"), tooShort + 1);
    EXPECT_TRUE(m_BelowA.m_Sent.empty());
}

TEST_F(CIPInputBatchTest, Burst_PacketLongerThanTheMtu_RefusedAtOnceBehindTheOthers)
{
    const std::uint64_t before = socketsupport::GetCounter("filter.longer_than_mtu");
    mantle::CMNBurst burst;
    Input(m_pLinkA, Ping("10.8.0.1", 1));
    EXPECT_EQ(Input(m_pLinkA, CPacket(1401)), mantle::MN_ERROR_INVALID_ARG);
    EXPECT_EQ(m_BelowA.m_Sent.size(), 1u);
    EXPECT_EQ(socketsupport::GetCounter("filter.longer_than_mtu"), before + 1);
}

TEST_F(CIPInputBatchTest, Burst_EmptyPacket_RefusedAtOnce)
{
    mantle::CMNBurst burst;
    EXPECT_EQ(m_pLinkA->Input(nullptr, 0), mantle::MN_ERROR_INVALID_ARG);
}

// The first link's answer goes into a third link while the second one's packet is being handed in.
TEST_F(CIPInputBatchTest, Burst_AnswerFedIntoAThirdLink_EachPacketReachesItsLink)
{
    CBelow belowC;
    IIPStack* linkC = MakeLink(belowC, "10.8.2.1");
    m_BelowA.m_fOnOutput = [&](const CPacket&) { Input(linkC, Ping("10.8.2.1", 3)); };
    {
        mantle::CMNBurst burst;
        Input(m_pLinkA, Ping("10.8.0.1", 1));
        Input(m_pLinkB, Ping("10.8.1.1", 2));
    }
    ASSERT_EQ(belowC.m_Sent.size(), 1u);
    EXPECT_EQ(IdOf(belowC.m_Sent[0]), 3u);
    ASSERT_EQ(m_BelowB.m_Sent.size(), 1u);
    EXPECT_EQ(IdOf(m_BelowB.m_Sent[0]), 2u);
    m_BelowA.m_fOnOutput = nullptr;
    EXPECT_EQ(IIPStackManager::Instance()->DestroyStack(linkC), 0u);
}

TEST_F(CIPInputBatchTest, Burst_OwnOutputFedIntoALink_DeliveredBeforeTheCallReturns)
{
    m_BelowA.m_fOnOutput = [&](const CPacket&) { Input(m_pLinkB, Ping("10.8.1.1", 3)); };
    mantle::CMNBurst burst;
    Input(m_pLinkA, Ping("10.8.0.1", 1));
    socketsupport::GetCounter("link.in");  // any call
    EXPECT_EQ(m_BelowA.m_Sent.size(), 1u);
    EXPECT_EQ(m_BelowB.m_Sent.size(), 1u);
    m_BelowA.m_fOnOutput = nullptr;
}

TEST_F(CIPInputBatchTest, Burst_BlockingReceive_GetsWhatWasHandedIn)
{
    MakeSocket();
    ASSERT_EQ(ps_fcntl(m_nSocket, 4, 0), 0);
    mantle::CMNBurst burst;
    Input(m_pLinkA, Datagram("10.8.0.1", "one"));
    EXPECT_EQ(Receive(), "one");
}

// A connection inside one thread and its burst, over a wire between two links: every answer comes by the thread itself.
TEST_F(CIPInputBatchTest, Burst_ConnectOverAWire_DoneWithoutRetransmission)
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
TEST_F(CIPInputBatchTest, Burst_WorkPollsInsideThePoll_TheOuterOneIsWokenAllTheSame)
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

TEST_F(CIPInputBatchTest, TwoCallsLeaveOutputOfALink_TakenDownLater_DoesNotWaitForEver)
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
TEST_F(CIPInputBatchTest, BurstOfTheCaller_LowLevelPutsOff_DoneWhenTheOutputHasBeenSent)
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

TEST_F(CIPInputBatchTest, BurstOfAnotherThread_ManyLinksTakenDown_ItsLinkStays)
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

TEST_F(CIPInputBatchTest, Burst_LinkTakenDownByAnotherThread_DroppedAndCounted)
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

TEST_F(CIPInputBatchTest, Burst_LinkTakenDownByItsOwnThread_WhatWasHandedInIsAnswered)
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
TEST_F(CIPInputBatchTest, TwoLinksFeedEachOther_ManyRounds_EndsWithoutDeepCalls)
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

TEST_F(CIPInputBatchTest, BurstsOfManyThreads_Packets_AllAnsweredOrCounted)
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
