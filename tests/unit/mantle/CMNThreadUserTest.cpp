#include "mantle/CMNThreadUser.h"

#include <memory>
#include <thread>

#include "MantleTest.h"
#include "mantle/CMNClock.h"

namespace mantle
{
namespace
{

TEST(CMNThreadUserTest, Running_EventsPosted_RunInOrderWhateverThePriority)
{
    CMNThreadUser thread;
    ASSERT_EQ(thread.Create(100), MN_OK);
    std::vector<int> order;
    CTestEvent::CCounts counts;
    constexpr IMNEventQueue::EPriority priorities[] = {IMNEventQueue::EPRIORITY_LOW, IMNEventQueue::EPRIORITY_HIGH,
                                                       IMNEventQueue::EPRIORITY_NORMAL};
    for (int index = 0; index < 300; ++index) {
        EXPECT_EQ(thread.PostEvent(new CTestEvent([&order, index] { order.push_back(index); }, &counts),
                                   priorities[index % 3]),
                  MN_OK);
    }
    EXPECT_EQ(thread.SendEvent(new CTestEvent), MN_OK);
    ASSERT_EQ(order.size(), 300u);
    for (int index = 0; index < 300; ++index)
        EXPECT_EQ(order[static_cast<std::size_t>(index)], index);
    EXPECT_EQ(counts.m_nFired, 300);
    EXPECT_EQ(counts.m_nDestroyed, 300);
    EXPECT_EQ(thread.GetEventQueue()->GetPendingEventsCount(), 0u);
    EXPECT_EQ(thread.Stop(), MN_OK);
    EXPECT_EQ(thread.Join(), MN_OK);
}

TEST(CMNThreadUserTest, NullEvent_PostAndSend_InvalidArgument)
{
    CMNThreadUser thread;
    EXPECT_EQ(thread.GetEventQueue()->PostEvent(nullptr), MN_ERROR_INVALID_ARG);
    EXPECT_EQ(thread.GetEventQueue()->SendEvent(nullptr), MN_ERROR_INVALID_ARG);
}

TEST(CMNThreadUserTest, Sent_FromAnotherThread_RunsThereAndBringsTheResultBack)
{
    CMNThreadUser thread;
    ASSERT_EQ(thread.Create(100), MN_OK);
    unsigned long ranOn = 0;
    CTestEvent::CCounts counts;
    EXPECT_EQ(thread.SendEvent(
                  new CTestEvent([&] { ranOn = CMNThreadManager::GetThreadSelfId(); }, &counts, MN_ERROR_PARTIAL_DATA)),
              MN_ERROR_PARTIAL_DATA);
    EXPECT_EQ(ranOn, thread.GetThreadId());
    EXPECT_EQ(counts.m_nFired, 1);
    EXPECT_EQ(counts.m_nDestroyed, 1);
}

TEST(CMNThreadUserTest, Sent_OnTheThreadItself_RunsInPlaceBeforeWhatIsPending)
{
    CMNThreadUser thread;
    ASSERT_EQ(thread.Create(100), MN_OK);
    std::vector<int> order;
    thread.SendEvent(new CTestEvent([&] {
        thread.PostEvent(new CTestEvent([&order] { order.push_back(2); }));
        EXPECT_EQ(thread.SendEvent(new CTestEvent([&order] { order.push_back(1); }, nullptr, MN_ERROR_FOUND)),
                  MN_ERROR_FOUND);
        EXPECT_EQ(thread.GetEventQueue()->GetPendingEventsCount(), 1u);
    }));
    thread.SendEvent(new CTestEvent);
    EXPECT_THAT(order, testing::ElementsAre(1, 2));
}

TEST(CMNThreadUserTest, ThousandsOfSends_FourThreads_EachRunsOnce)
{
    CMNThreadUser thread;
    ASSERT_EQ(thread.Create(100), MN_OK);
    int count = 0;  // the user thread's alone
    std::vector<std::thread> senders;
    for (int index = 0; index < 4; ++index) {
        senders.emplace_back([&] {
            for (int step = 0; step < 1000; ++step)
                EXPECT_EQ(thread.SendEvent(new CTestEvent([&count] { ++count; })), MN_OK);
        });
    }
    for (std::thread& sender : senders)
        sender.join();
    thread.SendEvent(new CTestEvent([&count] { EXPECT_EQ(count, 4000); }));
}

TEST(CMNThreadUserTest, QueueTurnsNonEmpty_ManyPosters_NoWakeUpIsLost)
{
    CMNThreadUser thread;
    ASSERT_EQ(thread.Create(100), MN_OK);
    CTestEvent::CCounts counts;
    std::vector<std::thread> posters;
    for (int index = 0; index < 4; ++index) {
        posters.emplace_back([&] {
            for (int step = 0; step < 3000; ++step) {
                thread.PostEvent(new CTestEvent({}, &counts));
                if (step % 100 == 0)
                    thread.SendEvent(new CTestEvent);
            }
        });
    }
    for (std::thread& poster : posters)
        poster.join();
    thread.SendEvent(new CTestEvent);
    EXPECT_EQ(counts.m_nFired, 12000);
    EXPECT_EQ(counts.m_nDestroyed, 12000);
}

TEST(CMNThreadUserTest, RunEnded_PostAndSend_DestroyedAndRefused)
{
    CMNThreadUser thread;
    ASSERT_EQ(thread.Create(100), MN_OK);
    thread.Stop();
    thread.Join();
    CTestEvent::CCounts counts;
    EXPECT_EQ(thread.PostEvent(new CTestEvent({}, &counts)), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(counts.m_nDestroyed, 1);
    EXPECT_EQ(thread.SendEvent(new CTestEvent({}, &counts)), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(counts.m_nDestroyed, 2);
    EXPECT_EQ(counts.m_nFired, 0);
    CTestTimer timer;
    EXPECT_EQ(thread.GetTimerQueue()->ScheduleTimer(&timer, nullptr, CMNTimeValue(), 1), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(thread.GetTimerQueue()->CancelTimer(&timer), MN_ERROR_NOT_INITIALIZED);
}

TEST(CMNThreadUserTest, StoppedWithEventsPending_RunEnds_DestroyedOnThatThreadWithoutRunning)
{
    CMNThreadUser thread;
    ASSERT_EQ(thread.Create(100), MN_OK);
    CTestEvent::CCounts counts;
    unsigned long destroyedOn = 0;
    thread.SendEvent(new CTestEvent([&] {
        for (int index = 0; index < 10; ++index)
            thread.PostEvent(new CTestEvent({}, &counts));
        thread.PostEvent(new CAtDestroy([&] { destroyedOn = CMNThreadManager::GetThreadSelfId(); }));
        thread.Stop();
    }));
    thread.Join();
    EXPECT_EQ(counts.m_nFired, 0);
    EXPECT_EQ(counts.m_nDestroyed, 10);
    EXPECT_EQ(destroyedOn, thread.GetThreadId());
}

TEST(CMNThreadUserTest, SenderWaits_QueueCloses_SenderIsWokenWithNotInitialised)
{
    CMNThreadUser thread;
    ASSERT_EQ(thread.Create(100), MN_OK);
    CMNEventThread go(1, 0);
    thread.PostEvent(new CTestEvent([&] {
        go.Wait();
        thread.Stop();
    }));
    CTestEvent::CCounts counts;
    std::thread sender([&] { EXPECT_EQ(thread.SendEvent(new CTestEvent({}, &counts)), MN_ERROR_NOT_INITIALIZED); });
    while (thread.GetEventQueue()->GetPendingEventsCount() == 0)
        std::this_thread::yield();
    go.Signal();
    sender.join();
    EXPECT_EQ(counts.m_nFired, 0);
    EXPECT_EQ(counts.m_nDestroyed, 1);
    thread.Join();
}

TEST(CMNThreadUserTest, DestroyingPostsAgain_QueueCloses_GoesOnUntilEmptyOutsideTheLock)
{
    const CAdopted adopted;
    CMNThreadUser* thread = adopted.Get();
    int destroyed = 0;
    std::function<void()> again = [&] {
        EXPECT_EQ(thread->GetEventQueue()->GetPendingEventsCount(), 0u);
        if (++destroyed < 5) {
            EXPECT_EQ(thread->PostEvent(new CAtDestroy(again)), MN_ERROR_NOT_INITIALIZED);
        }
    };
    thread->PostEvent(new CAtDestroy(again));
    thread->CloseQueue();
    EXPECT_EQ(destroyed, 5);
}

TEST(CMNThreadUserTest, DestroyingPostsAgainAndSoOn_QueueCloses_EndsWithoutDeepRecursion)
{
    const CAdopted adopted;
    int left = 100000;
    std::function<void()> again = [&] {
        if (--left > 0)
            adopted.Get()->PostEvent(new CAtDestroy(again));
    };
    adopted.Get()->PostEvent(new CAtDestroy(again));
    adopted.Get()->CloseQueue();
    EXPECT_EQ(left, 0);
}

TEST(CMNThreadUserTest, FourThreadsPostWithoutAPause_Stopped_RunEndsAndNothingIsLeft)
{
    CTestEvent::CCounts counts;
    CMNThreadUser thread;
    ASSERT_EQ(thread.Create(100), MN_OK);
    std::atomic<int> made{0};
    std::vector<std::thread> posters;
    for (int i = 0; i < 4; ++i) {
        posters.emplace_back([&] {
            do {
                ++made;
            } while (thread.PostEvent(new CTestEvent({}, &counts)) == MN_OK);
        });
    }
    while (counts.m_nFired == 0)
        std::this_thread::yield();
    CMNTimeValue limit = s_tvLimit;
    EXPECT_EQ(thread.Stop(&limit), MN_OK);
    for (std::thread& poster : posters)
        poster.join();
    EXPECT_EQ(counts.m_nDestroyed, made);
    EXPECT_EQ(thread.GetEventQueue()->GetPendingEventsCount(), 0u);
}

TEST(CMNThreadUserTest, Timer_Scheduled_FiresOnTheThread)
{
    CMNManualClock clock;
    CMNClockParticipant participant;
    CMNThreadUser thread;
    ASSERT_EQ(thread.Create(100), MN_OK);
    unsigned long firedOn = 0;
    CTestTimer timer([&] { firedOn = CMNThreadManager::GetThreadSelfId(); });
    thread.SendEvent(new CTestEvent(
        [&] { EXPECT_EQ(thread.GetTimerQueue()->ScheduleTimer(&timer, nullptr, CMNTimeValue(5, 0), 2), MN_OK); }));
    CMNClock::Sleep(CMNTimeValue(60, 0));
    EXPECT_EQ(timer.m_nFired, 2);
    EXPECT_EQ(firedOn, thread.GetThreadId());
}

TEST(CMNThreadUserTest, TimerOfAnotherThread_Scheduled_ReportedAndNothingChanges)
{
    const CCatchReports reports;
    CMNThreadUser thread;
    ASSERT_EQ(thread.Create(100), MN_OK);
    CTestTimer timer;
    EXPECT_EQ(thread.GetTimerQueue()->ScheduleTimer(&timer, nullptr, CMNTimeValue(), 1), MN_ERROR_UNEXPECTED);
    EXPECT_EQ(thread.GetTimerQueue()->CancelTimer(&timer), MN_ERROR_UNEXPECTED);
    EXPECT_EQ(thread.GetTimerQueue()->ScheduleTimer(nullptr, nullptr, CMNTimeValue(), 1), MN_ERROR_INVALID_ARG);
    EXPECT_EQ(thread.GetTimerQueue()->CancelTimer(nullptr), MN_ERROR_INVALID_ARG);
    EXPECT_EQ(reports.Reports().size(), 2u);
    thread.Stop();
    thread.Join();
    EXPECT_EQ(timer.m_nFired, 0);
}

TEST(CMNThreadUserTest, SelfPostingEvent_BesideATimer_DoesNotStarveIt)
{
    CMNThreadUser thread;
    ASSERT_EQ(thread.Create(100), MN_OK);
    std::atomic<bool> fired{false};
    CTestTimer timer([&] { fired = true; });
    std::function<void()> again = [&] {
        if (!fired)
            thread.PostEvent(new CTestEvent(again));
    };
    thread.SendEvent(new CTestEvent([&] {
        thread.GetTimerQueue()->ScheduleTimer(&timer, nullptr, CMNTimeValue(0, 20000), 1);
        again();
    }));
    const long long limit = CMNClock::NowUs() + 20000000;
    while (!fired && CMNClock::NowUs() < limit)
        std::this_thread::yield();
    EXPECT_TRUE(fired);
}

TEST(CMNThreadUserTest, StopBeforeTheLoopRuns_Created_EndsAtOnce)
{
    CMNThreadUser thread;
    thread.Stop();
    ASSERT_EQ(thread.Create(100), MN_OK);
    EXPECT_EQ(thread.JoinFor(s_tvLimit), MN_OK);
}

TEST(CMNThreadUserTest, TimedStop_ThreadBusy_BoundedThenDone)
{
    CMNThreadUser thread;
    ASSERT_EQ(thread.Create(100), MN_OK);
    CMNEventThread busy(1, 0);
    CMNEventThread go(1, 0);
    thread.PostEvent(new CTestEvent([&] {
        busy.Signal();
        go.Wait();
    }));
    busy.Wait();
    CMNTimeValue bound(0, 5000);
    EXPECT_EQ(thread.Stop(&bound), MN_ERROR_NOT_FOUND);
    go.Signal();
    bound = s_tvLimit;
    EXPECT_EQ(thread.Stop(&bound), MN_OK);
}

TEST(CMNThreadUserTest, RunningObject_Deleted_StopsAndJoinsFirst)
{
    CTestEvent::CCounts counts;
    {
        CMNThreadUser thread;
        ASSERT_EQ(thread.Create(100), MN_OK);
        for (int index = 0; index < 100; ++index)
            thread.PostEvent(new CTestEvent({}, &counts));
    }
    EXPECT_EQ(counts.m_nDestroyed, 100);
}

TEST(CMNThreadUserTest, NeverStarted_Deleted_PendingEventsDestroyedAndTimersNotFired)
{
    CTestEvent::CCounts counts;
    CTestTimer timer;
    {
        CMNThreadUser thread;
        thread.PostEvent(new CTestEvent({}, &counts));
        thread.GetTimerQueue()->ScheduleTimer(&timer, nullptr, CMNTimeValue(), 1);
    }
    EXPECT_EQ(counts.m_nDestroyed, 1);
    EXPECT_EQ(counts.m_nFired, 0);
    EXPECT_EQ(timer.m_nFired, 0);
}

TEST(CMNThreadUserTest, PostedBeforeCreate_Created_Runs)
{
    CMNThreadUser thread;
    CTestEvent::CCounts counts;
    thread.PostEvent(new CTestEvent({}, &counts));
    ASSERT_EQ(thread.Create(100), MN_OK);
    thread.SendEvent(new CTestEvent);
    EXPECT_EQ(counts.m_nFired, 1);
}

TEST(CMNThreadUserAdoptedTest, Main_AdoptedTwice_SameObjectOfTypeMain)
{
    const CAdopted adopted;
    CMNThreadUser* thread = adopted.Get();
    ASSERT_NE(thread, nullptr);
    EXPECT_EQ(CMNThreadUser::AdoptCurrentThread(), thread);
    EXPECT_EQ(thread->GetThreadType(), CMNThreadManager::TT_MAIN);
    EXPECT_EQ(CMNThreadManager::Instance()->GetThread(CMNThreadManager::TT_MAIN), thread);
    EXPECT_EQ(CMNThreadManager::Instance()->GetThread(CMNThreadManager::TT_CURRENT), thread);
    EXPECT_TRUE(thread->IsUserThread());
}

TEST(CMNThreadUserAdoptedTest, ThreadOfAnotherObject_Adopted_Null)
{
    CTestThread thread([] { EXPECT_EQ(CMNThreadUser::AdoptCurrentThread(), nullptr); });
    ASSERT_EQ(thread.Create(100), MN_OK);
    thread.Join();
}

TEST(CMNThreadUserAdoptedTest, Loop_StoppedFromAnEvent_ReturnsAndMayRunAgain)
{
    const CAdopted adopted;
    CMNThreadUser* thread = adopted.Get();
    std::vector<int> order;
    thread->PostEvent(new CTestEvent([&] {
        order.push_back(1);
        thread->Stop();
    }));
    thread->PostEvent(new CTestEvent([&order] { order.push_back(2); }));
    EXPECT_EQ(thread->RunEventLoop(), MN_OK);
    EXPECT_THAT(order, testing::ElementsAre(1));
    EXPECT_EQ(thread->GetEventQueue()->GetPendingEventsCount(), 1u);
    EXPECT_EQ(thread->PostEvent(new CTestEvent([&] {
        order.push_back(3);
        thread->Stop();
    })),
              MN_OK);
    EXPECT_EQ(thread->RunEventLoop(), MN_OK);
    EXPECT_THAT(order, testing::ElementsAre(1, 2, 3));
}

TEST(CMNThreadUserAdoptedTest, Loop_StoppedFromAnotherThread_Returns)
{
    const CAdopted adopted;
    CMNThreadUser* thread = adopted.Get();
    std::thread stopper([thread] {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        thread->Stop();
    });
    EXPECT_EQ(thread->RunEventLoop(), MN_OK);
    stopper.join();
}

TEST(CMNThreadUserAdoptedTest, Loop_RunElsewhereOrInside_Refused)
{
    const CAdopted adopted;
    CMNThreadUser* thread = adopted.Get();
    std::thread other([thread] {
        EXPECT_EQ(thread->RunEventLoop(), MN_ERROR_FAILURE);
        EXPECT_EQ(thread->RunPending(), 0u);
    });
    other.join();
    thread->PostEvent(new CTestEvent([thread] {
        EXPECT_EQ(thread->RunEventLoop(), MN_ERROR_UNEXPECTED);
        thread->Stop();
    }));
    EXPECT_EQ(thread->RunEventLoop(), MN_OK);
}

TEST(CMNThreadUserAdoptedTest, Loop_OnlyATimer_FiresUnderTheHandMovedClock)
{
    CMNManualClock clock;
    const CAdopted adopted;
    CMNThreadUser* thread = adopted.Get();
    const CMNTimeValue start = CMNClock::Now();
    CTestTimer timer([thread] { thread->Stop(); });
    thread->GetTimerQueue()->ScheduleTimer(&timer, nullptr, CMNTimeValue(3600, 0), 1);
    EXPECT_EQ(thread->RunEventLoop(), MN_OK);
    EXPECT_EQ(CMNClock::Now() - start, CMNTimeValue(3600, 0));
}

TEST(CMNThreadUserAdoptedTest, RunPending_SingleStepped_OneAtATimeEventsFirst)
{
    const CAdopted adopted;
    CMNThreadUser* thread = adopted.Get();
    std::vector<int> order;
    CTestTimer timer([&order] { order.push_back(9); });
    thread->GetTimerQueue()->ScheduleTimer(&timer, nullptr, CMNTimeValue(), 1);
    thread->PostEvent(new CTestEvent([&order] { order.push_back(1); }));
    thread->PostEvent(new CTestEvent([&order] { order.push_back(2); }));
    EXPECT_EQ(thread->RunPending(1), 1u);
    EXPECT_THAT(order, testing::ElementsAre(1));
    EXPECT_EQ(thread->RunPending(1), 1u);
    EXPECT_THAT(order, testing::ElementsAre(1, 2));
    EXPECT_EQ(thread->RunPending(1), 1u);
    EXPECT_THAT(order, testing::ElementsAre(1, 2, 9));
    EXPECT_EQ(thread->RunPending(1), 0u);
}

TEST(CMNThreadUserAdoptedTest, RunPending_EventPostsAnother_LeftForTheNextCall)
{
    const CAdopted adopted;
    CMNThreadUser* thread = adopted.Get();
    CTestEvent::CCounts counts;
    thread->PostEvent(new CTestEvent([&] { thread->PostEvent(new CTestEvent({}, &counts)); }));
    EXPECT_EQ(thread->RunPending(), 1u);
    EXPECT_EQ(counts.m_nFired, 0);
    EXPECT_EQ(thread->RunPending(), 1u);
    EXPECT_EQ(counts.m_nFired, 1);
}

TEST(CMNThreadUserAdoptedTest, QueueClosed_PostedAndSent_DestroyedAndRefused)
{
    const CAdopted adopted;
    CMNThreadUser* thread = adopted.Get();
    CTestEvent::CCounts counts;
    thread->PostEvent(new CTestEvent({}, &counts));
    thread->CloseQueue();
    EXPECT_EQ(counts.m_nDestroyed, 1);
    EXPECT_EQ(thread->PostEvent(new CTestEvent({}, &counts)), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(thread->SendEvent(new CTestEvent({}, &counts)), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(counts.m_nDestroyed, 3);
    EXPECT_EQ(counts.m_nFired, 0);
}

TEST(CMNThreadUserAdoptedTest, PlainThreadAdopted_Ends_QueueDestroysAndRefusesAndTheObjectStays)
{
    CMNThreadUser* thread = nullptr;
    CTestEvent::CCounts counts;
    std::thread plain([&] {
        thread = CMNThreadUser::AdoptCurrentThread();
        EXPECT_NE(thread->GetThreadType(), CMNThreadManager::TT_MAIN);
        thread->PostEvent(new CTestEvent({}, &counts));
    });
    plain.join();
    ASSERT_NE(thread, nullptr);
    EXPECT_EQ(counts.m_nDestroyed, 1);
    EXPECT_FALSE(thread->IsRunning());
    EXPECT_EQ(thread->PostEvent(new CTestEvent({}, &counts)), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(counts.m_nDestroyed, 2);
    EXPECT_EQ(counts.m_nFired, 0);
}

TEST(CMNThreadUserAdoptedTest, Idle_NotInALoop_WaitLoopLeftReturnsAtOnce)
{
    const CAdopted adopted;
    CMNThreadUser* thread = adopted.Get();
    EXPECT_EQ(thread->WaitLoopLeft(CMNTimeValue::s_tvZero), MN_OK);
    thread->PostEvent(
        new CTestEvent([thread] { EXPECT_EQ(thread->WaitLoopLeft(CMNTimeValue::s_tvZero), MN_ERROR_NOT_FOUND); }));
    EXPECT_EQ(thread->RunPending(), 1u);
}

}  // namespace
}  // namespace mantle
