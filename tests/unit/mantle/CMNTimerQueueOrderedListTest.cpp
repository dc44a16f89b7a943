#include "mantle/CMNTimerQueueOrderedList.h"

#include <algorithm>
#include <memory>
#include <random>
#include <thread>

#include "MantleTest.h"
#include "mantle/CMNClock.h"

namespace mantle
{
namespace
{

class CMNTimerQueueOrderedListTest : public testing::Test
{
protected:
    // A timer that writes its name.
    std::unique_ptr<CTestTimer> Named(const std::string& name)
    {
        return std::make_unique<CTestTimer>([this, name] { m_Fired.push_back(name); });
    }

    CMNManualClock m_Clock{false};
    CMNTimerQueueOrderedList m_Queue;
    std::vector<std::string> m_Fired;
};

TEST_F(CMNTimerQueueOrderedListTest, BadArguments_Schedule_Refused)
{
    CTestTimer timer;
    EXPECT_EQ(m_Queue.ScheduleTimer(nullptr, nullptr, CMNTimeValue(1, 0), 1), MN_ERROR_INVALID_ARG);
    EXPECT_EQ(m_Queue.ScheduleTimer(&timer, nullptr, CMNTimeValue(0, -1), 1), MN_ERROR_INVALID_ARG);
    EXPECT_EQ(m_Queue.CancelTimer(nullptr), MN_ERROR_INVALID_ARG);
    EXPECT_EQ(m_Queue.GetPendingTimersCount(), 0u);
}

TEST_F(CMNTimerQueueOrderedListTest, Scheduled_Due_FiredOnceWithTimeAndArgument)
{
    CTestTimer timer;
    int argument = 0;
    EXPECT_EQ(m_Queue.ScheduleTimer(&timer, &argument, CMNTimeValue(1, 0), 1), MN_OK);
    m_Clock.Advance(CMNTimeValue(0, 999999));
    EXPECT_EQ(m_Queue.CheckExpire(), 0u);
    m_Clock.Advance(CMNTimeValue(0, 1));
    EXPECT_EQ(m_Queue.CheckExpire(), 1u);
    EXPECT_EQ(timer.m_nFired, 1);
    EXPECT_EQ(timer.m_pArg, &argument);
    EXPECT_EQ(timer.m_tvNow, CMNClock::Now());
    m_Clock.Advance(CMNTimeValue(100, 0));
    EXPECT_EQ(m_Queue.CheckExpire(), 0u);
    EXPECT_EQ(m_Queue.GetPendingTimersCount(), 0u);
}

TEST_F(CMNTimerQueueOrderedListTest, SeveralDue_Checked_OrderOfDeadlineThenOfScheduling)
{
    const auto late = Named("late");
    const auto a = Named("a");
    const auto b = Named("b");
    const auto early = Named("early");
    m_Queue.ScheduleTimer(late.get(), nullptr, CMNTimeValue(3, 0), 1);
    m_Queue.ScheduleTimer(a.get(), nullptr, CMNTimeValue(2, 0), 1);
    m_Queue.ScheduleTimer(b.get(), nullptr, CMNTimeValue(2, 0), 1);
    m_Queue.ScheduleTimer(early.get(), nullptr, CMNTimeValue(1, 0), 1);
    m_Clock.Advance(CMNTimeValue(5, 0));
    EXPECT_EQ(m_Queue.CheckExpire(), 4u);
    EXPECT_THAT(m_Fired, testing::ElementsAre("early", "a", "b", "late"));
}

TEST_F(CMNTimerQueueOrderedListTest, SchedulesItselfWithoutDelay_Checked_WaitsForTheNextCheck)
{
    CTestTimer timer;
    timer.m_Run = [&] { m_Queue.ScheduleTimer(&timer, nullptr, CMNTimeValue::s_tvZero, 1); };
    m_Queue.ScheduleTimer(&timer, nullptr, CMNTimeValue::s_tvZero, 1);
    for (int check = 1; check <= 3; ++check) {
        EXPECT_EQ(m_Queue.CheckExpire(), 1u);
        EXPECT_EQ(timer.m_nFired, check);
    }
}

TEST_F(CMNTimerQueueOrderedListTest, ZeroIntervalWithoutLimit_Checked_OnceACheck)
{
    CTestTimer timer;
    m_Queue.ScheduleTimer(&timer, nullptr, CMNTimeValue::s_tvZero, 0);
    EXPECT_EQ(m_Queue.CheckExpire(), 1u);
    EXPECT_EQ(m_Queue.CheckExpire(), 1u);
}

TEST_F(CMNTimerQueueOrderedListTest, ScheduledByAHandlerInThePast_Checked_WaitsForTheNextCheck)
{
    const auto second = Named("second");
    CTestTimer first([&] { m_Queue.ScheduleTimer(second.get(), nullptr, CMNTimeValue::s_tvZero, 1); });
    const auto third = Named("third");
    m_Queue.ScheduleTimer(&first, nullptr, CMNTimeValue(1, 0), 1);
    m_Queue.ScheduleTimer(third.get(), nullptr, CMNTimeValue(2, 0), 1);
    m_Clock.Advance(CMNTimeValue(2, 0));
    EXPECT_EQ(m_Queue.CheckExpire(), 2u);
    EXPECT_THAT(m_Fired, testing::ElementsAre("third"));
    EXPECT_EQ(m_Queue.CheckExpire(), 1u);
    EXPECT_THAT(m_Fired, testing::ElementsAre("third", "second"));
}

TEST_F(CMNTimerQueueOrderedListTest, BecomesDueDuringTheCheck_Checked_WaitsForTheNextCheck)
{
    const auto second = Named("second");
    CTestTimer first([&] { m_Clock.Advance(CMNTimeValue(10, 0)); });
    m_Queue.ScheduleTimer(&first, nullptr, CMNTimeValue(1, 0), 1);
    m_Queue.ScheduleTimer(second.get(), nullptr, CMNTimeValue(2, 0), 1);
    m_Clock.Advance(CMNTimeValue(1, 0));
    CMNTimeValue remaining(77, 0);
    EXPECT_EQ(m_Queue.CheckExpire(&remaining), 1u);
    EXPECT_EQ(remaining, CMNTimeValue::s_tvZero);
    EXPECT_EQ(m_Queue.CheckExpire(), 1u);
}

TEST_F(CMNTimerQueueOrderedListTest, NothingPending_Checked_RemainingTimeUntouched)
{
    CMNTimeValue remaining(77, 5);
    EXPECT_EQ(m_Queue.CheckExpire(&remaining), 0u);
    EXPECT_EQ(remaining, CMNTimeValue(77, 5));
}

TEST_F(CMNTimerQueueOrderedListTest, Pending_Checked_RemainingTimeToTheNext)
{
    CTestTimer timer;
    m_Queue.ScheduleTimer(&timer, nullptr, CMNTimeValue(5, 0), 0);
    m_Clock.Advance(CMNTimeValue(2, 0));
    CMNTimeValue remaining;
    EXPECT_EQ(m_Queue.CheckExpire(&remaining), 0u);
    EXPECT_EQ(remaining, CMNTimeValue(3, 0));
    m_Clock.Advance(CMNTimeValue(3, 0));
    EXPECT_EQ(m_Queue.CheckExpire(&remaining), 1u);
    EXPECT_EQ(remaining, CMNTimeValue(5, 0));
}

TEST_F(CMNTimerQueueOrderedListTest, MaxInterval_Scheduled_NeverDueAndInfiniteWait)
{
    CTestTimer timer;
    EXPECT_EQ(m_Queue.ScheduleTimer(&timer, nullptr, CMNTimeValue::s_tvMax, 1), MN_OK);
    m_Clock.Advance(CMNTimeValue(1000000000, 0));
    CMNTimeValue remaining;
    EXPECT_EQ(m_Queue.CheckExpire(&remaining), 0u);
    EXPECT_EQ(remaining, CMNTimeValue::s_tvMax);
    EXPECT_EQ(remaining.GetTotalInMsec(), -1);
}

TEST_F(CMNTimerQueueOrderedListTest, CountThree_TimePasses_FiredThreeTimes)
{
    CTestTimer timer;
    m_Queue.ScheduleTimer(&timer, nullptr, CMNTimeValue(1, 0), 3);
    for (int second = 0; second < 6; ++second) {
        m_Clock.Advance(CMNTimeValue(1, 0));
        m_Queue.CheckExpire();
    }
    EXPECT_EQ(timer.m_nFired, 3);
    EXPECT_EQ(m_Queue.GetPendingTimersCount(), 0u);
}

TEST_F(CMNTimerQueueOrderedListTest, CountZero_TimePasses_FiredUntilCancelled)
{
    CTestTimer timer;
    m_Queue.ScheduleTimer(&timer, nullptr, CMNTimeValue(1, 0), 0);
    for (int second = 0; second < 50; ++second) {
        m_Clock.Advance(CMNTimeValue(1, 0));
        EXPECT_EQ(m_Queue.CheckExpire(), 1u);
    }
    EXPECT_EQ(m_Queue.CancelTimer(&timer), MN_OK);
    m_Clock.Advance(CMNTimeValue(10, 0));
    EXPECT_EQ(m_Queue.CheckExpire(), 0u);
    EXPECT_EQ(timer.m_nFired, 50);
}

TEST_F(CMNTimerQueueOrderedListTest, CheckedLate_Repeating_KeepsItsRhythm)
{
    CTestTimer timer;
    m_Queue.ScheduleTimer(&timer, nullptr, CMNTimeValue(1, 0), 0);
    m_Clock.Advance(CMNTimeValue(1, 300000));
    EXPECT_EQ(m_Queue.CheckExpire(), 1u);
    CMNTimeValue remaining;
    m_Queue.CheckExpire(&remaining);
    EXPECT_EQ(remaining, CMNTimeValue(0, 700000));
}

TEST_F(CMNTimerQueueOrderedListTest, CheckedVeryLate_Repeating_FiresOnceAndGoesOnFromNow)
{
    CTestTimer timer;
    m_Queue.ScheduleTimer(&timer, nullptr, CMNTimeValue(1, 0), 0);
    m_Clock.Advance(CMNTimeValue(3600, 0));
    CMNTimeValue remaining;
    EXPECT_EQ(m_Queue.CheckExpire(&remaining), 1u);
    EXPECT_EQ(remaining, CMNTimeValue(1, 0));
    EXPECT_EQ(m_Queue.CheckExpire(), 0u);
}

TEST_F(CMNTimerQueueOrderedListTest, ScheduledAgain_OldDeadlinePasses_OnlyTheNewCounts)
{
    CTestTimer timer;
    int argument = 0;
    m_Queue.ScheduleTimer(&timer, nullptr, CMNTimeValue(1, 0), 0);
    EXPECT_EQ(m_Queue.ScheduleTimer(&timer, &argument, CMNTimeValue(5, 0), 1), MN_OK);
    EXPECT_EQ(m_Queue.GetPendingTimersCount(), 1u);
    m_Clock.Advance(CMNTimeValue(4, 0));
    EXPECT_EQ(m_Queue.CheckExpire(), 0u);
    m_Clock.Advance(CMNTimeValue(1, 0));
    EXPECT_EQ(m_Queue.CheckExpire(), 1u);
    EXPECT_EQ(timer.m_pArg, &argument);
    EXPECT_EQ(m_Queue.GetPendingTimersCount(), 0u);
}

TEST_F(CMNTimerQueueOrderedListTest, NotScheduled_Cancelled_Zero)
{
    CTestTimer timer;
    EXPECT_EQ(m_Queue.CancelTimer(&timer), MN_OK);
}

TEST_F(CMNTimerQueueOrderedListTest, TimersPending_QueueDropped_NothingFires)
{
    CTestTimer timer;
    {
        CMNTimerQueueOrderedList queue;
        queue.ScheduleTimer(&timer, nullptr, CMNTimeValue::s_tvZero, 0);
    }
    EXPECT_EQ(timer.m_nFired, 0);
    m_Queue.ScheduleTimer(&timer, nullptr, CMNTimeValue::s_tvZero, 0);
    m_Queue.Clear();
    EXPECT_EQ(m_Queue.CheckExpire(), 0u);
}

TEST_F(CMNTimerQueueOrderedListTest, HandlerCancelsAnotherDueOne_Checked_ThatIsNotFired)
{
    const auto second = Named("second");
    CTestTimer first([&] { m_Queue.CancelTimer(second.get()); });
    m_Queue.ScheduleTimer(&first, nullptr, CMNTimeValue::s_tvZero, 1);
    m_Queue.ScheduleTimer(second.get(), nullptr, CMNTimeValue::s_tvZero, 1);
    EXPECT_EQ(m_Queue.CheckExpire(), 1u);
    EXPECT_TRUE(m_Fired.empty());
}

TEST_F(CMNTimerQueueOrderedListTest, HandlerCancelsItself_Repeating_NotFiredAgain)
{
    CTestTimer timer;
    timer.m_Run = [&] { m_Queue.CancelTimer(&timer); };
    m_Queue.ScheduleTimer(&timer, nullptr, CMNTimeValue::s_tvZero, 0);
    EXPECT_EQ(m_Queue.CheckExpire(), 1u);
    EXPECT_EQ(m_Queue.CheckExpire(), 0u);
}

TEST_F(CMNTimerQueueOrderedListTest, HandlerReschedulesADueOne_Checked_ThatWaitsForItsNewDeadline)
{
    const auto second = Named("second");
    CTestTimer first([&] { m_Queue.ScheduleTimer(second.get(), nullptr, CMNTimeValue(1, 0), 1); });
    m_Queue.ScheduleTimer(&first, nullptr, CMNTimeValue::s_tvZero, 1);
    m_Queue.ScheduleTimer(second.get(), nullptr, CMNTimeValue::s_tvZero, 1);
    EXPECT_EQ(m_Queue.CheckExpire(), 1u);
    m_Clock.Advance(CMNTimeValue(1, 0));
    EXPECT_EQ(m_Queue.CheckExpire(), 1u);
    EXPECT_THAT(m_Fired, testing::ElementsAre("second"));
}

// Deletes itself, after cancelling when it repeats.
class CSelfDeleting : public IMNTimerHandler
{
public:
    CSelfDeleting(CMNTimerQueueOrderedList& queue, int& deleted) : m_Queue(queue), m_nDeleted(deleted) {}
    ~CSelfDeleting() override { ++m_nDeleted; }
    void OnTimeout(const CMNTimeValue&, void*) override
    {
        m_Queue.CancelTimer(this);
        delete this;
    }

private:
    CMNTimerQueueOrderedList& m_Queue;
    int& m_nDeleted;
};

TEST_F(CMNTimerQueueOrderedListTest, HandlerDeletesItself_Checked_NothingOfItIsTouched)
{
    int deleted = 0;
    m_Queue.ScheduleTimer(new CSelfDeleting(m_Queue, deleted), nullptr, CMNTimeValue::s_tvZero, 1);
    m_Queue.ScheduleTimer(new CSelfDeleting(m_Queue, deleted), nullptr, CMNTimeValue::s_tvZero, 0);
    EXPECT_EQ(m_Queue.CheckExpire(), 2u);
    EXPECT_EQ(deleted, 2);
    EXPECT_EQ(m_Queue.CheckExpire(), 0u);
}

TEST_F(CMNTimerQueueOrderedListTest, HandlerDeletesAnother_Checked_ThatIsNotTouched)
{
    auto second = Named("second");
    CTestTimer first([&] {
        m_Queue.CancelTimer(second.get());
        second.reset();
    });
    m_Queue.ScheduleTimer(&first, nullptr, CMNTimeValue::s_tvZero, 1);
    m_Queue.ScheduleTimer(second.get(), nullptr, CMNTimeValue::s_tvZero, 1);
    EXPECT_EQ(m_Queue.CheckExpire(), 1u);
}

// Is deleted by another thread inside its call.
class CDeletedElsewhere : public IMNTimerHandler
{
public:
    void OnTimeout(const CMNTimeValue&, void* arg) override
    {
        std::thread other([this] { delete this; });
        other.join();
        ++*static_cast<int*>(arg);
    }
};

TEST_F(CMNTimerQueueOrderedListTest, AnotherThreadDeletesTheHandler_InsideItsCall_QueueTouchesNothing)
{
    for (int round = 0; round < 200; ++round) {
        int fired = 0;
        m_Queue.ScheduleTimer(new CDeletedElsewhere, &fired, CMNTimeValue::s_tvZero, 1);
        EXPECT_EQ(m_Queue.CheckExpire(), 1u);
        EXPECT_EQ(fired, 1);
    }
}

TEST_F(CMNTimerQueueOrderedListTest, HandlerDestroysTheQueue_Checked_TheCheckEnds)
{
    auto queue = std::make_unique<CMNTimerQueueOrderedList>();
    const auto second = Named("second");
    CTestTimer first([&] { queue.reset(); });
    queue->ScheduleTimer(&first, nullptr, CMNTimeValue::s_tvZero, 0);
    queue->ScheduleTimer(second.get(), nullptr, CMNTimeValue::s_tvZero, 1);
    CMNTimeValue remaining(77, 0);
    EXPECT_EQ(queue->CheckExpire(&remaining), 1u);
    EXPECT_TRUE(m_Fired.empty());
    EXPECT_EQ(remaining, CMNTimeValue(77, 0));
}

TEST_F(CMNTimerQueueOrderedListTest, CheckInsideACheckDestroysTheQueue_Both_End)
{
    auto queue = std::make_unique<CMNTimerQueueOrderedList>();
    CTestTimer second([&] { queue.reset(); });
    CTestTimer first([&] { EXPECT_EQ(queue->CheckExpire(), 1u); });
    queue->ScheduleTimer(&first, nullptr, CMNTimeValue::s_tvZero, 1);
    queue->ScheduleTimer(&second, nullptr, CMNTimeValue::s_tvZero, 1);
    EXPECT_EQ(queue->CheckExpire(), 1u);
    EXPECT_EQ(queue, nullptr);
}

TEST_F(CMNTimerQueueOrderedListTest, LimitedCheck_MoreDue_TheRestWaits)
{
    CTestTimer timers[3];
    for (CTestTimer& timer : timers)
        m_Queue.ScheduleTimer(&timer, nullptr, CMNTimeValue::s_tvZero, 1);
    CMNTimeValue remaining(77, 0);
    EXPECT_EQ(m_Queue.CheckExpire(&remaining, 2), 2u);
    EXPECT_EQ(remaining, CMNTimeValue::s_tvZero);
    EXPECT_EQ(m_Queue.CheckExpire(nullptr, 0), 0u);
    EXPECT_EQ(m_Queue.CheckExpire(), 1u);
}

class CCountingObserver : public IMNObserver
{
public:
    MNResult OnObserve(const char* topic, void* data) override
    {
        EXPECT_STREQ(topic, "TimerQueue");
        m_pData = data;
        ++m_nCalls;
        return MN_OK;
    }

    int m_nCalls = 0;
    void* m_pData = nullptr;
};

TEST_F(CMNTimerQueueOrderedListTest, Observer_SchedulesAndCancels_ToldWhenTheEarliestChanges)
{
    CCountingObserver observer;
    CMNTimerQueueOrderedList queue(&observer);
    CTestTimer first;
    CTestTimer second;
    queue.ScheduleTimer(&first, nullptr, CMNTimeValue(5, 0), 1);
    EXPECT_EQ(observer.m_nCalls, 1);
    EXPECT_EQ(observer.m_pData, &queue);
    queue.ScheduleTimer(&second, nullptr, CMNTimeValue(9, 0), 1);
    EXPECT_EQ(observer.m_nCalls, 1);
    queue.ScheduleTimer(&second, nullptr, CMNTimeValue(1, 0), 1);
    EXPECT_EQ(observer.m_nCalls, 2);
    queue.CancelTimer(&second);
    EXPECT_EQ(observer.m_nCalls, 3);
    queue.CancelTimer(&second);
    EXPECT_EQ(observer.m_nCalls, 3);
}

// Against a plain list that is searched: thousands of random schedules, cancels and steps of time.
TEST_F(CMNTimerQueueOrderedListTest, RandomUse_ComparedWithAPlainList_SameOrder)
{
    struct CPlain
    {
        long long m_llDeadline;
        int m_nOrder;
        int m_nIndex;
    };
    std::mt19937 random(7);
    std::vector<CPlain> plain;
    std::vector<std::unique_ptr<CTestTimer>> timers;
    std::vector<std::string> expected;
    for (int index = 0; index < 64; ++index)
        timers.push_back(Named(std::to_string(index)));
    for (int step = 0; step < 20000; ++step) {
        const int index = static_cast<int>(random() % 64);
        const auto same = [index](const CPlain& entry) { return entry.m_nIndex == index; };
        const auto action = random() % 10;
        if (action < 6) {
            const auto delay = static_cast<long>(random() % 50);
            plain.erase(std::remove_if(plain.begin(), plain.end(), same), plain.end());
            plain.push_back(CPlain{CMNClock::NowUs() + delay, step, index});
            m_Queue.ScheduleTimer(timers[static_cast<std::size_t>(index)].get(), nullptr, CMNTimeValue(0, delay), 1);
        } else if (action < 8) {
            plain.erase(std::remove_if(plain.begin(), plain.end(), same), plain.end());
            m_Queue.CancelTimer(timers[static_cast<std::size_t>(index)].get());
        } else {
            m_Clock.Advance(CMNTimeValue(0, static_cast<long>(random() % 8)));
            std::sort(plain.begin(), plain.end(), [](const CPlain& a, const CPlain& b) {
                return a.m_llDeadline != b.m_llDeadline ? a.m_llDeadline < b.m_llDeadline : a.m_nOrder < b.m_nOrder;
            });
            while (!plain.empty() && plain.front().m_llDeadline <= CMNClock::NowUs()) {
                expected.push_back(std::to_string(plain.front().m_nIndex));
                plain.erase(plain.begin());
            }
            m_Queue.CheckExpire();
            ASSERT_EQ(m_Fired, expected) << "step " << step;
            m_Fired.clear();
            expected.clear();
        }
        ASSERT_EQ(m_Queue.GetPendingTimersCount(), plain.size());
    }
}

}  // namespace
}  // namespace mantle
