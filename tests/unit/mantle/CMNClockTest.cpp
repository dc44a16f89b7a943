#include "mantle/CMNClock.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include "MantleTest.h"
#include "mantle/CMNThreadUser.h"
#include "mantle/CMNWaiter.h"

namespace mantle
{
namespace
{

constexpr long long s_llSecond = 1000000;
constexpr long long s_llHour = 3600 * s_llSecond;

long long RealMs()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

TEST(CMNClockTest, RealClock_ReadFromManyThreads_NeverBack)
{
    std::vector<std::thread> threads;
    std::atomic<bool> back{false};
    for (int index = 0; index < 4; ++index) {
        threads.emplace_back([&back] {
            long long last = 0;
            for (int count = 0; count < 10000; ++count) {
                const long long now = CMNClock::NowUs();
                if (now < last)
                    back = true;
                last = now;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_FALSE(back);
    EXPECT_FALSE(CMNClock::IsManual());
}

TEST(CMNClockTest, RealClock_Sleep_TakesThatLong)
{
    const long long before = RealMs();
    CMNClock::Sleep(CMNTimeValue(0, 30000));
    EXPECT_GE(RealMs() - before, 29);
}

TEST(CMNManualClockTest, InForce_NobodyMovesIt_TimeStands)
{
    CMNManualClock clock;
    EXPECT_TRUE(CMNClock::IsManual());
    const long long before = CMNClock::NowUs();
    const CMNTimeValue day = CMNClock::TimeOfDay();
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(CMNClock::NowUs(), before);
    EXPECT_EQ(CMNClock::TimeOfDay(), day);
    EXPECT_EQ(clock.GetSteps(), 0u);
}

TEST(CMNManualClockTest, InForce_Begun_AtAFullTenSeconds)
{
    CMNManualClock clock;
    EXPECT_EQ(CMNClock::NowUs() % (10 * s_llSecond), 0);
}

TEST(CMNManualClockTest, InForce_Advanced_TimeAndTimeOfDayMove)
{
    CMNManualClock clock(false);
    const long long before = CMNClock::NowUs();
    const CMNTimeValue day = CMNClock::TimeOfDay();
    clock.Advance(CMNTimeValue(3600, 5));
    EXPECT_EQ(CMNClock::NowUs() - before, s_llHour + 5);
    EXPECT_EQ(CMNClock::TimeOfDay() - day, CMNTimeValue(3600, 5));
    clock.Advance(CMNTimeValue(-1, 0));
    EXPECT_EQ(CMNClock::NowUs() - before, s_llHour + 5);
}

TEST(CMNManualClockTest, HoursPassed_Gone_RealClockGoesOnAndNeverBack)
{
    long long last = 0;
    {
        CMNManualClock clock(false);
        clock.Advance(CMNTimeValue(36000, 0));
        last = CMNClock::NowUs();
    }
    EXPECT_FALSE(CMNClock::IsManual());
    const long long after = CMNClock::NowUs();
    EXPECT_GE(after, last);
    EXPECT_LT(after, last + 60 * s_llSecond);
    EXPECT_LT(CMNClock::TimeOfDay(), CMNTimeValue::FromUsec(std::chrono::duration_cast<std::chrono::microseconds>(
                                                                std::chrono::system_clock::now().time_since_epoch())
                                                                .count()) +
                                         CMNTimeValue(1, 0));
}

TEST(CMNManualClockTest, SecondOne_Made_DoesNothing)
{
    CMNManualClock clock(false);
    testing::internal::CaptureStderr();
    {
        CMNManualClock second;
        const long long before = CMNClock::NowUs();
        second.Advance(CMNTimeValue(5, 0));
        EXPECT_EQ(CMNClock::NowUs(), before);
    }
    EXPECT_TRUE(CMNClock::IsManual());
    EXPECT_NE(testing::internal::GetCapturedStderr(), "");
}

TEST(CMNManualClockTest, LoneWaiter_HasADeadline_TimeJumpsThere)
{
    CMNManualClock clock;
    CMNClockParticipant participant;
    const long long deadline = CMNClock::NowUs() + 24 * s_llHour;
    const long long before = RealMs();
    CMNWaiter& waiter = CMNWaiter::Current();
    EXPECT_FALSE(waiter.Wait(waiter.GetSequence(), deadline));
    EXPECT_EQ(CMNClock::NowUs(), deadline);
    EXPECT_LT(RealMs() - before, 20000);
    EXPECT_EQ(clock.GetSteps(), 1u);
}

TEST(CMNManualClockTest, DeadlinePassed_Waited_BackAtOnceWithoutMoving)
{
    CMNManualClock clock;
    const long long now = CMNClock::NowUs();
    CMNWaiter& waiter = CMNWaiter::Current();
    EXPECT_FALSE(waiter.Wait(waiter.GetSequence(), now));
    EXPECT_FALSE(waiter.Wait(waiter.GetSequence(), now - 1));
    EXPECT_EQ(CMNClock::NowUs(), now);
}

TEST(CMNManualClockTest, AutoAdvanceOff_Waiting_OnlyAdvanceWakes)
{
    CMNManualClock clock(false);
    const long long start = CMNClock::NowUs();
    std::atomic<int> woken{0};
    CTestThread thread([&] {
        CMNClock::Sleep(CMNTimeValue(10, 0));
        ++woken;
    });
    ASSERT_EQ(thread.Create(100), MN_OK);
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(CMNClock::NowUs(), start);
    clock.Advance(CMNTimeValue(9, 999999));
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(woken, 0);
    clock.Advance(CMNTimeValue(0, 1));
    EXPECT_EQ(thread.Join(), MN_OK);
    EXPECT_EQ(woken, 1);
    EXPECT_EQ(CMNClock::NowUs(), start + 10 * s_llSecond);
}

TEST(CMNManualClockTest, AutoAdvanceSwitchedOn_AllWait_TimeMoves)
{
    CMNManualClock clock(false);
    CTestThread thread([] { CMNClock::Sleep(CMNTimeValue(10, 0)); });
    ASSERT_EQ(thread.Create(100), MN_OK);
    clock.SetAutoAdvance(true);
    EXPECT_EQ(thread.Join(), MN_OK);
}

TEST(CMNManualClockTest, OneParticipantRuns_OthersWait_TimeStands)
{
    CMNManualClock clock;
    const long long start = CMNClock::NowUs();
    std::atomic<bool> woken{false};
    CTestThread sleeper([&] {
        CMNClock::Sleep(CMNTimeValue(1, 0));
        woken = true;
    });
    {
        CMNClockParticipant participant;
        ASSERT_EQ(sleeper.Create(100), MN_OK);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_FALSE(woken);
        EXPECT_EQ(CMNClock::NowUs(), start);
    }
    EXPECT_EQ(sleeper.Join(), MN_OK);
    EXPECT_EQ(CMNClock::NowUs(), start + s_llSecond);
}

TEST(CMNManualClockTest, ThreadJustCreated_NotRunningYet_CountsAlready)
{
    CMNManualClock clock;
    CMNClockParticipant participant;
    const long long start = CMNClock::NowUs();
    for (int index = 0; index < 50; ++index) {
        long long seen = 0;
        CTestThread thread([&seen] { seen = CMNClock::NowUs(); });
        CTestThread* pointer = &thread;
        // Another participant waits with a deadline all the time: it must not come true before the thread has run.
        CTestThread sleeper([] { CMNClock::Sleep(CMNTimeValue(5, 0)); });
        ASSERT_EQ(sleeper.Create(101), MN_OK);
        const long long before = CMNClock::NowUs();
        ASSERT_EQ(pointer->Create(100), MN_OK);
        ASSERT_EQ(thread.Join(), MN_OK);
        EXPECT_EQ(seen, before);
        ASSERT_EQ(sleeper.Join(), MN_OK);
    }
    EXPECT_EQ(CMNClock::NowUs(), start + 50 * 5 * s_llSecond);
}

TEST(CMNManualClockTest, SignalledWaiter_NotAwakeYet_CountsAsRunning)
{
    CMNManualClock clock;
    CMNClockParticipant participant;
    const long long start = CMNClock::NowUs();
    std::atomic<bool> wrong{false};
    std::atomic<bool> over{false};
    CMNEventThread ping(0, 0);
    CMNEventThread pong(0, 0);
    CTestThread echo([&] {
        while (true) {
            ping.Wait();
            if (over)
                return;
            if (CMNClock::NowUs() != start)
                wrong = true;
            pong.Signal();
        }
    });
    CTestThread sleeper([] { CMNClock::Sleep(CMNTimeValue(7, 0)); });
    ASSERT_EQ(echo.Create(100), MN_OK);
    ASSERT_EQ(sleeper.Create(101), MN_OK);
    for (int round = 0; round < 2000; ++round) {
        ping.Signal();
        pong.Wait();
        ASSERT_EQ(CMNClock::NowUs(), start) << "round " << round;
    }
    over = true;
    ping.Signal();
    EXPECT_EQ(echo.Join(), MN_OK);
    EXPECT_FALSE(wrong);
    EXPECT_EQ(CMNClock::NowUs(), start);
    EXPECT_EQ(sleeper.Join(), MN_OK);
    EXPECT_EQ(CMNClock::NowUs(), start + 7 * s_llSecond);
}

TEST(CMNManualClockTest, PlainThreadWaitsWithADeadline_AllWait_ItsDeadlineCounts)
{
    CMNManualClock clock;
    const long long start = CMNClock::NowUs();
    long long seen = 0;
    std::thread plain([&seen] {
        CMNClock::Sleep(CMNTimeValue(3, 0));
        seen = CMNClock::NowUs();
    });
    plain.join();
    EXPECT_EQ(seen, start + 3 * s_llSecond);
}

TEST(CMNManualClockTest, PlainThreadRuns_ParticipantsWait_TimeMovesWithoutIt)
{
    CMNManualClock clock;
    CTestThread sleeper([] { CMNClock::Sleep(CMNTimeValue(3, 0)); });
    ASSERT_EQ(sleeper.Create(100), MN_OK);
    while (sleeper.IsRunning())
        std::this_thread::yield();
    SUCCEED();
}

TEST(CMNManualClockTest, NestedParticipants_InnerGone_StillHoldsTheClock)
{
    CMNManualClock clock;
    const long long start = CMNClock::NowUs();
    CMNClockParticipant outer;
    {
        CMNClockParticipant inner;
    }
    CTestThread sleeper([] { CMNClock::Sleep(CMNTimeValue(3, 0)); });
    ASSERT_EQ(sleeper.Create(100), MN_OK);
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(CMNClock::NowUs(), start);
    EXPECT_EQ(sleeper.Join(), MN_OK);
}

TEST(CMNManualClockTest, ParticipantThreadEndsWithoutLeaving_Ended_DoesNotHoldTheClock)
{
    CMNManualClock clock;
    std::unique_ptr<CMNClockParticipant> left;
    std::thread plain([&left] { left = std::make_unique<CMNClockParticipant>(); });
    plain.join();
    CTestThread sleeper([] { CMNClock::Sleep(CMNTimeValue(3, 0)); });
    ASSERT_EQ(sleeper.Create(100), MN_OK);
    EXPECT_EQ(sleeper.Join(), MN_OK);
}

TEST(CMNManualClockTest, SleepersInRealTime_ClockPutInForce_FollowItAtOnce)
{
    std::atomic<bool> asleep{false};
    CTestThread sleeper([&] {
        asleep = true;
        CMNClock::Sleep(CMNTimeValue(100000, 0));
    });
    ASSERT_EQ(sleeper.Create(100), MN_OK);
    while (!asleep)
        std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    CMNManualClock clock;
    EXPECT_EQ(sleeper.Join(), MN_OK);
}

TEST(CMNManualClockTest, SleepersInItsTime_ClockGone_GoOnInRealTime)
{
    CTestThread sleeper([] { CMNClock::Sleep(CMNTimeValue(0, 50000)); });
    {
        CMNManualClock clock(false);
        ASSERT_EQ(sleeper.Create(100), MN_OK);
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_EQ(sleeper.JoinFor(s_tvLimit), MN_OK);
}

TEST(CMNManualClockTest, EqualDeadlines_Reached_OneAfterTheOtherInTheOrderOfTheThreads)
{
    for (int run = 0; run < 20; ++run) {
        CMNManualClock clock;
        CLog log;
        std::vector<std::unique_ptr<CTestThread>> threads;
        CMNClockParticipant participant;
        const long long wake = CMNClock::NowUs() + s_llSecond;
        for (int index = 0; index < 4; ++index) {
            auto waiter = std::make_shared<CMNWaiter>();
            threads.push_back(std::make_unique<CTestThread>([&log, index, wake, waiter] {
                EXPECT_FALSE(waiter->Wait(waiter->GetSequence(), wake));
                log.Add(std::to_string(index));
            }));
        }
        for (auto& thread : threads)
            ASSERT_EQ(thread->Create(100), MN_OK);
        for (auto& thread : threads)
            ASSERT_EQ(thread->Join(), MN_OK);
        EXPECT_THAT(log.Get(), testing::ElementsAre("0", "1", "2", "3"));
    }
}

// Three user threads with timers of their own that post to each other: what each does, and when.
std::vector<std::vector<std::string>> RunHours()
{
    CMNManualClock clock;
    CMNClockParticipant participant;
    const long long start = CMNClock::NowUs();
    const auto at = [start] { return " at " + std::to_string(CMNClock::NowUs() - start); };
    std::vector<std::vector<std::string>> logs(3);
    std::vector<std::unique_ptr<CMNThreadUser>> threads;
    std::vector<std::unique_ptr<CTestTimer>> timers;
    for (int index = 0; index < 3; ++index) {
        threads.push_back(std::make_unique<CMNThreadUser>());
        EXPECT_EQ(threads.back()->Create(100 + index), MN_OK);
    }
    for (std::size_t index = 0; index < 3; ++index) {
        const std::size_t next = (index + 1) % 3;
        timers.push_back(std::make_unique<CTestTimer>([&logs, &threads, index, next, at] {
            logs[index].push_back("timer" + at());
            threads[next]->PostEvent(new CTestEvent(
                [&logs, index, next, at] { logs[next].push_back("from " + std::to_string(index) + at()); }));
        }));
        CMNThreadUser* thread = threads[index].get();
        CTestTimer* timer = timers.back().get();
        const CMNTimeValue interval(20 + 10 * static_cast<long>(index), 0);
        thread->SendEvent(new CTestEvent(
            [thread, timer, interval] { thread->GetTimerQueue()->ScheduleTimer(timer, nullptr, interval, 0); }));
    }
    CMNClock::Sleep(CMNTimeValue(2 * 3600, 500000));
    for (auto& thread : threads) {
        thread->Stop();
        EXPECT_EQ(thread->Join(), MN_OK);
    }
    EXPECT_EQ(CMNClock::NowUs() - start, 2 * s_llHour + 500000);
    return logs;
}

TEST(CMNManualClockTest, HoursOfTimersOnThreeThreads_RunTwice_SecondsAndExactlyTheSame)
{
    const long long before = RealMs();
    const std::vector<std::vector<std::string>> first = RunHours();
    const std::vector<std::vector<std::string>> second = RunHours();
    EXPECT_LT(RealMs() - before, 60000);
    EXPECT_EQ(first[0].size(), 7200u / 20 + 7200 / 40);
    EXPECT_EQ(first[1].size(), 7200u / 30 + 7200 / 20);
    EXPECT_EQ(first[2].size(), 7200u / 40 + 7200 / 30);
    EXPECT_EQ(first, second);
}

}  // namespace
}  // namespace mantle
