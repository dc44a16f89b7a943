#include "reactor/CPSReactorBase.h"

#include <thread>

#include "mantle/CMNClock.h"
#include "mantle/CMNThreadManager.h"
#include "tests/unit/reactor/ReactorSupport.h"
#include "tests/unit/scripted/ScriptedStackTest.h"

using namespace uxport;

namespace
{

class CPSReactorBaseTest : public ScriptedStackTest
{
protected:
    CPSReactorBaseTest() { m_Reactor.Open(); }

    CTestReactor m_Reactor;
    CTestHandler m_Handler{5};
};

TEST_F(CPSReactorBaseTest, Constructed_BeforeOpen_IsStoppedAndEmpty)
{
    CTestReactor reactor;
    EXPECT_TRUE(reactor.IsFlagStopped());
    EXPECT_EQ(reactor.GetReactorType(), 4);
    EXPECT_EQ(reactor.GetPendingEventsCount(), 0u);
    EXPECT_EQ(reactor.GetCookie(), nullptr);
    int cookie = 0;
    reactor.SetCookie(&cookie);
    EXPECT_EQ(reactor.GetCookie(), nullptr);
    EXPECT_FALSE(reactor.IsReactorThread());
}

TEST_F(CPSReactorBaseTest, Open_BindsToTheCallingThread)
{
    EXPECT_TRUE(m_Reactor.IsReactorThread());
    EXPECT_EQ(m_Reactor.GetStopFlagThread(), mantle::CMNThreadManager::GetThreadSelfId());
    EXPECT_TRUE(m_Reactor.IsFlagStopped()) << "the deriving class starts it, once its pipe is open";
    std::thread([this] { EXPECT_FALSE(m_Reactor.IsReactorThread()); }).join();
}

TEST_F(CPSReactorBaseTest, Open_Again_KeepsTheTimers)
{
    CTestTimer timer;
    m_Reactor.ScheduleTimer(&timer, nullptr, CMNTimeValue::s_tvZero, 1);
    EXPECT_EQ(m_Reactor.Open(), MN_OK);
    EXPECT_EQ(m_Reactor.ProcessTimerTick(), MN_OK);
    EXPECT_EQ(timer.m_nFired, 1);
}

TEST_F(CPSReactorBaseTest, RegisterHandler_Null_Refused)
{
    EXPECT_EQ(m_Reactor.RegisterHandler(nullptr, READ_MASK), MN_ERROR_INVALID_ARG);
    EXPECT_EQ(m_Reactor.TakeLog(), CTexts());
}

TEST_F(CPSReactorBaseTest, RegisterHandler_NoRegistrationBit_Refused)
{
    for (const long mask : {0l, 64l, 128l, 192l, 256l})
        EXPECT_EQ(m_Reactor.RegisterHandler(&m_Handler, mask), MN_ERROR_INVALID_ARG) << mask;
    EXPECT_EQ(m_Reactor.TakeLog(), CTexts());
    EXPECT_FALSE(m_Reactor.IsRegistered(5));
}

TEST_F(CPSReactorBaseTest, RegisterHandler_NoHandle_AsksAndThenRefuses)
{
    CTestHandler none(-1);
    EXPECT_EQ(m_Reactor.RegisterHandler(&none, READ_MASK), MN_ERROR_INVALID_ARG);
    m_Reactor.m_dwRegister = MN_ERROR_FAILURE;
    EXPECT_EQ(m_Reactor.RegisterHandler(&none, READ_MASK), MN_ERROR_FAILURE);
    EXPECT_EQ(m_Reactor.TakeLog(), (CTexts{"register -1,4", "register -1,4"}));
}

TEST_F(CPSReactorBaseTest, RegisterHandler_NewHandle_AsksAndBinds)
{
    EXPECT_EQ(m_Reactor.RegisterHandler(&m_Handler, 12), MN_OK);
    EXPECT_EQ(m_Reactor.TakeLog(), (CTexts{"register 5,12"}));
    EXPECT_EQ(m_Reactor.GetMask(5), 12);
}

TEST_F(CPSReactorBaseTest, RegisterHandler_DerivedRefuses_ItsResultAndNothingBound)
{
    m_Reactor.m_dwRegister = MN_ERROR_NOT_AVAILABLE;
    EXPECT_EQ(m_Reactor.RegisterHandler(&m_Handler, 4), MN_ERROR_NOT_AVAILABLE);
    EXPECT_FALSE(m_Reactor.IsRegistered(5));
}

TEST_F(CPSReactorBaseTest, RegisterHandler_SameAgain_OkAndNothingChanges)
{
    m_Reactor.RegisterHandler(&m_Handler, 4);
    m_Reactor.TakeLog();
    EXPECT_EQ(m_Reactor.RegisterHandler(&m_Handler, 4), MN_OK);
    EXPECT_EQ(m_Reactor.RegisterHandler(&m_Handler, 4 | 64), MN_OK) << "the mask is reduced before it is compared";
    EXPECT_EQ(m_Reactor.TakeLog(), CTexts());
    EXPECT_EQ(m_Reactor.GetMask(5), 4);
}

TEST_F(CPSReactorBaseTest, RegisterHandler_OtherMask_ReplacesAndReturnsFound)
{
    m_Reactor.RegisterHandler(&m_Handler, 4);
    m_Reactor.TakeLog();
    m_Reactor.m_dwRegister = MN_ERROR_FAILURE;  // not asked again
    EXPECT_EQ(m_Reactor.RegisterHandler(&m_Handler, 8), MN_ERROR_FOUND);
    EXPECT_EQ(m_Reactor.GetMask(5), 8);
    EXPECT_EQ(m_Reactor.TakeLog(), CTexts());
}

TEST_F(CPSReactorBaseTest, RegisterHandler_OtherHandlerOnTheHandle_ReplacesAndReturnsFound)
{
    CTestHandler other(5);
    m_Reactor.RegisterHandler(&m_Handler, 4);
    EXPECT_EQ(m_Reactor.RegisterHandler(&other, 4), MN_ERROR_FOUND);
    EXPECT_EQ(m_Reactor.GetHandler(5), &other);
    EXPECT_EQ(m_Handler.TakeCalls(), CTexts());
}

TEST_F(CPSReactorBaseTest, RegisterHandler_ForeignBits_AreNotStored)
{
    m_Reactor.RegisterHandler(&m_Handler, 0x1ff);
    EXPECT_EQ(m_Reactor.GetMask(5), 63);
    CTestHandler idle(6);
    EXPECT_EQ(m_Reactor.RegisterHandler(&idle, 16 | 32), MN_OK);
    EXPECT_EQ(m_Reactor.GetMask(6), 48);
}

TEST_F(CPSReactorBaseTest, RemoveHandler_BadArguments_Refused)
{
    m_Reactor.RegisterHandler(&m_Handler, 4);
    EXPECT_EQ(m_Reactor.RemoveHandler(nullptr, 63), MN_ERROR_INVALID_ARG);
    for (const long mask : {0l, 64l, 128l, 256l})
        EXPECT_EQ(m_Reactor.RemoveHandler(&m_Handler, mask), MN_ERROR_INVALID_ARG) << mask;
    EXPECT_TRUE(m_Reactor.IsRegistered(5));
}

TEST_F(CPSReactorBaseTest, RemoveHandler_NoHandleOrNotRegistered_Ok)
{
    CTestHandler none(-1);
    EXPECT_EQ(m_Reactor.RemoveHandler(&none, 63), MN_OK);
    EXPECT_EQ(m_Reactor.RemoveHandler(&m_Handler, 63), MN_OK);
    EXPECT_EQ(m_Reactor.TakeLog(), CTexts());
}

TEST_F(CPSReactorBaseTest, RemoveHandler_OneOfTwoBits_KeepsTheOtherAndReturnsFound)
{
    m_Reactor.RegisterHandler(&m_Handler, 12);
    m_Reactor.TakeLog();
    EXPECT_EQ(m_Reactor.RemoveHandler(&m_Handler, READ_MASK), MN_ERROR_FOUND);
    EXPECT_EQ(m_Reactor.GetMask(5), 8);
    EXPECT_EQ(m_Reactor.TakeLog(), CTexts());
}

TEST_F(CPSReactorBaseTest, RemoveHandler_BitsThatItHasNot_OkAndNothingChanges)
{
    m_Reactor.RegisterHandler(&m_Handler, 4);
    m_Reactor.TakeLog();
    EXPECT_EQ(m_Reactor.RemoveHandler(&m_Handler, 8 | 1), MN_OK);
    EXPECT_EQ(m_Reactor.GetMask(5), 4);
    EXPECT_EQ(m_Reactor.TakeLog(), CTexts());
}

TEST_F(CPSReactorBaseTest, RemoveHandler_LastBit_TellsTheDerivedButNotTheHandler)
{
    m_Reactor.RegisterHandler(&m_Handler, 4);
    m_Reactor.TakeLog();
    EXPECT_EQ(m_Reactor.RemoveHandler(&m_Handler, 4), MN_OK);
    EXPECT_FALSE(m_Reactor.IsRegistered(5));
    EXPECT_EQ(m_Reactor.TakeLog(), (CTexts{"removed 5"}));
    EXPECT_EQ(m_Handler.TakeCalls(), CTexts());
}

TEST_F(CPSReactorBaseTest, RemoveHandler_WithShouldCall_StillNoOnClose)
{
    m_Reactor.RegisterHandler(&m_Handler, 12);
    EXPECT_EQ(m_Reactor.RemoveHandler(&m_Handler, ALL_EVENTS_MASK | SHOULD_CALL), MN_OK);
    EXPECT_FALSE(m_Reactor.IsRegistered(5));
    EXPECT_EQ(m_Handler.TakeCalls(), CTexts());
}

TEST_F(CPSReactorBaseTest, RemoveHandler_OtherHandlerWithTheHandle_RemovesWhatIsRegistered)
{
    CTestHandler other(5);
    m_Reactor.RegisterHandler(&m_Handler, 12);
    EXPECT_EQ(m_Reactor.RemoveHandler(&other, 8), MN_ERROR_FOUND);
    EXPECT_EQ(m_Reactor.GetHandler(5), &m_Handler) << "what stays is still the registered handler's";
    EXPECT_EQ(m_Reactor.RemoveHandler(&other, 63), MN_OK);
    EXPECT_FALSE(m_Reactor.IsRegistered(5));
}

TEST_F(CPSReactorBaseTest, ForgetHandler_OwnRegistration_TakenOutSilently)
{
    m_Reactor.RegisterHandler(&m_Handler, 4);
    m_Reactor.TakeLog();
    std::thread([this] { CPSReactorBase::ForgetHandler(&m_Reactor, &m_Handler); }).join();
    EXPECT_FALSE(m_Reactor.IsRegistered(5));
    EXPECT_EQ(m_Reactor.TakeLog(), CTexts());
    EXPECT_EQ(m_Handler.TakeCalls(), CTexts());
}

TEST_F(CPSReactorBaseTest, ForgetHandler_OthersRegistrationOrNoReactor_NothingHappens)
{
    CTestHandler other(5);
    m_Reactor.RegisterHandler(&m_Handler, 4);
    CPSReactorBase::ForgetHandler(&m_Reactor, &other);
    CPSReactorBase::ForgetHandler(nullptr, &m_Handler);
    EXPECT_TRUE(m_Reactor.IsRegistered(5));
}

TEST_F(CPSReactorBaseTest, Timers_BeforeOpenAndAfterClose_NotInitialized)
{
    CTestReactor reactor;
    CTestTimer timer;
    EXPECT_EQ(reactor.ScheduleTimer(&timer, nullptr, CMNTimeValue(1, 0), 1), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(reactor.CancelTimer(&timer), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(reactor.ProcessTimerTick(), MN_ERROR_NOT_INITIALIZED);
    m_Reactor.Close();
    EXPECT_EQ(m_Reactor.ScheduleTimer(&timer, nullptr, CMNTimeValue(1, 0), 1), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(m_Reactor.CancelTimer(&timer), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(m_Reactor.ProcessTimerTick(), MN_ERROR_NOT_INITIALIZED);
}

TEST_F(CPSReactorBaseTest, Timers_Open_HandedToTheQueue)
{
    mantle::CMNManualClock clock(false);
    CTestTimer timer;
    CTestTimer other;
    EXPECT_EQ(m_Reactor.ScheduleTimer(nullptr, nullptr, CMNTimeValue(1, 0), 1), MN_ERROR_INVALID_ARG);
    EXPECT_EQ(m_Reactor.ScheduleTimer(&timer, nullptr, CMNTimeValue(1, 0), 2), MN_OK);
    EXPECT_EQ(m_Reactor.ScheduleTimer(&other, nullptr, CMNTimeValue(1, 0), 1), MN_OK);
    EXPECT_EQ(m_Reactor.CancelTimer(&other), MN_OK);
    for (int second = 0; second < 4; ++second) {
        EXPECT_EQ(m_Reactor.ProcessTimerTick(), MN_OK);
        clock.Advance(CMNTimeValue(1, 0));
    }
    EXPECT_EQ(timer.m_nFired, 2);
    EXPECT_EQ(other.m_nFired, 0);
}

TEST_F(CPSReactorBaseTest, ProcessTimerTick_SeveralDue_FiresAll)
{
    CTestTimer timers[3];
    for (CTestTimer& timer : timers)
        m_Reactor.ScheduleTimer(&timer, nullptr, CMNTimeValue::s_tvZero, 1);
    EXPECT_EQ(m_Reactor.ProcessTimerTick(), MN_OK);
    for (const CTestTimer& timer : timers)
        EXPECT_EQ(timer.m_nFired, 1);
}

TEST_F(CPSReactorBaseTest, Close_HandlersTimersEvents_DroppedWithoutACall)
{
    CTestTimer timer;
    CTestEventCounts counts;
    m_Reactor.RegisterHandler(&m_Handler, 4);
    m_Reactor.ScheduleTimer(&timer, nullptr, CMNTimeValue::s_tvZero, 1);
    m_Reactor.PostEvent(new CTestEvent(counts));
    m_Reactor.TakeLog();
    EXPECT_EQ(m_Reactor.Close(), MN_OK);
    EXPECT_FALSE(m_Reactor.IsRegistered(5));
    EXPECT_EQ(m_Handler.TakeCalls(), CTexts());
    EXPECT_EQ(timer.m_nFired, 0);
    EXPECT_EQ(counts.m_nFired, 0);
    EXPECT_EQ(counts.m_nDestroyed, 1);
    EXPECT_EQ(m_Reactor.TakeLog(), CTexts());
    EXPECT_EQ(m_Reactor.Close(), MN_OK) << "closing twice";
}

TEST_F(CPSReactorBaseTest, Destructor_WithoutClose_FreesTimersAndEvents)
{
    CTestEventCounts counts;
    CTestTimer timer;
    {
        CTestReactor reactor;
        reactor.Open();
        reactor.ScheduleTimer(&timer, nullptr, CMNTimeValue(1, 0), 0);
        reactor.RegisterHandler(&m_Handler, 4);
        reactor.PostEvent(new CTestEvent(counts));
    }
    EXPECT_EQ(counts.m_nDestroyed, 1);
    EXPECT_EQ(counts.m_nAlive, 0);
    EXPECT_EQ(timer.m_nFired, 0);
    EXPECT_EQ(m_Handler.TakeCalls(), CTexts());
}

TEST_F(CPSReactorBaseTest, ForeignThread_EveryOperationOfTheReactorsThread_IsReported)
{
    CTestTimer timer;
    std::thread([&] {
        m_Reactor.RegisterHandler(&m_Handler, 4);
        m_Reactor.RemoveHandler(&m_Handler, 4);
        m_Reactor.ScheduleTimer(&timer, nullptr, CMNTimeValue(1, 0), 1);
        m_Reactor.CancelTimer(&timer);
        m_Reactor.ProcessTimerTick();
        m_Reactor.ProcessHandleEvent(5, 4, 0, 0, 0);
    }).join();
    ExpectReports(6);
    EXPECT_EQ(Reports(), (CTexts{"CPSReactorBase::RegisterHandler", "CPSReactorBase::RemoveHandler",
                                 "CPSReactorBase::ScheduleTimer", "CPSReactorBase::CancelTimer",
                                 "CPSReactorBase::ProcessTimerTick", "CPSReactorBase::ProcessHandleEvent"}));
}

TEST_F(CPSReactorBaseTest, ForeignThread_PostSendCount_AreNotReported)
{
    CTestEventCounts counts;
    std::thread([&] {
        EXPECT_EQ(m_Reactor.PostEvent(new CTestEvent(counts)), MN_OK);
        EXPECT_EQ(m_Reactor.GetPendingEventsCount(), 1u);
    }).join();
    m_Reactor.Close();
}

}  // namespace
