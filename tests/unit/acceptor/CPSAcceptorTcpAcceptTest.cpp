// Accepting, and what a sink may do to its acceptor meanwhile.
#include "acceptor/CPSAcceptorTcp.h"

#include "ipstack/ps_defines.h"
#include "tests/unit/doubles/EndpointTest.h"
#include "transport/CPSTransportTcp.h"

namespace uxport
{
namespace
{

const std::string INDICATION = "OnConnectIndication(0,transport)";
const std::string DELETION = "ScheduleTimer(0,0s0us,1)=0";
const std::string NO_MORE = "ps_accept(7,16)=-1";

class CPSAcceptorTcpAcceptTest : public EndpointTest
{
protected:
    void SetUp() override
    {
        EndpointTest::SetUp();
        m_pAcceptor = new CPSAcceptorTcp(&m_Reactor);
        ASSERT_EQ(m_pAcceptor->StartListen(&m_Sink, m_Local, 0, 0), MN_OK);
        m_Stack.TakeCalls();
        m_Stack.SetNextHandle(8);
    }
    void TearDown() override
    {
        m_pAcceptor = nullptr;
        EndpointTest::TearDown();
    }

    // What accepting `handle` takes when nobody keeps the transport.
    static CCalls Accepted(int handle)
    {
        const std::string text = std::to_string(handle);
        return {"ps_accept(7,16)=" + text, "ps_socket_nonblock(" + text + ")=0", INDICATION, DELETION};
    }

    const CMNInetAddr m_Local{"10.0.0.1", 80};
    CRecordingConnectSink m_Sink;
    mantle::CMNAutoPtr<CPSAcceptorTcp> m_pAcceptor;
};

TEST_F(CPSAcceptorTcpAcceptTest, OnInput_NothingWaits_ReturnsZero)
{
    EXPECT_EQ(m_pAcceptor->OnInput(s_nSocket), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{NO_MORE}));
    EXPECT_EQ(Turn(), "7:1");
}

TEST_F(CPSAcceptorTcpAcceptTest, OnInput_One_IsIndicatedOnceWithTheTransportAndTheAcceptor)
{
    m_Stack.On("ps_accept").Returns(20).WithAddress("10.0.0.2", 4000);
    m_Sink.m_AtIndication = [this](IPSTransport* transport) {
        std::int32_t handle = 0;
        EXPECT_EQ(transport->GetOption(OPT_FD, &handle), MN_OK);
        EXPECT_EQ(handle, 20);
        EXPECT_EQ(transport->GetSink(), nullptr);
        EXPECT_EQ(m_Sink.m_pId, m_pAcceptor.Get());
        EXPECT_FALSE(m_Sink.m_pId->IsConnector());
    };
    EXPECT_EQ(m_pAcceptor->OnInput(s_nSocket), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_accept(7,16)=20:10.0.0.2:4000{16,2}", "ps_socket_nonblock(20)=0",
                                           INDICATION, DELETION, NO_MORE}));
}

TEST_F(CPSAcceptorTcpAcceptTest, OnInput_PeerAddressOfTheAccept_IsNotKept)
{
    m_Stack.On("ps_accept").Returns(20).WithAddress("10.0.0.2", 4000);
    m_Stack.On("ps_getpeername", 20).WithAddress("10.0.0.3", 5000);
    m_Sink.m_AtIndication = [](IPSTransport* transport) {
        CMNInetAddr peer;
        EXPECT_EQ(transport->GetPeerAddr(peer), MN_OK);
        EXPECT_EQ(peer.ToString(), "10.0.0.3:5000");
    };
    m_pAcceptor->OnInput(s_nSocket);
}

TEST_F(CPSAcceptorTcpAcceptTest, OnInput_TenWait_AreAllIndicatedInOneCall)
{
    CCalls expected;
    for (int handle = 20; handle < 30; ++handle) {
        m_Stack.On("ps_accept").Returns(handle);
        const CCalls calls = Accepted(handle);
        expected.insert(expected.end(), calls.begin(), calls.end());
    }
    expected.push_back(NO_MORE);
    EXPECT_EQ(m_pAcceptor->OnInput(s_nSocket), 0);
    EXPECT_EQ(m_Sink.m_nIndications, 10);
    EXPECT_EQ(m_Stack.TakeCalls(), expected);
}

TEST_F(CPSAcceptorTcpAcceptTest, InputEvent_One_IsAcceptedByTheLoop)
{
    m_Stack.On("ps_accept").Returns(20);
    Turn(s_nSocket, PS_POLLIN);
    EXPECT_EQ(m_Sink.m_nIndications, 1);
}

TEST_F(CPSAcceptorTcpAcceptTest, OnInput_AnyErrorOfTheAccept_EndsThePassWithZeroUnexamined)
{
    for (const int cause : {PS_EAGAIN, PS_ECONNABORTED, PS_EMFILE, PS_EBADF}) {
        m_Stack.On("ps_accept").Fails(cause);
        EXPECT_EQ(m_pAcceptor->OnInput(s_nSocket), 0);
        EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{NO_MORE}));
    }
    m_Stack.On("ps_accept").Returns(-103);
    EXPECT_EQ(m_pAcceptor->OnInput(s_nSocket), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_accept(7,16)=-103"}));
    EXPECT_EQ(m_Sink.m_nIndications, 0);
    EXPECT_EQ(Turn(), "7:1");
}

TEST_F(CPSAcceptorTcpAcceptTest, OnInput_NonBlockingRefused_DeletesTheTransportAndLeavesTheRest)
{
    m_Stack.On("ps_accept").Returns(20);
    m_Stack.On("ps_socket_nonblock", 20).Fails(PS_EBADF);
    EXPECT_EQ(m_pAcceptor->OnInput(s_nSocket), 0);
    EXPECT_EQ(m_Stack.TakeCalls(),
              (CCalls{"ps_accept(7,16)=20", "ps_socket_nonblock(20)=-1", "RemoveHandler(20,63)=0", "ps_close(20)=0"}));
    EXPECT_EQ(NewLiveObjects(), 1);
    m_Stack.On("ps_accept").Returns(21);
    Turn(s_nSocket, PS_POLLIN);
    EXPECT_EQ(m_Sink.m_nIndications, 1);
}

TEST_F(CPSAcceptorTcpAcceptTest, Indication_SinkKeepsNothing_TransportIsDeletedOnTheNextTurn)
{
    m_Stack.On("ps_accept").Returns(20);
    m_pAcceptor->OnInput(s_nSocket);
    EXPECT_EQ(NewLiveObjects(), 2);
    m_Stack.TakeCalls();
    Turn();
    EXPECT_EQ(NewLiveObjects(), 1);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"RemoveHandler(20,63)=0", "ps_close(20)=0"}));
}

TEST_F(CPSAcceptorTcpAcceptTest, Indication_SinkOpensButKeepsNothing_TransportIsDeletedWithoutOnDisconnect)
{
    CRecordingTransportSink data;
    m_Sink.m_AtIndication = [&data](IPSTransport* transport) { EXPECT_EQ(transport->OpenWithSink(&data), MN_OK); };
    m_Stack.On("ps_accept").Returns(20);
    m_pAcceptor->OnInput(s_nSocket);
    m_Stack.TakeCalls();
    EXPECT_EQ(Turn(), "7:1");
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"RemoveHandler(20,63)=0", "ps_close(20)=0"}));
}

TEST_F(CPSAcceptorTcpAcceptTest, Indication_SinkTakesAReference_TransportLives)
{
    mantle::CMNAutoPtr<IPSTransport> kept;
    CRecordingTransportSink data;
    m_Sink.m_AtIndication = [&](IPSTransport* transport) {
        kept = transport;
        EXPECT_EQ(transport->OpenWithSink(&data), MN_OK);
    };
    m_Stack.On("ps_accept").Returns(20);
    m_pAcceptor->OnInput(s_nSocket);
    EXPECT_EQ(Turn(), "20:1 7:1");
    m_Stack.On("ps_recv", 20).WithData("hello");
    m_Stack.TakeCalls();
    Turn(20, PS_POLLIN);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_recv(20,65535,0)=5", "OnReceive(hello)", "ps_recv(20,65535,0)=0"}));
    EXPECT_EQ(data.m_pTransport, kept.Get());
}

TEST_F(CPSAcceptorTcpAcceptTest, Indication_SinkAnswersACode_IsIgnored)
{
    m_Sink.m_dwAnswer = MN_ERROR_FAILURE;
    m_Stack.On("ps_accept").Returns(20);
    m_Stack.On("ps_accept").Returns(21);
    EXPECT_EQ(m_pAcceptor->OnInput(s_nSocket), 0);
    EXPECT_EQ(m_Sink.m_nIndications, 2);
}

TEST_F(CPSAcceptorTcpAcceptTest, Indication_SinkStops_NothingMoreIsAcceptedOrIndicated)
{
    m_Sink.m_AtIndication = [this](IPSTransport*) { EXPECT_EQ(m_pAcceptor->StopListen(0), MN_OK); };
    m_Stack.On("ps_accept", s_nSocket).Returns(20);
    Turn(s_nSocket, PS_POLLIN);
    EXPECT_EQ(m_Stack.CountOf("ps_accept", s_nSocket), 1u);
    EXPECT_EQ(m_Sink.m_nIndications, 1);
    EXPECT_EQ(m_Stack.CountOf("ps_close", s_nSocket), 1u);
    EXPECT_EQ(Turn(), "");
}

TEST_F(CPSAcceptorTcpAcceptTest, Indication_SinkStopsAndTheTransportIsKept_TransportLives)
{
    mantle::CMNAutoPtr<IPSTransport> kept;
    m_Sink.m_AtIndication = [&](IPSTransport* transport) {
        kept = transport;
        m_pAcceptor->StopListen(0);
    };
    m_Stack.On("ps_accept", s_nSocket).Returns(20);
    Turn(s_nSocket, PS_POLLIN);
    Turn();
    EXPECT_EQ(m_Stack.CountOf("ps_close", 20), 0u);
}

TEST_F(CPSAcceptorTcpAcceptTest, Indication_SinkStopsAndStartsAgain_GoesOnWithTheNewListener)
{
    CRecordingConnectSink second;
    second.m_strName = "second: ";
    m_Sink.m_AtIndication = [&](IPSTransport*) {
        m_pAcceptor->StopListen(0);
        EXPECT_EQ(m_pAcceptor->StartListen(&second, m_Local, 0, 0), MN_OK);
    };
    m_Stack.On("ps_accept", s_nSocket).Returns(20);
    m_Stack.On("ps_accept", 8).Returns(21);
    Turn(s_nSocket, PS_POLLIN);
    EXPECT_EQ(m_Sink.m_nIndications, 1);
    EXPECT_EQ(second.m_nIndications, 1);
    EXPECT_EQ(Turn(), "8:1");
}

TEST_F(CPSAcceptorTcpAcceptTest, Indication_SinkReleasesTheLastReference_DiesAfterTheCallAndIndicatesNothingMore)
{
    m_Sink.m_AtIndication = [this](IPSTransport*) {
        m_pAcceptor = nullptr;
        EXPECT_EQ(m_Stack.CountOf("ps_close"), 0u);
    };
    m_Stack.On("ps_accept", s_nSocket).Returns(20);
    Turn(s_nSocket, PS_POLLIN);
    EXPECT_EQ(m_Sink.m_nIndications, 1);
    EXPECT_EQ(m_Stack.CountOf("ps_accept", s_nSocket), 1u);
    EXPECT_EQ(m_Stack.CountOf("ps_close", s_nSocket), 1u);
    EXPECT_EQ(Turn(), "");
    EXPECT_EQ(NewLiveObjects(), 0);
}

TEST_F(CPSAcceptorTcpAcceptTest, Indication_SinkStopsAndReleasesTheLastReference_DiesAfterTheCall)
{
    m_Sink.m_AtIndication = [this](IPSTransport*) {
        m_pAcceptor->StopListen(0);
        m_pAcceptor = nullptr;
    };
    m_Stack.On("ps_accept", s_nSocket).Returns(20);
    Turn(s_nSocket, PS_POLLIN);
    Turn();
    EXPECT_EQ(m_Stack.CountOf("ps_close", s_nSocket), 1u);
    EXPECT_EQ(NewLiveObjects(), 0);
}

TEST_F(CPSAcceptorTcpAcceptTest, OnInput_NobodyHoldsTheAcceptor_DoesNotDeleteIt)
{
    CPSAcceptorTcp unheld(&m_Reactor);
    ASSERT_EQ(unheld.StartListen(&m_Sink, m_Local, 0, 0), MN_OK);
    m_Stack.On("ps_accept", 8).Returns(20);
    m_Stack.On("ps_accept", 8).Returns(21);
    EXPECT_EQ(unheld.OnInput(8), 0);
    EXPECT_EQ(m_Sink.m_nIndications, 2);
    EXPECT_EQ(unheld.GetHandle(), 8);
    EXPECT_EQ(m_Stack.CountOf("ps_close"), 0u);
}

TEST_F(CPSAcceptorTcpAcceptTest, OnInput_NobodyHoldsTheAcceptorButTheSinkDoes_GoesOn)
{
    CPSAcceptorTcp unheld(&m_Reactor);
    ASSERT_EQ(unheld.StartListen(&m_Sink, m_Local, 0, 0), MN_OK);
    m_Sink.m_AtIndication = [&](IPSTransport*) { unheld.AddReference(); };
    m_Stack.On("ps_accept", 8).Returns(20);
    m_Stack.On("ps_accept", 8).Returns(21);
    EXPECT_EQ(unheld.OnInput(8), 0);
    EXPECT_EQ(m_Sink.m_nIndications, 2);
    EXPECT_EQ(unheld.ReleaseReference(), 1u);
}

TEST_F(CPSAcceptorTcpAcceptTest, OnInput_Idle_IndicatesToNobody)
{
    m_pAcceptor->StopListen(0);
    m_Stack.On("ps_accept", -1).Returns(20);
    EXPECT_EQ(m_pAcceptor->OnInput(-1), 0);
    EXPECT_EQ(m_Sink.m_nIndications, 0);
    Turn();
    EXPECT_EQ(m_Stack.CountOf("ps_close", 20), 1u);
}

}  // namespace
}  // namespace uxport
