#include "acceptor/CPSAcceptorTcp.h"

#include <cstring>

#include "ipstack/ps_defines.h"
#include "tests/unit/doubles/EndpointTest.h"

namespace uxport
{
namespace
{

const std::vector<std::string> LISTENING = {"ps_socket(2,1,0)=7",      "ps_setsockopt(7,1,2,1,4)=0",
                                            "ps_socket_nonblock(7)=0", "ps_bind(7,10.0.0.1:80{16,2},16)=0",
                                            "ps_listen(7,1024)=0",     "RegisterHandler(7,1)=0"};
const std::vector<std::string> STOPPING = {"RemoveHandler(7,1)=0", "ps_close(7)=0"};

class COtherHandler : public IPSEventHandler
{
public:
    int GetHandle() const override { return 7; }
};

class CPSAcceptorTcpTest : public EndpointTest
{
protected:
    void TearDown() override
    {
        m_pAcceptor = nullptr;
        EndpointTest::TearDown();
    }
    void SetUp() override
    {
        EndpointTest::SetUp();
        m_pAcceptor = new CPSAcceptorTcp(&m_Reactor);
    }

    CPSAcceptorTcp& Acceptor() { return *m_pAcceptor.Get(); }
    MNResult Start() { return Acceptor().StartListen(&m_Sink, m_Local, 0, 0); }

    // The start's calls up to `count`, the failure of the last one, then the undoing.
    static CCalls Failing(std::size_t count, const std::string& failure)
    {
        CCalls calls(LISTENING.begin(), LISTENING.begin() + static_cast<std::ptrdiff_t>(count));
        calls.push_back(failure);
        calls.insert(calls.end(), STOPPING.begin(), STOPPING.end());
        return calls;
    }

    // The failed start left nothing: no handle, no registration, no sink; and it may be tried again.
    void ExpectIdle()
    {
        EXPECT_EQ(Acceptor().GetHandle(), -1);
        EXPECT_EQ(Turn(), "");
        m_Stack.On("ps_accept", -1).Returns(50);
        EXPECT_EQ(Acceptor().OnInput(-1), 0);
        EXPECT_EQ(m_Sink.m_nIndications, 0);
        m_Stack.SetNextHandle(8);
        EXPECT_EQ(Start(), MN_OK);
        EXPECT_EQ(Turn(), "8:1");
    }

    const CMNInetAddr m_Local{"10.0.0.1", 80};
    CRecordingConnectSink m_Sink;
    mantle::CMNAutoPtr<CPSAcceptorTcp> m_pAcceptor;
};

TEST_F(CPSAcceptorTcpTest, Constructor_Fresh_DoesNotListen)
{
    EXPECT_EQ(Acceptor().GetHandle(), -1);
    EXPECT_FALSE(Acceptor().IsConnector());
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSAcceptorTcpTest, StartListen_Idle_OpensBindsListensAndRegistersInOrder)
{
    EXPECT_EQ(Start(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), LISTENING);
    EXPECT_EQ(Acceptor().GetHandle(), s_nSocket);
    EXPECT_EQ(Turn(), "7:1");
}

TEST_F(CPSAcceptorTcpTest, StartListen_ConstantAddress_GetsItsTwoBytesWritten)
{
    CMNInetAddr storage("10.0.0.1", 80);
    std::memset(storage.GetPtr(), 0, 2);
    const CMNInetAddr& local = storage;
    EXPECT_EQ(Acceptor().StartListen(&m_Sink, local, 0, 0), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), LISTENING);
    EXPECT_EQ(static_cast<const unsigned char*>(local.GetPtr())[0], 16);
    EXPECT_EQ(static_cast<const unsigned char*>(local.GetPtr())[1], 2);
}

TEST_F(CPSAcceptorTcpTest, StartListen_AnyTwoNumbers_MakeNoDifference)
{
    EXPECT_EQ(Acceptor().StartListen(&m_Sink, m_Local, 10, 65535), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), LISTENING);
}

TEST_F(CPSAcceptorTcpTest, StartListen_Listening_ReturnsAlreadyInitializedAndChangesNothing)
{
    ASSERT_EQ(Start(), MN_OK);
    m_Stack.TakeCalls();
    CRecordingConnectSink other;
    EXPECT_EQ(Acceptor().StartListen(&other, m_Local, 0, 0), MN_ERROR_ALREADY_INITIALIZED);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
    m_Stack.On("ps_accept").Returns(20);
    Turn(s_nSocket, PS_POLLIN);
    EXPECT_EQ(m_Sink.m_nIndications, 1);
    EXPECT_EQ(other.m_nIndications, 0);
}

TEST_F(CPSAcceptorTcpTest, StartListen_NullSink_ReturnsInvalidArgWithoutACall)
{
    EXPECT_EQ(Acceptor().StartListen(nullptr, m_Local, 0, 0), MN_ERROR_INVALID_ARG);
    EXPECT_EQ(Acceptor().GetHandle(), -1);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSAcceptorTcpTest, StartListen_NullSinkWhileListening_ReturnsAlreadyInitialized)
{
    ASSERT_EQ(Start(), MN_OK);
    EXPECT_EQ(Acceptor().StartListen(nullptr, m_Local, 0, 0), MN_ERROR_ALREADY_INITIALIZED);
}

TEST_F(CPSAcceptorTcpTest, StartListen_NoSocket_ReturnsFailureAndClosesNothing)
{
    m_Stack.On("ps_socket").Fails(PS_EMFILE);
    EXPECT_EQ(Start(), MN_ERROR_FAILURE);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_socket(2,1,0)=-1"}));
    ExpectIdle();
}

TEST_F(CPSAcceptorTcpTest, StartListen_ReuseRefused_ListensAllTheSame)
{
    m_Stack.On("ps_setsockopt").Fails(PS_ENOPROTOOPT);
    EXPECT_EQ(Start(), MN_OK);
}

TEST_F(CPSAcceptorTcpTest, StartListen_NonBlockingRefused_ReturnsFailureAndUndoes)
{
    m_Stack.On("ps_socket_nonblock").Fails(PS_EBADF);
    EXPECT_EQ(Start(), MN_ERROR_FAILURE);
    EXPECT_EQ(m_Stack.TakeCalls(), Failing(2, "ps_socket_nonblock(7)=-1"));
    ExpectIdle();
}

TEST_F(CPSAcceptorTcpTest, StartListen_BindFails_ReturnsFailureAndUndoes)
{
    m_Stack.On("ps_bind").Fails(PS_EADDRINUSE);
    EXPECT_EQ(Start(), MN_ERROR_FAILURE);
    EXPECT_EQ(m_Stack.TakeCalls(), Failing(3, "ps_bind(7,10.0.0.1:80{16,2},16)=-1"));
    ExpectIdle();
}

TEST_F(CPSAcceptorTcpTest, StartListen_ListenFails_ReturnsFailureAndUndoes)
{
    m_Stack.On("ps_listen").Fails(PS_EINVAL);
    EXPECT_EQ(Start(), MN_ERROR_FAILURE);
    EXPECT_EQ(m_Stack.TakeCalls(), Failing(4, "ps_listen(7,1024)=-1"));
    ExpectIdle();
}

TEST_F(CPSAcceptorTcpTest, StartListen_RegistrationFails_ReturnsFailureNotTheReactorsCode)
{
    m_Reactor.Refuse("RegisterHandler", MN_ERROR_UNEXPECTED);
    EXPECT_EQ(Start(), MN_ERROR_FAILURE);
    EXPECT_EQ(m_Stack.TakeCalls(), Failing(5, "RegisterHandler(7,1)=10006"));
    ExpectIdle();
}

TEST_F(CPSAcceptorTcpTest, StartListen_HandleRegisteredBefore_IsAFailure)
{
    COtherHandler other;
    ASSERT_EQ(m_Reactor.RegisterHandler(&other, READ_MASK), MN_OK);
    m_Stack.TakeCalls();
    EXPECT_EQ(Start(), MN_ERROR_FAILURE);
    EXPECT_EQ(m_Stack.TakeCalls(), Failing(5, "RegisterHandler(7,1)=10012"));
    ExpectIdle();
}

TEST_F(CPSAcceptorTcpTest, StopListen_Listening_RemovesThenClosesAndForgetsTheSink)
{
    ASSERT_EQ(Start(), MN_OK);
    m_Stack.TakeCalls();
    EXPECT_EQ(Acceptor().StopListen(1234), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), STOPPING);
    EXPECT_EQ(Turn(s_nSocket, PS_POLLIN), "");
    ExpectIdle();
}

TEST_F(CPSAcceptorTcpTest, StopListen_CloseFails_ReturnsZero)
{
    ASSERT_EQ(Start(), MN_OK);
    m_Stack.On("ps_close", s_nSocket).Fails(PS_EBADF);
    EXPECT_EQ(Acceptor().StopListen(0), MN_OK);
    EXPECT_EQ(Acceptor().GetHandle(), -1);
}

TEST_F(CPSAcceptorTcpTest, StopListen_Idle_ReturnsZeroWithoutACall)
{
    EXPECT_EQ(Acceptor().StopListen(0), MN_OK);
    EXPECT_EQ(Acceptor().StopListen(0), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSAcceptorTcpTest, StartListen_AfterStopListen_ListensAgain)
{
    ASSERT_EQ(Start(), MN_OK);
    Acceptor().StopListen(0);
    m_Stack.TakeCalls();
    m_Stack.SetNextHandle(s_nSocket);
    EXPECT_EQ(Start(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), LISTENING);
}

TEST_F(CPSAcceptorTcpTest, LastRelease_Listening_StopsAndDeletesAtOnce)
{
    ASSERT_EQ(Start(), MN_OK);
    m_Stack.TakeCalls();
    m_pAcceptor = nullptr;
    EXPECT_EQ(m_Stack.TakeCalls(), STOPPING);
    EXPECT_EQ(NewLiveObjects(), 0);
}

TEST_F(CPSAcceptorTcpTest, OnOutput_Any_ReturnsMinusOne)
{
    ASSERT_EQ(Start(), MN_OK);
    m_Stack.TakeCalls();
    EXPECT_EQ(Acceptor().OnOutput(s_nSocket), -1);
    EXPECT_EQ(Acceptor().OnException(s_nSocket), -1);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSAcceptorTcpTest, OnClose_Any_ReturnsZeroAndDoesNothing)
{
    ASSERT_EQ(Start(), MN_OK);
    m_Stack.TakeCalls();
    EXPECT_EQ(Acceptor().OnClose(s_nSocket, ACCEPT_MASK), 0);
    EXPECT_EQ(Acceptor().GetHandle(), s_nSocket);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSAcceptorTcpTest, ErrorEvent_Listening_IsRemovedFromTheReactorAndStopsLater)
{
    ASSERT_EQ(Start(), MN_OK);
    m_Stack.TakeCalls();
    Turn(s_nSocket, PS_POLLERR);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
    EXPECT_EQ(Turn(), "");
    EXPECT_EQ(Acceptor().StopListen(0), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), STOPPING);
}

}  // namespace
}  // namespace uxport
