// How attempts end: each with one indication, after everything is closed, whatever the sink does then.
#include "connector/CPSConnectorWrapper.h"

#include "tests/unit/doubles/ConnectorTest.h"
#include "uxport/IPSTransport.h"

namespace uxport
{
namespace
{

class CPSConnectorOutcomeTest : public ConnectorTest
{
protected:
    const CCalls m_Failure{"RemoveHandler(7,2)=0", m_strDeletion, "CancelTimer=0", m_strFailed};
};

TEST_F(CPSConnectorOutcomeTest, OutputEvent_SocketWithoutError_IndicatesTheTransportOnce)
{
    ASSERT_EQ(Connect(), MN_OK);
    m_Stack.TakeCalls();
    m_Sink.m_AtIndication = [this](IPSTransport* transport) {
        std::int32_t handle = 0;
        EXPECT_EQ(transport->GetOption(OPT_FD, &handle), MN_OK);
        EXPECT_EQ(handle, s_nSocket);
        EXPECT_EQ(transport->GetSink(), nullptr);
        EXPECT_EQ(m_Sink.m_pId, m_pConnector.Get());
    };
    Turn(s_nSocket, PS_POLLOUT);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_is_socket_errno(7)=0", "RemoveHandler(7,2)=0", "CancelTimer=0",
                                           m_strSucceeded, m_strDeletion}));
    EXPECT_EQ(Turn(s_nSocket, PS_POLLOUT), "");
    EXPECT_EQ(m_Sink.m_nIndications, 1);
}

TEST_F(CPSConnectorOutcomeTest, Success_SinkKeepsNothing_LeavesNoTransport)
{
    ASSERT_EQ(Connect(), MN_OK);
    Turn(s_nSocket, PS_POLLOUT);
    EXPECT_EQ(NewLiveObjects(), 2);
    Turn();
    EXPECT_EQ(NewLiveObjects(), 1);
    EXPECT_EQ(m_Stack.CountOf("ps_close", s_nSocket), 1u);
}

TEST_F(CPSConnectorOutcomeTest, Success_SinkOpensAndKeeps_TransportWorks)
{
    mantle::CMNAutoPtr<IPSTransport> kept;
    CRecordingTransportSink data;
    m_Sink.m_AtIndication = [&](IPSTransport* transport) {
        kept = transport;
        EXPECT_EQ(transport->OpenWithSink(&data), MN_OK);
    };
    ASSERT_EQ(Connect(), MN_OK);
    Turn(s_nSocket, PS_POLLOUT);
    EXPECT_EQ(Turn(), "7:1");
    m_Stack.On("ps_recv", s_nSocket).WithData("hello");
    Turn(s_nSocket, PS_POLLIN);
    EXPECT_EQ(data.m_pTransport, kept.Get());
    EXPECT_EQ(m_Stack.CountOf("ps_close"), 0u);
}

TEST_F(CPSConnectorOutcomeTest, Success_TimeoutGiven_IsCancelled)
{
    ASSERT_EQ(ConnectWithin(1), MN_OK);
    Turn(s_nSocket, PS_POLLOUT);
    PassSeconds(2);
    Turn();
    EXPECT_EQ(m_Sink.m_nIndications, 1);
    EXPECT_EQ(m_pConnector->CancelConnect(), 1u);
}

TEST_F(CPSConnectorOutcomeTest, OutputEvent_SocketWithError_IndicatesFailureOnce)
{
    ASSERT_EQ(Connect(), MN_OK);
    m_Stack.TakeCalls();
    m_Stack.On("ps_is_socket_errno").Returns(PS_ECONNREFUSED);
    Turn(s_nSocket, PS_POLLOUT);
    EXPECT_EQ(m_Stack.TakeCalls(), Join({"ps_is_socket_errno(7)=111"}, m_Failure));
    EXPECT_EQ(m_Sink.m_pId, m_pConnector.Get());
    EXPECT_EQ(Turn(), "");
    EXPECT_EQ(m_Sink.m_nIndications, 1);
}

TEST_F(CPSConnectorOutcomeTest, OutputEvent_SocketIsGone_IndicatesFailure)
{
    ASSERT_EQ(Connect(), MN_OK);
    m_Stack.On("ps_is_socket_errno").Returns(-1);
    Turn(s_nSocket, PS_POLLOUT);
    EXPECT_EQ(m_Stack.TakeCalls().back(), m_strFailed);
}

TEST_F(CPSConnectorOutcomeTest, ErrorEvent_UnderWay_IndicatesFailureAndLeavesNoTimer)
{
    ASSERT_EQ(Connect(), MN_OK);
    m_Stack.TakeCalls();
    Turn(s_nSocket, PS_POLLERR);
    EXPECT_EQ(m_Stack.TakeCalls(), m_Failure);
    Turn();
    PassSeconds(1000);
    EXPECT_EQ(Turn(), "");
    EXPECT_EQ(m_Sink.m_nIndications, 1);
    EXPECT_EQ(NewLiveObjects(), 1);
}

TEST_F(CPSConnectorOutcomeTest, WakeUpForWriting_UnderWay_CallsNothing)
{
    ASSERT_EQ(Connect(), MN_OK);
    m_Stack.TakeCalls();
    EXPECT_EQ(m_Reactor.ProcessHandleEvent(s_nSocket, WRITE_MASK, 0, 1, 0), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSConnectorOutcomeTest, Timeout_UnderWay_IndicatesFailureOnceWithEverythingClosed)
{
    ASSERT_EQ(ConnectWithin(5), MN_OK);
    m_Stack.TakeCalls();
    PassSeconds(4);
    EXPECT_EQ(Turn(), "7:3");
    EXPECT_EQ(m_Sink.m_nIndications, 0);
    m_Sink.m_AtIndication = [this](IPSTransport*) { EXPECT_EQ(m_pConnector->CancelConnect(), 1u); };
    PassSeconds(1);
    Turn();
    EXPECT_EQ(m_Stack.TakeCalls(), m_Failure);
    EXPECT_EQ(m_Sink.m_pId, m_pConnector.Get());
    PassSeconds(100);
    EXPECT_EQ(Turn(s_nSocket, PS_POLLOUT), "");
    EXPECT_EQ(m_Sink.m_nIndications, 1);
    EXPECT_EQ(NewLiveObjects(), 1);
}

TEST_F(CPSConnectorOutcomeTest, SecondAttempt_WithLongerTimeout_IsNotEndedByTheFirstTimeout)
{
    ASSERT_EQ(ConnectWithin(2), MN_OK);
    PassSeconds(1);
    ASSERT_EQ(ConnectWithin(10), MN_OK);
    PassSeconds(5);
    EXPECT_EQ(Turn(), "8:3");
    EXPECT_EQ(m_Sink.m_nIndications, 0);
    PassSeconds(5);
    Turn();
    EXPECT_EQ(m_Sink.m_nIndications, 1);
}

TEST_F(CPSConnectorOutcomeTest, SecondAttempt_WithoutTimeout_IsNotEndedByTheFirstTimeout)
{
    ASSERT_EQ(ConnectWithin(2), MN_OK);
    ASSERT_EQ(Connect(), MN_OK);
    PassSeconds(1000);
    EXPECT_EQ(Turn(), "8:3");
    EXPECT_EQ(m_Sink.m_nIndications, 0);
    Turn(8, PS_POLLOUT);
    EXPECT_EQ(m_Sink.m_nIndications, 1);
}

TEST_F(CPSConnectorOutcomeTest, SecondAttempt_FirstUnderWay_ReplacesItWithoutAnIndication)
{
    ASSERT_EQ(Connect(), MN_OK);
    CRecordingConnectSink second;
    EXPECT_EQ(m_pConnector->AsycConnect(&second, m_Peer, nullptr, nullptr, 0, 0), MN_OK);
    EXPECT_EQ(NewLiveObjects(), 3);
    EXPECT_EQ(Turn(), "8:3");
    EXPECT_EQ(NewLiveObjects(), 2);
    EXPECT_EQ(m_Stack.CountOf("ps_close", s_nSocket), 1u);
    Turn(8, PS_POLLOUT);
    EXPECT_EQ(m_Sink.m_nIndications, 0);
    EXPECT_EQ(second.m_nIndications, 1);
}

TEST_F(CPSConnectorOutcomeTest, SecondAttempt_FirstFailurePending_IsNotEndedByIt)
{
    m_Stack.On("ps_connect").Fails(PS_ENETUNREACH);
    ASSERT_EQ(Connect(), MN_OK);
    ASSERT_EQ(Connect(), MN_OK);
    EXPECT_EQ(Turn(), "8:3");
    EXPECT_EQ(m_Sink.m_nIndications, 0);
}

TEST_F(CPSConnectorOutcomeTest, SecondAttempt_NullSink_EndsSilently)
{
    ASSERT_EQ(ConnectWithin(5), MN_OK);
    EXPECT_EQ(m_pConnector->AsycConnect(nullptr, m_Peer, nullptr, nullptr, 0, 0), MN_OK);
    PassSeconds(10);
    Turn();
    EXPECT_EQ(Turn(s_nSocket, PS_POLLOUT), "");
    EXPECT_EQ(m_Sink.m_nIndications, 0);
    EXPECT_EQ(m_pConnector->CancelConnect(), 1u);
}

TEST_F(CPSConnectorOutcomeTest, SecondAttempt_AfterAnOutcome_WorksWithTheSameConnector)
{
    for (int handle = s_nSocket; handle < s_nSocket + 3; ++handle) {
        ASSERT_EQ(Connect(), MN_OK);
        EXPECT_EQ(Turn(handle, PS_POLLOUT), std::to_string(handle) + ":3");
    }
    EXPECT_EQ(m_Sink.m_nIndications, 3);
}

TEST_F(CPSConnectorOutcomeTest, SecondAttempt_AfterCancel_Works)
{
    ASSERT_EQ(Connect(), MN_OK);
    ASSERT_EQ(m_pConnector->CancelConnect(), MN_OK);
    ASSERT_EQ(Connect(), MN_OK);
    Turn(8, PS_POLLOUT);
    EXPECT_EQ(m_Sink.m_nIndications, 1);
}

// What a sink does from inside, on each of the roads to an indication.
enum class ERoad
{
    SUCCESS,
    SOCKET_ERROR,
    REACTOR_CLOSE,
    TIMEOUT,
    FAILED_AT_ONCE
};

class CPSConnectorReentryTest : public ConnectorTest, public testing::WithParamInterface<ERoad>
{
protected:
    // Starts an attempt and lets it end.
    void RunAttempt()
    {
        const ERoad road = GetParam();
        if (road == ERoad::FAILED_AT_ONCE)
            m_Stack.On("ps_connect").Fails(PS_ENETUNREACH);
        ASSERT_EQ(ConnectWithin(1), MN_OK);
        if (road == ERoad::SOCKET_ERROR)
            m_Stack.On("ps_is_socket_errno").Returns(PS_ECONNREFUSED);
        if (road == ERoad::TIMEOUT)
            PassSeconds(1);
        if (road == ERoad::SUCCESS || road == ERoad::SOCKET_ERROR)
            Turn(s_nSocket, PS_POLLOUT);
        else
            Turn(s_nSocket, road == ERoad::REACTOR_CLOSE ? short{PS_POLLHUP} : short{0});
        m_Sink.m_AtIndication = nullptr;
        EXPECT_EQ(m_Sink.m_nIndications, 1);
    }
};

TEST_P(CPSConnectorReentryTest, Indication_SinkReleasesTheLastReference_DiesAfterTheCall)
{
    m_Sink.m_AtIndication = [this](IPSTransport*) { m_pConnector = nullptr; };
    RunAttempt();
    EXPECT_EQ(Turn(), "");
    PassSeconds(10);
    Turn();
    EXPECT_EQ(m_Sink.m_nIndications, 1);
    EXPECT_EQ(NewLiveObjects(), 0);
    EXPECT_EQ(m_Stack.CountOf("ps_close", s_nSocket), 1u);
}

TEST_P(CPSConnectorReentryTest, Indication_SinkConnectsAgainThenReleasesTheLastReference_NothingStays)
{
    m_Sink.m_AtIndication = [this](IPSTransport*) {
        EXPECT_EQ(ConnectWithin(5), MN_OK);
        m_pConnector = nullptr;
    };
    RunAttempt();
    PassSeconds(10);
    EXPECT_EQ(Turn(8, PS_POLLOUT), "");
    EXPECT_EQ(m_Sink.m_nIndications, 1);
    EXPECT_EQ(NewLiveObjects(), 0);
}

TEST_P(CPSConnectorReentryTest, Indication_SinkCancels_GetsOneAndNothingHappens)
{
    m_Sink.m_AtIndication = [this](IPSTransport*) { EXPECT_EQ(m_pConnector->CancelConnect(), 1u); };
    RunAttempt();
    EXPECT_EQ(Turn(), "");
}

TEST_P(CPSConnectorReentryTest, Indication_SinkConnectsAgain_TheNewAttemptGoesOn)
{
    m_Sink.m_AtIndication = [this](IPSTransport*) { EXPECT_EQ(ConnectWithin(5), MN_OK); };
    RunAttempt();
    PassSeconds(4);
    EXPECT_EQ(Turn(8, PS_POLLOUT), "8:3");
    EXPECT_EQ(m_Sink.m_nIndications, 2);
}

TEST_P(CPSConnectorReentryTest, Indication_SinkConnectsAgainAndCancels_NothingIsUnderWay)
{
    m_Sink.m_AtIndication = [this](IPSTransport*) {
        EXPECT_EQ(ConnectWithin(5), MN_OK);
        EXPECT_EQ(m_pConnector->CancelConnect(), MN_OK);
    };
    RunAttempt();
    PassSeconds(10);
    EXPECT_EQ(Turn(), "");
    EXPECT_EQ(m_Sink.m_nIndications, 1);
}

TEST_P(CPSConnectorReentryTest, Indication_NobodyHoldsTheConnector_DoesNotDeleteIt)
{
    CPSConnectorWrapper unheld(&m_Reactor);
    ASSERT_EQ(unheld.Init(CONNECTION_TYPE_TCP), MN_OK);
    ASSERT_EQ(unheld.AsycConnect(&m_Sink, m_Peer, nullptr, nullptr, 0, 0), MN_OK);
    unheld.OnTimeout(CMNTimeValue(0, 0), reinterpret_cast<void*>(10001L));
    EXPECT_EQ(unheld.CancelConnect(), 1u);
    ASSERT_EQ(unheld.AsycConnect(&m_Sink, m_Peer, nullptr, nullptr, 0, 0), MN_OK);
    unheld.OnConnectIndication(GetParam() == ERoad::SUCCESS ? 0 : 10001, nullptr, nullptr);
    EXPECT_EQ(m_Sink.m_nIndications, 2);
    EXPECT_EQ(unheld.CancelConnect(), 1u);
}

std::string RoadName(const testing::TestParamInfo<ERoad>& road)
{
    static const char* const names[] = {"Success", "SocketError", "ReactorClose", "Timeout", "FailedAtOnce"};
    return names[static_cast<int>(road.param)];
}

INSTANTIATE_TEST_SUITE_P(Roads, CPSConnectorReentryTest,
                         testing::Values(ERoad::SUCCESS, ERoad::SOCKET_ERROR, ERoad::REACTOR_CLOSE, ERoad::TIMEOUT,
                                         ERoad::FAILED_AT_ONCE),
                         RoadName);

// Indications from the protocol connector, without one.
TEST_F(CPSConnectorOutcomeTest, OnConnectIndication_SuccessWithoutTransport_IsPassedOn)
{
    ASSERT_EQ(Connect(), MN_OK);
    m_Stack.TakeCalls();
    EXPECT_EQ(m_pConnector->OnConnectIndication(0, nullptr, nullptr), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(),
              (CCalls{"RemoveHandler(7,2)=0", m_strDeletion, "CancelTimer=0", "OnConnectIndication(0,null)"}));
}

TEST_F(CPSConnectorOutcomeTest, OnConnectIndication_FailureWithTransport_HidesTheTransport)
{
    mantle::CMNAutoPtr<IPSTransport> kept;
    m_Sink.m_AtIndication = [&kept](IPSTransport* transport) { kept = transport; };
    ASSERT_EQ(Connect(), MN_OK);
    Turn(s_nSocket, PS_POLLOUT);
    ASSERT_TRUE(kept);
    m_Sink.m_AtIndication = nullptr;
    m_Stack.TakeCalls();
    EXPECT_EQ(m_pConnector->OnConnectIndication(20001, kept.Get(), nullptr), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"OnConnectIndication(20001,null)"}));
}

TEST_F(CPSConnectorOutcomeTest, OnConnectIndication_AfterCancel_CallsNobody)
{
    ASSERT_EQ(Connect(), MN_OK);
    m_pConnector->CancelConnect();
    EXPECT_EQ(m_pConnector->OnConnectIndication(0, nullptr, nullptr), MN_OK);
    m_pConnector->OnTimeout(CMNTimeValue(0, 0), reinterpret_cast<void*>(10001L));
    EXPECT_EQ(m_Sink.m_nIndications, 0);
}

}  // namespace
}  // namespace uxport
