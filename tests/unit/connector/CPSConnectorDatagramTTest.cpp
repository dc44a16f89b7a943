#include "connector/CPSConnectorDatagramT.h"

#include <cstring>

#include "connector/CPSConnectorRawT.h"
#include "connector/CPSConnectorUdpT.h"
#include "ipstack/ps_defines.h"
#include "tests/unit/doubles/CRecordingWrapper.h"
#include "tests/unit/doubles/EDatagram.h"
#include "tests/unit/doubles/EndpointTest.h"
#include "transport/CPSTransportRaw.h"
#include "transport/CPSTransportUdp.h"

namespace uxport
{
namespace
{

const std::string DELETION = "ScheduleTimer(0,0s0us,1)=0";
const std::string SCHEDULED = DELETION;  // the connector's own timer is asked for in the same way

using CUdpConnector = CPSConnectorUdpT<CRecordingWrapper, CPSTransportUdp, CPSSocketUdp>;
using CRawConnector = CPSConnectorRawT<CRecordingWrapper, CPSTransportRaw, CPSSocketRaw>;

class CPSConnectorDatagramTTest : public EndpointTest, public testing::WithParamInterface<EDatagram>
{
protected:
    bool IsUdp() const { return GetParam() == EDatagram::UDP; }
    void SetUp() override
    {
        EndpointTest::SetUp();
        m_pConnector.reset(Make());
    }
    void TearDown() override
    {
        m_pConnector.reset();
        m_Wrapper.m_pKept = nullptr;
        EndpointTest::TearDown();
    }

    IPSConnectorInternal* Make()
    {
        if (IsUdp())
            return new CUdpConnector(&m_Reactor, &m_Wrapper);
        return new CRawConnector(&m_Reactor, &m_Wrapper);
    }

    // The connector's other faces.
    template <class T>
    T& As()
    {
        return dynamic_cast<T&>(*m_pConnector);
    }
    int GetHandle() { return As<IPSEventHandler>().GetHandle(); }

    MNResult Connect(CMNInetAddr* local = nullptr) { return m_pConnector->Connect(m_Peer, local, 2, 1); }
    std::string SocketCall(const std::string& result) const
    {
        return (IsUdp() ? "ps_socket(2,2,0)=" : "ps_socket(2,3,1)=") + result;
    }
    CCalls Connecting(const std::string& local = "0.0.0.0:0") const
    {
        return {SocketCall("7"), "ps_bind(7," + local + "{16,2},16)=0", "ps_socket_nonblock(7)=0",
                "ps_connect(7,10.0.0.2:80{16,2},16)=0", SCHEDULED};
    }
    const CCalls m_Deleting = {"CancelTimer=0", "RemoveHandler(7,63)=0", "ps_close(7)=0"};

    const CMNInetAddr m_Peer{"10.0.0.2", 80};
    CMNInetAddr m_Local{"10.0.0.1", 4000};
    CRecordingWrapper m_Wrapper;
    std::unique_ptr<IPSConnectorInternal> m_pConnector;
};

INSTANTIATE_DATAGRAM_SUITE(CPSConnectorDatagramTTest);

TEST_P(CPSConnectorDatagramTTest, Constructor_Fresh_HasNoHandle)
{
    EXPECT_EQ(GetHandle(), -1);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_P(CPSConnectorDatagramTTest, Connect_NoLocalAddress_BindsToTheEmptyOneAndIsNotRegistered)
{
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), Connecting());
    EXPECT_EQ(GetHandle(), s_nSocket);
    EXPECT_EQ(m_Wrapper.m_pFrom, nullptr);
}

TEST_P(CPSConnectorDatagramTTest, Connect_LocalAddress_IsBoundAndKeptForLater)
{
    EXPECT_EQ(Connect(&m_Local), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), Connecting("10.0.0.1:4000"));
    m_pConnector->Close();
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCallsOf("ps_bind"), (CCalls{"ps_bind(8,10.0.0.1:4000{16,2},16)=0"}));
}

TEST_P(CPSConnectorDatagramTTest, Connect_Numbers_ChooseTheRawSocketOnly)
{
    EXPECT_EQ(m_pConnector->Connect(m_Peer, nullptr, 10, 58), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls().front(), IsUdp() ? "ps_socket(2,2,0)=7" : "ps_socket(10,3,58)=7");
}

TEST_P(CPSConnectorDatagramTTest, Connect_PeerBytesSpoilt_PassesThemRight)
{
    CMNInetAddr peer("fe80::2", 80);
    std::memset(peer.GetPtr(), 0, 2);
    CMNInetAddr local("fe80::1", 0);
    EXPECT_EQ(m_pConnector->Connect(peer, &local, 10, 58), MN_OK);
    EXPECT_EQ(m_Stack.TakeCallsOf("ps_bind"), (CCalls{"ps_bind(7,[fe80::1]:0{28,10},28)=0"}));
    EXPECT_EQ(m_Stack.TakeCallsOf("ps_connect"), (CCalls{"ps_connect(7,[fe80::2]:80{28,10},28)=0"}));
}

TEST_P(CPSConnectorDatagramTTest, NextTurn_Connected_HandsTheTransportOverOnce)
{
    m_Wrapper.m_bKeep = true;
    ASSERT_EQ(Connect(), MN_OK);
    m_Stack.TakeCalls();
    EXPECT_EQ(Turn(), "");
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"Wrapper(0,transport)"}));
    EXPECT_EQ(m_Wrapper.m_pFrom, m_pConnector.get());
    EXPECT_EQ(GetHandle(), -1);
    CMNInetAddr peer;
    EXPECT_EQ(m_Wrapper.m_pKept->GetPeerAddr(peer), MN_OK);
    EXPECT_EQ(peer, m_Peer);
    Turn();
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_P(CPSConnectorDatagramTTest, Transport_HandedOver_SendsOnItsConnectedSocket)
{
    m_Wrapper.m_bKeep = true;
    ASSERT_EQ(Connect(), MN_OK);
    Turn();
    m_Stack.TakeCalls();
    EXPECT_EQ(m_Wrapper.m_pKept->SendData(*Block("x"), nullptr), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_send(7,'x',0)=1"}));
    CRecordingTransportSink sink;
    EXPECT_EQ(m_Wrapper.m_pKept->OpenWithSink(&sink), MN_OK);
    EXPECT_EQ(Turn(), "7:1");
}

TEST_P(CPSConnectorDatagramTTest, Connect_OpenFails_HoldsTheTransportUntilClose)
{
    m_Stack.On("ps_socket").Fails(PS_EMFILE);
    EXPECT_EQ(Connect(), PS_CONNECT_FAILED);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{SocketCall("-1")}));
    EXPECT_EQ(NewLiveObjects(), 1);
    EXPECT_EQ(Connect(), PS_CONNECT_FAILED);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
    EXPECT_EQ(m_pConnector->Close(), MN_OK);
    EXPECT_EQ(NewLiveObjects(), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"CancelTimer=0"}));
    EXPECT_EQ(Connect(), MN_OK);
}

TEST_P(CPSConnectorDatagramTTest, Connect_AnyLaterStepFails_ReturnsFailedAndSchedulesNothing)
{
    const char* steps[] = {"ps_bind", "ps_socket_nonblock", "ps_connect"};
    for (std::size_t i = 0; i < 3; ++i) {
        m_Stack.SetNextHandle(s_nSocket);
        m_Stack.On(steps[i]).Fails(PS_EADDRNOTAVAIL);
        EXPECT_EQ(Connect(), PS_CONNECT_FAILED);
        const CCalls calls = m_Stack.TakeCalls();
        EXPECT_EQ(calls.size(), i == 0 ? 3u : 2 + i);  // a failed bind closes by itself
        EXPECT_EQ(m_pConnector->Close(), MN_OK);
        EXPECT_EQ(m_Stack.CountOf("ps_close", s_nSocket), i + 1);
        m_Stack.TakeCalls();
        Turn();
        EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
    }
}

TEST_P(CPSConnectorDatagramTTest, Connect_WhileATransportIsHeld_FailsAndLeavesTheFirst)
{
    ASSERT_EQ(Connect(), MN_OK);
    m_Stack.TakeCalls();
    CMNInetAddr other("10.0.0.9", 0);
    EXPECT_EQ(Connect(&other), PS_CONNECT_FAILED);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
    EXPECT_EQ(GetHandle(), s_nSocket);
    m_pConnector->Close();
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCallsOf("ps_bind"), (CCalls{"ps_bind(8,10.0.0.9:0{16,2},16)=0"}));
}

TEST_P(CPSConnectorDatagramTTest, Connect_TimerRefused_ReturnsZeroAllTheSame)
{
    m_Reactor.Refuse("ScheduleTimer", MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(Connect(), MN_OK);
}

TEST_P(CPSConnectorDatagramTTest, Close_BeforeTheTimer_DeletesTheTransportAtOnceAndReportsNothing)
{
    ASSERT_EQ(Connect(), MN_OK);
    m_Stack.TakeCalls();
    EXPECT_EQ(m_pConnector->Close(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), m_Deleting);
    EXPECT_EQ(NewLiveObjects(), 0);
    Turn();
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
    EXPECT_EQ(m_Wrapper.m_pFrom, nullptr);
}

TEST_P(CPSConnectorDatagramTTest, Destructor_UnderWay_Closes)
{
    ASSERT_EQ(Connect(), MN_OK);
    m_Stack.TakeCalls();
    m_pConnector.reset();
    EXPECT_EQ(m_Stack.TakeCalls(), m_Deleting);
    EXPECT_EQ(NewLiveObjects(), 0);
}

TEST_P(CPSConnectorDatagramTTest, OnTimeout_NoTransport_TellsSuccessWithoutOne)
{
    As<IMNTimerHandler>().OnTimeout(CMNTimeValue::s_tvZero, nullptr);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"Wrapper(0,null)"}));
}

TEST_P(CPSConnectorDatagramTTest, HandlerOperations_Any_AreTheDefaultsAndOnCloseDoesNothing)
{
    ASSERT_EQ(Connect(), MN_OK);
    m_Stack.TakeCalls();
    auto& handler = As<IPSEventHandler>();
    EXPECT_EQ(handler.OnInput(s_nSocket), -1);
    EXPECT_EQ(handler.OnOutput(s_nSocket), -1);
    EXPECT_EQ(handler.OnException(s_nSocket), -1);
    EXPECT_EQ(handler.OnClose(s_nSocket, READ_MASK), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
    EXPECT_EQ(GetHandle(), s_nSocket);
}

TEST_P(CPSConnectorDatagramTTest, OnObserve_ZeroAndIdle_ConnectsToTheRetryAddressAndReturnsTheTimersResult)
{
    std::int32_t found = 0;
    m_Reactor.Refuse("ScheduleTimer", MN_ERROR_UNEXPECTED);
    EXPECT_EQ(As<mantle::IMNObserver>().OnObserve("any topic", &found), MN_ERROR_UNEXPECTED);
    EXPECT_EQ(m_Stack.TakeCallsOf("ps_connect"), (CCalls{"ps_connect(7,0.0.0.0:0{16,2},16)=0"}));
    EXPECT_EQ(m_Stack.TakeCallsOf("ps_bind"), (CCalls{"ps_bind(7,0.0.0.0:0{16,2},16)=0"}));
}

TEST_P(CPSConnectorDatagramTTest, OnObserve_NotZeroHeldOrFailed_ClosesTellsAndReturnsTheWrappersAnswer)
{
    auto& observer = As<mantle::IMNObserver>();
    std::int32_t failed = 5;
    EXPECT_EQ(observer.OnObserve(nullptr, &failed), 77u);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"CancelTimer=0", "Wrapper(10001,null)"}));
    EXPECT_EQ(observer.OnObserve(nullptr, nullptr), 77u);
    ASSERT_EQ(Connect(), MN_OK);
    std::int32_t found = 0;
    EXPECT_EQ(observer.OnObserve(nullptr, &found), 77u);
    EXPECT_EQ(NewLiveObjects(), 0);
    m_Stack.On("ps_connect").Fails(PS_ENETUNREACH);
    EXPECT_EQ(observer.OnObserve(nullptr, &found), 77u);
    EXPECT_EQ(NewLiveObjects(), 0);
}

TEST_P(CPSConnectorDatagramTTest, AnyOutcome_WrapperDeletesTheConnector_NothingIsTouchedAfterwards)
{
    m_Wrapper.m_bDelete = true;
    m_Wrapper.m_bKeep = true;
    ASSERT_EQ(Connect(), MN_OK);
    m_pConnector.release();
    Turn();
    m_pConnector.reset(Make());
    std::int32_t failed = 5;
    EXPECT_EQ(dynamic_cast<mantle::IMNObserver&>(*m_pConnector.release()).OnObserve("", &failed), 77u);
}

}  // namespace
}  // namespace uxport
