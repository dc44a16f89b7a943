// Events, timers and wake-ups of the real loop.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "ipstack/ps_socket.h"
#include "tests/integration/support/CBytes.h"
#include "tests/integration/support/CClient.h"
#include "tests/integration/support/CListener.h"

using namespace uxport;

namespace
{

constexpr unsigned short PORT = 7006;

class EventsTest : public testing::TestWithParam<CNetwork::EKind>
{
};

INSTANTIATE_TEST_SUITE_P(Reactor, EventsTest, testing::Values(CNetwork::EKind::MANAGER, CNetwork::EKind::SELECT),
                         testing::PrintToStringParamName());

class CTimer : public IMNTimerHandler
{
public:
    explicit CTimer(std::function<void()> function) : m_fFunction(std::move(function)) {}
    void OnTimeout(const CMNTimeValue&, void*) override { m_fFunction(); }

private:
    std::function<void()> m_fFunction;
};

TEST_P(EventsTest, QuarterOfAMillionEvents_TimerDueMeanwhile_FiresInBetweenAndAllRunInOrder)
{
    constexpr int EVENTS = 250000;
    CNetwork network(GetParam());
    int run = 0;
    int outOfOrder = 0;
    int runWhenTimerFired = -1;
    CTimer timer([&] { runWhenTimerFired = run; });
    network.Run([&] {
        for (int i = 0; i < EVENTS; ++i) {
            network.Post([&, i] {
                if (run++ != i)
                    ++outOfOrder;
                if (i == 0) {
                    EXPECT_EQ(MN_OK, network.GetReactor()->ScheduleTimer(&timer, nullptr, CMNTimeValue::s_tvZero, 1));
                }
                if (run == EVENTS)
                    network.Poke();
            });
        }
    });
    ASSERT_TRUE(network.WaitFor([&] { return run == EVENTS; }));
    EXPECT_EQ(0, outOfOrder);
    EXPECT_GT(runWhenTimerFired, 0);
    EXPECT_LT(runWhenTimerFired, EVENTS);
}

// Posts itself again until told to stop.
class CSelfPoster
{
public:
    explicit CSelfPoster(CNetwork& network) : m_Network(network) {}

    void Go()
    {
        ++m_qwRuns;
        if (!m_bStop)
            m_Network.Post([this] { Go(); });
        else
            m_bStopped = true;
        if (m_bStopped)
            m_Network.Poke();
    }

    CNetwork& m_Network;
    std::uint64_t m_qwRuns = 0;
    bool m_bStop = false;
    bool m_bStopped = false;
};

TEST_P(EventsTest, EventPostsItselfForEver_EchoBesideIt_EchoAndTimersGoOn)
{
    constexpr int ROUNDS = 100;
    CNetwork network(GetParam());
    CListener listener(network, true);
    CClient client(network);
    CSelfPoster poster(network);
    int expiries = 0;
    CTimer timer([&] {
        ++expiries;
        network.Poke();
    });
    int rounds = 0;
    network.Run([&] {
        ASSERT_EQ(MN_OK, listener.Listen(Loopback(PORT)));
        poster.Go();
        EXPECT_EQ(MN_OK, network.GetReactor()->ScheduleTimer(&timer, nullptr, CMNTimeValue(0, 100), 0));
        ASSERT_EQ(MN_OK, client.Connect(Loopback(PORT), 20));
    });
    ASSERT_TRUE(network.WaitFor([&] { return client.IsConnected(); }));
    client.m_fOnReceive = [&](CMNMessageBlock&) {
        if (++rounds < ROUNDS)
            client.Send("x");
    };
    network.Run([&] { client.Send("x"); });
    ASSERT_TRUE(network.WaitFor([&] { return rounds == ROUNDS && expiries > 3; }));
    network.Run([&] {
        EXPECT_GT(poster.m_qwRuns, static_cast<std::uint64_t>(ROUNDS));
        EXPECT_EQ(MN_OK, network.GetReactor()->CancelTimer(&timer));
        poster.m_bStop = true;
    });
    ASSERT_TRUE(network.WaitFor([&] { return poster.m_bStopped; }));
}

// A registered handler whose socket never becomes ready by itself.
class CQuietHandler : public IPSEventHandler
{
public:
    CQuietHandler() : m_nHandle(ps_socket(PS_AF_INET, PS_SOCK_DGRAM, 0)) { EXPECT_GT(m_nHandle, 0); }
    ~CQuietHandler() override { EXPECT_EQ(0, ps_close(m_nHandle)); }

    int GetHandle() const override { return m_nHandle; }
    int OnInput(int) override
    {
        ++m_nInputs;
        return 0;
    }
    int OnOutput(int) override
    {
        ++m_nOutputs;
        return 0;
    }

    int m_nInputs = 0;
    int m_nOutputs = 0;

private:
    int m_nHandle;
};

TEST_P(EventsTest, TwentyThousandNotificationsInOneEvent_PipeFull_RefusedOnesAnsweredAndLoopGoesOn)
{
    constexpr int NOTIFICATIONS = 20000;
    CNetwork network(GetParam());
    CQuietHandler handler;
    int accepted = 0;
    int refused = 0;
    network.Run([&] {
        ASSERT_EQ(MN_OK, network.GetReactor()->RegisterHandler(&handler, READ_MASK));
        for (int i = 0; i < NOTIFICATIONS; ++i) {
            const MNResult result = network.GetReactor()->NotifyHandler(&handler, READ_MASK);
            accepted += result == MN_OK ? 1 : 0;
            refused += result == MN_ERROR_UNEXPECTED ? 1 : 0;
        }
    });
    EXPECT_EQ(NOTIFICATIONS, accepted + refused);
    EXPECT_GT(accepted, 1000);
    EXPECT_GT(refused, 0);
    network.Turn(NOTIFICATIONS / 200);
    EXPECT_EQ(accepted, handler.m_nInputs);
    EXPECT_EQ(0, handler.m_nOutputs);
    bool ran = false;
    network.Run([&] { ran = true; });
    EXPECT_TRUE(ran);
    network.Run([&] { EXPECT_EQ(MN_OK, network.GetReactor()->RemoveHandler(&handler, ALL_EVENTS_MASK)); });
}

TEST_P(EventsTest, PipeFull_EventPosted_RunsAllTheSame)
{
    CNetwork network(GetParam());
    CQuietHandler handler;
    int ran = 0;
    network.Run([&] {
        ASSERT_EQ(MN_OK, network.GetReactor()->RegisterHandler(&handler, READ_MASK));
        while (network.GetReactor()->NotifyHandler(&handler, READ_MASK) == MN_OK) {
        }
        network.Post([&] { ++ran; });
    });
    ASSERT_TRUE(network.WaitFor([&] { return ran == 1; }));
    network.Run([&] { EXPECT_EQ(MN_OK, network.GetReactor()->RemoveHandler(&handler, ALL_EVENTS_MASK)); });
}

TEST_P(EventsTest, FourThreadsPostAndSend_EachEventRunsOnceInItsThreadsOrder)
{
    constexpr int THREADS = 4;
    constexpr int EVENTS = 2000;
    CNetwork network(GetParam());
    std::vector<int> last(THREADS, -1);
    int run = 0;
    int outOfOrder = 0;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < THREADS; ++thread) {
        threads.emplace_back([&, thread] {
            for (int i = 0; i < EVENTS; ++i) {
                auto* event = new CWorkEvent([&, thread, i] {
                    ++run;
                    if (last[static_cast<std::size_t>(thread)] != i - 1)
                        ++outOfOrder;
                    last[static_cast<std::size_t>(thread)] = i;
                });
                if (i % 3 == 0)
                    EXPECT_EQ(MN_OK, network.GetReactor()->SendEvent(event));
                else
                    EXPECT_EQ(MN_OK, network.GetReactor()->PostEvent(event));
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    ASSERT_TRUE(network.WaitFor([&] { return run == THREADS * EVENTS; }));
    EXPECT_EQ(0, outOfOrder);
}

TEST_P(EventsTest, HoursOfTimers_HandMovedClock_FireAtTheirTimes)
{
    mantle::CMNManualClock clock;
    CNetwork network(GetParam());
    int expiries = 0;
    const long long start = mantle::CMNClock::NowUs();
    long long end = 0;
    CTimer timer([&] {
        ++expiries;
        end = mantle::CMNClock::NowUs();
        network.Poke();
    });
    network.Run(
        [&] { EXPECT_EQ(MN_OK, network.GetReactor()->ScheduleTimer(&timer, nullptr, CMNTimeValue(60, 0), 600)); });
    ASSERT_TRUE(network.WaitFor([&] { return expiries == 600; }, 12 * 3600));
    EXPECT_EQ(600 * 60 * 1000000LL, end - start);
}

}  // namespace
