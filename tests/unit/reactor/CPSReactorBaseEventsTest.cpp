#include "reactor/CPSReactorBase.h"

#include <memory>

#include "mantle/CMNThreadManager.h"
#include "tests/unit/reactor/ReactorSupport.h"
#include "tests/unit/scripted/ScriptedStackTest.h"

using namespace uxport;

namespace
{

class CPSReactorBaseEventsTest : public ScriptedStackTest
{
protected:
    CPSReactorBaseEventsTest() { m_Reactor.Open(); }
    ~CPSReactorBaseEventsTest() override { EXPECT_EQ(m_Counts.m_nAlive, 0); }

    void TearDown() override
    {
        m_Reactor.Close();
        ScriptedStackTest::TearDown();
    }

    MNResult RunEvents() { return m_Reactor.ProcessHandleEvent(-1, EVENTQUEUE_MASK, 0, 0, 0); }

    CTestEventCounts m_Counts;
    CTestReactor m_Reactor;
};

const char* const NOTIFY = "notify -1,256";

TEST_F(CPSReactorBaseEventsTest, PostEvent_EmptyQueue_NotifiesOnce)
{
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(m_Reactor.PostEvent(new CTestEvent(m_Counts), IMNEventQueue::EPRIORITY_HIGH), MN_OK);
    EXPECT_EQ(m_Reactor.TakeLog(), (CTexts{NOTIFY}));
    EXPECT_EQ(m_Reactor.GetPendingEventsCount(), 3u);
}

TEST_F(CPSReactorBaseEventsTest, PostEvent_NotifyFails_PostSucceeds)
{
    m_Reactor.m_dwNotify = MN_ERROR_UNEXPECTED;
    EXPECT_EQ(m_Reactor.PostEvent(new CTestEvent(m_Counts)), MN_OK);
    EXPECT_EQ(m_Reactor.GetPendingEventsCount(), 1u);
}

TEST_F(CPSReactorBaseEventsTest, PostEvent_NullOrStopped_RefusedWithoutNotify)
{
    EXPECT_EQ(m_Reactor.PostEvent(nullptr), MN_ERROR_INVALID_ARG);
    m_Reactor.StopQueue();
    EXPECT_EQ(m_Reactor.PostEvent(new CTestEvent(m_Counts)), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(m_Counts.m_nDestroyed, 1);
    EXPECT_EQ(m_Counts.m_nFired, 0);
    EXPECT_EQ(m_Reactor.TakeLog(), CTexts());
}

TEST_F(CPSReactorBaseEventsTest, RunEvents_NothingPending_NotFound)
{
    EXPECT_EQ(RunEvents(), MN_ERROR_NOT_FOUND);
    EXPECT_EQ(m_Reactor.TakeLog(), CTexts());
}

TEST_F(CPSReactorBaseEventsTest, RunEvents_Pending_RunInOrderThenDestroyed)
{
    std::string order;
    for (const char letter : {'a', 'b', 'c'}) {
        m_Reactor.PostEvent(new CTestEvent(
            m_Counts,
            [&order, letter] {
                order += letter;
                return MN_ERROR_FAILURE;
            },
            [&order] { order += '.'; }));
    }
    m_Reactor.TakeLog();
    EXPECT_EQ(RunEvents(), MN_OK) << "what an event returns is dropped";
    EXPECT_EQ(order, "a.b.c.");
    EXPECT_EQ(m_Reactor.GetPendingEventsCount(), 0u);
    EXPECT_EQ(m_Reactor.TakeLog(), CTexts());
}

TEST_F(CPSReactorBaseEventsTest, RunEvents_PostFromInsideAnEvent_WaitsForTheNextRunAndNotifies)
{
    m_Reactor.PostEvent(new CTestEvent(m_Counts, [this] {
        m_Reactor.PostEvent(new CTestEvent(m_Counts));
        m_Reactor.PostEvent(new CTestEvent(m_Counts));
        return MN_OK;
    }));
    m_Reactor.TakeLog();
    EXPECT_EQ(RunEvents(), MN_OK);
    EXPECT_EQ(m_Counts.m_nFired, 1);
    EXPECT_EQ(m_Reactor.TakeLog(), (CTexts{NOTIFY}));
    EXPECT_EQ(RunEvents(), MN_OK);
    EXPECT_EQ(m_Counts.m_nFired, 3);
}

TEST_F(CPSReactorBaseEventsTest, RunEvents_ExactlyTheMaximum_AllRunAndNoNotify)
{
    for (unsigned long i = 0; i < CPSReactorBase::s_dwMaxEvents; ++i)
        m_Reactor.PostEvent(new CTestEvent(m_Counts));
    m_Reactor.TakeLog();
    EXPECT_EQ(RunEvents(), MN_OK);
    EXPECT_EQ(m_Counts.m_nFired, 100000);
    EXPECT_EQ(m_Reactor.TakeLog(), CTexts());
}

TEST_F(CPSReactorBaseEventsTest, RunEvents_MoreThanTheMaximum_RestIsNotified)
{
    for (unsigned long i = 0; i < CPSReactorBase::s_dwMaxEvents + 1; ++i)
        m_Reactor.PostEvent(new CTestEvent(m_Counts));
    m_Reactor.TakeLog();
    EXPECT_EQ(RunEvents(), MN_OK);
    EXPECT_EQ(m_Counts.m_nFired, 100000);
    EXPECT_EQ(m_Reactor.GetPendingEventsCount(), 1u);
    EXPECT_EQ(m_Reactor.TakeLog(), (CTexts{NOTIFY}));
    EXPECT_EQ(RunEvents(), MN_OK);
    EXPECT_EQ(m_Counts.m_nFired, 100001);
    EXPECT_EQ(m_Reactor.TakeLog(), CTexts());
}

TEST_F(CPSReactorBaseEventsTest, SendEvent_OwnThread_RunsInPlaceAheadOfThePending)
{
    m_Reactor.PostEvent(new CTestEvent(m_Counts));
    m_Reactor.TakeLog();
    CTestEventCounts sent;
    EXPECT_EQ(m_Reactor.SendEvent(new CTestEvent(sent, [] { return MN_ERROR_PARTIAL_DATA; })), MN_ERROR_PARTIAL_DATA);
    EXPECT_EQ(sent.m_nFired, 1);
    EXPECT_EQ(sent.m_nDestroyed, 1);
    EXPECT_EQ(m_Counts.m_nFired, 0);
    EXPECT_EQ(m_Reactor.GetPendingEventsCount(), 1u);
    EXPECT_EQ(m_Reactor.TakeLog(), CTexts());
}

TEST_F(CPSReactorBaseEventsTest, Close_EventsThatPostWhenDestroyed_DestroysThoseToo)
{
    const auto post = [this] { m_Reactor.PostEvent(new CTestEvent(m_Counts)); };
    m_Reactor.PostEvent(new CTestEvent(m_Counts, nullptr, post));
    m_Reactor.PostEvent((new CTestEvent(m_Counts))->AtDelete(post));
    EXPECT_EQ(m_Reactor.Close(), MN_OK);
    EXPECT_EQ(m_Counts.m_nDestroyed, 4);
    EXPECT_EQ(m_Counts.m_nFired, 0);
    EXPECT_EQ(m_Counts.m_nAlive, 0);
}

TEST_F(CPSReactorBaseEventsTest, Close_CountStays_NextOpenCorrectsIt)
{
    m_Reactor.PostEvent(new CTestEvent(m_Counts));
    m_Reactor.PostEvent(new CTestEvent(m_Counts));
    m_Reactor.Close();
    EXPECT_EQ(m_Reactor.GetPendingEventsCount(), 2u);
    m_Reactor.Open();
    EXPECT_EQ(m_Reactor.GetPendingEventsCount(), 0u);
    m_Reactor.TakeLog();
    m_Reactor.PostEvent(new CTestEvent(m_Counts));
    EXPECT_EQ(m_Reactor.TakeLog(), (CTexts{NOTIFY}));
}

TEST_F(CPSReactorBaseEventsTest, Closed_PostAndSend_RefusedUntilTheNextOpen)
{
    m_Reactor.Close();
    m_Reactor.TakeLog();
    EXPECT_EQ(m_Reactor.PostEvent(new CTestEvent(m_Counts)), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(m_Reactor.SendEvent(new CTestEvent(m_Counts)), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(m_Counts.m_nDestroyed, 2);
    EXPECT_EQ(m_Reactor.TakeLog(), CTexts()) << "a closed reactor has nobody to wake";
    m_Reactor.Open();
    EXPECT_EQ(m_Reactor.PostEvent(new CTestEvent(m_Counts)), MN_OK);
    EXPECT_EQ(RunEvents(), MN_OK);
    EXPECT_EQ(m_Counts.m_nFired, 1);
}

}  // namespace
