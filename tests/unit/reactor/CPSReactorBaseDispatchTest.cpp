#include "reactor/CPSReactorBase.h"

#include <memory>

#include "tests/unit/reactor/ReactorSupport.h"
#include "tests/unit/scripted/ScriptedStackTest.h"

using namespace uxport;

namespace
{

constexpr long ALL_AND_CALL = ALL_EVENTS_MASK | SHOULD_CALL;

class CPSReactorBaseDispatchTest : public ScriptedStackTest
{
protected:
    CPSReactorBaseDispatchTest() { m_Reactor.Open(); }

    void Register(long mask)
    {
        ASSERT_EQ(m_Reactor.RegisterHandler(&m_Handler, mask), MN_OK);
        m_Reactor.TakeLog();
    }
    MNResult Report(long mask, int fromNotification = 0, int dropConnect = 0)
    {
        return m_Reactor.ProcessHandleEvent(5, mask, 0, fromNotification, dropConnect);
    }

    CTestReactor m_Reactor;
    CTestHandler m_Handler{5};
};

TEST_F(CPSReactorBaseDispatchTest, Report_UnregisteredHandle_NotFoundAndNothingCalled)
{
    EXPECT_EQ(Report(15), MN_ERROR_NOT_FOUND);
    EXPECT_EQ(Report(CLOSE_MASK), MN_ERROR_NOT_FOUND);
    EXPECT_EQ(m_Handler.TakeCalls(), CTexts());
}

TEST_F(CPSReactorBaseDispatchTest, Report_EachBitOnEachRegistration_CallsTheSharedGroups)
{
    for (long registered = 1; registered <= 15; ++registered) {
        CTestReactor reactor;
        reactor.Open();
        CTestHandler handler(5);
        ASSERT_EQ(reactor.RegisterHandler(&handler, registered), MN_OK);
        for (long report = 0; report <= 15; ++report) {
            CTexts expected;
            if (registered & report & 5)
                expected.emplace_back("in 5");
            if (registered & report & 10)
                expected.emplace_back("out 5");
            EXPECT_EQ(reactor.ProcessHandleEvent(5, report, 0, 0, 0), MN_OK);
            EXPECT_EQ(handler.TakeCalls(), expected) << registered << " " << report;
        }
        reactor.Close();
    }
}

TEST_F(CPSReactorBaseDispatchTest, Report_Bits16And32_CallNothing)
{
    Register(ALL_EVENTS_MASK);
    EXPECT_EQ(Report(48), MN_OK);
    EXPECT_EQ(m_Handler.TakeCalls(), CTexts());
}

TEST_F(CPSReactorBaseDispatchTest, Report_FromNotificationWithoutReadyBit_CallsNothing)
{
    Register(READ_MASK);
    EXPECT_EQ(Report(WRITE_MASK, 1), MN_OK);
    EXPECT_EQ(Report(0, 1), MN_OK);
    EXPECT_EQ(m_Handler.TakeCalls(), CTexts());
    EXPECT_TRUE(m_Reactor.IsRegistered(5));
}

TEST_F(CPSReactorBaseDispatchTest, Report_OutputOnConnectRegistration_NotifiedWithWriteCallsNothing)
{
    Register(CONNECT_MASK);
    EXPECT_EQ(Report(WRITE_MASK, 1), MN_OK);
    EXPECT_EQ(m_Handler.TakeCalls(), CTexts());
    EXPECT_EQ(Report(OUTPUT_GROUP_MASK), MN_OK);
    EXPECT_EQ(m_Handler.TakeCalls(), (CTexts{"out 5"}));
}

TEST_F(CPSReactorBaseDispatchTest, CloseReport_WithReadyBits_OnlyOnClose)
{
    Register(12);
    EXPECT_EQ(Report(CLOSE_MASK | 7), MN_OK);
    EXPECT_EQ(m_Handler.TakeCalls(), (CTexts{"close 5,12"}));
    EXPECT_EQ(m_Reactor.TakeLog(), (CTexts{"removed 5"}));
    EXPECT_FALSE(m_Reactor.IsRegistered(5));
}

TEST_F(CPSReactorBaseDispatchTest, CloseReport_EveryRegisteredBit_IsGiven)
{
    Register(ALL_EVENTS_MASK);
    EXPECT_EQ(Report(CLOSE_MASK, 1, 1), MN_OK);
    EXPECT_EQ(m_Handler.TakeCalls(), (CTexts{"close 5,63"}));
}

TEST_F(CPSReactorBaseDispatchTest, Input_AnythingButZero_RemovesAndCloses)
{
    for (const int result : {1, -1, 77}) {
        Register(12);
        m_Handler.m_Input = [result] { return result; };
        EXPECT_EQ(Report(15), MN_OK);
        EXPECT_EQ(m_Handler.TakeCalls(), (CTexts{"in 5", "close 5,12"})) << "no output behind a failed input";
        EXPECT_EQ(m_Reactor.TakeLog(), (CTexts{"removed 5"}));
        EXPECT_FALSE(m_Reactor.IsRegistered(5));
    }
}

TEST_F(CPSReactorBaseDispatchTest, Output_AnythingButZero_RemovesAndCloses)
{
    for (const int result : {1, -1}) {
        Register(12);
        m_Handler.m_Output = [result] { return result; };
        EXPECT_EQ(Report(15), MN_OK);
        EXPECT_EQ(m_Handler.TakeCalls(), (CTexts{"in 5", "out 5", "close 5,12"}));
        EXPECT_FALSE(m_Reactor.IsRegistered(5));
    }
}

TEST_F(CPSReactorBaseDispatchTest, Input_ChangesMaskAndFails_OnCloseGetsTheMaskOfThen)
{
    Register(4);
    m_Handler.m_Input = [this] {
        m_Reactor.RegisterHandler(&m_Handler, 12);
        return -1;
    };
    EXPECT_EQ(Report(7), MN_OK);
    EXPECT_EQ(m_Handler.TakeCalls(), (CTexts{"in 5", "close 5,12"}));
}

TEST_F(CPSReactorBaseDispatchTest, Input_RemovesItselfAndFails_NotFoundAndNoOnClose)
{
    Register(12);
    m_Handler.m_Input = [this] {
        m_Reactor.RemoveHandler(&m_Handler, ALL_AND_CALL);
        return -1;
    };
    EXPECT_EQ(Report(15), MN_ERROR_NOT_FOUND);
    EXPECT_EQ(m_Handler.TakeCalls(), (CTexts{"in 5"}));
}

TEST_F(CPSReactorBaseDispatchTest, Output_RemovesItselfAndFails_NotFoundAndNoOnClose)
{
    Register(8);
    m_Handler.m_Output = [this] {
        m_Reactor.RemoveHandler(&m_Handler, ALL_AND_CALL);
        return -1;
    };
    EXPECT_EQ(Report(10), MN_ERROR_NOT_FOUND);
    EXPECT_EQ(m_Handler.TakeCalls(), (CTexts{"out 5"}));
}

TEST_F(CPSReactorBaseDispatchTest, Input_HandleReboundAndFails_UnexpectedAndTheNewOneStays)
{
    CTestHandler other(5);
    Register(12);
    m_Handler.m_Input = [&] {
        m_Reactor.RemoveHandler(&m_Handler, ALL_EVENTS_MASK);
        m_Reactor.RegisterHandler(&other, READ_MASK);
        return -1;
    };
    EXPECT_EQ(Report(15), MN_ERROR_UNEXPECTED);
    EXPECT_EQ(m_Handler.TakeCalls(), (CTexts{"in 5"}));
    EXPECT_EQ(other.TakeCalls(), CTexts());
    EXPECT_EQ(m_Reactor.GetHandler(5), &other);
}

TEST_F(CPSReactorBaseDispatchTest, Output_HandleReboundAndFails_UnexpectedAndTheNewOneStays)
{
    CTestHandler other(5);
    Register(8);
    m_Handler.m_Output = [&] {
        m_Reactor.RegisterHandler(&other, READ_MASK);
        return 1;
    };
    EXPECT_EQ(Report(10), MN_ERROR_UNEXPECTED);
    EXPECT_EQ(other.TakeCalls(), CTexts());
    EXPECT_EQ(m_Reactor.GetHandler(5), &other);
}

TEST_F(CPSReactorBaseDispatchTest, Input_RemovesItselfAndSucceeds_NoOutput)
{
    Register(12);
    m_Handler.m_Input = [this] {
        m_Reactor.RemoveHandler(&m_Handler, ALL_EVENTS_MASK);
        return 0;
    };
    EXPECT_EQ(Report(15), MN_OK);
    EXPECT_EQ(m_Handler.TakeCalls(), (CTexts{"in 5"}));
}

TEST_F(CPSReactorBaseDispatchTest, Input_FreesItselfAndSucceeds_NoOutput)
{
    CTexts log;
    auto handler = std::make_unique<CTestHandler>(5, &log);
    m_Reactor.RegisterHandler(handler.get(), 12);
    handler->m_Input = [&] {
        m_Reactor.RemoveHandler(handler.get(), ALL_EVENTS_MASK);
        handler.reset();
        return 0;
    };
    EXPECT_EQ(Report(15), MN_OK);
    EXPECT_EQ(log, (CTexts{"in 5"}));
}

TEST_F(CPSReactorBaseDispatchTest, Input_HandleReboundAndSucceeds_NeitherGetsTheOutput)
{
    CTestHandler other(5);
    Register(12);
    m_Handler.m_Input = [&] {
        m_Reactor.RegisterHandler(&other, 12);
        return 0;
    };
    EXPECT_EQ(Report(15), MN_OK);
    EXPECT_EQ(m_Handler.TakeCalls(), (CTexts{"in 5"}));
    EXPECT_EQ(other.TakeCalls(), CTexts());
}

TEST_F(CPSReactorBaseDispatchTest, Input_RegistersAnotherHandler_Allowed)
{
    CTestHandler other(6);
    Register(4);
    m_Handler.m_Input = [&] {
        EXPECT_EQ(m_Reactor.RegisterHandler(&other, 4), MN_OK);
        EXPECT_EQ(m_Reactor.RemoveHandler(&other, 4), MN_OK);
        return 0;
    };
    EXPECT_EQ(Report(7), MN_OK);
}

TEST_F(CPSReactorBaseDispatchTest, OnClose_FreesTheHandler_NothingTouchesIt)
{
    CTexts log;
    auto handler = std::make_unique<CTestHandler>(5, &log);
    m_Reactor.RegisterHandler(handler.get(), 4);
    handler->m_Input = [] { return -1; };
    handler->m_Close = [&] {
        EXPECT_FALSE(m_Reactor.IsRegistered(5));
        handler.reset();
        return 99;
    };
    EXPECT_EQ(Report(7), MN_OK) << "what OnClose returns is not asked";
    EXPECT_EQ(log, (CTexts{"in 5", "close 5,4"}));
}

TEST_F(CPSReactorBaseDispatchTest, OnClose_RegistersTheHandleAgain_Stays)
{
    Register(4);
    m_Handler.m_Close = [this] {
        m_Reactor.RegisterHandler(&m_Handler, 8);
        return 0;
    };
    EXPECT_EQ(Report(CLOSE_MASK), MN_OK);
    EXPECT_EQ(m_Reactor.GetMask(5), 8);
}

TEST_F(CPSReactorBaseDispatchTest, DropConnect_ReadyConnect_RemovedWithoutInputOrOutput)
{
    Register(CONNECT_MASK | READ_MASK);
    EXPECT_EQ(Report(15, 0, 1), MN_OK);
    EXPECT_EQ(m_Handler.TakeCalls(), (CTexts{"close 5,6"}));
    EXPECT_FALSE(m_Reactor.IsRegistered(5));
}

TEST_F(CPSReactorBaseDispatchTest, DropConnect_NoReadyConnect_DispatchedAsEver)
{
    Register(READ_MASK | WRITE_MASK);
    EXPECT_EQ(Report(15, 0, 1), MN_OK);
    EXPECT_EQ(m_Handler.TakeCalls(), (CTexts{"in 5", "out 5"}));
    EXPECT_TRUE(m_Reactor.IsRegistered(5));
}

}  // namespace
