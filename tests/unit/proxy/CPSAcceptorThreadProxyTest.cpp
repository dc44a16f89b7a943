// An acceptor of a user thread, with the real acceptor on the scripted stack behind it.
#include "proxy/CPSAcceptorThreadProxy.h"

#include <thread>

#include "ipstack/ps_defines.h"
#include "mantle/CMNInetAddr.h"
#include "reactor/CPSReactorBase.h"
#include "tests/unit/proxy/ProxyTest.h"

namespace uxport
{
namespace
{

constexpr int LISTENER = 7;
constexpr int ACCEPTED = 20;

class CPSAcceptorThreadProxyTest : public ProxyTest
{
protected:
    void SetUp() override
    {
        ProxyTest::SetUp();
        m_Stack.SetNextHandle(LISTENER);
        MakeProxy(CONNECTION_TYPE_TCP);
    }
    void TearDown() override
    {
        Release();
        ProxyTest::TearDown();
    }
    void MakeProxy(unsigned long type, IPSReactor* reactor)
    {
        m_pProxy = new CPSAcceptorThreadProxy(type, reactor, &m_Thread);
        EXPECT_EQ(m_pProxy->AddReference(), 1u);
    }
    void MakeProxy(unsigned long type) { MakeProxy(type, &m_Network); }
    void Release()
    {
        if (CPSAcceptorThreadProxy* proxy = m_pProxy) {
            m_pProxy = nullptr;
            proxy->ReleaseReference();
        }
    }
    MNResult Start() { return Start(m_Sink); }
    MNResult Start(IPSAcceptorConnectorSink& sink) { return m_pProxy->StartListen(&sink, m_Local, 1, 2); }

    // A peer's connection on `listener`, on the network thread. Returns: whether anybody listened.
    bool PeerConnects(int listener = LISTENER, int accepted = ACCEPTED)
    {
        if (!CNetworkThread::Instance().IsRegistered(listener))
            return false;
        m_Stack.On("ps_accept", listener).Returns(accepted);
        EXPECT_EQ(CNetworkThread::Instance().Report(listener, ACCEPT_MASK), MN_OK);
        return true;
    }
    unsigned int Closes(int handle) { return m_Stack.CountOf("ps_close", handle); }

    const CMNInetAddr m_Local{"10.0.0.1", 80};
    CRecordingConnectSink m_Sink;
    CPSAcceptorThreadProxy* m_pProxy = nullptr;
};

TEST_F(CPSAcceptorThreadProxyTest, Construction_Fresh_IsStoppedAndNoConnector)
{
    EXPECT_TRUE(m_pProxy->IsFlagStopped());
    EXPECT_FALSE(m_pProxy->IsConnector());
    EXPECT_EQ(m_pProxy->GetStopFlagThread(), mantle::CMNThreadManager::GetThreadSelfId());
    EXPECT_EQ(m_pProxy->GetApplicationSink(), nullptr);
    EXPECT_EQ(m_pProxy->AddReference(), 2u);
    EXPECT_EQ(m_pProxy->ReleaseReference(), 1u);
}

TEST_F(CPSAcceptorThreadProxyTest, StartListen_Stopped_PostsAndIsStarted)
{
    EXPECT_EQ(Start(), MN_OK);
    EXPECT_FALSE(m_pProxy->IsFlagStopped());
    EXPECT_EQ(m_pProxy->GetApplicationSink(), &m_Sink);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
    EXPECT_EQ(PendingNetwork(), 1u);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_EQ(m_Stack.CountOf("ps_bind", LISTENER), 1u);
    EXPECT_EQ(m_Stack.CountOf("ps_listen", LISTENER), 1u);
    EXPECT_TRUE(CNetworkThread::Instance().IsRegistered(LISTENER));
}

TEST_F(CPSAcceptorThreadProxyTest, StartListen_Twice_SecondReturnsAlreadyInitialized)
{
    EXPECT_EQ(Start(), MN_OK);
    CRecordingConnectSink second;
    EXPECT_EQ(Start(second), MN_ERROR_ALREADY_INITIALIZED);
    EXPECT_EQ(m_pProxy->StartListen(nullptr, m_Local, 0, 0), MN_ERROR_ALREADY_INITIALIZED);
    EXPECT_EQ(m_pProxy->GetApplicationSink(), &m_Sink);
    EXPECT_EQ(PendingNetwork(), 1u);
}

TEST_F(CPSAcceptorThreadProxyTest, StartListen_NullSink_ReturnsInvalidArg)
{
    EXPECT_EQ(m_pProxy->StartListen(nullptr, m_Local, 0, 0), MN_ERROR_INVALID_ARG);
    EXPECT_TRUE(m_pProxy->IsFlagStopped());
    EXPECT_EQ(PendingNetwork(), 0u);
}

TEST_F(CPSAcceptorThreadProxyTest, StartListen_PostRefused_ForgetsTheSinkAndMayBeTriedAgain)
{
    m_Network.Events().Refuse(true);
    EXPECT_EQ(Start(), MN_ERROR_NOT_INITIALIZED);
    EXPECT_TRUE(m_pProxy->IsFlagStopped());
    EXPECT_EQ(m_pProxy->GetApplicationSink(), nullptr);
    m_Network.Events().Refuse(false);
    EXPECT_EQ(Start(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_TRUE(PeerConnects());
    EXPECT_EQ(StepUser(), MN_OK);
    EXPECT_EQ(m_Sink.m_nIndications, 1);
}

TEST_F(CPSAcceptorThreadProxyTest, StartListen_OnAnotherThread_IsReported)
{
    std::thread([this] { EXPECT_EQ(Start(), MN_OK); }).join();
    ExpectReports(1);
    EXPECT_EQ(Reports(), CCalls{"CPSAcceptorThreadProxy::StartListen"});
}

TEST_F(CPSAcceptorThreadProxyTest, StopListen_NeverStarted_ReturnsZeroAndPostsNothing)
{
    EXPECT_EQ(m_pProxy->StopListen(5), MN_OK);
    EXPECT_EQ(PendingNetwork(), 0u);
}

TEST_F(CPSAcceptorThreadProxyTest, StopListen_Listening_ClosesOnTheNetworkThread)
{
    EXPECT_EQ(Start(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_EQ(m_pProxy->StopListen(5), MN_OK);
    EXPECT_TRUE(m_pProxy->IsFlagStopped());
    EXPECT_EQ(m_pProxy->GetApplicationSink(), nullptr);
    EXPECT_EQ(Closes(LISTENER), 0u);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_EQ(Closes(LISTENER), 1u);
    TickNetwork();
    EXPECT_EQ(NewLiveObjects(), 1);
    EXPECT_EQ(m_pProxy->StopListen(5), MN_OK);
    EXPECT_EQ(PendingNetwork(), 0u);
}

TEST_F(CPSAcceptorThreadProxyTest, StopListen_PostRefused_ReturnsItAndIsStopped)
{
    EXPECT_EQ(Start(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    m_Network.Events().Refuse(true);
    EXPECT_EQ(m_pProxy->StopListen(5), MN_ERROR_NOT_INITIALIZED);
    EXPECT_TRUE(m_pProxy->IsFlagStopped());
    m_Network.Events().Refuse(false);
}

TEST_F(CPSAcceptorThreadProxyTest, StopListen_OnAnotherThread_IsReported)
{
    EXPECT_EQ(Start(), MN_OK);
    std::thread([this] { EXPECT_EQ(m_pProxy->StopListen(0), MN_OK); }).join();
    ExpectReports(1);
    EXPECT_EQ(Reports(), CCalls{"CPSAcceptorThreadProxy::StopListen"});
}

TEST_F(CPSAcceptorThreadProxyTest, StartEvent_BindFails_IsNotReportedAndStaysStarted)
{
    m_Stack.On("ps_bind").Fails(PS_EADDRINUSE);
    EXPECT_EQ(Start(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_ERROR_FAILURE);
    EXPECT_FALSE(m_pProxy->IsFlagStopped());
    EXPECT_EQ(PendingUser(), 0u);
    TickNetwork();
    EXPECT_EQ(NewLiveObjects(), 1);
    EXPECT_EQ(m_pProxy->StopListen(0), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_ERROR_NULL_POINTER);
}

TEST_F(CPSAcceptorThreadProxyTest, StartEvent_UnknownType_IsNotReported)
{
    Release();
    RunOut();
    MakeProxy(5);
    EXPECT_EQ(Start(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_ERROR_INVALID_ARG);
    EXPECT_FALSE(m_pProxy->IsFlagStopped());
    EXPECT_EQ(m_pProxy->StopListen(0), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_ERROR_NULL_POINTER);
    EXPECT_EQ(PendingUser(), 0u);
}

TEST_F(CPSAcceptorThreadProxyTest, Restart_AfterStop_ListensAnew)
{
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(Start(), MN_OK);
        EXPECT_EQ(StepNetwork(), MN_OK);
        EXPECT_TRUE(CNetworkThread::Instance().IsRegistered(LISTENER + i));
        EXPECT_EQ(m_pProxy->StopListen(0), MN_OK);
        EXPECT_EQ(StepNetwork(), MN_OK);
        EXPECT_EQ(Closes(LISTENER + i), 1u);
    }
}

TEST_F(CPSAcceptorThreadProxyTest, Connection_Listening_ReachesTheSinkWithTheProxyAsId)
{
    EXPECT_EQ(Start(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    mantle::CMNAutoPtr<IPSTransport> kept;
    m_Sink.m_AtIndication = [&](IPSTransport* transport) { kept = transport; };
    EXPECT_TRUE(PeerConnects());
    EXPECT_EQ(m_Sink.m_nIndications, 0);
    EXPECT_EQ(StepUser(), MN_OK);
    EXPECT_EQ(m_Sink.m_nIndications, 1);
    EXPECT_EQ(m_Sink.m_pId, m_pProxy);
    EXPECT_FALSE(m_Sink.m_pId->IsConnector());
    EXPECT_NE(dynamic_cast<CPSTransportThreadProxy*>(kept.Get()), nullptr);
    std::int32_t handle = 0;
    EXPECT_EQ(kept->GetOption(OPT_FD, &handle), MN_OK);
    EXPECT_EQ(handle, ACCEPTED);
    kept = nullptr;
    RunOut();
    EXPECT_EQ(Closes(ACCEPTED), 1u);
}

// One connection with the real transport behind it, from the indication to the peer's end.
TEST_F(CPSAcceptorThreadProxyTest, Connection_WholeLife_DataBothWaysThenTheEnd)
{
    EXPECT_EQ(Start(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    CRecordingTransportSink data;
    mantle::CMNAutoPtr<IPSTransport> kept;
    m_Sink.m_AtIndication = [&](IPSTransport* transport) {
        kept = transport;
        EXPECT_EQ(transport->OpenWithSink(&data), MN_OK);
    };
    EXPECT_TRUE(PeerConnects());
    EXPECT_EQ(StepUser(), MN_OK);

    EXPECT_EQ(kept->SendData(*Block("hello"), nullptr), MN_OK);
    EXPECT_EQ(kept->SendData(*Block("world"), nullptr), MN_OK);
    m_Stack.On("ps_writev", ACCEPTED).Returns(2);
    m_Stack.On("ps_writev", ACCEPTED).Returns(0);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_EQ(m_Stack.TakeSent(ACCEPTED), "he");
    m_Stack.On("ps_recv", ACCEPTED).WithData("first");
    EXPECT_EQ(CNetworkThread::Instance().Report(ACCEPTED, READ_MASK | WRITE_MASK), MN_OK);
    EXPECT_EQ(m_Stack.TakeSent(ACCEPTED), "lloworld");
    m_Stack.On("ps_recv", ACCEPTED).WithData("last");
    m_Stack.On("ps_recv", ACCEPTED).Fails(PS_ENOTCONN);
    EXPECT_EQ(CNetworkThread::Instance().Report(ACCEPTED, READ_MASK), MN_OK);
    EXPECT_EQ(Closes(ACCEPTED), 1u);

    m_Stack.TakeCalls();
    while (PendingUser() != 0)
        EXPECT_EQ(StepUser(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"OnReceive(first)", "OnSend", "OnReceive(last)", "OnDisconnect(10001)"}));
    EXPECT_EQ(data.m_pTransport, kept.Get());
    kept = nullptr;
    RunOut();
    EXPECT_EQ(NewLiveObjects(), 2);
}

TEST_F(CPSAcceptorThreadProxyTest, Connection_NotKept_IsClosedRightAfter)
{
    EXPECT_EQ(Start(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_TRUE(PeerConnects());
    EXPECT_EQ(StepUser(), MN_OK);
    EXPECT_EQ(TickUser(), 1u);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_EQ(Closes(ACCEPTED), 1u);
    TickNetwork();
    EXPECT_EQ(NewLiveObjects(), 2);
}

TEST_F(CPSAcceptorThreadProxyTest, Connection_AcceptedAfterStopListen_ReachesNobodyAndIsClosed)
{
    EXPECT_EQ(Start(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_EQ(m_pProxy->StopListen(0), MN_OK);
    EXPECT_TRUE(PeerConnects());
    EXPECT_EQ(StepUser(), MN_OK);
    EXPECT_EQ(Closes(ACCEPTED), 0u);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_EQ(Closes(ACCEPTED), 1u);
    EXPECT_EQ(m_Sink.m_nIndications, 0);
}

// The connection belongs to the first start and must not answer for the second.
TEST_F(CPSAcceptorThreadProxyTest, Connection_OfAnEarlierStart_IsClosedNotDelivered)
{
    CRecordingConnectSink second;
    EXPECT_EQ(Start(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_TRUE(PeerConnects());
    EXPECT_EQ(m_pProxy->StopListen(0), MN_OK);
    EXPECT_EQ(Start(second), MN_OK);
    RunOut();
    EXPECT_EQ(m_Sink.m_nIndications, 0);
    EXPECT_EQ(second.m_nIndications, 0);
    EXPECT_EQ(Closes(ACCEPTED), 1u);
    EXPECT_TRUE(PeerConnects(LISTENER + 1, ACCEPTED + 1));
    EXPECT_EQ(StepUser(), MN_OK);
    EXPECT_EQ(second.m_nIndications, 1);
}

TEST_F(CPSAcceptorThreadProxyTest, Connection_SinkStopsInside_LaterOnesAreClosed)
{
    EXPECT_EQ(Start(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_TRUE(PeerConnects());
    EXPECT_TRUE(PeerConnects(LISTENER, ACCEPTED + 1));
    m_Sink.m_AtIndication = [this](IPSTransport*) { EXPECT_EQ(m_pProxy->StopListen(0), MN_OK); };
    RunOut();
    EXPECT_EQ(m_Sink.m_nIndications, 1);
    EXPECT_EQ(Closes(ACCEPTED), 1u);
    EXPECT_EQ(Closes(ACCEPTED + 1), 1u);
    EXPECT_EQ(Closes(LISTENER), 1u);
}

TEST_F(CPSAcceptorThreadProxyTest, Connection_OpenFails_IsNotTold)
{
    EXPECT_EQ(Start(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    m_Stack.On("ps_socket_nonblock", ACCEPTED).Returns(0);
    m_Stack.On("ps_socket_nonblock", ACCEPTED).Fails(PS_EBADF);
    EXPECT_TRUE(PeerConnects());
    EXPECT_EQ(PendingUser(), 0u);
    EXPECT_EQ(Closes(ACCEPTED), 1u);
    TickNetwork();
    EXPECT_EQ(NewLiveObjects(), 2);
}

TEST_F(CPSAcceptorThreadProxyTest, Connection_UserQueueRefuses_IsClosed)
{
    EXPECT_EQ(Start(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    m_UserQueue.Refuse(true);
    EXPECT_TRUE(PeerConnects());
    EXPECT_EQ(Closes(ACCEPTED), 1u);
    TickNetwork();
    TickNetwork();
    EXPECT_EQ(NewLiveObjects(), 2);
}

TEST_F(CPSAcceptorThreadProxyTest, LastRelease_OnTheUserThread_GoesOnTheNetworkThread)
{
    EXPECT_EQ(Start(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    Release();
    EXPECT_EQ(NewLiveObjects(), 2);
    EXPECT_EQ(PendingNetwork(), 1u);
    EXPECT_EQ(StepNetwork(), MN_OK);
    TickNetwork();
    EXPECT_EQ(NewLiveObjects(), 0);
    EXPECT_EQ(Closes(LISTENER), 1u);
}

TEST_F(CPSAcceptorThreadProxyTest, LastRelease_OnTheNetworkThread_GoesAtOnce)
{
    OnNetwork([this] {
        Release();
        EXPECT_EQ(NewLiveObjects(), 0);
    });
    EXPECT_EQ(PendingNetwork(), 0u);
}

TEST_F(CPSAcceptorThreadProxyTest, LastRelease_OnAThirdThread_IsReportedAndPosted)
{
    std::thread([this] { Release(); }).join();
    ExpectReports(1);
    EXPECT_EQ(PendingNetwork(), 1u);
    EXPECT_EQ(NewLiveObjects(), 1);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_EQ(NewLiveObjects(), 0);
}

TEST_F(CPSAcceptorThreadProxyTest, LastRelease_NoReactor_GoesAtOnce)
{
    Release();
    RunOut();
    MakeProxy(CONNECTION_TYPE_TCP, nullptr);
    EXPECT_EQ(Start(), MN_ERROR_NOT_INITIALIZED);
    Release();
    EXPECT_EQ(NewLiveObjects(), 0);
}

TEST_F(CPSAcceptorThreadProxyTest, LastRelease_NetworkQueueRefuses_LeavesNothing)
{
    m_Network.Events().Refuse(true);
    Release();
    EXPECT_EQ(NewLiveObjects(), 0);
    m_Network.Events().Refuse(false);
}

TEST_F(CPSAcceptorThreadProxyTest, Dying_Connection_IsClosedAndRevivesNothing)
{
    EXPECT_EQ(Start(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    Release();
    EXPECT_TRUE(PeerConnects());
    EXPECT_EQ(Closes(ACCEPTED), 1u);
    EXPECT_EQ(PendingUser(), 0u);
    RunOut();
    EXPECT_EQ(NewLiveObjects(), 0);
    EXPECT_EQ(Closes(LISTENER), 1u);
}

// Freed in the middle of a turn of the loop, whose next report is a connection: the acceptor outlives the proxy until
// its timer and must not speak to it any more.
TEST_F(CPSAcceptorThreadProxyTest, Gone_ConnectionBeforeTheAcceptorsTimer_TouchesNothing)
{
    EXPECT_EQ(Start(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    OnNetwork([this] { Release(); });
    EXPECT_FALSE(PeerConnects());
    EXPECT_EQ(Closes(LISTENER), 1u);
    TickNetwork();
    EXPECT_EQ(NewLiveObjects(), 0);
}

// Start, stop and start again while peers connect.
class CPSAcceptorThreadProxyOrdersTest : public CPSAcceptorThreadProxyTest
{
protected:
    // Delivers only connections of its own start, and only until the stop.
    class CStartSink : public IPSAcceptorConnectorSink
    {
    public:
        MNResult OnConnectIndication(long result, IPSTransport* transport, IPSAcceptorConnectorId*) override
        {
            EXPECT_EQ(result, 0);
            EXPECT_TRUE(m_bStarted);
            std::int32_t handle = 0;
            EXPECT_EQ(transport->GetOption(OPT_FD, &handle), MN_OK);
            EXPECT_EQ(handle, m_nExpected);
            ++m_nIndications;
            if (m_bKeep)
                m_pKept = transport;
            return MN_OK;
        }

        int m_nExpected = 0;
        int m_nIndications = 0;
        bool m_bStarted = false;
        bool m_bKeep = false;
        mantle::CMNAutoPtr<IPSTransport> m_pKept;
    };

    void Explore(bool keep, bool release)
    {
        Release();
        RunOut();
        const unsigned long runs = COrders::Explore(60000, [&](COrders& orders) { Run(orders, keep, release); });
        EXPECT_GT(runs, 100u);
    }
    void Run(COrders& orders, bool keep, bool release)
    {
        m_Stack.SetNextHandle(LISTENER);
        MakeProxy(CONNECTION_TYPE_TCP);
        CStartSink sinks[2];
        for (int i = 0; i < 2; ++i) {
            sinks[i].m_nExpected = ACCEPTED + i;
            sinks[i].m_bKeep = keep;
        }
        int accepted = 0;
        const auto start = [&](int i) {
            return [&, i] {
                EXPECT_EQ(Start(sinks[i]), MN_OK);
                sinks[i].m_bStarted = true;
            };
        };
        const auto stop = [&] {
            EXPECT_EQ(m_pProxy->StopListen(0), MN_OK);
            sinks[0].m_bStarted = false;
        };
        const auto letGo = [&] {
            if (release)
                Release();
        };
        CPSReactorBase& reactor = CNetworkThread::Instance().GetReactor();
        const auto connect = [&] {
            for (int i = 0; i < 2; ++i) {
                if (!CNetworkThread::Instance().IsRegistered(LISTENER + i))
                    continue;
                m_Stack.On("ps_accept", LISTENER + i).Returns(ACCEPTED + i);
                EXPECT_EQ(reactor.ProcessHandleEvent(LISTENER + i, ACCEPT_MASK, 0, 0, 0), MN_OK);
                ++accepted;
            }
        };
        Play(orders, {start(0), stop, start(1), letGo}, {connect});
        for (CStartSink& sink : sinks) {
            EXPECT_LE(sink.m_nIndications, 1);
            sink.m_pKept = nullptr;
        }
        Release();
        RunOut();
        EXPECT_EQ(NewLiveObjects(), 0);
        const unsigned int closed = Closes(ACCEPTED) + Closes(ACCEPTED + 1) + Closes(LISTENER) + Closes(LISTENER + 1);
        EXPECT_EQ(closed - m_dwClosedBefore, static_cast<unsigned int>(accepted) + 2);
        m_dwClosedBefore = closed;
        m_Stack.TakeCalls();
    }

private:
    unsigned int m_dwClosedBefore = 0;
};

TEST_F(CPSAcceptorThreadProxyOrdersTest, EveryOrder_StartStopStart_NoConnectionAnswersForAnotherStart)
{
    Explore(false, false);
}

TEST_F(CPSAcceptorThreadProxyOrdersTest, EveryOrder_StartStopStartKept_NoConnectionAnswersForAnotherStart)
{
    Explore(true, false);
}

TEST_F(CPSAcceptorThreadProxyOrdersTest, EveryOrder_StartStopStartRelease_LeavesNothing)
{
    Explore(false, true);
}

}  // namespace
}  // namespace uxport
