// What both loops do alike, on working pipes and real waits.
#include "reactor/CPSReactorPoll.h"
#include "reactor/CPSReactorSelect.h"

#include <atomic>
#include <memory>
#include <thread>

#include "mantle/CMNClock.h"
#include "tests/unit/reactor/ReactorSupport.h"
#include "tests/unit/scripted/CLoopThread.h"
#include "tests/unit/scripted/ScriptedStackTest.h"

using namespace uxport;

namespace
{

constexpr int WRITE_END = 102;

const char* WaitName(const CPSReactorPoll*) { return "ps_poll"; }
const char* WaitName(const CPSReactorSelect*) { return "ps_select"; }

template <class Reactor>
class CPSReactorLoopTest : public ScriptedStackTest
{
protected:
    CPSReactorLoopTest() : m_pReactor(std::make_unique<Reactor>())
    {
        m_Stack.EnablePipes();
        m_Stack.SetRecording(false);
    }
    ~CPSReactorLoopTest() override
    {
        m_pReactor.reset();
        EXPECT_EQ(m_Counts.m_nAlive, 0);
    }

    void Post(std::function<void()> function = nullptr)
    {
        EXPECT_EQ(m_pReactor->PostEvent(new CTestEvent(m_Counts,
                                                       [function] {
                                                           if (function)
                                                               function();
                                                           return MN_OK;
                                                       })),
                  MN_OK);
    }
    void PostStop()
    {
        Post([this] { m_pReactor->StopEventLoop(); });
    }
    static const char* Wait() { return WaitName(static_cast<const Reactor*>(nullptr)); }

    CTestEventCounts m_Counts;
    std::unique_ptr<Reactor> m_pReactor;
};

using CReactors = testing::Types<CPSReactorPoll, CPSReactorSelect>;
TYPED_TEST_SUITE(CPSReactorLoopTest, CReactors);

TYPED_TEST(CPSReactorLoopTest, StopEventLoop_OtherThread_EndsTheWait)
{
    CLoopThread loop(*this->m_pReactor);
    EXPECT_EQ(loop.GetOpened(), MN_OK);
    EXPECT_EQ(loop.Stop(), MN_OK);
}

TYPED_TEST(CPSReactorLoopTest, StopEventLoop_NotOpen_OkAndNothingSent)
{
    EXPECT_EQ(this->m_pReactor->StopEventLoop(), MN_OK);
    EXPECT_EQ(this->m_Stack.CountOf("ps_send"), 0u);
}

TYPED_TEST(CPSReactorLoopTest, StopEventLoop_BeforeTheLoop_EndsWithoutAWait)
{
    this->m_pReactor->Open();
    this->m_pReactor->StopEventLoop();
    EXPECT_EQ(this->m_pReactor->RunEventLoop(), MN_OK);
    EXPECT_EQ(this->m_Stack.CountOf(this->Wait()), 0u);
    this->m_pReactor->Close();
}

TYPED_TEST(CPSReactorLoopTest, StopEventLoop_WakeUpFails_OkAllTheSame)
{
    this->m_pReactor->Open();
    this->m_Stack.On("ps_send", WRITE_END).Fails(PS_EPIPE);
    EXPECT_EQ(this->m_pReactor->StopEventLoop(), MN_OK);
    EXPECT_TRUE(this->m_pReactor->IsFlagStopped());
    this->m_pReactor->Close();
}

TYPED_TEST(CPSReactorLoopTest, StopEventLoop_RunAgainAfterwards_NeedsANewStart)
{
    this->m_pReactor->Open();
    this->PostStop();
    EXPECT_EQ(this->m_pReactor->RunEventLoop(), MN_OK);
    EXPECT_EQ(this->m_pReactor->RunEventLoop(), MN_OK);
    this->m_pReactor->SetStartFlag();
    this->PostStop();
    EXPECT_EQ(this->m_pReactor->RunEventLoop(), MN_OK) << "the stop record of before wakes nobody for good";
    EXPECT_EQ(this->m_Counts.m_nFired, 2);
    this->m_pReactor->Close();
}

TYPED_TEST(CPSReactorLoopTest, RunEventLoop_ForeignThread_ReportedAndReturnsOk)
{
    this->m_pReactor->Open();
    std::thread([this] { EXPECT_EQ(this->m_pReactor->RunEventLoop(), MN_OK); }).join();
    EXPECT_EQ(this->m_Stack.CountOf(this->Wait()), 0u);
    this->ExpectReports(1);
    this->m_pReactor->Close();
}

TYPED_TEST(CPSReactorLoopTest, Close_ForeignThread_ReportedAndNothingTouched)
{
    CTestHandler handler(5);
    CTestTimer timer;
    this->m_pReactor->Open();
    this->m_pReactor->RegisterHandler(&handler, READ_MASK);
    this->m_pReactor->ScheduleTimer(&timer, nullptr, CMNTimeValue::s_tvZero, 1);
    this->Post();
    std::thread([this] { EXPECT_EQ(this->m_pReactor->Close(), MN_OK); }).join();
    this->ExpectReports(1);
    EXPECT_EQ(this->m_Counts.m_nDestroyed, 0);
    EXPECT_EQ(this->m_pReactor->ProcessHandleEvent(5, 7, 0, 0, 0), MN_OK);
    EXPECT_EQ(this->m_pReactor->NotifyHandler(&handler, READ_MASK), MN_OK);
    EXPECT_EQ(this->m_pReactor->ProcessTimerTick(), MN_OK);
    EXPECT_EQ(timer.m_nFired, 1);
    EXPECT_EQ(this->m_Stack.CountOf("ps_close"), 0u);
    this->m_pReactor->Close();
}

TYPED_TEST(CPSReactorLoopTest, PostEvent_OtherThreads_EachThreadsOrderIsKept)
{
    constexpr int EACH = 3000;
    CLoopThread loop(*this->m_pReactor);
    std::vector<int> next(4, 0);
    std::atomic<int> wrong{0};
    std::vector<std::thread> posters;
    for (std::size_t poster = 0; poster < next.size(); ++poster) {
        posters.emplace_back([&, poster] {
            for (int i = 0; i < EACH; ++i) {
                this->Post([&next, &wrong, poster, i] {
                    if (next[poster]++ != i)
                        ++wrong;
                });
            }
        });
    }
    for (std::thread& poster : posters)
        poster.join();
    EXPECT_EQ(this->m_pReactor->SendEvent(new CTestEvent(this->m_Counts)), MN_OK);
    EXPECT_EQ(loop.Stop(), MN_OK);
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(next, std::vector<int>(4, EACH));
}

TYPED_TEST(CPSReactorLoopTest, Open_PostsWereMadeBefore_OneRecordAndTheyRun)
{
    this->Post();
    this->Post();
    this->PostStop();
    EXPECT_EQ(this->m_Stack.CountOf("ps_send"), 0u);
    this->m_pReactor->Open();
    EXPECT_EQ(this->m_Stack.CountOf("ps_send", WRITE_END), 1u);
    EXPECT_EQ(this->m_pReactor->RunEventLoop(), MN_OK);
    EXPECT_EQ(this->m_Counts.m_nFired, 3);
    this->m_pReactor->Close();
}

TYPED_TEST(CPSReactorLoopTest, Open_NothingPosted_NoRecord)
{
    this->m_pReactor->Open();
    EXPECT_EQ(this->m_Stack.CountOf("ps_send"), 0u);
    this->m_pReactor->Close();
}

TYPED_TEST(CPSReactorLoopTest, Open_PostsOfAnotherThreadAllAround_NoneIsForgotten)
{
    for (int round = 0; round < 30; ++round) {
        TypeParam reactor;
        CTestEventCounts counts;
        std::atomic<bool> end{false};
        std::atomic<int> posted{0};
        std::thread poster([&] {
            while (!end.load()) {
                reactor.PostEvent(new CTestEvent(counts));
                ++posted;
            }
        });
        while (posted.load() < round)
            std::this_thread::yield();
        CLoopThread loop(reactor);
        const int soFar = posted.load();
        while (posted.load() < soFar + 50)
            std::this_thread::yield();
        end.store(true);
        poster.join();
        // No post behind the last one: nothing but its own record, or one before it, makes it run.
        while (counts.m_nFired != posted.load())
            std::this_thread::yield();
        loop.Stop();
        EXPECT_EQ(counts.m_nAlive, 0);
    }
}

TYPED_TEST(CPSReactorLoopTest, Events_250000AtOnce_ATimerFiresInBetween)
{
    constexpr int EVENTS = 250000;
    this->m_pReactor->Open();
    int firedAtTimer = 0;
    CTestTimer timer([&] { firedAtTimer = this->m_Counts.m_nFired; });
    this->m_pReactor->ScheduleTimer(&timer, nullptr, CMNTimeValue(3600, 0), 1);
    for (int i = 0; i < EVENTS; ++i) {
        this->Post(i != 5000 ? std::function<void()>() : [&] {
            this->m_pReactor->ScheduleTimer(&timer, nullptr, CMNTimeValue::s_tvZero, 1);
        });
    }
    this->PostStop();
    EXPECT_EQ(this->m_pReactor->RunEventLoop(), MN_OK);
    EXPECT_EQ(this->m_Counts.m_nFired, EVENTS + 1);
    EXPECT_EQ(timer.m_nFired, 1);
    EXPECT_GT(firedAtTimer, 5000);
    EXPECT_LT(firedAtTimer, EVENTS);
    this->m_pReactor->Close();
}

TYPED_TEST(CPSReactorLoopTest, Events_OneThatKeepsPostingItself_TimersAndHandlesAreServed)
{
    this->m_pReactor->Open();
    CTestHandler handler(900);
    this->m_Stack.SetReady(900, PS_POLLIN);
    int inputs = 0;
    handler.m_Input = [&] {
        handler.TakeCalls();
        ++inputs;
        return 0;
    };
    this->m_pReactor->RegisterHandler(&handler, READ_MASK);
    CTestTimer timer;
    this->m_pReactor->ScheduleTimer(&timer, nullptr, CMNTimeValue(0, 1), 0);
    std::function<void()> again = [&] {
        if (timer.m_nFired < 10 || inputs < 10)
            this->Post(again);
        else
            this->m_pReactor->StopEventLoop();
    };
    this->Post(again);
    EXPECT_EQ(this->m_pReactor->RunEventLoop(), MN_OK);
    EXPECT_GE(timer.m_nFired, 10);
    EXPECT_GE(inputs, 10);
    this->m_pReactor->Close();
}

TYPED_TEST(CPSReactorLoopTest, NotifyHandler_20000InOneEvent_FullPipeIsToldAndTheLoopGoesOn)
{
    this->m_pReactor->Open();
    CTestHandler handler(900);
    int inputs = 0;
    handler.m_Input = [&] {
        handler.TakeCalls();
        ++inputs;
        return 0;
    };
    this->m_pReactor->RegisterHandler(&handler, READ_MASK);
    int accepted = 0;
    int refused = 0;
    bool ranAfter = false;
    this->Post([&] {
        for (int i = 0; i < 20000; ++i) {
            const MNResult result = this->m_pReactor->NotifyHandler(&handler, READ_MASK);
            if (result == MN_OK)
                ++accepted;
            else if (result == MN_ERROR_UNEXPECTED)
                ++refused;
        }
        // Its wake-up finds no room either.
        this->Post([&] { ranAfter = true; });
    });
    CTestTimer timer([&] {
        if (inputs == accepted && ranAfter)
            this->m_pReactor->StopEventLoop();
    });
    this->m_pReactor->ScheduleTimer(&timer, nullptr, CMNTimeValue(0, 1000), 0);
    EXPECT_EQ(this->m_pReactor->RunEventLoop(), MN_OK);
    EXPECT_EQ(accepted + refused, 20000);
    EXPECT_GE(accepted, 4094);
    EXPECT_LE(accepted, 4096);
    EXPECT_EQ(inputs, accepted) << "no record torn or lost";
    EXPECT_TRUE(ranAfter);
    this->m_pReactor->Close();
}

TYPED_TEST(CPSReactorLoopTest, NotifyHandler_OtherThread_HandlerIsTreatedAsReady)
{
    CTestHandler handler(900);
    std::atomic<int> outputs{0};
    handler.m_Output = [&] { return outputs++ == 9 ? -1 : 0; };
    CLoopThread loop(*this->m_pReactor);
    this->m_pReactor->SendEvent(new CTestCall([&] { this->m_pReactor->RegisterHandler(&handler, WRITE_MASK); }));
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(this->m_pReactor->NotifyHandler(&handler, WRITE_MASK), MN_OK);
    EXPECT_EQ(this->m_pReactor->NotifyHandler(&handler, WRITE_MASK | CLOSE_MASK), MN_OK);
    while (outputs != 10)
        std::this_thread::yield();
    this->m_pReactor->SendEvent(new CTestEvent(this->m_Counts));
    loop.Stop();
    EXPECT_EQ(outputs, 10) << "gone after the failure; later records find nothing";
    EXPECT_EQ(handler.TakeCalls().back(), "close 900,8");
}

TYPED_TEST(CPSReactorLoopTest, SendEvent_LoopThread_ResultAndThread)
{
    CLoopThread loop(*this->m_pReactor);
    std::atomic<unsigned long> ranOn{0};
    EXPECT_EQ(this->m_pReactor->SendEvent(new CTestEvent(this->m_Counts,
                                                         [&] {
                                                             ranOn = mantle::CMNThreadManager::GetThreadSelfId();
                                                             return MN_ERROR_PARTIAL_DATA;
                                                         })),
              MN_ERROR_PARTIAL_DATA);
    EXPECT_EQ(ranOn, loop.GetId());
    EXPECT_EQ(this->m_pReactor->SendEvent(nullptr), MN_ERROR_INVALID_ARG);
    // From inside an event it runs in place.
    EXPECT_EQ(this->m_pReactor->SendEvent(new CTestEvent(
                  this->m_Counts,
                  [&] {
                      return this->m_pReactor->SendEvent(
                          new CTestEvent(this->m_Counts, [] { return MN_ERROR_FOUND; }));
                  })),
              MN_ERROR_FOUND);
    loop.Stop();
}

TYPED_TEST(CPSReactorLoopTest, SendEvent_ThousandsFromFourThreads_EachGetsItsOwnResult)
{
    constexpr MNResult EACH = 2000;
    CLoopThread loop(*this->m_pReactor);
    std::atomic<int> wrong{0};
    std::vector<std::thread> senders;
    for (MNResult sender = 0; sender < 4; ++sender) {
        senders.emplace_back([&, sender] {
            for (MNResult i = 0; i < EACH; ++i) {
                const MNResult expected = sender * EACH + i;
                if (this->m_pReactor->SendEvent(
                        new CTestEvent(this->m_Counts, [expected] { return expected; })) != expected)
                    ++wrong;
            }
        });
    }
    for (std::thread& sender : senders)
        sender.join();
    loop.Stop();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(this->m_Counts.m_nFired, static_cast<int>(4 * EACH));
}

TYPED_TEST(CPSReactorLoopTest, Close_SenderStillWaiting_IsWokenWithNotAvailable)
{
    this->m_pReactor->Open();
    MNResult result = MN_OK;
    std::thread sender([&] { result = this->m_pReactor->SendEvent(new CTestEvent(this->m_Counts)); });
    while (this->m_pReactor->GetPendingEventsCount() == 0)
        std::this_thread::yield();
    this->m_pReactor->Close();
    sender.join();
    EXPECT_EQ(result, MN_ERROR_NOT_AVAILABLE);
    EXPECT_EQ(this->m_Counts.m_nDestroyed, 1);
    EXPECT_EQ(this->m_Counts.m_nFired, 0);
}

TYPED_TEST(CPSReactorLoopTest, Close_EventsThatPostWhenDestroyed_NothingLeft)
{
    this->m_pReactor->Open();
    const auto post = [this] { this->Post(); };
    this->m_pReactor->PostEvent((new CTestEvent(this->m_Counts))->AtDelete(post));
    this->m_pReactor->PostEvent(new CTestEvent(this->m_Counts, nullptr, post));
    this->m_pReactor->Close();
    EXPECT_EQ(this->m_Counts.m_nDestroyed, 4);
    EXPECT_EQ(this->m_Counts.m_nAlive, 0);
}

TYPED_TEST(CPSReactorLoopTest, Destructor_NeverOpened_DestroysEventsThatPostAgain)
{
    TypeParam* reactor = this->m_pReactor.get();
    const auto post = [this, reactor] { reactor->PostEvent(new CTestEvent(this->m_Counts)); };
    reactor->PostEvent((new CTestEvent(this->m_Counts))->AtDelete(post));
    this->m_pReactor.reset();
    EXPECT_EQ(this->m_Counts.m_nDestroyed, 2);
    EXPECT_EQ(this->m_Counts.m_nAlive, 0);
}

TYPED_TEST(CPSReactorLoopTest, Timers_OneHourAhead_WakeTheWait)
{
    mantle::CMNManualClock clock;
    CTestTimer timer([this] { this->m_pReactor->StopEventLoop(); });
    const CMNTimeValue before = CMNTimeValue::GetMonotonic();
    this->Post([&] { this->m_pReactor->ScheduleTimer(&timer, nullptr, CMNTimeValue(3600, 0), 1); });
    CLoopThread loop(*this->m_pReactor);
    EXPECT_EQ(loop.Join(), MN_OK);
    EXPECT_EQ(timer.m_nFired, 1);
    EXPECT_GE(CMNTimeValue::GetMonotonic() - before, CMNTimeValue(3600, 0));
}

TYPED_TEST(CPSReactorLoopTest, WaitFails_LoopThread_EndsWithFailure)
{
    this->m_Stack.On(this->Wait()).Fails(PS_ENOMEM);
    CLoopThread loop(*this->m_pReactor);
    EXPECT_EQ(loop.Join(), MN_ERROR_FAILURE);
}

TYPED_TEST(CPSReactorLoopTest, Handler_ReadyForEver_EventsAndStopStillCome)
{
    CTestHandler handler(900);
    std::atomic<int> inputs{0};
    handler.m_Input = [&] {
        handler.TakeCalls();
        ++inputs;
        return 0;
    };
    this->m_Stack.SetReady(900, PS_POLLIN);
    this->Post([&] { this->m_pReactor->RegisterHandler(&handler, READ_MASK); });
    CLoopThread loop(*this->m_pReactor);
    while (inputs < 100)
        std::this_thread::yield();
    EXPECT_EQ(this->m_pReactor->SendEvent(new CTestEvent(this->m_Counts)), MN_OK);
    EXPECT_EQ(loop.Stop(), MN_OK);
}

}  // namespace
