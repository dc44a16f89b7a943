#include "mantle/CMNTimerWrapperID.h"

#include <memory>
#include <thread>

#include "MantleTest.h"
#include "mantle/CMNClock.h"
#include "mantle/CMNThreadUser.h"

namespace mantle
{
namespace
{

class CSink : public CMNTimerWrapperIDSink
{
public:
    void OnTimer(CMNTimerWrapperID* timer) override
    {
        ++m_nCalls;
        m_pTimer = timer;
    }

    int m_nCalls = 0;
    CMNTimerWrapperID* m_pTimer = nullptr;
};

// A thread object with a timer queue that records.
class CRecordingThread : public CMNThread, public IMNTimerQueue
{
public:
    IMNTimerQueue* GetTimerQueue() override { return m_bHasQueue ? this : nullptr; }
    MNResult ScheduleTimer(IMNTimerHandler* handler, void* arg, const CMNTimeValue& interval,
                           unsigned long count) override
    {
        ++m_nScheduled;
        m_pHandler = handler;
        m_pArg = arg;
        m_tvInterval = interval;
        m_dwCount = count;
        return m_Result;
    }
    MNResult CancelTimer(IMNTimerHandler* handler) override
    {
        ++m_nCancelled;
        EXPECT_EQ(handler, m_pHandler);
        return m_Result;
    }

    bool m_bHasQueue = true;
    MNResult m_Result = MN_OK;
    int m_nScheduled = 0;
    int m_nCancelled = 0;
    IMNTimerHandler* m_pHandler = nullptr;
    void* m_pArg = nullptr;
    CMNTimeValue m_tvInterval;
    unsigned long m_dwCount = 0;
};

class CMNTimerWrapperIDTest : public testing::Test
{
protected:
    ~CMNTimerWrapperIDTest() override { CMNThreadManager::Instance()->AttachCurrentThread(nullptr); }
    void Attach() { CMNThreadManager::Instance()->AttachCurrentThread(&m_Thread); }

    CRecordingThread m_Thread;
    CSink m_Sink;
};

TEST_F(CMNTimerWrapperIDTest, NeverScheduled_Cancelled_ZeroAndNoQueueTouched)
{
    Attach();
    CMNTimerWrapperID timer;
    EXPECT_EQ(timer.Cancel(), MN_OK);
    EXPECT_EQ(m_Thread.m_nCancelled, 0);
}

TEST_F(CMNTimerWrapperIDTest, NoThreadObject_Scheduled_NullPointerAndNotScheduled)
{
    CMNTimerWrapperID timer;
    EXPECT_EQ(timer.Schedule(&m_Sink, CMNTimeValue(1, 0)), MN_ERROR_NULL_POINTER);
    EXPECT_EQ(timer.Cancel(), MN_OK);
}

TEST_F(CMNTimerWrapperIDTest, ThreadWithoutTimerQueue_Scheduled_NullPointer)
{
    Attach();
    m_Thread.m_bHasQueue = false;
    CMNTimerWrapperID timer;
    EXPECT_EQ(timer.Schedule(&m_Sink, CMNTimeValue(1, 0)), MN_ERROR_NULL_POINTER);
    m_Thread.m_bHasQueue = true;
    EXPECT_EQ(timer.Schedule(&m_Sink, CMNTimeValue(1, 0)), MN_OK);
}

TEST_F(CMNTimerWrapperIDTest, Scheduled_OnTheThreadsQueue_PassedOnUnchanged)
{
    Attach();
    CMNTimerWrapperID timer;
    EXPECT_EQ(timer.Schedule(&m_Sink, CMNTimeValue(3, 5), 7), MN_OK);
    EXPECT_EQ(m_Thread.m_pHandler, &timer);
    EXPECT_EQ(m_Thread.m_pArg, &m_Sink);
    EXPECT_EQ(m_Thread.m_tvInterval, CMNTimeValue(3, 5));
    EXPECT_EQ(m_Thread.m_dwCount, 7u);
    EXPECT_EQ(timer.Schedule(&m_Sink, CMNTimeValue(1, 0)), MN_OK);
    EXPECT_EQ(m_Thread.m_nScheduled, 2);
    EXPECT_EQ(m_Thread.m_dwCount, 0u);
}

TEST_F(CMNTimerWrapperIDTest, QueueRefuses_ScheduledAndCancelled_ItsResults)
{
    Attach();
    m_Thread.m_Result = MN_ERROR_NOT_INITIALIZED;
    CMNTimerWrapperID timer;
    EXPECT_EQ(timer.Schedule(&m_Sink, CMNTimeValue(1, 0)), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(timer.Cancel(), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(timer.Cancel(), MN_OK);
    EXPECT_EQ(m_Thread.m_nCancelled, 1);
}

TEST_F(CMNTimerWrapperIDTest, BoundToAQueue_ThreadGetsAnother_KeepsTheFirst)
{
    Attach();
    CMNTimerWrapperID timer;
    timer.Schedule(&m_Sink, CMNTimeValue(1, 0));
    CRecordingThread other;
    CMNThreadManager::Instance()->AttachCurrentThread(&other);
    timer.Schedule(&m_Sink, CMNTimeValue(1, 0));
    CMNThreadManager::Instance()->AttachCurrentThread(&m_Thread);
    EXPECT_EQ(m_Thread.m_nScheduled, 2);
    EXPECT_EQ(other.m_nScheduled, 0);
}

TEST_F(CMNTimerWrapperIDTest, Expired_WithASink_SinkCalledWithTheTimer)
{
    CMNTimerWrapperID timer;
    timer.OnTimeout(CMNTimeValue(), static_cast<CMNTimerWrapperIDSink*>(&m_Sink));
    EXPECT_EQ(m_Sink.m_nCalls, 1);
    EXPECT_EQ(m_Sink.m_pTimer, &timer);
}

TEST_F(CMNTimerWrapperIDTest, Expired_WithoutASink_NothingHappens)
{
    CMNTimerWrapperID timer;
    timer.OnTimeout(CMNTimeValue(), nullptr);
    EXPECT_EQ(m_Sink.m_nCalls, 0);
}

TEST_F(CMNTimerWrapperIDTest, ExpiredOneShot_Cancelled_StillReachesTheQueue)
{
    Attach();
    CMNTimerWrapperID timer;
    timer.Schedule(&m_Sink, CMNTimeValue(1, 0), 1);
    timer.OnTimeout(CMNTimeValue(), static_cast<CMNTimerWrapperIDSink*>(&m_Sink));
    EXPECT_EQ(timer.Cancel(), MN_OK);
    EXPECT_EQ(m_Thread.m_nCancelled, 1);
}

TEST_F(CMNTimerWrapperIDTest, Scheduled_Destroyed_Cancelled)
{
    Attach();
    {
        CMNTimerWrapperID timer;
        timer.Schedule(&m_Sink, CMNTimeValue(1, 0));
    }
    EXPECT_EQ(m_Thread.m_nCancelled, 1);
}

TEST(CMNTimerWrapperIDOnUserThreadTest, ScheduledThreeTimes_TimePasses_SinkCalledThreeTimes)
{
    CMNManualClock clock;
    CMNClockParticipant participant;
    CMNThreadUser thread;
    ASSERT_EQ(thread.Create(100), MN_OK);
    CSink sink;
    std::unique_ptr<CMNTimerWrapperID> timer;
    thread.SendEvent(new CTestEvent([&] {
        timer = std::make_unique<CMNTimerWrapperID>();
        EXPECT_EQ(timer->Schedule(&sink, CMNTimeValue(10, 0), 3), MN_OK);
    }));
    CMNClock::Sleep(CMNTimeValue(100, 0));
    thread.SendEvent(new CTestEvent([&] { timer.reset(); }));
    EXPECT_EQ(sink.m_nCalls, 3);
    thread.Stop();
    thread.Join();
}

}  // namespace
}  // namespace mantle
