#include "connector/CPSConnectorTcpT.h"

#include <cstring>

#include "socket/CPSSocketTcp.h"
#include "tests/unit/doubles/CRecordingWrapper.h"
#include "tests/unit/doubles/EndpointTest.h"
#include "transport/CPSTransportTcp.h"

namespace uxport
{
namespace
{

const std::string DELETION = "ScheduleTimer(0,0s0us,1)=0";

using CConnector = CPSConnectorTcpT<CRecordingWrapper, CPSTransportTcp, CPSSocketTcp>;

class CPSConnectorTcpTTest : public EndpointTest
{
protected:
    void SetUp() override
    {
        EndpointTest::SetUp();
        m_pConnector = std::make_unique<CConnector>(&m_Reactor, &m_Wrapper);
    }
    void TearDown() override
    {
        m_pConnector.reset();
        m_Wrapper.m_pKept = nullptr;
        EndpointTest::TearDown();
    }

    MNResult Connect(CMNInetAddr* local = nullptr) { return m_pConnector->Connect(m_Peer, local, 3, 4); }

    const CMNInetAddr m_Peer{"10.0.0.2", 80};
    CMNInetAddr m_Local{"10.0.0.1", 4000};
    CRecordingWrapper m_Wrapper;
    std::unique_ptr<CConnector> m_pConnector;
};

TEST_F(CPSConnectorTcpTTest, Constructor_Fresh_HasNoHandle)
{
    EXPECT_EQ(m_pConnector->GetHandle(), -1);
    m_pConnector.reset();
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSConnectorTcpTTest, Connect_NoLocalAddress_IsNotBound)
{
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(m_pConnector->GetHandle(), s_nSocket);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_socket(2,1,0)=7", "ps_socket_nonblock(7)=0", "RegisterHandler(7,2)=0",
                                           "ps_connect(7,10.0.0.2:80{16,2},16)=0", "NotifyHandler(7,8)=0"}));
}

TEST_F(CPSConnectorTcpTTest, Connect_AnyAddressAsLocal_IsNotBound)
{
    CMNInetAddr any = CMNInetAddr::s_InetAddrAny;
    EXPECT_EQ(Connect(&any), MN_OK);
    EXPECT_EQ(m_Stack.CountOf("ps_bind", s_nSocket), 0u);
}

TEST_F(CPSConnectorTcpTTest, Connect_LocalAddress_IsBoundWithoutReuseBeforeTheConnect)
{
    EXPECT_EQ(Connect(&m_Local), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(),
              (CCalls{"ps_socket(2,1,0)=7", "ps_bind(7,10.0.0.1:4000{16,2},16)=0", "ps_socket_nonblock(7)=0",
                      "RegisterHandler(7,2)=0", "ps_connect(7,10.0.0.2:80{16,2},16)=0", "NotifyHandler(7,8)=0"}));
}

TEST_F(CPSConnectorTcpTTest, Connect_AnyHostWithAPort_IsBound)
{
    CMNInetAddr port("0.0.0.0", 4000);
    EXPECT_EQ(Connect(&port), MN_OK);
    EXPECT_EQ(m_Stack.TakeCallsOf("ps_bind"), (CCalls{"ps_bind(7,0.0.0.0:4000{16,2},16)=0"}));
}

TEST_F(CPSConnectorTcpTTest, Connect_LaterWithoutLocalAddress_KeepsTheEarlierOne)
{
    EXPECT_EQ(Connect(&m_Local), MN_OK);
    m_pConnector->Close();
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCallsOf("ps_bind"),
              (CCalls{"ps_bind(7,10.0.0.1:4000{16,2},16)=0", "ps_bind(8,10.0.0.1:4000{16,2},16)=0"}));
}

TEST_F(CPSConnectorTcpTTest, Connect_LaterWithTheAnyAddress_ForgetsTheEarlierOne)
{
    EXPECT_EQ(Connect(&m_Local), MN_OK);
    CMNInetAddr any = CMNInetAddr::s_InetAddrAny;
    EXPECT_EQ(Connect(&any), MN_OK);
    EXPECT_EQ(m_Stack.TakeCallsOf("ps_bind"), (CCalls{"ps_bind(7,10.0.0.1:4000{16,2},16)=0"}));
}

TEST_F(CPSConnectorTcpTTest, Connect_PeerBytesSpoilt_PassesThemRight)
{
    CMNInetAddr peer("fe80::2", 80);
    std::memset(peer.GetPtr(), 0, 2);
    EXPECT_EQ(m_pConnector->Connect(peer, nullptr, 0, 0), MN_OK);
    EXPECT_EQ(m_Stack.TakeCallsOf("ps_connect"), (CCalls{"ps_connect(7,[fe80::2]:80{28,10},28)=0"}));
}

TEST_F(CPSConnectorTcpTTest, Connect_StackAnswersAnythingButMinusOne_IsUnderWay)
{
    m_Stack.On("ps_connect").Returns(3);
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls().back(), "NotifyHandler(7,8)=0");
}

TEST_F(CPSConnectorTcpTTest, Connect_NotificationAnswersACode_ReturnsIt)
{
    m_Reactor.Refuse("NotifyHandler", MN_ERROR_UNEXPECTED);
    EXPECT_EQ(Connect(), MN_ERROR_UNEXPECTED);
    EXPECT_EQ(m_pConnector->GetHandle(), s_nSocket);
}

TEST_F(CPSConnectorTcpTTest, Connect_FailsAtOnce_ReturnsMinusOneAndHoldsTheTransportUntilClose)
{
    m_Stack.On("ps_connect").Fails(PS_ENETUNREACH);
    EXPECT_EQ(Connect(), static_cast<MNResult>(-1));
    EXPECT_EQ(m_pConnector->GetHandle(), s_nSocket);
    EXPECT_EQ(NewLiveObjects(), 1);
    m_Stack.TakeCalls();
    EXPECT_EQ(m_pConnector->Close(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"RemoveHandler(7,2)=0", DELETION}));
    EXPECT_EQ(m_pConnector->GetHandle(), -1);
    Turn();
    EXPECT_EQ(NewLiveObjects(), 0);
}

TEST_F(CPSConnectorTcpTTest, Connect_TwiceWithoutClose_ReplacesAndReleasesTheFirst)
{
    ASSERT_EQ(Connect(), MN_OK);
    ASSERT_EQ(Connect(), MN_OK);
    EXPECT_EQ(m_pConnector->GetHandle(), 8);
    EXPECT_EQ(NewLiveObjects(), 2);
    EXPECT_EQ(Turn(), "8:3");
    EXPECT_EQ(NewLiveObjects(), 1);
    EXPECT_EQ(m_Stack.CountOf("ps_close", s_nSocket), 1u);
    EXPECT_EQ(m_Stack.TakeCallsOf("ps_close"), (CCalls{"ps_close(7)=0"}));
}

TEST_F(CPSConnectorTcpTTest, Close_NoTransport_DoesNotTouchTheReactor)
{
    EXPECT_EQ(m_pConnector->Close(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSConnectorTcpTTest, Close_Twice_DoesNothingMore)
{
    ASSERT_EQ(Connect(), MN_OK);
    EXPECT_EQ(m_pConnector->Close(), MN_OK);
    m_Stack.TakeCalls();
    EXPECT_EQ(m_pConnector->Close(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSConnectorTcpTTest, Destructor_UnderWay_Closes)
{
    ASSERT_EQ(Connect(), MN_OK);
    m_Stack.TakeCalls();
    m_pConnector.reset();
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"RemoveHandler(7,2)=0", DELETION}));
    EXPECT_EQ(Turn(), "");
}

TEST_F(CPSConnectorTcpTTest, OnOutput_Connected_RemovesThenTellsAndDropsTheTransport)
{
    ASSERT_EQ(Connect(), MN_OK);
    m_Stack.TakeCalls();
    EXPECT_EQ(m_pConnector->OnOutput(s_nSocket), 0);
    EXPECT_EQ(m_Stack.TakeCalls(),
              (CCalls{"ps_is_socket_errno(7)=0", "RemoveHandler(7,2)=0", "Wrapper(0,transport)", DELETION}));
    EXPECT_EQ(m_Wrapper.m_pFrom, m_pConnector.get());
    EXPECT_EQ(m_pConnector->GetHandle(), -1);
}

TEST_F(CPSConnectorTcpTTest, OnOutput_ConnectedAndKept_NeverFallsToZeroInBetween)
{
    m_Wrapper.m_bKeep = true;
    ASSERT_EQ(Connect(), MN_OK);
    m_Stack.TakeCalls();
    EXPECT_EQ(m_pConnector->OnOutput(s_nSocket), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_is_socket_errno(7)=0", "RemoveHandler(7,2)=0", "Wrapper(0,transport)"}));
    Turn();
    EXPECT_EQ(NewLiveObjects(), 1);
}

TEST_F(CPSConnectorTcpTTest, OnOutput_SocketError_ClosesThenTells)
{
    ASSERT_EQ(Connect(), MN_OK);
    m_Stack.TakeCalls();
    m_Stack.On("ps_is_socket_errno").Returns(PS_ECONNREFUSED);
    EXPECT_EQ(m_pConnector->OnOutput(s_nSocket), 0);
    EXPECT_EQ(m_Stack.TakeCalls(),
              (CCalls{"ps_is_socket_errno(7)=111", "RemoveHandler(7,2)=0", DELETION, "Wrapper(10001,null)"}));
}

TEST_F(CPSConnectorTcpTTest, OnOutput_AfterClose_TellsSuccessWithoutTransport)
{
    EXPECT_EQ(m_pConnector->OnOutput(s_nSocket), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_is_socket_errno(7)=0", "Wrapper(0,null)"}));
}

TEST_F(CPSConnectorTcpTTest, OnClose_UnderWay_ClosesThenTells)
{
    ASSERT_EQ(Connect(), MN_OK);
    m_Stack.TakeCalls();
    EXPECT_EQ(m_pConnector->OnClose(s_nSocket, CONNECT_MASK), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"RemoveHandler(7,2)=0", DELETION, "Wrapper(10001,null)"}));
}

TEST_F(CPSConnectorTcpTTest, OnInput_Any_IsTheHandlersDefault)
{
    EXPECT_EQ(m_pConnector->OnInput(s_nSocket), -1);
    EXPECT_EQ(m_pConnector->OnException(s_nSocket), -1);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSConnectorTcpTTest, AnyOutcome_WrapperDeletesTheConnector_NothingIsTouchedAfterwards)
{
    m_Wrapper.m_bDelete = true;
    for (int road = 0; road < 3; ++road) {
        auto* connector = new CConnector(&m_Reactor, &m_Wrapper);
        ASSERT_EQ(connector->Connect(m_Peer, nullptr, 0, 0), MN_OK);
        std::int32_t failed = 1;
        if (road == 0)
            EXPECT_EQ(connector->OnOutput(connector->GetHandle()), 0);
        else if (road == 1)
            EXPECT_EQ(connector->OnClose(connector->GetHandle(), CONNECT_MASK), 0);
        else
            EXPECT_EQ(connector->OnObserve("resolved", &failed), 77u);
    }
    EXPECT_EQ(Turn(), "");
    EXPECT_EQ(NewLiveObjects(), 0);
}

TEST_F(CPSConnectorTcpTTest, OnObserve_Zero_ConnectsToTheRetryAddressAndReturnsItsResult)
{
    std::int32_t found = 0;
    EXPECT_EQ(m_pConnector->OnObserve(nullptr, &found), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_socket(2,1,0)=7", "ps_socket_nonblock(7)=0", "RegisterHandler(7,2)=0",
                                           "ps_connect(7,0.0.0.0:0{16,2},16)=0", "NotifyHandler(7,8)=0"}));
    m_Reactor.Refuse("NotifyHandler", MN_ERROR_UNEXPECTED);
    EXPECT_EQ(m_pConnector->OnObserve("any topic", &found), MN_ERROR_UNEXPECTED);
}

TEST_F(CPSConnectorTcpTTest, OnObserve_ZeroWithEarlierLocalAddress_BindsToIt)
{
    ASSERT_EQ(Connect(&m_Local), MN_OK);
    m_Stack.TakeCalls();
    std::int32_t found = 0;
    EXPECT_EQ(m_pConnector->OnObserve("", &found), MN_OK);
    EXPECT_EQ(m_Stack.TakeCallsOf("ps_bind"), (CCalls{"ps_bind(8,10.0.0.1:4000{16,2},16)=0"}));
    EXPECT_EQ(Turn(), "8:3");
}

TEST_F(CPSConnectorTcpTTest, OnObserve_NotZero_ClosesTellsAndReturnsTheWrappersAnswer)
{
    ASSERT_EQ(Connect(), MN_OK);
    m_Stack.TakeCalls();
    std::int32_t failed = 5;
    EXPECT_EQ(m_pConnector->OnObserve("any topic", &failed), 77u);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"RemoveHandler(7,2)=0", DELETION, "Wrapper(10001,null)"}));
}

TEST_F(CPSConnectorTcpTTest, OnObserve_ZeroButTheRetryFails_ClosesTellsAndReturnsTheWrappersAnswer)
{
    m_Stack.On("ps_connect").Fails(PS_ENETUNREACH);
    std::int32_t found = 0;
    EXPECT_EQ(m_pConnector->OnObserve(nullptr, &found), 77u);
    EXPECT_EQ(m_Stack.TakeCalls(),
              (CCalls{"ps_socket(2,1,0)=7", "ps_socket_nonblock(7)=0", "RegisterHandler(7,2)=0",
                      "ps_connect(7,0.0.0.0:0{16,2},16)=-1", "RemoveHandler(7,2)=0", DELETION, "Wrapper(10001,null)"}));
}

TEST_F(CPSConnectorTcpTTest, OnObserve_NullData_CountsAsFailure)
{
    EXPECT_EQ(m_pConnector->OnObserve("any topic", nullptr), 77u);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"Wrapper(10001,null)"}));
}

}  // namespace
}  // namespace uxport
