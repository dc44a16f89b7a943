#include "transport/CPSTransportTcp.h"

#include "ipstack/ps_defines.h"
#include "tests/unit/doubles/TransportTcpTest.h"

namespace uxport
{
namespace
{

const std::vector<std::string> OPENING = {"ps_setsockopt(7,4095,4097,65535,8)=0",
                                          "ps_setsockopt(7,4095,4098,65535,8)=0",
                                          "ps_set_snd_rcv_buffer(7,65535,65535)=0",
                                          "ps_nodelay(7,1)=0",
                                          "ps_socket_nonblock(7)=0",
                                          "ps_getsockname(7,28)=0:?{0,0}",
                                          "ps_getpeername(7,28)=0:?{0,0}",
                                          "RegisterHandler(7,4)=0"};

class CPSTransportTcpTest : public TransportTcpTest
{
};

// Somebody else on the same handle.
class COtherHandler : public IPSEventHandler
{
public:
    int GetHandle() const override { return 7; }
};

TEST_F(CPSTransportTcpTest, Constructor_Fresh_HasNoSocket)
{
    CPSTransportTcp transport(&m_Reactor);
    EXPECT_EQ(transport.GetHandle(), -1);
    EXPECT_EQ(transport.GetPeer().GetHandle(), -1);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSTransportTcpTest, GetPeer_HandlePutIn_IsTheTransportsHandle)
{
    EXPECT_EQ(Transport().GetHandle(), s_nSocket);
}

TEST_F(CPSTransportTcpTest, OpenWithSink_First_TunesReadsAddressesAndRegistersInOrder)
{
    EXPECT_EQ(Transport().OpenWithSink(&m_Sink), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), OPENING);
    EXPECT_EQ(Turn(), "7:1");
}

TEST_F(CPSTransportTcpTest, OpenWithSink_Second_TouchesTheSocketNoMore)
{
    Open();
    CRecordingTransportSink other;
    other.m_strName = "other: ";
    EXPECT_EQ(Transport().OpenWithSink(&other), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
    m_Stack.On("ps_recv").WithData("abc");
    Transport().OnInput(s_nSocket);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_recv(7,65535,0)=3", "other: OnReceive(abc)", "ps_recv(7,65535,0)=0"}));
}

TEST_F(CPSTransportTcpTest, OpenWithSink_TuningRefused_OpensAllTheSame)
{
    m_Stack.On("ps_setsockopt").Fails(PS_ENOPROTOOPT).Times(2);
    m_Stack.On("ps_set_snd_rcv_buffer").Fails(PS_EINVAL);
    m_Stack.On("ps_nodelay").Fails(PS_EINVAL);
    m_Stack.On("ps_getsockname").Fails(PS_EINVAL);
    m_Stack.On("ps_getpeername").Fails(PS_ENOTCONN);
    EXPECT_EQ(Transport().OpenWithSink(&m_Sink), MN_OK);
    const CCalls calls = m_Stack.TakeCalls();
    EXPECT_EQ(calls.size(), OPENING.size());
    EXPECT_EQ(calls.back(), "RegisterHandler(7,4)=0");
}

TEST_F(CPSTransportTcpTest, OpenWithSink_NonBlockingRefused_ClosesAndReturnsFailure)
{
    m_Stack.On("ps_socket_nonblock").Fails(PS_EBADF);
    EXPECT_EQ(Transport().OpenWithSink(&m_Sink), MN_ERROR_FAILURE);
    CCalls expected(OPENING.begin(), OPENING.begin() + 4);
    expected.insert(expected.end(), {"ps_socket_nonblock(7)=-1", "RemoveHandler(7,63)=0", "ps_close(7)=0"});
    EXPECT_EQ(m_Stack.TakeCalls(), expected);
    EXPECT_EQ(Transport().GetSink(), nullptr);
    EXPECT_EQ(Transport().GetHandle(), -1);
}

TEST_F(CPSTransportTcpTest, OpenWithSink_HandleRegisteredBefore_CountsAsSuccess)
{
    COtherHandler other;
    ASSERT_EQ(m_Reactor.RegisterHandler(&other, READ_MASK), MN_OK);
    m_Stack.TakeCalls();
    EXPECT_EQ(Transport().OpenWithSink(&m_Sink), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls().back(), "RegisterHandler(7,4)=10012");
    EXPECT_EQ(Transport().GetSink(), &m_Sink);
    m_Stack.On("ps_recv").Fails(PS_ECONNRESET);
    Turn(s_nSocket, PS_POLLIN);
    EXPECT_EQ(m_Stack.TakeCalls().back(), "OnDisconnect(10001)");
}

TEST_F(CPSTransportTcpTest, OpenWithSink_RegistrationFails_ClosesAndReturnsTheCode)
{
    m_Reactor.Refuse("RegisterHandler", MN_ERROR_UNEXPECTED);
    EXPECT_EQ(Transport().OpenWithSink(&m_Sink), MN_ERROR_UNEXPECTED);
    CCalls expected(OPENING.begin(), OPENING.begin() + 7);
    expected.insert(expected.end(), {"RegisterHandler(7,4)=10006", "RemoveHandler(7,63)=0", "ps_close(7)=0"});
    EXPECT_EQ(m_Stack.TakeCalls(), expected);
    EXPECT_EQ(Transport().GetSink(), nullptr);
}

TEST_F(CPSTransportTcpTest, OpenWithSink_NoSocket_ReturnsInvalidArgAndForgetsTheSink)
{
    Transport().GetPeer().SetHandle(-1);
    EXPECT_EQ(Transport().OpenWithSink(&m_Sink), MN_ERROR_INVALID_ARG);
    EXPECT_EQ(Transport().GetSink(), nullptr);
}

TEST_F(CPSTransportTcpTest, Disconnect_Open_RemovesTheHandlerThenClosesAndTellsNobody)
{
    Open();
    EXPECT_EQ(Transport().Disconnect(77), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"RemoveHandler(7,63)=0", "ps_close(7)=0"}));
    EXPECT_EQ(Transport().GetHandle(), -1);
    EXPECT_EQ(Turn(s_nSocket, PS_POLLIN), "");
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSTransportTcpTest, Disconnect_Again_ReturnsZeroWithoutACall)
{
    Open();
    Transport().Disconnect(0);
    m_Stack.TakeCalls();
    EXPECT_EQ(Transport().Disconnect(0), MN_OK);
    EXPECT_EQ(Transport().Close_t(0), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSTransportTcpTest, Disconnect_CloseFails_ReturnsZero)
{
    Open();
    m_Stack.On("ps_close", s_nSocket).Fails(PS_EBADF);
    EXPECT_EQ(Transport().Disconnect(0), MN_OK);
    EXPECT_EQ(Transport().GetHandle(), -1);
}

TEST_F(CPSTransportTcpTest, Disconnect_NeverOpened_ClosesTheSocket)
{
    EXPECT_EQ(Transport().Disconnect(0), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"RemoveHandler(7,63)=0", "ps_close(7)=0"}));
}

TEST_F(CPSTransportTcpTest, ErrorEvent_Open_ClosesAndTellsTheSinkWithoutReading)
{
    Open();
    Turn(s_nSocket, PS_POLLIN | PS_POLLERR);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"RemoveHandler(7,63)=0", "ps_close(7)=0", "OnDisconnect(10001)"}));
    EXPECT_EQ(m_Sink.m_pTransport, &Transport());
}

TEST_F(CPSTransportTcpTest, ErrorEvent_SinkReleasesTheLastReference_DeletesOnTheNextTurn)
{
    Open();
    m_Sink.m_AtDisconnect = [this](IPSTransport*) { m_pTransport = nullptr; };
    Turn(s_nSocket, PS_POLLHUP);
    EXPECT_EQ(m_Stack.TakeCalls(),
              (CCalls{"RemoveHandler(7,63)=0", "ps_close(7)=0", "OnDisconnect(10001)", "ScheduleTimer(0,0s0us,1)=0"}));
    EXPECT_EQ(NewLiveObjects(), 1);
    Turn();
    EXPECT_EQ(NewLiveObjects(), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSTransportTcpTest, LastRelease_Open_StaysRegisteredUntilTheTurnThatDeletes)
{
    Open();
    m_pTransport = nullptr;
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ScheduleTimer(0,0s0us,1)=0"}));
    EXPECT_EQ(Turn(), "");
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"RemoveHandler(7,63)=0", "ps_close(7)=0"}));
}

TEST_F(CPSTransportTcpTest, OnTimer_Any_DoesNothing)
{
    Open();
    Transport().OnTimer(nullptr);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

}  // namespace
}  // namespace uxport
