#include "reactor/CPSEventSynchronous.h"

#include <atomic>
#include <functional>
#include <thread>

#include "mantle/CMNThreadManager.h"
#include "reactor/CPSEventQueue.h"
#include "tests/unit/scripted/ScriptedStackTest.h"

using namespace uxport;

namespace
{

// Counts its deletions.
class CCountedSynchronous : public CPSEventSynchronous
{
public:
    CCountedSynchronous(IMNEvent* event, CPSEventQueueBase* queue, int& deleted)
        : CPSEventSynchronous(event, queue), m_nDeleted(deleted)
    {
    }
    ~CCountedSynchronous() override { ++m_nDeleted; }

private:
    int& m_nDeleted;
};

// A queue with a thread that runs it until told to end.
class CServedQueue : public CPSEventQueueUsingMutex
{
public:
    ~CServedQueue() override { End(); }

    void Begin()
    {
        m_Thread = std::thread([this] {
            m_dwOwnerThread.store(mantle::CMNThreadManager::GetThreadSelfId());
            while (!m_bEnd.load() || GetPendingEventsCount() != 0) {
                if (!RunOnce())
                    std::this_thread::yield();
            }
        });
    }
    void End()
    {
        m_bEnd.store(true);
        if (m_Thread.joinable())
            m_Thread.join();
    }
    bool RunOnce()
    {
        std::list<IMNEvent*> events;
        unsigned long left = 0;
        MNResult result = MN_OK;
        {
            mantle::CMNMutexGuard guard(m_MutexQueue);
            result = PopPendingEvents(events, 1000, &left);
        }
        ProcessEvents(events);
        return result == MN_OK;
    }
    void StopQueue() { m_dwStopped.store(1); }

private:
    std::thread m_Thread;
    std::atomic<bool> m_bEnd{false};
};

// Takes the stop flag's check and then refuses the post, as a queue that is stopped in between does.
class CRefusingQueue : public CPSEventQueueUsingMutex
{
public:
    MNResult PostEvent(IMNEvent* event, EPriority) override
    {
        event->OnDestorySelf();
        return MN_ERROR_NOT_INITIALIZED;
    }
};

class CPSEventSynchronousTest : public ScriptedStackTest
{
protected:
    ~CPSEventSynchronousTest() override { EXPECT_EQ(m_Counts.m_nAlive, 0); }

    CTestEventCounts m_Counts;
    int m_nDeleted = 0;
};

TEST_F(CPSEventSynchronousTest, Life_FireDestroyFireDestroy_RunsOnceAndFreesLast)
{
    CServedQueue queue;
    auto* wrapper =
        new CCountedSynchronous(new CTestEvent(m_Counts, [] { return MN_ERROR_FOUND; }), &queue, m_nDeleted);
    EXPECT_EQ(wrapper->OnEventFire(), MN_ERROR_FOUND);
    EXPECT_EQ(m_Counts.m_nDestroyed, 0);
    wrapper->OnDestorySelf();
    EXPECT_EQ(m_Counts.m_nDestroyed, 1);
    EXPECT_EQ(m_nDeleted, 0);
    EXPECT_EQ(wrapper->OnEventFire(), MN_OK);
    EXPECT_EQ(m_Counts.m_nFired, 1);
    wrapper->OnDestorySelf();
    EXPECT_EQ(m_nDeleted, 1);
}

TEST_F(CPSEventSynchronousTest, OnEventFire_NoEvent_NullPointer)
{
    CServedQueue queue;
    auto* wrapper = new CCountedSynchronous(nullptr, &queue, m_nDeleted);
    EXPECT_EQ(wrapper->OnEventFire(), MN_ERROR_NULL_POINTER);
    wrapper->OnDestorySelf();
    EXPECT_EQ(wrapper->WaitResultAndDeleteThis(), MN_ERROR_NULL_POINTER);
    EXPECT_EQ(queue.GetPendingEventsCount(), 1u);
    queue.RunOnce();
    EXPECT_EQ(m_nDeleted, 1);
}

TEST_F(CPSEventSynchronousTest, Wait_AfterTheRun_ResultAndSecondPost)
{
    CServedQueue queue;
    auto* wrapper =
        new CCountedSynchronous(new CTestEvent(m_Counts, [] { return MN_ERROR_FAILURE; }), &queue, m_nDeleted);
    CPSEventQueueBase::ProcessOneEvent(wrapper);
    EXPECT_EQ(wrapper->WaitResultAndDeleteThis(), MN_ERROR_FAILURE);
    EXPECT_EQ(m_nDeleted, 0) << "freed where the queue runs, not here";
    EXPECT_EQ(queue.GetPendingEventsCount(), 1u);
    queue.RunOnce();
    EXPECT_EQ(m_nDeleted, 1);
    EXPECT_EQ(m_Counts.m_nFired, 1);
}

TEST_F(CPSEventSynchronousTest, Wait_SecondPostRefused_FreedAllTheSame)
{
    CServedQueue queue;
    auto* wrapper = new CCountedSynchronous(new CTestEvent(m_Counts), &queue, m_nDeleted);
    CPSEventQueueBase::ProcessOneEvent(wrapper);
    queue.StopQueue();
    EXPECT_EQ(wrapper->WaitResultAndDeleteThis(), MN_OK);
    EXPECT_EQ(m_nDeleted, 1);
}

TEST_F(CPSEventSynchronousTest, Wait_SecondPostRefusedBeforeTheFirstDestruction_TheSecondCallFrees)
{
    CServedQueue queue;
    auto* wrapper = new CCountedSynchronous(new CTestEvent(m_Counts), &queue, m_nDeleted);
    wrapper->OnEventFire();
    queue.StopQueue();
    EXPECT_EQ(wrapper->WaitResultAndDeleteThis(), MN_OK);
    EXPECT_EQ(m_nDeleted, 0);
    EXPECT_EQ(m_Counts.m_nDestroyed, 1);
    wrapper->OnDestorySelf();
    EXPECT_EQ(m_nDeleted, 1);
}

TEST_F(CPSEventSynchronousTest, Wait_DestroyedWithoutARun_NotAvailable)
{
    CServedQueue queue;
    auto* wrapper = new CCountedSynchronous(new CTestEvent(m_Counts), &queue, m_nDeleted);
    wrapper->OnDestorySelf();
    EXPECT_EQ(m_Counts.m_nDestroyed, 1);
    EXPECT_EQ(wrapper->WaitResultAndDeleteThis(), MN_ERROR_NOT_AVAILABLE);
    EXPECT_EQ(m_nDeleted, 1);
    EXPECT_EQ(m_Counts.m_nFired, 0);
    EXPECT_EQ(queue.GetPendingEventsCount(), 0u) << "the queue may be going; nothing is posted to it";
}

TEST_F(CPSEventSynchronousTest, Destructor_NeverRunNorDestroyed_DestroysTheEvent)
{
    CServedQueue queue;
    {
        CPSEventSynchronous wrapper(new CTestEvent(m_Counts), &queue);
    }
    EXPECT_EQ(m_Counts.m_nDestroyed, 1);
    EXPECT_EQ(m_Counts.m_nFired, 0);
}

TEST_F(CPSEventSynchronousTest, SendEvent_OtherThread_ItsResultFromTheQueuesThread)
{
    CServedQueue queue;
    queue.Begin();
    const std::thread::id here = std::this_thread::get_id();
    const MNResult result = queue.SendEvent(new CTestEvent(
        m_Counts, [here] { return std::this_thread::get_id() == here ? MN_OK : MN_ERROR_PARTIAL_DATA; }));
    EXPECT_EQ(result, MN_ERROR_PARTIAL_DATA);
    queue.End();
    EXPECT_EQ(m_Counts.m_nFired, 1);
    EXPECT_EQ(m_Counts.m_nDestroyed, 1);
}

TEST_F(CPSEventSynchronousTest, SendEvent_BehindPending_RunsAfterThem)
{
    CServedQueue queue;
    std::atomic<int> ran{0};
    for (int i = 0; i < 100; ++i) {
        queue.PostEvent(new CTestEvent(m_Counts,
                                       [&ran] {
                                           ++ran;
                                           return MN_OK;
                                       }),
                        IMNEventQueue::EPRIORITY_NORMAL);
    }
    queue.Begin();
    EXPECT_EQ(queue.SendEvent(new CTestEvent(m_Counts, [&ran] { return static_cast<MNResult>(ran.load()); })), 100u);
    queue.End();
}

TEST_F(CPSEventSynchronousTest, SendEvent_FromInsideAnEvent_RunsInPlace)
{
    CServedQueue queue;
    queue.Begin();
    CTestEventCounts inner;
    EXPECT_EQ(queue.SendEvent(new CTestEvent(
                  m_Counts, [&] { return queue.SendEvent(new CTestEvent(inner, [] { return MN_ERROR_FOUND; })); })),
              MN_ERROR_FOUND);
    queue.End();
    EXPECT_EQ(inner.m_nDestroyed, 1);
}

TEST_F(CPSEventSynchronousTest, SendEvent_PostRefused_ItsCodeAndNothingLeft)
{
    CRefusingQueue queue;
    EXPECT_EQ(queue.SendEvent(new CTestEvent(m_Counts)), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(m_Counts.m_nDestroyed, 1);
    EXPECT_EQ(m_Counts.m_nFired, 0);
}

TEST_F(CPSEventSynchronousTest, SendEvent_QueueDestroysItsEvents_SenderIsWokenWithNotAvailable)
{
    CServedQueue queue;
    MNResult result = MN_OK;
    std::thread sender([&] { result = queue.SendEvent(new CTestEvent(m_Counts)); });
    while (queue.GetPendingEventsCount() == 0)
        std::this_thread::yield();
    queue.DestoryPendingEvents();
    sender.join();
    EXPECT_EQ(result, MN_ERROR_NOT_AVAILABLE);
    EXPECT_EQ(m_Counts.m_nDestroyed, 1);
    EXPECT_EQ(m_Counts.m_nFired, 0);
}

TEST_F(CPSEventSynchronousTest, SendEvent_ThousandsFromFourThreads_EachGetsItsOwnResult)
{
    constexpr unsigned long EACH = 3000;
    CServedQueue queue;
    queue.Begin();
    std::atomic<unsigned long> wrong{0};
    std::vector<std::thread> senders;
    for (unsigned long sender = 0; sender < 4; ++sender) {
        senders.emplace_back([&, sender] {
            for (unsigned long i = 0; i < EACH; ++i) {
                const MNResult expected = sender * EACH + i;
                if (queue.SendEvent(new CTestEvent(m_Counts, [expected] { return expected; })) != expected)
                    ++wrong;
            }
        });
    }
    for (std::thread& sender : senders)
        sender.join();
    queue.End();
    EXPECT_EQ(wrong, 0u);
    EXPECT_EQ(m_Counts.m_nFired, static_cast<int>(4 * EACH));
    EXPECT_EQ(m_Counts.m_nAlive, 0);
}

}  // namespace
