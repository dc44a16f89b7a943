#include "reactor/CPSEventQueue.h"

#include <thread>

#include "mantle/CMNThreadManager.h"
#include "tests/unit/scripted/ScriptedStackTest.h"

using namespace uxport;

namespace
{

// Lets a test see and set what deriving classes may.
template <class Queue>
class CTestQueueT : public Queue
{
public:
    using Queue::CorrectPendingCount;
    void StopQueue() { this->m_dwStopped.store(1); }
    void Own(unsigned long threadId) { this->m_dwOwnerThread.store(threadId); }
    unsigned long GetOwner() const { return this->m_dwOwnerThread.load(); }
    std::size_t GetListSize() const { return this->m_Pending.size(); }
    CMNTimeValue GetReport() const { return this->m_tvReport; }
    static CMNTimeValue GetReportInterval() { return Queue::s_tvReportInterval; }
};

// Both queues behave the same on one thread.
template <class Queue>
class CPSEventQueueTest : public ScriptedStackTest
{
protected:
    ~CPSEventQueueTest() override { EXPECT_EQ(m_Counts.m_nAlive, 0); }

    void TearDown() override
    {
        m_Queue.DestoryPendingEvents();
        ScriptedStackTest::TearDown();
    }

    CTestEvent* Post(char letter = 'x')
    {
        auto* event = new CTestEvent(m_Counts, [this, letter] {
            m_strOrder += letter;
            return MN_ERROR_FAILURE;
        });
        EXPECT_EQ(m_Queue.PostEvent(event, IMNEventQueue::EPRIORITY_NORMAL), MN_OK);
        return event;
    }
    void RunAll()
    {
        std::list<IMNEvent*> events;
        unsigned long left = 0;
        while (m_Queue.PopPendingEvents(events, 1000000, &left) == MN_OK) {
            m_Queue.ProcessEvents(events);
            events.clear();
        }
    }

    CTestEventCounts m_Counts;
    CTestQueueT<Queue> m_Queue;
    std::string m_strOrder;
};

using CQueues = testing::Types<CPSEventQueueBase, CPSEventQueueUsingMutex>;

struct CQueueNames
{
    template <class Queue>
    static std::string GetName(int index)
    {
        return index == 0 ? "Base" : "UsingMutex";
    }
};

TYPED_TEST_SUITE(CPSEventQueueTest, CQueues, CQueueNames);

TYPED_TEST(CPSEventQueueTest, Constructed_Empty_NoOwnerNoCount)
{
    EXPECT_EQ(this->m_Queue.GetPendingEventsCount(), 0u);
    EXPECT_EQ(this->m_Queue.GetOwner(), 0u);
    EXPECT_EQ(this->m_Queue.GetReportInterval(), CMNTimeValue(0, 50000));
    const CMNTimeValue now = CMNTimeValue::GetTimeOfDay();
    EXPECT_LE(this->m_Queue.GetReport(), now);
    EXPECT_GT(this->m_Queue.GetReport() + CMNTimeValue(60, 0), now);
}

TYPED_TEST(CPSEventQueueTest, PostEvent_Null_Refused)
{
    EXPECT_EQ(this->m_Queue.PostEvent(nullptr, IMNEventQueue::EPRIORITY_NORMAL), MN_ERROR_INVALID_ARG);
    this->m_Queue.StopQueue();
    EXPECT_EQ(this->m_Queue.PostEvent(nullptr, IMNEventQueue::EPRIORITY_NORMAL), MN_ERROR_INVALID_ARG);
    EXPECT_EQ(this->m_Queue.GetPendingEventsCount(), 0u);
}

TYPED_TEST(CPSEventQueueTest, PostEvent_Stopped_DestroysTheEvent)
{
    this->m_Queue.StopQueue();
    EXPECT_EQ(this->m_Queue.PostEvent(new CTestEvent(this->m_Counts), IMNEventQueue::EPRIORITY_NORMAL),
              MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(this->m_Counts.m_nDestroyed, 1);
    EXPECT_EQ(this->m_Counts.m_nFired, 0);
    EXPECT_EQ(this->m_Queue.GetPendingEventsCount(), 0u);
}

TYPED_TEST(CPSEventQueueTest, PostEvent_AnyPriority_FirstInFirstOut)
{
    const auto letter = [this](char c) {
        return new CTestEvent(this->m_Counts, [this, c] {
            this->m_strOrder += c;
            return MN_OK;
        });
    };
    this->m_Queue.PostEvent(letter('a'), IMNEventQueue::EPRIORITY_LOW);
    this->m_Queue.PostEvent(letter('b'), IMNEventQueue::EPRIORITY_HIGH);
    this->m_Queue.PostEvent(letter('c'), IMNEventQueue::EPRIORITY_NORMAL);
    EXPECT_EQ(this->m_Queue.GetPendingEventsCount(), 3u);
    this->RunAll();
    EXPECT_EQ(this->m_strOrder, "abc");
}

TYPED_TEST(CPSEventQueueTest, Pop_FourOfTen_OldestFirstAndSixLeft)
{
    for (char letter = 'a'; letter < 'a' + 10; ++letter)
        this->Post(letter);
    std::list<IMNEvent*> events;
    unsigned long left = 99;
    EXPECT_EQ(this->m_Queue.PopPendingEvents(events, 4, &left), MN_OK);
    EXPECT_EQ(events.size(), 4u);
    EXPECT_EQ(left, 6u);
    EXPECT_EQ(this->m_Queue.GetPendingEventsCount(), 6u);
    this->m_Queue.ProcessEvents(events);
    events.clear();
    EXPECT_EQ(this->m_strOrder, "abcd");
    EXPECT_EQ(this->m_Queue.PopPendingEvents(events, 100, &left), MN_OK);
    EXPECT_EQ(events.size(), 6u);
    EXPECT_EQ(left, 0u);
    EXPECT_EQ(this->m_Queue.GetPendingEventsCount(), 0u);
    this->m_Queue.ProcessEvents(events);
    EXPECT_EQ(this->m_strOrder, "abcdefghij");
}

TYPED_TEST(CPSEventQueueTest, Pop_AsManyAsTheMaximum_TakesTheWholeList)
{
    for (int i = 0; i < 4; ++i)
        this->Post();
    std::list<IMNEvent*> events;
    unsigned long left = 99;
    EXPECT_EQ(this->m_Queue.PopPendingEvents(events, 4, &left), MN_OK);
    EXPECT_EQ(events.size(), 4u);
    EXPECT_EQ(left, 0u);
    this->m_Queue.ProcessEvents(events);
}

TYPED_TEST(CPSEventQueueTest, Pop_PartIntoAListThatHoldsSome_AppendsBehind)
{
    this->Post('b');
    this->Post('c');
    this->Post('d');
    std::list<IMNEvent*> events = {new CTestEvent(this->m_Counts, [this] {
        this->m_strOrder += 'a';
        return MN_OK;
    })};
    unsigned long left = 0;
    EXPECT_EQ(this->m_Queue.PopPendingEvents(events, 2, &left), MN_OK);
    this->m_Queue.ProcessEvents(events);
    EXPECT_EQ(this->m_strOrder, "abc");
    EXPECT_EQ(left, 1u);
}

TYPED_TEST(CPSEventQueueTest, Pop_Empty_NotFoundAndOutArgumentsUntouched)
{
    CTestEvent event(this->m_Counts);
    std::list<IMNEvent*> events = {&event};
    unsigned long left = 77;
    EXPECT_EQ(this->m_Queue.PopPendingEvents(events, 10, &left), MN_ERROR_NOT_FOUND);
    EXPECT_EQ(left, 77u);
    EXPECT_EQ(events.size(), 1u);
}

TYPED_TEST(CPSEventQueueTest, Pop_MaximumZero_MovesNothingAndReportsAll)
{
    this->Post();
    this->Post();
    std::list<IMNEvent*> events;
    unsigned long left = 77;
    EXPECT_EQ(this->m_Queue.PopPendingEvents(events, 0, &left), MN_OK);
    EXPECT_EQ(left, 2u);
    EXPECT_TRUE(events.empty());
    EXPECT_EQ(this->m_Queue.GetPendingEventsCount(), 2u);
}

TYPED_TEST(CPSEventQueueTest, PopOne_Pending_OldestWithAndWithoutCount)
{
    IMNEvent* const first = this->Post();
    IMNEvent* const second = this->Post();
    IMNEvent* event = nullptr;
    unsigned long left = 77;
    EXPECT_EQ(this->m_Queue.PopOnePendingEvent(event, &left), MN_OK);
    EXPECT_EQ(event, first);
    EXPECT_EQ(left, 1u);
    this->m_Queue.ProcessOneEvent(event);
    EXPECT_EQ(this->m_Queue.PopOnePendingEvent(event, nullptr), MN_OK);
    EXPECT_EQ(event, second);
    this->m_Queue.ProcessOneEvent(event);
    left = 77;
    event = nullptr;
    EXPECT_EQ(this->m_Queue.PopOnePendingEvent(event, &left), MN_ERROR_NOT_FOUND);
    EXPECT_EQ(event, nullptr);
    EXPECT_EQ(left, 77u);
}

TYPED_TEST(CPSEventQueueTest, ProcessOneEvent_NullOrEvent_RunsThenDestroys)
{
    EXPECT_EQ(this->m_Queue.ProcessOneEvent(nullptr), MN_ERROR_INVALID_ARG);
    auto* event =
        new CTestEvent(this->m_Counts, [this] { return this->m_Counts.m_nDestroyed == 0 ? MN_ERROR_FAILURE : MN_OK; });
    EXPECT_EQ(this->m_Queue.ProcessOneEvent(event), MN_OK) << "the event's own result is dropped";
    EXPECT_EQ(this->m_Counts.m_nFired, 1);
    EXPECT_EQ(this->m_Counts.m_nDestroyed, 1);
}

TYPED_TEST(CPSEventQueueTest, ProcessEvents_EmptyList_Ok)
{
    EXPECT_EQ(this->m_Queue.ProcessEvents({}), MN_OK);
}

TYPED_TEST(CPSEventQueueTest, DestoryPendingEvents_Pending_DestroyedUnrunAndTheCountStays)
{
    std::string order;
    for (const char letter : {'a', 'b'}) {
        this->m_Queue.PostEvent(new CTestEvent(this->m_Counts, nullptr, [&order, letter] { order += letter; }),
                                IMNEventQueue::EPRIORITY_NORMAL);
    }
    this->m_Queue.DestoryPendingEvents();
    EXPECT_EQ(order, "ab");
    EXPECT_EQ(this->m_Counts.m_nDestroyed, 2);
    EXPECT_EQ(this->m_Counts.m_nFired, 0);
    EXPECT_EQ(this->m_Queue.GetPendingEventsCount(), 2u);
    EXPECT_EQ(this->m_Queue.GetListSize(), 0u);
}

TYPED_TEST(CPSEventQueueTest, DestoryPendingEvents_EventsThatPost_UntilNothingIsPending)
{
    int rounds = 5;
    std::function<void()> post = [&] {
        if (--rounds > 0)
            this->m_Queue.PostEvent((new CTestEvent(this->m_Counts))->AtDelete(post), IMNEventQueue::EPRIORITY_NORMAL);
    };
    this->m_Queue.PostEvent(new CTestEvent(this->m_Counts, nullptr, post), IMNEventQueue::EPRIORITY_NORMAL);
    this->m_Queue.DestoryPendingEvents();
    EXPECT_EQ(this->m_Counts.m_nDestroyed, 5);
    EXPECT_EQ(this->m_Queue.GetListSize(), 0u);
}

TYPED_TEST(CPSEventQueueTest, Pop_AfterDestory_EndsWithTheList)
{
    for (int i = 0; i < 5; ++i)
        this->Post();
    this->m_Queue.DestoryPendingEvents();
    this->Post('n');
    IMNEvent* event = nullptr;
    std::list<IMNEvent*> events;
    unsigned long left = 77;
    EXPECT_EQ(this->m_Queue.PopPendingEvents(events, 3, &left), MN_OK) << "the count of then is still shown";
    EXPECT_EQ(events.size(), 1u);
    EXPECT_EQ(left, 0u);
    EXPECT_EQ(this->m_Queue.GetPendingEventsCount(), 0u);
    this->m_Queue.ProcessEvents(events);
    EXPECT_EQ(this->m_strOrder, "n");
    this->Post();
    this->m_Queue.DestoryPendingEvents();
    EXPECT_EQ(this->m_Queue.PopOnePendingEvent(event, &left), MN_ERROR_NOT_FOUND);
    this->m_Queue.CorrectPendingCount();
    EXPECT_EQ(this->m_Queue.GetPendingEventsCount(), 0u);
}

TYPED_TEST(CPSEventQueueTest, Destructor_Pending_DestroyedUnrun)
{
    {
        TypeParam queue;
        queue.PostEvent(new CTestEvent(this->m_Counts), IMNEventQueue::EPRIORITY_NORMAL);
    }
    EXPECT_EQ(this->m_Counts.m_nDestroyed, 1);
    EXPECT_EQ(this->m_Counts.m_nFired, 0);
}

TYPED_TEST(CPSEventQueueTest, SendEvent_Null_Refused)
{
    EXPECT_EQ(this->m_Queue.SendEvent(nullptr), MN_ERROR_INVALID_ARG);
}

TYPED_TEST(CPSEventQueueTest, SendEvent_Stopped_DestroysTheEvent)
{
    this->m_Queue.Own(mantle::CMNThreadManager::GetThreadSelfId());
    this->m_Queue.StopQueue();
    EXPECT_EQ(this->m_Queue.SendEvent(new CTestEvent(this->m_Counts)), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(this->m_Counts.m_nDestroyed, 1);
    EXPECT_EQ(this->m_Counts.m_nFired, 0);
}

TYPED_TEST(CPSEventQueueTest, SendEvent_OwnerThread_RunsInPlace)
{
    this->m_Queue.Own(mantle::CMNThreadManager::GetThreadSelfId());
    this->Post();
    CTestEventCounts sent;
    EXPECT_EQ(this->m_Queue.SendEvent(new CTestEvent(sent, [] { return MN_ERROR_FOUND; })), MN_ERROR_FOUND);
    EXPECT_EQ(sent.m_nDestroyed, 1);
    EXPECT_EQ(this->m_Counts.m_nFired, 0);
    EXPECT_EQ(this->m_Queue.GetPendingEventsCount(), 1u);
}

class CPSEventQueueUsingMutexTest : public ScriptedStackTest
{
};

TEST_F(CPSEventQueueUsingMutexTest, PostEventWithOldSize_EachPost_TellsTheCountBefore)
{
    CTestEventCounts counts;
    CTestQueueT<CPSEventQueueUsingMutex> queue;
    unsigned long oldSize = 77;
    EXPECT_EQ(queue.PostEventWithOldSize(new CTestEvent(counts), IMNEventQueue::EPRIORITY_NORMAL, &oldSize), MN_OK);
    EXPECT_EQ(oldSize, 0u);
    EXPECT_EQ(queue.PostEventWithOldSize(new CTestEvent(counts), IMNEventQueue::EPRIORITY_NORMAL, &oldSize), MN_OK);
    EXPECT_EQ(oldSize, 1u);
    EXPECT_EQ(queue.PostEventWithOldSize(new CTestEvent(counts), IMNEventQueue::EPRIORITY_NORMAL, nullptr), MN_OK);
    EXPECT_EQ(queue.PostEventWithOldSize(nullptr, IMNEventQueue::EPRIORITY_NORMAL, &oldSize), MN_ERROR_INVALID_ARG);
    EXPECT_EQ(oldSize, 3u);
    queue.StopQueue();
    oldSize = 77;
    EXPECT_EQ(queue.PostEventWithOldSize(new CTestEvent(counts), IMNEventQueue::EPRIORITY_NORMAL, &oldSize),
              MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(oldSize, 3u);
    EXPECT_EQ(counts.m_nDestroyed, 1);
}

TEST_F(CPSEventQueueUsingMutexTest, PostEvent_StoppedAndTheEventPostsWhenDestroyed_NoDeadlock)
{
    CTestEventCounts counts;
    CTestQueueT<CPSEventQueueUsingMutex> queue;
    queue.StopQueue();
    const auto post = [&] { queue.PostEvent(new CTestEvent(counts), IMNEventQueue::EPRIORITY_NORMAL); };
    EXPECT_EQ(queue.PostEvent(new CTestEvent(counts, nullptr, post), IMNEventQueue::EPRIORITY_NORMAL),
              MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(counts.m_nDestroyed, 2);
}

TEST_F(CPSEventQueueUsingMutexTest, PostEvent_FourThreads_NothingLostAndEachInItsOrder)
{
    constexpr int THREADS = 4;
    constexpr int EACH = 5000;
    CTestEventCounts counts;
    CPSEventQueueUsingMutex queue;
    std::vector<int> next(THREADS, 0);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < THREADS; ++thread) {
        threads.emplace_back([&, thread] {
            for (int i = 0; i < EACH; ++i) {
                queue.PostEvent(new CTestEvent(counts,
                                               [&next, thread, i] {
                                                   const int expected = next[static_cast<std::size_t>(thread)]++;
                                                   return expected == i ? MN_OK : MN_ERROR_UNEXPECTED;
                                               }),
                                IMNEventQueue::EPRIORITY_NORMAL);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(queue.GetPendingEventsCount(), static_cast<unsigned long>(THREADS * EACH));
    std::list<IMNEvent*> events;
    unsigned long left = 0;
    ASSERT_EQ(queue.PopPendingEvents(events, 1000000, &left), MN_OK);
    for (IMNEvent* event : events) {
        ASSERT_EQ(event->OnEventFire(), MN_OK);
        event->OnDestorySelf();
    }
    EXPECT_EQ(counts.m_nFired, THREADS * EACH);
}

}  // namespace
