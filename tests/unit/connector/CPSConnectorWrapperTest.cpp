#include "connector/CPSConnectorWrapper.h"

#include <thread>
#include <type_traits>

#include "tests/unit/doubles/ConnectorTest.h"

namespace uxport
{
namespace
{

static_assert(std::is_base_of_v<IPSConnector, CPSConnectorWrapper>);
static_assert(std::is_base_of_v<IMNTimerHandler, CPSConnectorWrapper>);

class CPSConnectorWrapperTest : public ConnectorTest
{
protected:
    // A sink that must not be called, as it is gone.
    static constexpr IPSAcceptorConnectorSink* s_pNoSink = nullptr;

    void ExpectFailureOnTheNextTurn(const CCalls& behindTheTurn)
    {
        m_Stack.TakeCalls();
        Turn();
        EXPECT_EQ(m_Stack.TakeCalls(), behindTheTurn);
        EXPECT_EQ(m_Sink.m_pId, m_pConnector.Get());
        Turn();
        EXPECT_EQ(m_Sink.m_nIndications, 1);
    }
};

TEST_F(CPSConnectorWrapperTest, IsConnector_Connector_IsTrue)
{
    IPSAcceptorConnectorId* id = m_pConnector.Get();
    EXPECT_TRUE(id->IsConnector());
}

TEST_F(CPSConnectorWrapperTest, Init_Second_ReturnsAlreadyInitialized)
{
    for (const unsigned long type : {2ul, 8ul, 1ul, 5ul})
        EXPECT_EQ(m_pConnector->Init(type), MN_ERROR_ALREADY_INITIALIZED) << type;
}

TEST_F(CPSConnectorWrapperTest, Init_NoReactor_ReturnsNotInitialized)
{
    CPSConnectorWrapper bare(nullptr);
    for (const unsigned long type : {2ul, 8ul, 1ul, 5ul})
        EXPECT_EQ(bare.Init(type), MN_ERROR_NOT_INITIALIZED) << type;
}

TEST_F(CPSConnectorWrapperTest, Init_UnknownTypes_ReturnInvalidArg)
{
    CPSConnectorWrapper bare(&m_Reactor);
    for (const unsigned long type : {0ul, 3ul, 4ul, 5ul, 6ul, 7ul, 9ul, 10ul, 1000ul, ~0ul})
        EXPECT_EQ(bare.Init(type), MN_ERROR_INVALID_ARG) << type;
    EXPECT_EQ(bare.Init(2), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSConnectorWrapperTest, Init_EveryType_MakesOneConnector)
{
    for (const unsigned long type : {1ul, 2ul, 8ul}) {
        CPSConnectorWrapper bare(&m_Reactor);
        EXPECT_EQ(bare.Init(type), MN_OK) << type;
        EXPECT_EQ(bare.Init(type), MN_ERROR_ALREADY_INITIALIZED) << type;
    }
}

TEST_F(CPSConnectorWrapperTest, AsycConnect_InitRefused_FailsThroughTheTimer)
{
    CPSConnectorWrapper bare(&m_Reactor);
    ASSERT_EQ(bare.Init(5), MN_ERROR_INVALID_ARG);
    EXPECT_EQ(bare.AsycConnect(&m_Sink, m_Peer, nullptr, nullptr, 0, 0), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{m_strFailureScheduled}));
    Turn();
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"CancelTimer=0", m_strFailed}));
    EXPECT_EQ(m_Sink.m_pId, &bare);
}

TEST_F(CPSConnectorWrapperTest, AnyOperation_NoReactor_ReturnsACodeAndCallsNobody)
{
    CPSConnectorWrapper bare(nullptr);
    EXPECT_EQ(bare.AsycConnect(&m_Sink, m_Peer, nullptr, nullptr, 0, 0), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(bare.CancelConnect(), 1u);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSConnectorWrapperTest, AsycConnect_NoTimeout_StartsWithoutATimer)
{
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), Attempt(s_nSocket));
    EXPECT_EQ(Turn(), "7:3");
    EXPECT_EQ(m_Sink.m_nIndications, 0);
}

TEST_F(CPSConnectorWrapperTest, AsycConnect_Timeout_SchedulesItOnce)
{
    CMNTimeValue timeout(3, 250000);
    EXPECT_EQ(m_pConnector->AsycConnect(&m_Sink, m_Peer, &timeout, nullptr, 0, 0), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), Join(Attempt(s_nSocket), {"ScheduleTimer(10001,3s250000us,1)=0"}));
}

TEST_F(CPSConnectorWrapperTest, AsycConnect_ArgumentsGoRightAfter_AreNotNeededAnyMore)
{
    {
        CMNTimeValue timeout(3, 0);
        CMNInetAddr local("10.0.0.1", 0);
        CMNInetAddr peer("10.0.0.2", 80);
        EXPECT_EQ(m_pConnector->AsycConnect(&m_Sink, peer, &timeout, &local, 0, 0), MN_OK);
    }
    Turn(s_nSocket, PS_POLLOUT);
    EXPECT_EQ(m_Sink.m_nIndications, 1);
}

TEST_F(CPSConnectorWrapperTest, AsycConnect_NoSocket_FailsThroughTheTimer)
{
    m_Stack.On("ps_socket").Fails(PS_EMFILE);
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_socket(2,1,0)=-1", m_strFailureScheduled}));
    ExpectFailureOnTheNextTurn({"RemoveHandler(-1,2)=0", m_strDeletion, "CancelTimer=0", m_strFailed});
}

TEST_F(CPSConnectorWrapperTest, AsycConnect_BindFails_FailsThroughTheTimer)
{
    m_Stack.On("ps_bind").Fails(PS_EADDRINUSE);
    CMNInetAddr local("10.0.0.1", 4000);
    EXPECT_EQ(m_pConnector->AsycConnect(&m_Sink, m_Peer, nullptr, &local, 0, 0), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_socket(2,1,0)=7", "ps_bind(7,10.0.0.1:4000{16,2},16)=-1",
                                           "ps_close(7)=0", m_strFailureScheduled}));
    ExpectFailureOnTheNextTurn({"RemoveHandler(-1,2)=0", m_strDeletion, "CancelTimer=0", m_strFailed});
}

TEST_F(CPSConnectorWrapperTest, AsycConnect_NonBlockingRefused_FailsThroughTheTimer)
{
    m_Stack.On("ps_socket_nonblock").Fails(PS_EBADF);
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), Failing(1, "ps_socket_nonblock(7)=-1"));
    ExpectFailureOnTheNextTurn({"RemoveHandler(7,2)=0", m_strDeletion, "CancelTimer=0", m_strFailed});
}

TEST_F(CPSConnectorWrapperTest, AsycConnect_RegistrationFails_FailsThroughTheTimer)
{
    m_Reactor.Refuse("RegisterHandler", MN_ERROR_INVALID_ARG);
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), Failing(2, "RegisterHandler(7,2)=10008"));
    ExpectFailureOnTheNextTurn({"RemoveHandler(7,2)=0", m_strDeletion, "CancelTimer=0", m_strFailed});
}

TEST_F(CPSConnectorWrapperTest, AsycConnect_HandleRegisteredBefore_FailsThroughTheTimer)
{
    m_Reactor.Refuse("RegisterHandler", MN_ERROR_FOUND);
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), Failing(2, "RegisterHandler(7,2)=10012"));
    ExpectFailureOnTheNextTurn({"RemoveHandler(7,2)=0", m_strDeletion, "CancelTimer=0", m_strFailed});
}

TEST_F(CPSConnectorWrapperTest, AsycConnect_ConnectFails_FailsThroughTheTimerAndTheReactorForgetsIt)
{
    m_Stack.On("ps_connect").Fails(PS_ENETUNREACH);
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), Failing(3, "ps_connect(7,10.0.0.2:80{16,2},16)=-1"));
    ExpectFailureOnTheNextTurn({"RemoveHandler(7,2)=0", m_strDeletion, "CancelTimer=0", m_strFailed});
    EXPECT_EQ(Turn(), "");
    EXPECT_EQ(m_Stack.CountOf("ps_close", s_nSocket), 1u);
}

TEST_F(CPSConnectorWrapperTest, AsycConnect_FailsAtOnceWithTimeout_TakesTheZeroDelay)
{
    m_Stack.On("ps_connect").Fails(PS_ENETUNREACH);
    EXPECT_EQ(ConnectWithin(60), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls().back(), m_strFailureScheduled);
    ExpectFailureOnTheNextTurn({"RemoveHandler(7,2)=0", m_strDeletion, "CancelTimer=0", m_strFailed});
    PassSeconds(61);
    Turn();
    EXPECT_EQ(m_Sink.m_nIndications, 1);
}

TEST_F(CPSConnectorWrapperTest, AsycConnect_FailsAtOnceAndTheSocketReportsItToo_IndicatesOnce)
{
    m_Stack.On("ps_connect").Fails(PS_ECONNREFUSED);
    ASSERT_EQ(Connect(), MN_OK);
    m_Reactor.ProcessHandleEvent(s_nSocket, CLOSE_MASK, 0, 0, 0);
    EXPECT_EQ(m_Sink.m_nIndications, 1);
    Turn();
    Turn();
    EXPECT_EQ(m_Sink.m_nIndications, 1);
}

TEST_F(CPSConnectorWrapperTest, AsycConnect_NotificationFails_ReturnsItsCodeAndTheAttemptGoesOn)
{
    m_Reactor.Refuse("NotifyHandler", MN_ERROR_UNEXPECTED);
    EXPECT_EQ(Connect(), MN_ERROR_UNEXPECTED);
    Turn(s_nSocket, PS_POLLOUT);
    EXPECT_EQ(m_Stack.TakeCalls().back(), m_strDeletion);
    EXPECT_EQ(m_Sink.m_nIndications, 1);
}

TEST_F(CPSConnectorWrapperTest, AsycConnect_NotificationFailsWithTimeout_ReturnsTheSchedulingResult)
{
    m_Reactor.Refuse("NotifyHandler", MN_ERROR_UNEXPECTED);
    EXPECT_EQ(ConnectWithin(5), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls().back(), "ScheduleTimer(10001,5s0us,1)=0");
}

TEST_F(CPSConnectorWrapperTest, AsycConnect_SchedulingTheTimeoutFails_ReturnsItsCodeAndTheAttemptGoesOn)
{
    m_Reactor.Refuse("ScheduleTimer", MN_ERROR_INVALID_ARG);
    EXPECT_EQ(ConnectWithin(5), MN_ERROR_INVALID_ARG);
    Turn(s_nSocket, PS_POLLOUT);
    EXPECT_EQ(m_Sink.m_nIndications, 1);
}

TEST_F(CPSConnectorWrapperTest, AsycConnect_SchedulingTheFailureFails_ReturnsItsCode)
{
    m_Stack.On("ps_connect").Fails(PS_ENETUNREACH);
    m_Reactor.Refuse("ScheduleTimer", MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(Connect(), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(m_pConnector->CancelConnect(), MN_OK);
}

TEST_F(CPSConnectorWrapperTest, AsycConnect_NullSink_ReturnsTheSchedulingResultAndCallsNobody)
{
    EXPECT_EQ(m_pConnector->AsycConnect(s_pNoSink, m_Peer, nullptr, nullptr, 0, 0), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{m_strFailureScheduled}));
    Turn();
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"CancelTimer=0"}));
    EXPECT_EQ(m_pConnector->CancelConnect(), 1u);
}

TEST_F(CPSConnectorWrapperTest, AsycConnect_NullSinkWithTimeout_TakesTheZeroDelay)
{
    CMNTimeValue timeout(60, 0);
    EXPECT_EQ(m_pConnector->AsycConnect(s_pNoSink, m_Peer, &timeout, nullptr, 0, 0), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{m_strFailureScheduled}));
    Turn();
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"CancelTimer=0"}));
}

TEST_F(CPSConnectorWrapperTest, CancelConnect_NothingUnderWay_ReturnsOneWithoutACall)
{
    EXPECT_EQ(m_pConnector->CancelConnect(), 1u);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSConnectorWrapperTest, CancelConnect_UnderWay_ClosesAndNothingIsIndicated)
{
    ASSERT_EQ(ConnectWithin(1), MN_OK);
    m_Stack.TakeCalls();
    EXPECT_EQ(m_pConnector->CancelConnect(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"RemoveHandler(7,2)=0", m_strDeletion, "CancelTimer=0"}));
    PassSeconds(2);
    EXPECT_EQ(Turn(s_nSocket, PS_POLLOUT), "");
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"RemoveHandler(7,63)=0", "ps_close(7)=0"}));
    EXPECT_EQ(m_Sink.m_nIndications, 0);
}

TEST_F(CPSConnectorWrapperTest, CancelConnect_Twice_ReturnsOneAndDoesNothing)
{
    ASSERT_EQ(Connect(), MN_OK);
    EXPECT_EQ(m_pConnector->CancelConnect(), MN_OK);
    m_Stack.TakeCalls();
    EXPECT_EQ(m_pConnector->CancelConnect(), 1u);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSConnectorWrapperTest, CancelConnect_TimerQueueAnswersACode_ReturnsIt)
{
    ASSERT_EQ(Connect(), MN_OK);
    m_Reactor.Refuse("CancelTimer", MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(m_pConnector->CancelConnect(), MN_ERROR_NOT_INITIALIZED);
}

TEST_F(CPSConnectorWrapperTest, CancelConnect_FailurePending_SilencesIt)
{
    m_Stack.On("ps_connect").Fails(PS_ENETUNREACH);
    ASSERT_EQ(Connect(), MN_OK);
    EXPECT_EQ(m_pConnector->CancelConnect(), MN_OK);
    Turn();
    EXPECT_EQ(m_Sink.m_nIndications, 0);
}

TEST_F(CPSConnectorWrapperTest, OnTimeout_OtherArgument_IsIgnored)
{
    ASSERT_EQ(Connect(), MN_OK);
    m_Stack.TakeCalls();
    m_pConnector->OnTimeout(CMNTimeValue(0, 0), nullptr);
    m_pConnector->OnTimeout(CMNTimeValue(0, 0), reinterpret_cast<void*>(10002L));
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
    EXPECT_EQ(m_pConnector->CancelConnect(), MN_OK);
}

TEST_F(CPSConnectorWrapperTest, References_TakenAndReleased_AreCountedAndTheLastDeletesAtOnce)
{
    auto* wrapper = new CPSConnectorWrapper(&m_Reactor);
    ASSERT_EQ(wrapper->Init(2), MN_OK);
    EXPECT_EQ(wrapper->AddReference(), 1u);
    EXPECT_EQ(wrapper->AddReference(), 2u);
    EXPECT_EQ(wrapper->ReleaseReference(), 1u);
    EXPECT_EQ(wrapper->AsycConnect(&m_Sink, m_Peer, nullptr, nullptr, 0, 0), MN_OK);
    m_Stack.TakeCalls();
    EXPECT_EQ(wrapper->ReleaseReference(), 0u);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"RemoveHandler(7,2)=0", m_strDeletion, "CancelTimer=0"}));
    EXPECT_EQ(NewLiveObjects(), 2);
    EXPECT_EQ(Turn(), "");
    EXPECT_EQ(NewLiveObjects(), 1);
}

TEST_F(CPSConnectorWrapperTest, LastRelease_TimerPending_TimerIsGone)
{
    ASSERT_EQ(ConnectWithin(1), MN_OK);
    m_pConnector = nullptr;
    PassSeconds(2);
    Turn();
    EXPECT_EQ(m_Sink.m_nIndications, 0);
    EXPECT_EQ(NewLiveObjects(), 0);
}

TEST_F(CPSConnectorWrapperTest, References_OnAnotherThread_AreReported)
{
    ExpectReports(2);
    std::thread([this] {
        m_pConnector->AddReference();
        m_pConnector->ReleaseReference();
    }).join();
}

}  // namespace
}  // namespace uxport
