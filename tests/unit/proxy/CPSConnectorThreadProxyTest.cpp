// A connector of a user thread, with the real connector on the scripted stack behind it.
#include "proxy/CPSConnectorThreadProxy.h"

#include <thread>

#include "ipstack/ps_defines.h"
#include "mantle/CMNClock.h"
#include "mantle/CMNInetAddr.h"
#include "mantle/CMNTimeValue.h"
#include "reactor/CPSReactorBase.h"
#include "tests/unit/proxy/ProxyTest.h"

namespace uxport
{
namespace
{

constexpr int FIRST = 7;  // the first attempt's socket; the next attempt's is the next

class CPSConnectorThreadProxyTest : public ProxyTest
{
protected:
    void SetUp() override
    {
        ProxyTest::SetUp();
        m_Stack.SetNextHandle(FIRST);
        MakeProxy(CONNECTION_TYPE_TCP, &m_Network, &m_Thread);
    }
    void TearDown() override
    {
        Release();
        ProxyTest::TearDown();
    }
    void MakeProxy(unsigned long type, IPSReactor* reactor, mantle::CMNThread* thread)
    {
        m_pProxy = new CPSConnectorThreadProxy(type, reactor, thread);
        EXPECT_EQ(m_pProxy->AddReference(), 1u);
    }
    void Release()
    {
        if (CPSConnectorThreadProxy* proxy = m_pProxy) {
            m_pProxy = nullptr;
            proxy->ReleaseReference();
        }
    }
    MNResult Connect(IPSAcceptorConnectorSink& sink)
    {
        return m_pProxy->AsycConnect(&sink, m_Peer, nullptr, nullptr, 0, 0);
    }
    MNResult Connect() { return Connect(m_Sink); }

    // The stack has decided the connect. Returns: whether anybody waited for it.
    static bool Decided(int handle = FIRST) { return CNetworkThread::Instance().Report(handle, CONNECT_MASK) == MN_OK; }
    unsigned int Closes(int handle) { return m_Stack.CountOf("ps_close", handle); }
    CCalls Told()
    {
        CCalls told;
        for (const std::string& call : m_Stack.TakeCalls()) {
            if (call.find("OnConnectIndication") != std::string::npos)
                told.push_back(call);
        }
        return told;
    }

    const CMNInetAddr m_Peer{"10.0.0.2", 80};
    const CCalls m_Succeeded{"OnConnectIndication(0,transport)"};
    const CCalls m_Failed{"OnConnectIndication(10001,null)"};
    CRecordingConnectSink m_Sink;
    CPSConnectorThreadProxy* m_pProxy = nullptr;
};

TEST_F(CPSConnectorThreadProxyTest, Construction_Fresh_IsStoppedAndAConnector)
{
    EXPECT_TRUE(m_pProxy->IsFlagStopped());
    EXPECT_TRUE(m_pProxy->IsConnector());
    EXPECT_EQ(m_pProxy->GetStopFlagThread(), mantle::CMNThreadManager::GetThreadSelfId());
    EXPECT_EQ(m_pProxy->GetApplicationSink(), nullptr);
    EXPECT_EQ(m_pProxy->AddReference(), 2u);
    EXPECT_EQ(m_pProxy->ReleaseReference(), 1u);
}

TEST_F(CPSConnectorThreadProxyTest, Construction_NoThreadGiven_TakesTheCallersOwn)
{
    Release();
    RunOut();
    MakeProxy(CONNECTION_TYPE_TCP, &m_Network, nullptr);
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_TRUE(Decided());
    EXPECT_EQ(StepUser(), MN_OK);
    EXPECT_EQ(Told(), m_Succeeded);
}

// Nobody's thread: what arrives is refused, also a connection.
TEST_F(CPSConnectorThreadProxyTest, Construction_ThreadWithoutObject_ClosesWhatArrives)
{
    Release();
    RunOut();
    mantle::CMNThreadManager* manager = mantle::CMNThreadManager::Instance();
    mantle::CMNThread* thread = manager->AttachCurrentThread(nullptr);
    MakeProxy(CONNECTION_TYPE_TCP, &m_Network, nullptr);
    manager->AttachCurrentThread(thread);
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_TRUE(Decided());
    TickNetwork();
    TickNetwork();
    EXPECT_EQ(Closes(FIRST), 1u);
    EXPECT_EQ(Told(), CCalls());
}

TEST_F(CPSConnectorThreadProxyTest, AsycConnect_Arguments_AreCopiedBeforeTheEventRuns)
{
    CMNInetAddr peer("10.0.0.2", 80);
    CMNInetAddr local("10.0.0.1", 4000);
    CMNTimeValue timeout(5, 0);
    EXPECT_EQ(m_pProxy->AsycConnect(&m_Sink, peer, &timeout, &local, 3, 4), MN_OK);
    peer = local = CMNInetAddr("1.2.3.4", 5);
    timeout = CMNTimeValue(0, 0);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCallsOf("ps_bind"), CCalls{"ps_bind(7,10.0.0.1:4000{16,2},16)=0"});
    EXPECT_EQ(m_Stack.TakeCallsOf("ps_connect"), CCalls{"ps_connect(7,10.0.0.2:80{16,2},16)=0"});
    TickNetwork();
    EXPECT_EQ(PendingUser(), 0u);
}

TEST_F(CPSConnectorThreadProxyTest, AsycConnect_NoLocalAddress_BindsNothing)
{
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_EQ(m_Stack.CountOf("ps_bind"), 0u);
}

TEST_F(CPSConnectorThreadProxyTest, AsycConnect_PostRefused_ReturnsItAndStaysStopped)
{
    m_Network.Events().Refuse(true);
    EXPECT_EQ(Connect(), MN_ERROR_NOT_INITIALIZED);
    EXPECT_TRUE(m_pProxy->IsFlagStopped());
    m_Network.Events().Refuse(false);
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_TRUE(Decided());
    EXPECT_EQ(StepUser(), MN_OK);
    EXPECT_EQ(Told(), m_Succeeded);
}

TEST_F(CPSConnectorThreadProxyTest, AsycConnect_OnAnotherThread_IsReported)
{
    std::thread([this] { EXPECT_EQ(Connect(), MN_OK); }).join();
    ExpectReports(1);
    EXPECT_EQ(Reports(), CCalls{"CPSConnectorThreadProxy::AsycConnect"});
}

TEST_F(CPSConnectorThreadProxyTest, CancelConnect_NeverConnected_ReturnsOneAndPostsNothing)
{
    EXPECT_EQ(m_pProxy->CancelConnect(), 1u);
    EXPECT_EQ(PendingNetwork(), 0u);
}

TEST_F(CPSConnectorThreadProxyTest, CancelConnect_UnderWay_ClosesOnTheNetworkThread)
{
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_EQ(m_pProxy->CancelConnect(), MN_OK);
    EXPECT_TRUE(m_pProxy->IsFlagStopped());
    EXPECT_EQ(m_pProxy->GetApplicationSink(), nullptr);
    EXPECT_EQ(m_pProxy->CancelConnect(), 1u);
    EXPECT_EQ(PendingNetwork(), 1u);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_FALSE(Decided());
    TickNetwork();
    EXPECT_EQ(Closes(FIRST), 1u);
    EXPECT_EQ(NewLiveObjects(), 1);
    EXPECT_EQ(PendingUser(), 0u);
}

TEST_F(CPSConnectorThreadProxyTest, CancelConnect_PostRefused_ReturnsItAndIsStopped)
{
    EXPECT_EQ(Connect(), MN_OK);
    m_Network.Events().Refuse(true);
    EXPECT_EQ(m_pProxy->CancelConnect(), MN_ERROR_NOT_INITIALIZED);
    EXPECT_TRUE(m_pProxy->IsFlagStopped());
    m_Network.Events().Refuse(false);
}

TEST_F(CPSConnectorThreadProxyTest, CancelEvent_NoConnector_ReturnsNullPointer)
{
    Release();
    RunOut();
    MakeProxy(5, &m_Network, &m_Thread);
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(m_pProxy->CancelConnect(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_ERROR_INVALID_ARG);
    EXPECT_EQ(StepNetwork(), MN_ERROR_NULL_POINTER);
}

TEST_F(CPSConnectorThreadProxyTest, UnknownType_Connect_TellsNothing)
{
    Release();
    RunOut();
    MakeProxy(0, &m_Network, &m_Thread);
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_ERROR_INVALID_ARG);
    RunOut();
    EXPECT_EQ(Told(), CCalls());
    EXPECT_FALSE(m_pProxy->IsFlagStopped());
    EXPECT_EQ(m_pProxy->CancelConnect(), MN_OK);
}

TEST_F(CPSConnectorThreadProxyTest, Success_UnderWay_ReachesTheSinkOnceWithTheProxyAsId)
{
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_TRUE(Decided());
    EXPECT_EQ(m_Sink.m_nIndications, 0);
    EXPECT_EQ(StepUser(), MN_OK);
    EXPECT_EQ(Told(), m_Succeeded);
    EXPECT_EQ(m_Sink.m_pId, m_pProxy);
    EXPECT_TRUE(m_Sink.m_pId->IsConnector());
    EXPECT_EQ(m_pProxy->CancelConnect(), 1u);
    RunOut();
    EXPECT_EQ(Closes(FIRST), 1u);
}

TEST_F(CPSConnectorThreadProxyTest, Udp_WholeLife_RefusedDatagramsAreDroppedAndOnSendNeverTold)
{
    Release();
    RunOut();
    MakeProxy(CONNECTION_TYPE_UDP, &m_Network, &m_Thread);
    CRecordingTransportSink data;
    mantle::CMNAutoPtr<IPSTransport> kept;
    m_Sink.m_AtIndication = [&](IPSTransport* transport) {
        kept = transport;
        EXPECT_EQ(transport->OpenWithSink(&data), MN_OK);
    };
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    TickNetwork();
    EXPECT_EQ(StepUser(), MN_OK);
    EXPECT_EQ(Told(), m_Succeeded);
    ASSERT_TRUE(kept);
    std::int32_t handle = 0;
    EXPECT_EQ(kept->GetOption(OPT_FD, &handle), MN_OK);

    m_Stack.On("ps_send", handle).Fails(PS_ENOTCONN);
    EXPECT_EQ(kept->SendData(*Block("lost"), nullptr), MN_OK);
    EXPECT_EQ(kept->SendData(*Block("sent"), nullptr), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_ERROR_FAILURE);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_EQ(m_Stack.TakeSent(handle), "sent");
    m_Stack.On("ps_recv", handle).WithData("answer");
    EXPECT_EQ(CNetworkThread::Instance().Report(handle, READ_MASK), MN_OK);
    m_Stack.TakeCalls();
    while (PendingUser() != 0)
        EXPECT_EQ(StepUser(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls{"OnReceive(answer)"});
    EXPECT_EQ(kept->Disconnect(0), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_EQ(Closes(handle), 1u);
}

TEST_F(CPSConnectorThreadProxyTest, Refused_UnderWay_IsToldOnce)
{
    m_Stack.On("ps_is_socket_errno", FIRST).Returns(PS_ECONNREFUSED);
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_TRUE(Decided());
    RunOut();
    EXPECT_EQ(Told(), m_Failed);
    EXPECT_EQ(Closes(FIRST), 1u);
}

TEST_F(CPSConnectorThreadProxyTest, FailureAtOnce_Connect_IsToldOnce)
{
    m_Stack.On("ps_connect", FIRST).Fails(PS_ENETUNREACH);
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_EQ(PendingUser(), 0u);
    RunOut();
    EXPECT_EQ(Told(), m_Failed);
    EXPECT_TRUE(m_pProxy->IsFlagStopped());
}

TEST_F(CPSConnectorThreadProxyTest, TimeOut_UnderWay_IsToldOnce)
{
    mantle::CMNManualClock clock(false);
    CMNTimeValue timeout(5, 0);
    EXPECT_EQ(m_pProxy->AsycConnect(&m_Sink, m_Peer, &timeout, nullptr, 0, 0), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    clock.Advance(CMNTimeValue(4, 999999));
    TickNetwork();
    EXPECT_EQ(PendingUser(), 0u);
    clock.Advance(CMNTimeValue(0, 1));
    TickNetwork();
    EXPECT_FALSE(Decided());
    RunOut();
    EXPECT_EQ(Told(), m_Failed);
}

TEST_F(CPSConnectorThreadProxyTest, Cancel_SuccessQueued_ClosesAndTellsNothing)
{
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_TRUE(Decided());
    EXPECT_EQ(m_pProxy->CancelConnect(), MN_OK);
    RunOut();
    EXPECT_EQ(Told(), CCalls());
    EXPECT_EQ(Closes(FIRST), 1u);
}

TEST_F(CPSConnectorThreadProxyTest, Cancel_CompletesBeforeTheCancelRuns_ClosesAndTellsNothing)
{
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_EQ(m_pProxy->CancelConnect(), MN_OK);
    EXPECT_TRUE(Decided());
    RunOut();
    EXPECT_EQ(Told(), CCalls());
    EXPECT_EQ(Closes(FIRST), 1u);
}

// The first attempt's success must not pass for the second's.
TEST_F(CPSConnectorThreadProxyTest, Reconnect_SuccessOfTheCancelledQueued_OnlyTheNewIsTold)
{
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_TRUE(Decided());
    EXPECT_EQ(m_pProxy->CancelConnect(), MN_OK);
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(StepUser(), MN_OK);
    EXPECT_EQ(Told(), CCalls());
    RunOut();
    EXPECT_EQ(Closes(FIRST), 1u);
    EXPECT_TRUE(Decided(FIRST + 1));
    m_Sink.m_AtIndication = [](IPSTransport* transport) {
        std::int32_t handle = 0;
        EXPECT_EQ(transport->GetOption(OPT_FD, &handle), MN_OK);
        EXPECT_EQ(handle, FIRST + 1);
    };
    EXPECT_EQ(StepUser(), MN_OK);
    EXPECT_EQ(Told(), m_Succeeded);
}

TEST_F(CPSConnectorThreadProxyTest, Superseded_SuccessQueued_OnlyTheNewIsToldToTheNewSink)
{
    CRecordingConnectSink second;
    second.m_strName = "second:";
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_TRUE(Decided());
    EXPECT_EQ(Connect(second), MN_OK);
    RunOut();
    EXPECT_EQ(Told(), CCalls());
    EXPECT_EQ(Closes(FIRST), 1u);
    EXPECT_TRUE(Decided(FIRST + 1));
    RunOut();
    EXPECT_EQ(Told(), CCalls{"second:OnConnectIndication(0,transport)"});
}

TEST_F(CPSConnectorThreadProxyTest, Superseded_UnderWay_IsClosedAndNeverTold)
{
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_FALSE(Decided(FIRST));
    EXPECT_TRUE(Decided(FIRST + 1));
    RunOut();
    EXPECT_EQ(Told(), m_Succeeded);
    EXPECT_EQ(Closes(FIRST), 1u);
}

// The first attempt's failure is on its way as a timer when the second starts.
TEST_F(CPSConnectorThreadProxyTest, Superseded_FailedAtOnceInTheSameTurn_OnlyTheNewIsTold)
{
    m_Stack.On("ps_connect", FIRST).Fails(PS_ENETUNREACH);
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    RunOut();
    EXPECT_EQ(Told(), CCalls());
    EXPECT_TRUE(Decided(FIRST + 1));
    RunOut();
    EXPECT_EQ(Told(), m_Succeeded);
}

TEST_F(CPSConnectorThreadProxyTest, Superseded_TimeOutDueInTheSameTurn_OnlyTheNewIsTold)
{
    mantle::CMNManualClock clock(false);
    CMNTimeValue timeout(5, 0);
    EXPECT_EQ(m_pProxy->AsycConnect(&m_Sink, m_Peer, &timeout, nullptr, 0, 0), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_EQ(Connect(), MN_OK);
    clock.Advance(CMNTimeValue(6, 0));
    EXPECT_EQ(StepNetwork(), MN_OK);
    RunOut();
    EXPECT_EQ(Told(), CCalls());
}

TEST_F(CPSConnectorThreadProxyTest, Reconnect_InsideTheIndication_IsToldInItsTurn)
{
    m_Sink.m_AtIndication = [this](IPSTransport*) {
        const MNResult result = m_Sink.m_nIndications < 3 ? Connect() : MN_OK;
        EXPECT_EQ(result, MN_OK);
    };
    EXPECT_EQ(Connect(), MN_OK);
    for (int i = 0; i < 3; ++i) {
        RunOut();
        EXPECT_TRUE(Decided(FIRST + i));
    }
    RunOut();
    EXPECT_EQ(m_Sink.m_nIndications, 3);
    EXPECT_EQ(Told().size(), 3u);
}

TEST_F(CPSConnectorThreadProxyTest, LastRelease_FailureOnItsWay_TouchesNothing)
{
    m_Stack.On("ps_connect", FIRST).Fails(PS_ENETUNREACH);
    EXPECT_EQ(Connect(), MN_OK);
    Release();
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_EQ(NewLiveObjects(), 1);  // the transport of the attempt, until its timer
    RunOut();
    EXPECT_EQ(Told(), CCalls());
    EXPECT_EQ(NewLiveObjects(), 0);
}

TEST_F(CPSConnectorThreadProxyTest, LastRelease_UnderWay_ClosesOnTheNetworkThreadAndTellsNothing)
{
    EXPECT_EQ(Connect(), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    Release();
    EXPECT_EQ(PendingNetwork(), 1u);
    EXPECT_TRUE(Decided());
    EXPECT_EQ(PendingUser(), 0u);
    RunOut();
    EXPECT_EQ(NewLiveObjects(), 0);
    EXPECT_EQ(Closes(FIRST), 1u);
    EXPECT_EQ(Told(), CCalls());
}

TEST_F(CPSConnectorThreadProxyTest, LastRelease_OnTheNetworkThread_GoesAtOnce)
{
    OnNetwork([this] {
        Release();
        EXPECT_EQ(NewLiveObjects(), 0);
    });
    EXPECT_EQ(PendingNetwork(), 0u);
}

TEST_F(CPSConnectorThreadProxyTest, LastRelease_OnAThirdThread_IsReportedAndPosted)
{
    std::thread([this] { Release(); }).join();
    ExpectReports(1);
    EXPECT_EQ(PendingNetwork(), 1u);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_EQ(NewLiveObjects(), 0);
}

TEST_F(CPSConnectorThreadProxyTest, LastRelease_NoReactor_GoesAtOnce)
{
    Release();
    RunOut();
    MakeProxy(CONNECTION_TYPE_TCP, nullptr, &m_Thread);
    EXPECT_EQ(Connect(), MN_ERROR_NOT_INITIALIZED);
    Release();
    EXPECT_EQ(NewLiveObjects(), 0);
}

// Connect, end that attempt one way or another, connect again, let go: in every order with what the network does.
class CPSConnectorThreadProxyOrdersTest : public CPSConnectorThreadProxyTest
{
protected:
    // Is told at most once, and only while its attempt is the application's current one.
    class CAttemptSink : public IPSAcceptorConnectorSink
    {
    public:
        MNResult OnConnectIndication(long result, IPSTransport* transport, IPSAcceptorConnectorId*) override
        {
            EXPECT_TRUE(m_bCurrent);
            EXPECT_EQ(result, m_bSucceeds ? 0 : 10001);
            EXPECT_EQ(transport != nullptr, m_bSucceeds);
            std::int32_t handle = m_nHandle;
            const MNResult asked = transport ? transport->GetOption(OPT_FD, &handle) : MN_OK;
            EXPECT_EQ(asked, MN_OK);
            EXPECT_EQ(handle, m_nHandle);
            EXPECT_EQ(++m_nIndications, 1);
            return MN_OK;
        }

        bool m_bSucceeds = true;
        bool m_bCurrent = false;
        int m_nHandle = 0;
        int m_nIndications = 0;
    };

    struct CScenario
    {
        bool m_bFirstSucceeds;
        bool m_bSecondSucceeds;
        bool m_bCancel;       // between the attempts
        bool m_bRelease;      // at the end, with the second attempt under way
        bool m_bFailsAtOnce;  // what fails does so inside the connect, and is told by a timer
    };

    void Explore(const CScenario& scenario)
    {
        Release();
        RunOut();
        const unsigned long runs = COrders::Explore(60000, [&](COrders& orders) { Run(orders, scenario); });
        EXPECT_GT(runs, 20u);
    }

    void Run(COrders& orders, const CScenario& scenario)
    {
        m_Stack.SetNextHandle(FIRST);
        MakeProxy(CONNECTION_TYPE_TCP, &m_Network, &m_Thread);
        CAttemptSink sinks[2];
        sinks[0].m_bSucceeds = scenario.m_bFirstSucceeds;
        sinks[1].m_bSucceeds = scenario.m_bSecondSucceeds;
        for (int i = 0; i < 2; ++i) {
            sinks[i].m_nHandle = FIRST + i;
            const int failure = sinks[i].m_bSucceeds ? 0 : PS_ECONNREFUSED;
            m_Stack.Default("ps_connect", FIRST + i).Returns(scenario.m_bFailsAtOnce && failure != 0 ? -1 : 0);
            m_Stack.Default("ps_is_socket_errno", FIRST + i).Returns(failure);
        }
        const auto connect = [&](int i) {
            return [&, i] {
                sinks[0].m_bCurrent = false;
                sinks[i].m_bCurrent = true;
                EXPECT_EQ(Connect(sinks[i]), MN_OK);
            };
        };
        const auto cancel = [&] {
            EXPECT_EQ(m_pProxy->CancelConnect(), sinks[0].m_nIndications == 0 ? MN_OK : 1u);
            sinks[0].m_bCurrent = false;
        };
        CPSReactorBase& reactor = CNetworkThread::Instance().GetReactor();
        const auto decide = [&] {
            for (int i = 0; i < 2; ++i)
                reactor.ProcessHandleEvent(FIRST + i, CONNECT_MASK, 0, 0, 0);
        };
        CActions application{connect(0)};
        if (scenario.m_bCancel)
            application.emplace_back(cancel);
        application.emplace_back(connect(1));
        if (scenario.m_bRelease)
            application.emplace_back([this] { Release(); });
        // There is nothing to decide where both are refused inside the connect.
        const bool decided = !scenario.m_bFailsAtOnce || scenario.m_bFirstSucceeds || scenario.m_bSecondSucceeds;
        Play(orders, application, decided ? CActions{decide} : CActions());
        OnNetwork(decide);
        RunOut();
        EXPECT_GE(sinks[1].m_nIndications, scenario.m_bRelease ? 0 : 1);
        Release();
        RunOut();
        EXPECT_EQ(NewLiveObjects(), 0);
        EXPECT_EQ(Closes(FIRST), m_dwRuns + 1);
        EXPECT_EQ(Closes(FIRST + 1), m_dwRuns + 1);
        ++m_dwRuns;
        m_Stack.TakeCalls();
    }

private:
    unsigned int m_dwRuns = 0;
};

TEST_F(CPSConnectorThreadProxyOrdersTest, EveryOrder_BothSucceed_ConnectCancelConnect)
{
    Explore({true, true, true, false, false});
}

TEST_F(CPSConnectorThreadProxyOrdersTest, EveryOrder_FirstSucceedsSecondRefused_ConnectCancelConnect)
{
    Explore({true, false, true, false, false});
}

TEST_F(CPSConnectorThreadProxyOrdersTest, EveryOrder_FirstRefused_ConnectCancelConnect)
{
    Explore({false, true, true, false, false});
}

TEST_F(CPSConnectorThreadProxyOrdersTest, EveryOrder_FirstFailsAtOnce_ConnectCancelConnect)
{
    Explore({false, true, true, false, true});
}

TEST_F(CPSConnectorThreadProxyOrdersTest, EveryOrder_BothSucceed_ConnectConnect)
{
    Explore({true, true, false, false, false});
}

TEST_F(CPSConnectorThreadProxyOrdersTest, EveryOrder_FirstFailsAtOnce_ConnectConnect)
{
    Explore({false, true, false, false, true});
}

TEST_F(CPSConnectorThreadProxyOrdersTest, EveryOrder_BothFailAtOnce_ConnectConnect)
{
    Explore({false, false, false, false, true});
}

TEST_F(CPSConnectorThreadProxyOrdersTest, EveryOrder_BothSucceed_ConnectCancelConnectRelease)
{
    Explore({true, true, true, true, false});
}

TEST_F(CPSConnectorThreadProxyOrdersTest, EveryOrder_BothFailAtOnce_ConnectCancelConnectRelease)
{
    Explore({false, false, true, true, true});
}

TEST_F(CPSConnectorThreadProxyOrdersTest, EveryOrder_FirstSucceedsSecondFailsAtOnce_ConnectConnectRelease)
{
    Explore({true, false, false, true, true});
}

}  // namespace
}  // namespace uxport
