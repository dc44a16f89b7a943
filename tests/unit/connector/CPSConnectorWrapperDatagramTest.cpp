// The connector that the application holds, with a datagram protocol inside.
#include "connector/CPSConnectorWrapper.h"
#include "tests/unit/doubles/ConnectorTest.h"
#include "tests/unit/doubles/EDatagram.h"

namespace uxport
{
namespace
{

class CPSConnectorWrapperDatagramTest : public ConnectorTest, public testing::WithParamInterface<EDatagram>
{
protected:
    const std::string m_strOwnTimer = "ScheduleTimer(0,0s0us,1)=0";
    const CMNInetAddr m_Second{"10.0.0.9", 90};

    void SetUp() override
    {
        ConnectorTest::SetUp();
        m_pConnector = new CPSConnectorWrapper(&m_Reactor);
        ASSERT_EQ(m_pConnector->Init(GetParam() == EDatagram::UDP ? 8 : 1), MN_OK);
        m_Stack.TakeCalls();
        m_Sink.m_AtIndication = [this](IPSTransport* transport) { m_pKept = transport; };
    }
    void TearDown() override
    {
        m_pKept = nullptr;
        ConnectorTest::TearDown();
    }

    mantle::CMNAutoPtr<IPSTransport> m_pKept;
};

INSTANTIATE_DATAGRAM_SUITE(CPSConnectorWrapperDatagramTest);

TEST_P(CPSConnectorWrapperDatagramTest, AsycConnect_NoTimeout_ReturnsBeforeTheSinkHearsOfIt)
{
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(m_Sink.m_nIndications, 0);
    EXPECT_EQ(m_Stack.TakeCalls().back(), m_strOwnTimer);
    Turn();
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"CancelTimer=0", "CancelTimer=0", m_strSucceeded}));
    EXPECT_EQ(m_Sink.m_pId, m_pConnector.Get());
    ASSERT_TRUE(m_pKept);
    Turn();
    EXPECT_EQ(m_Sink.m_nIndications, 1);
}

TEST_P(CPSConnectorWrapperDatagramTest, AsycConnect_Timeout_IsCancelledByTheSuccess)
{
    EXPECT_EQ(ConnectWithin(0), MN_OK);
    Turn();
    PassSeconds(10);
    Turn();
    EXPECT_EQ(m_Sink.m_nIndications, 1);
    EXPECT_TRUE(m_pKept);
}

TEST_P(CPSConnectorWrapperDatagramTest, Success_SinkKeepsNothing_TransportIsDeleted)
{
    m_Sink.m_AtIndication = nullptr;
    EXPECT_EQ(Connect(), MN_OK);
    Turn();
    Turn();
    EXPECT_EQ(NewLiveObjects(), 1);
    EXPECT_EQ(m_Stack.CountOf("ps_close", s_nSocket), 1u);
}

TEST_P(CPSConnectorWrapperDatagramTest, CancelConnect_BeforeTheTimer_ReportsNothingAndLeavesNothing)
{
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(m_pConnector->CancelConnect(), MN_OK);
    EXPECT_EQ(NewLiveObjects(), 1);
    EXPECT_EQ(m_Stack.CountOf("ps_close", s_nSocket), 1u);
    Turn();
    EXPECT_EQ(m_Sink.m_nIndications, 0);
    EXPECT_EQ(m_pConnector->CancelConnect(), 1u);
}

TEST_P(CPSConnectorWrapperDatagramTest, AnyStep_Fails_ReachesTheSinkLaterAndLeavesNothing)
{
    for (const char* step : {"ps_socket", "ps_bind", "ps_socket_nonblock", "ps_connect"}) {
        const int before = m_Sink.m_nIndications;
        m_Stack.On(step).Fails(PS_EADDRINUSE);
        EXPECT_EQ(Connect(), MN_OK) << step;
        EXPECT_EQ(m_Sink.m_nIndications, before) << step;
        EXPECT_EQ(m_Stack.TakeCalls().back(), m_strFailureScheduled) << step;
        Turn();
        EXPECT_EQ(m_Stack.TakeCalls().back(), m_strFailed) << step;
        EXPECT_EQ(m_Sink.m_nIndications, before + 1) << step;
        EXPECT_EQ(NewLiveObjects(), 1) << step;
    }
}

// A datagram connector takes a second attempt only behind a cancel; without one it replaces nothing.
TEST_P(CPSConnectorWrapperDatagramTest, SecondAttempt_FirstUnderWay_TheFirstIsIndicatedOnce)
{
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(m_pConnector->AsycConnect(&m_Sink, m_Second, nullptr, nullptr, 2, 1), MN_OK);
    Turn();
    Turn();
    EXPECT_EQ(m_Sink.m_nIndications, 1);
    ASSERT_TRUE(m_pKept);
    CMNInetAddr peer;
    m_pKept->GetPeerAddr(peer);
    EXPECT_NE(peer, m_Second);
}

TEST_P(CPSConnectorWrapperDatagramTest, SecondAttempt_FirstFailedUnreported_OneFailureIsIndicated)
{
    m_Stack.On("ps_connect").Fails(PS_ENETUNREACH);
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(m_pConnector->AsycConnect(&m_Sink, m_Second, nullptr, nullptr, 2, 1), MN_OK);
    m_Stack.TakeCalls();
    Turn();
    EXPECT_EQ(m_Stack.TakeCalls().back(), m_strFailed);
    Turn();
    EXPECT_EQ(m_Sink.m_nIndications, 1);
    EXPECT_EQ(NewLiveObjects(), 1);
}

TEST_P(CPSConnectorWrapperDatagramTest, SecondAttempt_FirstCancelled_IsIndicated)
{
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(m_pConnector->CancelConnect(), MN_OK);
    EXPECT_EQ(m_pConnector->AsycConnect(&m_Sink, m_Second, nullptr, nullptr, 2, 1), MN_OK);
    Turn();
    Turn();
    EXPECT_EQ(m_Sink.m_nIndications, 1);
    ASSERT_TRUE(m_pKept);
    CMNInetAddr peer;
    m_pKept->GetPeerAddr(peer);
    EXPECT_EQ(peer, m_Second);
}

TEST_P(CPSConnectorWrapperDatagramTest, Indication_SinkConnectsAgain_GetsASecondTransport)
{
    m_Sink.m_AtIndication = [this](IPSTransport* transport) {
        m_pKept = transport;
        if (m_Sink.m_nIndications == 1) {
            EXPECT_EQ(Connect(), MN_OK);
        }
    };
    EXPECT_EQ(Connect(), MN_OK);
    Turn();
    EXPECT_EQ(m_Sink.m_nIndications, 1);
    Turn();
    EXPECT_EQ(m_Sink.m_nIndications, 2);
}

TEST_P(CPSConnectorWrapperDatagramTest, Indication_SinkReleasesTheConnector_TransportLives)
{
    m_Sink.m_AtIndication = [this](IPSTransport* transport) {
        m_pKept = transport;
        m_pConnector = nullptr;
    };
    EXPECT_EQ(Connect(), MN_OK);
    Turn();
    EXPECT_EQ(NewLiveObjects(), 1);
    EXPECT_EQ(m_pKept->SendData(*Block("x"), nullptr), MN_OK);
}

TEST_P(CPSConnectorWrapperDatagramTest, LastRelease_UnderWay_LeavesNothing)
{
    EXPECT_EQ(Connect(), MN_OK);
    m_pConnector = nullptr;
    EXPECT_EQ(NewLiveObjects(), 0);
    Turn();
    EXPECT_EQ(m_Sink.m_nIndications, 0);
}

}  // namespace
}  // namespace uxport
