// ps_select: three lists in, three lists out, the readiness of ps_poll.
#include <algorithm>
#include <climits>
#include <memory>
#include <thread>

#include "KitLink.h"
#include "mantle/CMNClock.h"

using namespace kit;

namespace
{

void Add(ps_fdlist& list, int handle)
{
    list.handles[list.count++] = handle;
}

bool Has(const ps_fdlist& list, int handle)
{
    return std::find(list.handles, list.handles + list.count, handle) != list.handles + list.count;
}

const ps_timeval s_AtOnce = {0, 0};
const ps_timeval s_Limit = {s_nLimitMs / 1000, 0};

}  // namespace

TEST(Selecting, SomeReady_Lists_ExactlyThose)
{
    CPair pair = Connected();
    CPair idle = Connected();
    EXPECT_EQ(1, ps_send(pair.m_Client.Get(), "x", 1, 0));
    EXPECT_TRUE(Arrived(pair.m_Server.Get(), 1));
    ps_fdsets in = {};
    ps_fdsets out = {};
    Add(in.read, idle.m_Client.Get());
    Add(in.read, pair.m_Server.Get());
    Add(in.write, pair.m_Client.Get());
    Add(in.write, pair.m_Server.Get());
    Add(in.except, pair.m_Server.Get());
    EXPECT_EQ(3, ps_select(0, &in, &out, &s_Limit));
    EXPECT_EQ(1U, out.read.count);
    EXPECT_EQ(2U, out.write.count);
    EXPECT_EQ(0U, out.except.count);
    EXPECT_TRUE(Has(out.read, pair.m_Server.Get()));
    EXPECT_TRUE(Has(out.write, pair.m_Client.Get()));
    EXPECT_TRUE(Has(out.write, pair.m_Server.Get()));
    EXPECT_EQ(2U, in.read.count);
    EXPECT_EQ(idle.m_Client.Get(), in.read.handles[0]);
}

TEST(Selecting, SameRecordInAndOut_Ready_Answered)
{
    CPair pair = Connected();
    EXPECT_EQ(1, ps_send(pair.m_Client.Get(), "x", 1, 0));
    EXPECT_TRUE(Arrived(pair.m_Server.Get(), 1));
    ps_fdsets both = {};
    Add(both.read, pair.m_Client.Get());
    Add(both.read, pair.m_Server.Get());
    Add(both.write, pair.m_Client.Get());
    EXPECT_EQ(2, ps_select(pair.m_Server.Get() + 1, &both, &both, &s_Limit));
    EXPECT_EQ(1U, both.read.count);
    EXPECT_EQ(pair.m_Server.Get(), both.read.handles[0]);
    EXPECT_EQ(1U, both.write.count);
}

TEST(Selecting, HighestTooLow_Ready_StillFound)
{
    CPair pair = Connected();
    ps_fdsets in = {};
    ps_fdsets out = {};
    Add(in.write, pair.m_Client.Get());
    for (const int highest : {-1, 0, 1, 1 << 30}) {
        EXPECT_EQ(1, ps_select(highest, &in, &out, &s_Limit));
    }
}

TEST(Selecting, FailedHandle_EveryList_AppearsInEachThatAsked)
{
    CPair pair = Connected();
    pair.m_Client.CloseByReset();
    const int handle = pair.m_Server.Get();
    ps_fdsets in = {};
    ps_fdsets out = {};
    Add(in.read, handle);
    Add(in.write, handle);
    Add(in.except, handle);
    EXPECT_EQ(3, ps_select(0, &in, &out, &s_Limit));
    EXPECT_TRUE(Has(out.read, handle) && Has(out.write, handle) && Has(out.except, handle));
    in.read.count = 0;
    EXPECT_EQ(2, ps_select(0, &in, &out, &s_Limit));
    EXPECT_EQ(0U, out.read.count);
    EXPECT_TRUE(Has(out.write, handle) && Has(out.except, handle));
    in.write.count = 0;
    EXPECT_EQ(1, ps_select(0, &in, &out, &s_Limit));
    EXPECT_TRUE(Has(out.except, handle));
}

TEST(Selecting, FailedConnect_WriteAndExcept_Appears)
{
    CAddress closed;
    {
        const CSocket gone = Listener();
        closed = LocalAddress(gone.Get());
    }
    const CSocket client = Tcp();
    EXPECT_EQ(0, Connect(client.Get(), closed));
    ps_fdsets in = {};
    ps_fdsets out = {};
    Add(in.write, client.Get());
    Add(in.except, client.Get());
    EXPECT_EQ(2, ps_select(0, &in, &out, &s_Limit));
    EXPECT_EQ(PS_ECONNREFUSED, ps_is_socket_errno(client.Get()));
}

TEST(Selecting, ClosedHandle_EveryList_AppearsInEach)
{
    CSocket gone = Tcp();
    const int stale = gone.Get();
    EXPECT_EQ(0, gone.Close());
    ps_fdsets in = {};
    ps_fdsets out = {};
    Add(in.read, stale);
    Add(in.write, stale);
    Add(in.except, stale);
    EXPECT_EQ(3, ps_select(0, &in, &out, nullptr));
}

TEST(Selecting, NegativeEntries_Any_PassedOver)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    CPair pair = Connected();
    ps_fdsets in = {};
    ps_fdsets out = {};
    Add(in.read, -1);
    Add(in.write, -1);
    Add(in.write, pair.m_Client.Get());
    Add(in.write, -1);
    Add(in.except, -1);
    EXPECT_EQ(1, ps_select(0, &in, &out, nullptr));
    EXPECT_EQ(0U, out.read.count + out.except.count);
    EXPECT_EQ(1U, out.write.count);
    EXPECT_EQ(pair.m_Client.Get(), out.write.handles[0]);
    in.write.count = 1;
    const long long start = StackTimeMs();
    const ps_timeval wait = {2, 500000};
    EXPECT_EQ(0, ps_select(0, &in, &out, &wait));
    EXPECT_GE(StackTimeMs() - start, 2500);
    EXPECT_LE(StackTimeMs() - start, 2600);
    EXPECT_EQ(0U, out.read.count + out.write.count + out.except.count);
}

TEST(Selecting, NothingReady_TimeOutZero_ReturnsAtOnce)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    CPair pair = Connected();
    ps_fdsets in = {};
    ps_fdsets out = {};
    out.read.count = 9;
    Add(in.read, pair.m_Client.Get());
    Add(in.except, pair.m_Client.Get());
    const long long start = mantle::CMNClock::NowUs();
    EXPECT_EQ(0, ps_select(0, &in, &out, &s_AtOnce));
    EXPECT_EQ(start, mantle::CMNClock::NowUs());
    EXPECT_EQ(0U, out.read.count + out.write.count + out.except.count);
}

TEST(Selecting, EmptyLists_TimeOut_Waits)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    StartStack();
    const ps_fdsets in = {};
    ps_fdsets out = {};
    const long long start = StackTimeMs();
    const ps_timeval wait = {3, 0};
    EXPECT_EQ(0, ps_select(0, &in, &out, &wait));
    EXPECT_GE(StackTimeMs() - start, 3000);
}

TEST(Selecting, NoTimeOut_AnotherThreadSends_Wakes)
{
    CPair pair = Connected();
    ps_fdsets in = {};
    ps_fdsets out = {};
    Add(in.read, pair.m_Server.Get());
    std::thread other([&] {
        PassStackTime(20);
        EXPECT_EQ(1, ps_send(pair.m_Client.Get(), "x", 1, 0));
    });
    EXPECT_EQ(1, ps_select(0, &in, &out, nullptr));
    other.join();
    EXPECT_TRUE(Has(out.read, pair.m_Server.Get()));
}

// A limit beyond what milliseconds can count was over at once.
TEST(Selecting, LimitBeyondAllCounting_AnotherThreadSends_Wakes)
{
    for (const ps_timeval& limit : {ps_timeval{LONG_MAX, 0}, ps_timeval{0, LONG_MAX}, ps_timeval{LONG_MAX, LONG_MAX}}) {
        CPair pair = Connected();
        ps_fdsets in = {};
        ps_fdsets out = {};
        Add(in.read, pair.m_Server.Get());
        std::thread other([&] {
            PassStackTime(20);
            EXPECT_EQ(1, ps_send(pair.m_Client.Get(), "x", 1, 0));
        });
        EXPECT_EQ(1, ps_select(0, &in, &out, &limit));
        other.join();
    }
}

TEST(Selecting, LimitBelowZero_NothingReady_ReturnsAtOnce)
{
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    StartStack();
    const ps_fdsets in = {};
    ps_fdsets out = {};
    const long long start = mantle::CMNClock::NowUs();
    for (const ps_timeval& limit : {ps_timeval{LONG_MIN, 0}, ps_timeval{-1, 999999}, ps_timeval{LONG_MIN, LONG_MIN}}) {
        EXPECT_EQ(0, ps_select(0, &in, &out, &limit));
    }
    EXPECT_EQ(start, mantle::CMNClock::NowUs());
}

TEST(Selecting, FullLists_AllReady_AllAnswered)
{
    const CSocket sender = BoundUdp();
    std::vector<CSocket> sockets;
    sockets.reserve(PS_FD_SETSIZE);
    const auto in = std::make_unique<ps_fdsets>();
    const auto out = std::make_unique<ps_fdsets>();
    for (int i = 0; i < PS_FD_SETSIZE; ++i) {
        sockets.push_back(BoundUdp());
        Add(in->read, sockets.back().Get());
        Add(in->except, sockets.back().Get());
        EXPECT_EQ(1, SendTo(sender.Get(), CBytes(1), LocalAddress(sockets.back().Get())));
        EXPECT_TRUE(Arrived(sockets.back().Get(), 1));
    }
    std::vector<CPair> pairs;
    pairs.reserve(PS_FD_SETSIZE / 2);
    const CSocket listener = Listener(CAddress::Loopback(), 600);
    for (int i = 0; i < PS_FD_SETSIZE / 2; ++i) {
        pairs.push_back(ConnectedThrough(listener));
        Add(in->write, pairs.back().m_Client.Get());
        Add(in->write, pairs.back().m_Server.Get());
    }
    EXPECT_EQ(2 * PS_FD_SETSIZE, ps_select(0, in.get(), out.get(), &s_Limit));
    EXPECT_EQ(static_cast<unsigned int>(PS_FD_SETSIZE), out->read.count);
    EXPECT_EQ(static_cast<unsigned int>(PS_FD_SETSIZE), out->write.count);
    EXPECT_EQ(0U, out->except.count);
}

TEST(Selecting, OrderlyClose_Lists_ReadOnly)
{
    CPair pair = Connected();
    EXPECT_EQ(0, pair.m_Client.Close());
    ps_fdsets in = {};
    ps_fdsets out = {};
    Add(in.read, pair.m_Server.Get());
    Add(in.except, pair.m_Server.Get());
    EXPECT_EQ(1, ps_select(0, &in, &out, &s_Limit));
    EXPECT_TRUE(Has(out.read, pair.m_Server.Get()));
}
