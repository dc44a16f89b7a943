#include "uxport/CPSTimerWrapperID.h"

#include <functional>
#include <memory>
#include <thread>

#include "mantle/CMNClock.h"
#include "mantle/CMNThreadManager.h"
#include "tests/unit/reactor/ReactorSupport.h"
#include "tests/unit/scripted/ScriptedStackTest.h"

using namespace uxport;

namespace
{

// Keeps what it is asked.
class CTestTimerQueue : public IMNTimerQueue
{
public:
    MNResult ScheduleTimer(IMNTimerHandler* handler, void* arg, const CMNTimeValue& interval,
                           unsigned long count) override
    {
        m_pHandler = handler;
        m_pArg = arg;
        m_Calls.push_back("schedule " + std::to_string(interval.GetTotalInUsec()) + "us x" + std::to_string(count));
        return m_dwResult;
    }
    MNResult CancelTimer(IMNTimerHandler* handler) override
    {
        m_pHandler = handler;
        m_Calls.emplace_back("cancel");
        return m_dwResult;
    }
    CTexts TakeCalls() { return std::exchange(m_Calls, CTexts()); }

    MNResult m_dwResult = MN_OK;
    IMNTimerHandler* m_pHandler = nullptr;
    void* m_pArg = nullptr;

private:
    CTexts m_Calls;
};

class CTestTimerSink : public IPSTimerWrapperIDSink
{
public:
    void OnTimer(CPSTimerWrapperID* timer) override
    {
        ++m_nTimes;
        m_pTimer = timer;
        if (m_Function)
            m_Function();
    }
    ~CTestTimerSink() override = default;

    int m_nTimes = 0;
    CPSTimerWrapperID* m_pTimer = nullptr;
    std::function<void()> m_Function;
};

class CPSTimerWrapperIDTest : public ScriptedStackTest
{
protected:
    CPSTimerWrapperIDTest() { m_Thread.UseTimerQueue(&m_Queue); }

    CTestTimerQueue m_Queue;
    CTestTimerSink m_Sink;
};

const CMNTimeValue INTERVAL(1, 500);

TEST_F(CPSTimerWrapperIDTest, Cancel_NeverScheduled_OkAndNoQueueTouched)
{
    {
        CPSTimerWrapperID timer;
        EXPECT_EQ(timer.Cancel(), MN_OK);
    }
    EXPECT_EQ(m_Queue.TakeCalls(), CTexts());
}

TEST_F(CPSTimerWrapperIDTest, Schedule_ThreadWithoutObject_NullPointerAndNotScheduled)
{
    std::thread([this] {
        CPSTimerWrapperID timer;
        EXPECT_EQ(timer.Schedule(&m_Sink, INTERVAL, 1), MN_ERROR_NULL_POINTER);
        EXPECT_EQ(timer.Cancel(), MN_OK) << "not 10005: nothing is scheduled";
    }).join();
    EXPECT_EQ(m_Queue.TakeCalls(), CTexts());
}

TEST_F(CPSTimerWrapperIDTest, Schedule_ThreadWithoutTimerQueue_NullPointerUntilItHasOne)
{
    m_Thread.UseTimerQueue(nullptr);
    CPSTimerWrapperID timer;
    EXPECT_EQ(timer.Schedule(&m_Sink, INTERVAL, 1), MN_ERROR_NULL_POINTER);
    EXPECT_EQ(timer.Cancel(), MN_OK);
    m_Thread.UseTimerQueue(&m_Queue);
    EXPECT_EQ(timer.Schedule(&m_Sink, INTERVAL, 1), MN_OK);
    EXPECT_EQ(m_Queue.TakeCalls(), (CTexts{"schedule 1000500us x1"}));
}

TEST_F(CPSTimerWrapperIDTest, Schedule_ArgumentsAndResult_AreTheQueues)
{
    CPSTimerWrapperID timer;
    EXPECT_EQ(timer.Schedule(&m_Sink, INTERVAL, 4000000000u), MN_OK);
    EXPECT_EQ(m_Queue.m_pHandler, &timer);
    EXPECT_EQ(m_Queue.m_pArg, static_cast<IPSTimerWrapperIDSink*>(&m_Sink));
    m_Queue.m_dwResult = MN_ERROR_NOT_INITIALIZED;
    EXPECT_EQ(timer.Schedule(&m_Sink, CMNTimeValue::s_tvZero, 0), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(m_Queue.TakeCalls(), (CTexts{"schedule 1000500us x4000000000", "schedule 0us x0"}))
        << "a second schedule is the queue's affair";
}

TEST_F(CPSTimerWrapperIDTest, Schedule_ThreadsQueueChanges_StaysWithTheFirst)
{
    CTestTimerQueue other;
    CPSTimerWrapperID timer;
    timer.Schedule(&m_Sink, INTERVAL, 1);
    timer.Cancel();
    m_Thread.UseTimerQueue(&other);
    timer.Schedule(&m_Sink, INTERVAL, 1);
    EXPECT_EQ(m_Queue.TakeCalls(), (CTexts{"schedule 1000500us x1", "cancel", "schedule 1000500us x1"}));
    EXPECT_EQ(other.TakeCalls(), CTexts());
}

TEST_F(CPSTimerWrapperIDTest, Cancel_Scheduled_TheQueuesResultOnce)
{
    CPSTimerWrapperID timer;
    timer.Schedule(&m_Sink, INTERVAL, 1);
    m_Queue.TakeCalls();
    m_Queue.m_dwResult = MN_ERROR_NOT_INITIALIZED;
    EXPECT_EQ(timer.Cancel(), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(m_Queue.m_pHandler, &timer);
    EXPECT_EQ(timer.Cancel(), MN_OK);
    EXPECT_EQ(m_Queue.TakeCalls(), (CTexts{"cancel"}));
}

TEST_F(CPSTimerWrapperIDTest, Cancel_AfterARefusedSchedule_ReachesTheQueue)
{
    CPSTimerWrapperID timer;
    m_Queue.m_dwResult = MN_ERROR_INVALID_ARG;
    timer.Schedule(&m_Sink, INTERVAL, 1);
    m_Queue.TakeCalls();
    timer.Cancel();
    EXPECT_EQ(m_Queue.TakeCalls(), (CTexts{"cancel"}));
}

TEST_F(CPSTimerWrapperIDTest, OnTimeout_SinkOrNull_CallsTheSinkOnly)
{
    CPSTimerWrapperID timer;
    timer.OnTimeout(CMNTimeValue::s_tvZero, nullptr);
    EXPECT_EQ(m_Sink.m_nTimes, 0);
    timer.OnTimeout(CMNTimeValue::s_tvZero, static_cast<IPSTimerWrapperIDSink*>(&m_Sink));
    EXPECT_EQ(m_Sink.m_nTimes, 1);
    EXPECT_EQ(m_Sink.m_pTimer, &timer);
}

TEST_F(CPSTimerWrapperIDTest, Expiry_OneShot_LaterCancelStillReachesTheQueue)
{
    CPSTimerWrapperID timer;
    timer.Schedule(&m_Sink, INTERVAL, 1);
    timer.OnTimeout(CMNTimeValue::s_tvZero, static_cast<IPSTimerWrapperIDSink*>(&m_Sink));
    m_Queue.TakeCalls();
    EXPECT_EQ(timer.Cancel(), MN_OK);
    EXPECT_EQ(m_Queue.TakeCalls(), (CTexts{"cancel"}));
}

TEST_F(CPSTimerWrapperIDTest, Destructor_Scheduled_Cancels)
{
    {
        CPSTimerWrapperID timer;
        timer.Schedule(&m_Sink, INTERVAL, 1);
        m_Queue.TakeCalls();
    }
    EXPECT_EQ(m_Queue.TakeCalls(), (CTexts{"cancel"}));
}

TEST_F(CPSTimerWrapperIDTest, Reactor_ScheduledOnItsThread_FiresAsOftenAsAsked)
{
    mantle::CMNManualClock clock(false);
    CTestReactor reactor;
    reactor.Open();
    m_Thread.UseReactor(&reactor);
    CPSTimerWrapperID timer;
    CPSTimerWrapperID silent;
    EXPECT_EQ(timer.Schedule(&m_Sink, CMNTimeValue(1, 0), 2), MN_OK);
    EXPECT_EQ(silent.Schedule(nullptr, CMNTimeValue(1, 0), 0), MN_OK);
    for (int second = 0; second < 5; ++second) {
        clock.Advance(CMNTimeValue(1, 0));
        reactor.ProcessTimerTick();
    }
    EXPECT_EQ(m_Sink.m_nTimes, 2);
    EXPECT_EQ(silent.Cancel(), MN_OK);
    reactor.Close();
    EXPECT_EQ(timer.Cancel(), MN_ERROR_NOT_INITIALIZED) << "the reactor's own answer";
    m_Thread.UseReactor(nullptr);
}

TEST_F(CPSTimerWrapperIDTest, OnTimer_DeletesTheWrapper_NothingTouchesIt)
{
    CTestReactor reactor;
    reactor.Open();
    m_Thread.UseReactor(&reactor);
    auto timer = std::make_unique<CPSTimerWrapperID>();
    m_Sink.m_Function = [&] { timer.reset(); };
    timer->Schedule(&m_Sink, CMNTimeValue::s_tvZero, 0);
    reactor.ProcessTimerTick();
    reactor.ProcessTimerTick();
    EXPECT_EQ(m_Sink.m_nTimes, 1);
    m_Thread.UseReactor(nullptr);
}

TEST_F(CPSTimerWrapperIDTest, OnTimer_SchedulesAgain_FiresAgain)
{
    CTestReactor reactor;
    reactor.Open();
    m_Thread.UseReactor(&reactor);
    CPSTimerWrapperID timer;
    m_Sink.m_Function = [&] {
        if (m_Sink.m_nTimes < 3)
            timer.Schedule(&m_Sink, CMNTimeValue::s_tvZero, 1);
    };
    timer.Schedule(&m_Sink, CMNTimeValue::s_tvZero, 1);
    for (int i = 0; i < 6; ++i)
        reactor.ProcessTimerTick();
    EXPECT_EQ(m_Sink.m_nTimes, 3);
    timer.Cancel();
    m_Thread.UseReactor(nullptr);
}

}  // namespace
