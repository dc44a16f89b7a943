// Receiving on the TCP transport.
#include "transport/CPSTransportTcp.h"

#include "ipstack/ps_defines.h"
#include "tests/unit/doubles/TransportTcpTest.h"

namespace uxport
{
namespace
{

const std::string RECEIVE_NOTHING = "ps_recv(7,65535,0)=0";

class CPSTransportTcpReceiveTest : public TransportTcpTest
{
protected:
    void SetUp() override
    {
        TransportTcpTest::SetUp();
        Open();
        m_Stack.Default("ps_recv", -1).Fails(PS_EBADF);
    }
};

TEST_F(CPSTransportTcpReceiveTest, OnInput_NothingWaits_StaysOpenAndCallsNobody)
{
    EXPECT_EQ(Transport().OnInput(s_nSocket), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{RECEIVE_NOTHING}));
    EXPECT_EQ(Turn(), "7:1");
}

TEST_F(CPSTransportTcpReceiveTest, OnInput_Data_IsDeliveredReceiveByReceive)
{
    m_Stack.On("ps_recv").WithData("one");
    m_Stack.On("ps_recv").WithData("two2");
    Turn(s_nSocket, PS_POLLIN);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_recv(7,65535,0)=3", "OnReceive(one)", "ps_recv(7,65535,0)=4",
                                           "OnReceive(two2)", RECEIVE_NOTHING}));
    EXPECT_EQ(m_Sink.m_pTransport, &Transport());
}

TEST_F(CPSTransportTcpReceiveTest, OnInput_FullBlock_IsOneBlockAndAnotherReceiveFollows)
{
    m_Stack.On("ps_recv").WithData(std::string(65535, 'x'));
    m_Stack.On("ps_recv").WithData("y");
    EXPECT_EQ(Transport().OnInput(s_nSocket), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_recv(7,65535,0)=65535", "OnReceive(65535 bytes)", "ps_recv(7,65535,0)=1",
                                           "OnReceive(y)", RECEIVE_NOTHING}));
}

TEST_F(CPSTransportTcpReceiveTest, OnInput_StackClaimsMoreThanTheRoom_StaysInsideTheBlock)
{
    m_Stack.On("ps_recv").Returns(70000);
    EXPECT_EQ(Transport().OnInput(s_nSocket), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_recv(7,65535,0)=70000", "OnReceive()", RECEIVE_NOTHING}));
}

TEST_F(CPSTransportTcpReceiveTest, OnInput_Broken_ReturnsMinusOneAndTellsNobodyItself)
{
    m_Stack.On("ps_recv").Fails(PS_ECONNRESET);
    EXPECT_EQ(Transport().OnInput(s_nSocket), -1);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_recv(7,65535,0)=-1"}));
    EXPECT_EQ(Transport().GetHandle(), s_nSocket);
}

TEST_F(CPSTransportTcpReceiveTest, InputEvent_DataThenBroken_DeliversThenDisconnects)
{
    m_Stack.On("ps_recv").WithData("last");
    m_Stack.On("ps_recv").Fails(PS_ECONNRESET);
    Turn(s_nSocket, PS_POLLIN);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_recv(7,65535,0)=4", "OnReceive(last)", "ps_recv(7,65535,0)=-1",
                                           "RemoveHandler(7,63)=0", "ps_close(7)=0", "OnDisconnect(10001)"}));
    EXPECT_EQ(Turn(s_nSocket, PS_POLLIN), "");
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSTransportTcpReceiveTest, OnInput_NoSink_DropsTheData)
{
    Transport().Disconnect(0);
    Transport().GetPeer().SetHandle(8);
    m_Stack.TakeCalls();
    m_Stack.On("ps_recv").WithData("lost");
    EXPECT_EQ(Transport().OnInput(8), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_recv(8,65535,0)=4", "ps_recv(8,65535,0)=0"}));
}

TEST_F(CPSTransportTcpReceiveTest, OnInput_EndlessData_StopsAfter1024ReceivesAndComesBack)
{
    m_Stack.On("ps_recv").WithData("x").Times(1500);
    m_Stack.SetRecording(false);
    EXPECT_EQ(Transport().OnInput(s_nSocket), 0);
    EXPECT_EQ(m_Stack.CountOf("ps_recv"), 1024u);
    EXPECT_EQ(Transport().OnInput(s_nSocket), 0);
    EXPECT_EQ(m_Stack.CountOf("ps_recv"), 1501u);
    m_Stack.SetRecording(true);
}

TEST_F(CPSTransportTcpReceiveTest, OnReceive_SinkDuplicates_KeepsTheDataBeyondTheCall)
{
    CMNMessageBlock* kept = nullptr;
    m_Sink.m_AtReceive = [&kept](CMNMessageBlock& data, IPSTransport*) { kept = data.DuplicateChained(); };
    m_Stack.On("ps_recv").WithData("keep me");
    Transport().OnInput(s_nSocket);
    ASSERT_NE(kept, nullptr);
    EXPECT_EQ(Rest(*kept), "keep me");
    kept->DestroyChained();
}

TEST_F(CPSTransportTcpReceiveTest, OnReceive_SinkAnswersACode_IsIgnored)
{
    m_Sink.m_dwAnswer = MN_ERROR_FAILURE;
    m_Stack.On("ps_recv").WithData("x");
    EXPECT_EQ(Transport().OnInput(s_nSocket), 0);
}

TEST_F(CPSTransportTcpReceiveTest, OnReceive_SinkDisconnects_NothingMoreIsReadOrTold)
{
    m_Sink.m_AtReceive = [](CMNMessageBlock&, IPSTransport* transport) { transport->Disconnect(0); };
    m_Stack.On("ps_recv", s_nSocket).WithData("one");
    Turn(s_nSocket, PS_POLLIN);
    const CCalls calls = m_Stack.TakeCalls();
    EXPECT_EQ(CCalls(calls.begin(), calls.begin() + 4),
              (CCalls{"ps_recv(7,65535,0)=3", "OnReceive(one)", "RemoveHandler(7,63)=0", "ps_close(7)=0"}));
    EXPECT_EQ(m_Stack.CountOf("ps_recv", s_nSocket), 1u);
    EXPECT_EQ(m_Stack.CountOf("ps_close"), 1u);
    EXPECT_EQ(Turn(), "");
}

TEST_F(CPSTransportTcpReceiveTest, OnReceive_SinkDisconnectsAndReleasesTheLastReference_DeletesOnTheNextTurn)
{
    m_Sink.m_AtReceive = [this](CMNMessageBlock&, IPSTransport* transport) {
        transport->Disconnect(0);
        m_pTransport = nullptr;
    };
    m_Stack.On("ps_recv", s_nSocket).WithData("one");
    Turn(s_nSocket, PS_POLLIN);
    EXPECT_EQ(NewLiveObjects(), 1);
    Turn();
    EXPECT_EQ(NewLiveObjects(), 0);
    EXPECT_EQ(m_Stack.CountOf("ps_close"), 1u);
}

TEST_F(CPSTransportTcpReceiveTest, OnReceive_SinkReleasesTheLastReferenceWhileOpen_GoesOnUntilTheNextTurn)
{
    m_Sink.m_AtReceive = [this](CMNMessageBlock&, IPSTransport*) { m_pTransport = nullptr; };
    m_Stack.On("ps_recv", s_nSocket).WithData("one");
    Turn(s_nSocket, PS_POLLIN);
    EXPECT_EQ(NewLiveObjects(), 1);
    m_Stack.TakeCalls();
    EXPECT_EQ(Turn(), "");
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"RemoveHandler(7,63)=0", "ps_close(7)=0"}));
    EXPECT_EQ(NewLiveObjects(), 0);
}

TEST_F(CPSTransportTcpReceiveTest, OnReceive_SinkReplacesTheSink_TheRestGoesToTheNewOne)
{
    CRecordingTransportSink other;
    other.m_strName = "other: ";
    m_Sink.m_AtReceive = [&other](CMNMessageBlock&, IPSTransport* transport) {
        EXPECT_EQ(transport->OpenWithSink(&other), MN_OK);
    };
    m_Stack.On("ps_recv").WithData("one");
    m_Stack.On("ps_recv").WithData("two");
    Transport().OnInput(s_nSocket);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_recv(7,65535,0)=3", "OnReceive(one)", "ps_recv(7,65535,0)=3",
                                           "other: OnReceive(two)", RECEIVE_NOTHING}));
}

TEST_F(CPSTransportTcpReceiveTest, OnReceive_SinkForgetsTheSocket_EndsThePass)
{
    m_Sink.m_AtReceive = [](CMNMessageBlock&, IPSTransport* transport) {
        std::int32_t none = -1;
        EXPECT_EQ(transport->SetOption(OPT_FD, &none), MN_OK);
    };
    m_Stack.On("ps_recv", s_nSocket).WithData("one");
    Turn(s_nSocket, PS_POLLIN);
    EXPECT_EQ(m_Stack.CountOf("ps_recv", s_nSocket), 1u);
    EXPECT_EQ(m_Stack.CountOf("ps_close"), 0u);
    EXPECT_EQ(Turn(), "");
}

TEST_F(CPSTransportTcpReceiveTest, InputAndOutputEvent_Both_ReceivesBeforeOnSend)
{
    m_Stack.On("ps_writev").Returns(0);
    Transport().SendData(*Block("x"), nullptr);
    m_Stack.TakeCalls();
    m_Stack.On("ps_recv").WithData("one");
    Turn(s_nSocket, PS_POLLIN | PS_POLLOUT);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_recv(7,65535,0)=3", "OnReceive(one)", RECEIVE_NOTHING,
                                           "RegisterHandler(7,4)=10012", "OnSend"}));
}

TEST_F(CPSTransportTcpReceiveTest, InputAndOutputEvent_SinkDisconnectsInOnReceive_OnSendStaysAway)
{
    m_Stack.On("ps_writev").Returns(0);
    Transport().SendData(*Block("x"), nullptr);
    m_Sink.m_AtReceive = [](CMNMessageBlock&, IPSTransport* transport) { transport->Disconnect(0); };
    m_Stack.On("ps_recv", s_nSocket).WithData("one");
    Turn(s_nSocket, PS_POLLIN | PS_POLLOUT);
    const CCalls calls = m_Stack.TakeCalls();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "OnSend"), 0);
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "OnDisconnect(10001)"), 0);
}

}  // namespace
}  // namespace uxport
