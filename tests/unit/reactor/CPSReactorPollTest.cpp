#include "reactor/CPSReactorPoll.h"

#include <memory>

#include "mantle/CMNClock.h"
#include "tests/unit/reactor/ReactorSupport.h"
#include "tests/unit/scripted/ScriptedStackTest.h"

using namespace uxport;

namespace
{

constexpr int READ_END = 103;

// The loop runs on the test's thread; every wait is scripted, the last one stops it.
class CPSReactorPollTest : public ScriptedStackTest
{
protected:
    CPSReactorPollTest() : m_pReactor(std::make_unique<CPSReactorPoll>())
    {
        m_Stack.EnablePipes();
        EXPECT_EQ(m_pReactor->Open(), MN_OK);
        m_Stack.TakeCalls();
    }

    void Register(CTestHandler& handler, long mask) { ASSERT_EQ(m_pReactor->RegisterHandler(&handler, mask), MN_OK); }

    // Ends the loop from inside the wait.
    void ScriptStop()
    {
        m_Stack.On("ps_poll").Returns(0).Calls([this] { m_pReactor->StopEventLoop(); });
    }
    void RunToStop()
    {
        ScriptStop();
        EXPECT_EQ(m_pReactor->RunEventLoop(), MN_OK);
    }
    std::vector<std::vector<ps_pollfd>> TakePolls()
    {
        std::vector<std::vector<ps_pollfd>> polls;
        for (const CScriptedCall& call : m_Stack.TakeRecords()) {
            if (call.m_strName == "ps_poll")
                polls.push_back(call.m_Entries);
        }
        return polls;
    }

    std::unique_ptr<CPSReactorPoll> m_pReactor;
};

TEST_F(CPSReactorPollTest, Open_Succeeds_StartsAndListensToThePipe)
{
    EXPECT_FALSE(m_pReactor->IsFlagStopped());
    EXPECT_EQ(m_pReactor->GetReactorType(), 4);
    RunToStop();
    EXPECT_EQ(m_Stack.TakeCallsOf("ps_poll"), (CCalls{"ps_poll([103:1],1,-1)=0"}));
}

TEST_F(CPSReactorPollTest, Open_Again_OkAndNothingChanges)
{
    EXPECT_EQ(m_pReactor->Open(), MN_OK);
    m_pReactor->StopEventLoop();
    EXPECT_EQ(m_pReactor->Open(), MN_OK);
    EXPECT_TRUE(m_pReactor->IsFlagStopped()) << "not even the stop flag";
    EXPECT_EQ(m_Stack.CountOf("ps_socket"), 2u);
}

TEST_F(CPSReactorPollTest, Open_AfterClose_OkAndStaysClosed)
{
    EXPECT_EQ(m_pReactor->Close(), MN_OK);
    EXPECT_EQ(m_pReactor->Open(), MN_OK);
    EXPECT_EQ(m_Stack.CountOf("ps_socket"), 2u);
    CTestTimer timer;
    EXPECT_EQ(m_pReactor->ScheduleTimer(&timer, nullptr, CMNTimeValue::s_tvZero, 1), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(m_pReactor->NotifyHandler(nullptr, EVENTQUEUE_MASK), MN_ERROR_NOT_INITIALIZED);
}

TEST_F(CPSReactorPollTest, Open_PipeFails_ClosedAndMayBeTriedAgain)
{
    CPSReactorPoll reactor;
    CTestTimer timer;
    m_Stack.On("ps_socket").Fails(PS_EMFILE);
    EXPECT_EQ(reactor.Open(), MN_ERROR_FAILURE);
    EXPECT_TRUE(reactor.IsFlagStopped());
    EXPECT_EQ(reactor.ScheduleTimer(&timer, nullptr, CMNTimeValue::s_tvZero, 1), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(reactor.RunEventLoop(), MN_OK) << "stopped: ends without a wait";
    EXPECT_EQ(reactor.Open(), MN_OK);
    EXPECT_FALSE(reactor.IsFlagStopped());
    reactor.Close();
}

TEST_F(CPSReactorPollTest, Open_PipesHandleTaken_FoundAndClosed)
{
    CPSReactorPoll reactor;
    CTestHandler other(106);  // what the second pipe's read end will be
    reactor.RegisterHandler(&other, READ_MASK);
    EXPECT_EQ(reactor.Open(), MN_ERROR_FOUND);
    EXPECT_TRUE(reactor.IsFlagStopped());
    EXPECT_EQ(reactor.NotifyHandler(nullptr, EVENTQUEUE_MASK), MN_ERROR_NOT_INITIALIZED);
}

TEST_F(CPSReactorPollTest, Run_NotOpen_ReturnsAtOnce)
{
    CPSReactorPoll reactor;
    EXPECT_EQ(reactor.RunEventLoop(), MN_OK);
    EXPECT_EQ(m_Stack.CountOf("ps_poll"), 0u);
}

TEST_F(CPSReactorPollTest, Run_EachReturnedEvent_DispatchedByItsMask)
{
    for (short events = 0; events <= 15; ++events) {
        CTestHandler handler(5);
        Register(handler, READ_MASK | WRITE_MASK);
        m_Stack.On("ps_poll").WithReady(5, events).Returns(1);
        RunToStop();
        m_pReactor->SetStartFlag();
        CTexts expected;
        if (events & (PS_POLLERR | PS_POLLHUP)) {
            expected.emplace_back("close 5,12");
        } else {
            if (events & PS_POLLIN)
                expected.emplace_back("in 5");
            if (events & PS_POLLOUT)
                expected.emplace_back("out 5");
        }
        EXPECT_EQ(handler.TakeCalls(), expected) << events;
        m_pReactor->RemoveHandler(&handler, ALL_EVENTS_MASK);
    }
}

TEST_F(CPSReactorPollTest, Run_ErrorAlone_RemovedWithOnCloseOnly)
{
    CTestHandler handler(5);
    Register(handler, READ_MASK);
    m_Stack.On("ps_poll").WithReady(5, PS_POLLERR);
    RunToStop();
    EXPECT_EQ(handler.TakeCalls(), (CTexts{"close 5,4"}));
    EXPECT_EQ(m_pReactor->ProcessHandleEvent(5, 7, 0, 0, 0), MN_ERROR_NOT_FOUND);
}

TEST_F(CPSReactorPollTest, Run_ConnectRegistration_AsksForBothAndEitherIsOnOutput)
{
    CTestHandler handler(5);
    Register(handler, CONNECT_MASK);
    m_Stack.On("ps_poll").WithReady(5, PS_POLLOUT);
    m_Stack.On("ps_poll").WithReady(5, PS_POLLIN);
    RunToStop();
    EXPECT_EQ(handler.TakeCalls(), (CTexts{"out 5", "out 5"}));
    const auto polls = TakePolls();
    for (const ps_pollfd& entry : polls.at(0))
        EXPECT_EQ(entry.events, entry.fd == 5 ? PS_POLLIN | PS_POLLOUT : PS_POLLIN);
}

TEST_F(CPSReactorPollTest, Run_NegativeReturnedEvents_SkippedAndNotCounted)
{
    CTexts log;
    CTestHandler first(5, &log);
    CTestHandler second(6, &log);
    Register(first, READ_MASK);
    Register(second, READ_MASK);
    m_Stack.On("ps_poll").WithReady(5, -32767).WithReady(6, PS_POLLIN).Returns(1);
    m_Stack.On("ps_poll").WithReady(6, -32767).WithReady(5, PS_POLLIN).Returns(1);
    RunToStop();
    EXPECT_EQ(log, (CTexts{"in 6", "in 5"}));
}

TEST_F(CPSReactorPollTest, Run_HandleZeroOrNegative_SkippedAndNotCounted)
{
    CTexts log;
    CTestHandler zero(0, &log);
    CTestHandler gone(7, &log);
    CTestHandler handler(5, &log);
    Register(zero, READ_MASK);
    Register(gone, READ_MASK);
    Register(handler, READ_MASK);
    gone.m_nHandle = -1;
    for (const long ready : {1l, 3l})
        m_Stack.On("ps_poll").WithReady(0, PS_POLLIN).WithReady(-1, PS_POLLIN).WithReady(5, PS_POLLIN).Returns(ready);
    RunToStop();
    EXPECT_EQ(log, (CTexts{"in 5", "in 5"}));
}

TEST_F(CPSReactorPollTest, Run_FewerReportedThanMarked_StopsAtTheReportedNumber)
{
    CTexts log;
    std::vector<std::unique_ptr<CTestHandler>> handlers;
    auto& answer = m_Stack.On("ps_poll").Returns(2);
    for (int handle = 5; handle < 9; ++handle) {
        handlers.push_back(std::make_unique<CTestHandler>(handle, &log));
        Register(*handlers.back(), READ_MASK);
        answer.WithReady(handle, PS_POLLIN);
    }
    RunToStop();
    CTexts expected;
    const auto polls = TakePolls();
    for (const ps_pollfd& entry : polls.at(0)) {
        if (entry.fd != READ_END && expected.size() < 2)
            expected.push_back("in " + std::to_string(entry.fd));
    }
    EXPECT_EQ(log, expected) << "in the order of the entries";
}

TEST_F(CPSReactorPollTest, Run_TimeOut_NoDispatchAndNoEvents)
{
    CTestEventCounts counts;
    CTestHandler handler(5);
    Register(handler, READ_MASK);
    m_pReactor->PostEvent(new CTestEvent(counts));
    m_Stack.On("ps_poll").WithReady(5, PS_POLLIN).Returns(0);
    m_Stack.On("ps_poll").Fails(PS_EBADF);
    EXPECT_EQ(m_pReactor->RunEventLoop(), MN_ERROR_FAILURE);
    EXPECT_EQ(handler.TakeCalls(), CTexts());
    EXPECT_EQ(counts.m_nFired, 0);
    EXPECT_EQ(m_Stack.CountOf("ps_poll"), 2u);
    m_pReactor->Close();
}

TEST_F(CPSReactorPollTest, Run_WaitFails_FailureAndTheReactorStaysOpen)
{
    CTestHandler handler(5);
    Register(handler, READ_MASK);
    m_Stack.On("ps_poll").Fails(PS_EINVAL);
    EXPECT_EQ(m_pReactor->RunEventLoop(), MN_ERROR_FAILURE);
    EXPECT_EQ(m_Stack.CountOf("ps_poll"), 1u) << "no second try";
    EXPECT_EQ(m_pReactor->ProcessHandleEvent(5, 7, 0, 0, 0), MN_OK);
    EXPECT_EQ(handler.TakeCalls(), (CTexts{"in 5"}));
    EXPECT_EQ(m_pReactor->NotifyHandler(nullptr, EVENTQUEUE_MASK), MN_OK);
}

TEST_F(CPSReactorPollTest, Run_AnyReadyHandle_EventsRunBehindTheWalk)
{
    CTexts log;
    CTestEventCounts counts;
    CTestHandler handler(5, &log);
    Register(handler, READ_MASK);
    m_pReactor->PostEvent(new CTestEvent(counts, [&] {
        log.emplace_back("event");
        return MN_OK;
    }));
    m_Stack.On("ps_poll").WithReady(5, PS_POLLIN);
    RunToStop();
    EXPECT_EQ(log, (CTexts{"in 5", "event"}));
}

TEST_F(CPSReactorPollTest, Run_HandlerRemovesALaterOne_ThatOneIsNotCalled)
{
    CTexts log;
    auto first = std::make_unique<CTestHandler>(5, &log);
    auto second = std::make_unique<CTestHandler>(6, &log);
    const auto removeOther = [this](std::unique_ptr<CTestHandler>& other) {
        m_pReactor->RemoveHandler(other.get(), ALL_EVENTS_MASK);
        other.reset();
        return 0;
    };
    first->m_Input = [&] { return removeOther(second); };
    second->m_Input = [&] { return removeOther(first); };
    Register(*first, READ_MASK);
    Register(*second, READ_MASK);
    m_Stack.On("ps_poll").WithReady(5, PS_POLLIN).WithReady(6, PS_POLLIN);
    RunToStop();
    EXPECT_EQ(log.size(), 1u) << testing::PrintToString(log);
}

TEST_F(CPSReactorPollTest, Run_Timers_FireBeforeTheWaitThatIsBoundedByTheNext)
{
    mantle::CMNManualClock clock(false);
    CTexts log;
    CTestTimer due([&] { log.emplace_back("timer"); });
    CTestTimer next;
    m_pReactor->ScheduleTimer(&next, nullptr, CMNTimeValue(0, 2500), 1);
    m_pReactor->ScheduleTimer(&due, nullptr, CMNTimeValue::s_tvZero, 1);
    m_Stack.On("ps_poll").Returns(0).Calls([&] { log.emplace_back("wait"); });
    m_Stack.On("ps_poll").Returns(0).Calls([&] { clock.Advance(CMNTimeValue(0, 2500)); });
    RunToStop();
    EXPECT_EQ(log, (CTexts{"timer", "wait"}));
    EXPECT_EQ(next.m_nFired, 1);
    EXPECT_EQ(m_Stack.TakeCallsOf("ps_poll"),
              (CCalls{"ps_poll([103:1],1,3)=0", "ps_poll([103:1],1,3)=0", "ps_poll([103:1],1,-1)=0"}))
        << "whole milliseconds, rounded up; without a timer no limit";
}

TEST_F(CPSReactorPollTest, Run_HugeInterval_TheLargestTimeOut)
{
    mantle::CMNManualClock clock(false);
    CTestTimer timer;
    m_pReactor->ScheduleTimer(&timer, nullptr, CMNTimeValue(0x7fffffffffl, 0), 1);
    RunToStop();
    EXPECT_EQ(m_Stack.TakeCallsOf("ps_poll"), (CCalls{"ps_poll([103:1],1,2147483647)=0"}));
}

TEST_F(CPSReactorPollTest, Run_StopInMidWalk_NoFurtherWait)
{
    CTestHandler first(5);
    CTestHandler second(6);
    const auto stop = [this] { return static_cast<int>(m_pReactor->StopEventLoop()); };
    first.m_Input = stop;
    second.m_Input = stop;
    Register(first, READ_MASK);
    Register(second, READ_MASK);
    m_Stack.On("ps_poll").WithReady(5, PS_POLLIN).WithReady(6, PS_POLLIN);
    EXPECT_EQ(m_pReactor->RunEventLoop(), MN_OK);
    EXPECT_EQ(m_Stack.CountOf("ps_poll"), 1u);
}

TEST_F(CPSReactorPollTest, Run_MoreHandlersThanOneWaitWatches_8193Entries)
{
    std::vector<std::unique_ptr<CTestHandler>> handlers;
    for (int handle = 1000; handle < 1000 + 8300; ++handle) {
        handlers.push_back(std::make_unique<CTestHandler>(handle));
        Register(*handlers.back(), READ_MASK);
    }
    RunToStop();
    EXPECT_EQ(TakePolls().at(0).size(), 8193u);
    static_assert(CPSReactorPoll::s_dwMaxHandles == 8192);
}

TEST_F(CPSReactorPollTest, Run_RegistrationsChangeBetweenTurns_EachWaitIsBuiltAnew)
{
    CTestHandler handler(5);
    m_Stack.On("ps_poll").Returns(0).Calls([&] { Register(handler, READ_MASK); });
    m_Stack.On("ps_poll").Returns(0).Calls([&] { m_pReactor->RegisterHandler(&handler, WRITE_MASK); });
    m_Stack.On("ps_poll").Returns(0).Calls([&] { m_pReactor->RemoveHandler(&handler, ALL_EVENTS_MASK); });
    RunToStop();
    std::vector<int> events;
    for (const auto& poll : TakePolls()) {
        int found = -1;
        for (const ps_pollfd& entry : poll)
            found = entry.fd == 5 ? entry.events : found;
        events.push_back(found);
    }
    EXPECT_EQ(events, (std::vector<int>{-1, PS_POLLIN, PS_POLLOUT, -1}));
}

TEST_F(CPSReactorPollTest, HandleHooks_Called_DoNothing)
{
    CTestHandler handler(5);
    EXPECT_EQ(m_pReactor->OnHandleRegister(5, READ_MASK, &handler), MN_OK);
    m_pReactor->OnHandleRemoved(5);
    EXPECT_EQ(handler.TakeCalls(), CTexts());
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSReactorPollTest, Destructor_OpenWithPendingEvents_ClosesThePipeAndDestroysThem)
{
    CTestEventCounts counts;
    CPSReactorPoll* reactor = m_pReactor.get();
    const auto post = [&counts, reactor] { reactor->PostEvent(new CTestEvent(counts)); };
    reactor->PostEvent((new CTestEvent(counts))->AtDelete(post));
    reactor->PostEvent(new CTestEvent(counts, nullptr, post));
    m_pReactor.reset();
    EXPECT_EQ(counts.m_nDestroyed, 4);
    EXPECT_EQ(counts.m_nFired, 0);
    EXPECT_EQ(m_Stack.CountOf("ps_close", READ_END), 1u);
    EXPECT_EQ(m_Stack.CountOf("ps_close", 102), 1u);
}

}  // namespace
