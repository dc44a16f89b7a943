#include "reactor/CPSReactorSelect.h"

#include <algorithm>
#include <memory>

#include "ipstack/ps_defines.h"
#include "mantle/CMNClock.h"
#include "tests/unit/reactor/ReactorSupport.h"
#include "tests/unit/scripted/ScriptedStackTest.h"

using namespace uxport;

namespace
{

// The loop runs on the test's thread; every wait is scripted, the last one stops it.
class CPSReactorSelectTest : public ScriptedStackTest
{
protected:
    CPSReactorSelectTest()
    {
        m_Stack.EnablePipes();
        EXPECT_EQ(m_Reactor.Open(), MN_OK);
        m_Stack.TakeCalls();
    }

    void TearDown() override
    {
        m_Reactor.Close();
        ScriptedStackTest::TearDown();
    }

    void Register(CTestHandler& handler, long mask) { ASSERT_EQ(m_Reactor.RegisterHandler(&handler, mask), MN_OK); }
    void RunToStop()
    {
        m_Stack.On("ps_select").Returns(0).Calls([this] { m_Reactor.StopEventLoop(); });
        EXPECT_EQ(m_Reactor.RunEventLoop(), MN_OK);
    }

    CPSReactorSelect m_Reactor;
};

TEST_F(CPSReactorSelectTest, Run_NoTimers_WaitsForThePipeWithoutLimit)
{
    RunToStop();
    EXPECT_EQ(m_Stack.TakeCallsOf("ps_select"), (CCalls{"ps_select(104,[103],[],[],null)=0"}));
}

TEST_F(CPSReactorSelectTest, Run_Timers_FireBeforeTheWaitThatIsBoundedByTheNext)
{
    mantle::CMNManualClock clock(false);
    CTexts log;
    CTestTimer due([&] { log.emplace_back("timer"); });
    CTestTimer next;
    m_Reactor.ScheduleTimer(&next, nullptr, CMNTimeValue(2, 2500), 1);
    m_Reactor.ScheduleTimer(&due, nullptr, CMNTimeValue::s_tvZero, 1);
    m_Stack.On("ps_select").Returns(0).Calls([&] {
        log.emplace_back("wait");
        clock.Advance(CMNTimeValue(2, 2500));
    });
    RunToStop();
    EXPECT_EQ(log, (CTexts{"timer", "wait"}));
    EXPECT_EQ(next.m_nFired, 1);
    EXPECT_EQ(m_Stack.TakeCallsOf("ps_select"),
              (CCalls{"ps_select(104,[103],[],[],2s2500us)=0", "ps_select(104,[103],[],[],null)=0"}));
}

TEST_F(CPSReactorSelectTest, Run_ConnectRegistration_InBothListsAndEitherIsOnOutput)
{
    CTestHandler handler(500);
    Register(handler, CONNECT_MASK);
    m_Stack.On("ps_select").WithReady(500, PS_POLLOUT);
    m_Stack.On("ps_select").WithReady(500, PS_POLLIN);
    RunToStop();
    EXPECT_EQ(handler.TakeCalls(), (CTexts{"out 500", "out 500"}));
    const auto calls = m_Stack.TakeRecords();
    EXPECT_EQ(std::count(calls[0].m_Read.begin(), calls[0].m_Read.end(), 500), 1);
    EXPECT_EQ(calls[0].m_Write, (std::vector<int>{500}));
    EXPECT_EQ(calls[0].m_strText.substr(0, 14), "ps_select(501,");
}

TEST_F(CPSReactorSelectTest, Run_ReadyHandles_ReadListBeforeWriteListInTheirOrder)
{
    CTexts log;
    CTestHandler first(5, &log);
    CTestHandler second(6, &log);
    Register(first, READ_MASK | WRITE_MASK);
    Register(second, READ_MASK | WRITE_MASK);
    m_Stack.On("ps_select").WithReady(6, PS_POLLIN | PS_POLLOUT).WithReady(5, PS_POLLIN | PS_POLLOUT);
    RunToStop();
    EXPECT_EQ(log, (CTexts{"in 6", "in 5", "out 6", "out 5"}));
}

TEST_F(CPSReactorSelectTest, Run_FewerReportedThanListed_StopsAtTheReportedNumber)
{
    CTexts log;
    CTestHandler first(5, &log);
    CTestHandler second(6, &log);
    Register(first, READ_MASK | WRITE_MASK);
    Register(second, READ_MASK | WRITE_MASK);
    m_Stack.On("ps_select").WithReady(5, PS_POLLIN | PS_POLLOUT).WithReady(6, PS_POLLIN | PS_POLLOUT).Returns(1);
    m_Stack.On("ps_select").WithReady(5, PS_POLLIN | PS_POLLOUT).WithReady(6, PS_POLLIN | PS_POLLOUT).Returns(3);
    RunToStop();
    EXPECT_EQ(log, (CTexts{"in 5", "in 5", "in 6", "out 5"}));
}

TEST_F(CPSReactorSelectTest, Run_MinusOneInAList_SkippedAndNotCounted)
{
    CTestHandler handler(5);
    Register(handler, READ_MASK | WRITE_MASK);
    m_Stack.On("ps_select").WithReady(-1, PS_POLLIN | PS_POLLOUT).WithReady(5, PS_POLLIN | PS_POLLOUT).Returns(2);
    RunToStop();
    EXPECT_EQ(handler.TakeCalls(), (CTexts{"in 5", "out 5"}));
}

TEST_F(CPSReactorSelectTest, Run_UnknownHandleInTheList_CountedAndTheWalkGoesOn)
{
    CTestHandler handler(5);
    Register(handler, READ_MASK);
    m_Stack.On("ps_select").WithReady(99, PS_POLLIN).WithReady(5, PS_POLLIN);
    RunToStop();
    EXPECT_EQ(handler.TakeCalls(), (CTexts{"in 5"}));
}

TEST_F(CPSReactorSelectTest, Run_HandlerRemovedInInput_NoOutputFromTheWriteList)
{
    CTestHandler handler(5);
    handler.m_Input = [] { return -1; };
    Register(handler, READ_MASK | WRITE_MASK);
    m_Stack.On("ps_select").WithReady(5, PS_POLLIN | PS_POLLOUT);
    RunToStop();
    EXPECT_EQ(handler.TakeCalls(), (CTexts{"in 5", "close 5,12"}));
}

TEST_F(CPSReactorSelectTest, Run_TimeOut_NextTurn)
{
    CTestHandler handler(5);
    Register(handler, READ_MASK);
    m_Stack.On("ps_select").WithReady(5, PS_POLLIN).Returns(0);
    RunToStop();
    EXPECT_EQ(handler.TakeCalls(), CTexts());
    EXPECT_EQ(m_Stack.CountOf("ps_select"), 2u);
}

TEST_F(CPSReactorSelectTest, Run_WaitFails_FailureAndTheReactorStaysOpen)
{
    CTestHandler handler(5);
    Register(handler, READ_MASK);
    m_Stack.On("ps_select").Fails(PS_EINVAL);
    EXPECT_EQ(m_Reactor.RunEventLoop(), MN_ERROR_FAILURE);
    EXPECT_EQ(m_Stack.CountOf("ps_select"), 1u);
    EXPECT_EQ(m_Reactor.ProcessHandleEvent(5, 7, 0, 0, 0), MN_OK);
    EXPECT_EQ(m_Reactor.NotifyHandler(nullptr, EVENTQUEUE_MASK), MN_OK);
}

TEST_F(CPSReactorSelectTest, Run_OtherHandleReady_EventsWaitForTheirRecord)
{
    CTestEventCounts counts;
    CTestHandler handler(5);
    Register(handler, READ_MASK);
    m_Reactor.PostEvent(new CTestEvent(counts));
    m_Stack.On("ps_select").WithReady(5, PS_POLLIN);
    m_Stack.On("ps_select").Returns(0).Calls([&] { EXPECT_EQ(counts.m_nFired, 0); });
    m_Stack.On("ps_select").WithReady(103, PS_POLLIN);
    m_Stack.On("ps_select").Returns(0).Calls([&] { EXPECT_EQ(counts.m_nFired, 1); });
    RunToStop();
}

TEST_F(CPSReactorSelectTest, Run_MoreHandlersThanTheListsHold_1024EachAndTheHighest)
{
    std::vector<std::unique_ptr<CTestHandler>> handlers;
    for (int handle = 1000; handle < 2100; ++handle) {
        handlers.push_back(std::make_unique<CTestHandler>(handle));
        Register(*handlers.back(), READ_MASK | WRITE_MASK);
    }
    RunToStop();
    const auto calls = m_Stack.TakeRecords();
    EXPECT_EQ(calls[0].m_Read.size(), 1024u);
    EXPECT_EQ(calls[0].m_Write.size(), 1024u);
    EXPECT_EQ(calls[0].m_strText.substr(0, 15), "ps_select(2100,");
}

TEST_F(CPSReactorSelectTest, Run_StopInMidWalk_NoFurtherWait)
{
    CTestHandler handler(5);
    handler.m_Input = [this] { return static_cast<int>(m_Reactor.StopEventLoop()); };
    Register(handler, READ_MASK);
    m_Stack.On("ps_select").WithReady(5, PS_POLLIN);
    EXPECT_EQ(m_Reactor.RunEventLoop(), MN_OK);
    EXPECT_EQ(m_Stack.CountOf("ps_select"), 1u);
}

TEST_F(CPSReactorSelectTest, Open_PipeFails_ClosedAndMayBeTriedAgain)
{
    CPSReactorSelect reactor;
    CTestTimer timer;
    m_Stack.On("ps_socket").Fails(PS_EMFILE);
    EXPECT_EQ(reactor.Open(), MN_ERROR_FAILURE);
    EXPECT_TRUE(reactor.IsFlagStopped());
    EXPECT_EQ(reactor.ScheduleTimer(&timer, nullptr, CMNTimeValue::s_tvZero, 1), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(reactor.Open(), MN_OK);
    EXPECT_FALSE(reactor.IsFlagStopped());
    reactor.Close();
}

TEST_F(CPSReactorSelectTest, Reopen_EventsDroppedByTheClose_NewOnesRunAgain)
{
    CTestEventCounts counts;
    m_Reactor.PostEvent(new CTestEvent(counts));
    EXPECT_EQ(m_Reactor.Close(), MN_OK);
    EXPECT_EQ(counts.m_nDestroyed, 1);
    EXPECT_EQ(m_Reactor.GetPendingEventsCount(), 1u) << "the count of then";

    EXPECT_EQ(m_Reactor.Open(), MN_OK);
    EXPECT_EQ(m_Reactor.GetPendingEventsCount(), 0u);
    m_Reactor.PostEvent(new CTestEvent(counts, [this] { return m_Reactor.StopEventLoop(); }));
    EXPECT_EQ(m_Reactor.RunEventLoop(), MN_OK) << "the wait is the pipe's own";
    EXPECT_EQ(counts.m_nFired, 1);
}

TEST_F(CPSReactorSelectTest, Reopen_PostsWhileClosed_WereRefusedAndNewOnesRun)
{
    CTestEventCounts counts;
    m_Reactor.PostEvent(new CTestEvent(counts));
    m_Reactor.Close();
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(m_Reactor.PostEvent(new CTestEvent(counts)), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(counts.m_nDestroyed, 4);
    m_Reactor.Open();
    EXPECT_EQ(m_Stack.CountOf("ps_send", 105), 0u);
    m_Reactor.PostEvent(new CTestEvent(counts, [this] { return m_Reactor.StopEventLoop(); }));
    EXPECT_EQ(m_Reactor.RunEventLoop(), MN_OK);
    EXPECT_EQ(counts.m_nFired, 1);
}

TEST_F(CPSReactorSelectTest, Open_TwiceWithoutAClose_TheFirstPipeIsNotLeftOpen)
{
    CTestEventCounts counts;
    m_Reactor.PostEvent(new CTestEvent(counts, [this] { return m_Reactor.StopEventLoop(); }));
    EXPECT_EQ(m_Reactor.Open(), MN_OK);
    EXPECT_EQ(m_Stack.CountOf("ps_close", 103), 1u);
    EXPECT_EQ(m_Stack.CountOf("ps_close", 102), 1u);
    EXPECT_EQ(m_Reactor.RunEventLoop(), MN_OK) << "the event's record went with the first pipe";
    EXPECT_EQ(counts.m_nFired, 1);
    EXPECT_EQ(m_Stack.TakeCallsOf("ps_select").front(), "ps_select(107,[106],[],[],null)=1");
}

TEST_F(CPSReactorSelectTest, Reopen_HandlersAndTimersOfBefore_AreForgotten)
{
    CTestHandler handler(5);
    CTestTimer timer;
    Register(handler, READ_MASK);
    m_Reactor.ScheduleTimer(&timer, nullptr, CMNTimeValue::s_tvZero, 1);
    m_Reactor.Close();
    m_Reactor.Open();
    RunToStop();
    EXPECT_EQ(timer.m_nFired, 0);
    EXPECT_EQ(m_Stack.TakeCallsOf("ps_select"), (CCalls{"ps_select(107,[106],[],[],null)=0"}));
}

}  // namespace
