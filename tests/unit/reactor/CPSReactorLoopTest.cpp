// What both loops do alike, on working pipes and real waits.
#include "reactor/CPSReactorPoll.h"
#include "reactor/CPSReactorSelect.h"

#include <atomic>
#include <thread>

#include "mantle/CMNClock.h"
#include "tests/unit/reactor/ReactorLoopSupport.h"
#include "tests/unit/reactor/ReactorSupport.h"
#include "tests/unit/scripted/CLoopThread.h"

using namespace uxport;

namespace
{

template <class Reactor>
class CPSReactorLoopTest : public CReactorLoopTestT<Reactor>
{
};

TYPED_TEST_SUITE(CPSReactorLoopTest, CReactors, CReactorNames);

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
    this->m_Stack.On("ps_send", this->WRITE_END).Fails(PS_EPIPE);
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

TYPED_TEST(CPSReactorLoopTest, NotifyHandler_WhileTheLoopCloses_OneOfItsCodes)
{
    std::atomic<bool> end{false};
    std::atomic<int> notified{0};
    CTestHandler handler(900);
    CLoopThread loop(*this->m_pReactor);
    std::thread other([&] {
        while (!end.load()) {
            const MNResult result = this->m_pReactor->NotifyHandler(&handler, READ_MASK);
            EXPECT_TRUE(result == MN_OK || result == MN_ERROR_NOT_INITIALIZED || result == MN_ERROR_UNEXPECTED);
            ++notified;
        }
    });
    while (notified < 100)
        std::this_thread::yield();
    EXPECT_EQ(loop.Stop(), MN_OK);
    end.store(true);
    other.join();
    EXPECT_EQ(this->m_pReactor->NotifyHandler(&handler, READ_MASK), MN_ERROR_NOT_INITIALIZED);
}

}  // namespace
