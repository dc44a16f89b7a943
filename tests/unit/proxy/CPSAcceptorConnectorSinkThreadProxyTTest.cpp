// How a new connection, or the end of an attempt, comes from the network thread to the application's.
#include "proxy/CPSAcceptorConnectorSinkThreadProxyT.h"

#include "mantle/CMNInetAddr.h"
#include "proxy/CPSAcceptorThreadProxy.h"
#include "proxy/CPSConnectorThreadProxy.h"
#include "tests/unit/proxy/ProxyTest.h"

namespace uxport
{
namespace
{

const CMNInetAddr ADDRESS("10.0.0.1", 80);

MNResult Begin(CPSAcceptorThreadProxy& proxy, IPSAcceptorConnectorSink* sink)
{
    return proxy.StartListen(sink, ADDRESS, 0, 0);
}
MNResult Begin(CPSConnectorThreadProxy& proxy, IPSAcceptorConnectorSink* sink)
{
    return proxy.AsycConnect(sink, ADDRESS, nullptr, nullptr, 0, 0);
}
MNResult End(CPSAcceptorThreadProxy& proxy)
{
    return proxy.StopListen(0);
}
MNResult End(CPSConnectorThreadProxy& proxy)
{
    return proxy.CancelConnect();
}

// A started proxy and a transport of the network side, which nobody but the case offers to it.
template <class Proxy>
class CPSAcceptorConnectorSinkThreadProxyTTest : public ProxyTest
{
protected:
    void SetUp() override
    {
        ProxyTest::SetUp();
        m_pProxy = new Proxy(CONNECTION_TYPE_TCP, &m_Network, &m_Thread);
        EXPECT_EQ(m_pProxy->AddReference(), 1u);
    }
    void TearDown() override
    {
        Release();
        RunOut();
        m_pFake = nullptr;
        ProxyTest::TearDown();
    }
    void Start(IPSAcceptorConnectorSink* sink)
    {
        EXPECT_EQ(Begin(*m_pProxy, sink), MN_OK);
        EXPECT_EQ(StepNetwork(), MN_OK);
        m_Stack.TakeCalls();
    }
    void Start() { Start(&m_Sink); }
    void Release()
    {
        if (Proxy* proxy = m_pProxy) {
            m_pProxy = nullptr;
            proxy->ReleaseReference();
        }
    }

    // As the network-side object does it: the transport lives as long as the call unless the sink keeps it.
    MNResult Indicate(long result, MNResult open = MN_OK)
    {
        MNResult answer = MN_OK;
        OnNetwork([&] {
            mantle::CMNAutoPtr<CFakeTransport> transport(new CFakeTransport);
            transport->m_dwOpen = open;
            answer = m_pProxy->OnConnectIndication(result, transport.Get(), nullptr);
        });
        return answer;
    }
    MNResult IndicateNull(long result)
    {
        MNResult answer = MN_OK;
        OnNetwork([&] { answer = m_pProxy->OnConnectIndication(result, nullptr, nullptr); });
        return answer;
    }

    const CCalls m_Closed{"net:Disconnect(10002)", "net:Disconnect(0)", "net:gone"};
    Proxy* m_pProxy = nullptr;
    CFakeTransport* m_pFake = nullptr;
    CRecordingConnectSink m_Sink;
};

class CProxyNames
{
public:
    template <class Proxy>
    static std::string GetName(int)
    {
        return std::is_same<Proxy, CPSAcceptorThreadProxy>::value ? "Acceptor" : "Connector";
    }
};

using CProxies = testing::Types<CPSAcceptorThreadProxy, CPSConnectorThreadProxy>;
TYPED_TEST_SUITE(CPSAcceptorConnectorSinkThreadProxyTTest, CProxies, CProxyNames);

TYPED_TEST(CPSAcceptorConnectorSinkThreadProxyTTest, Success_Kept_ArrivesAsAProxyOpenedOnTheNetworkThread)
{
    this->Start();
    mantle::CMNAutoPtr<IPSTransport> kept;
    this->m_Sink.m_AtIndication = [&](IPSTransport* transport) { kept = transport; };
    EXPECT_EQ(this->Indicate(0), MN_OK);
    EXPECT_EQ(this->m_Stack.TakeCalls(), std::vector<std::string>{"net:OpenWithSink"});
    EXPECT_EQ(this->PendingUser(), 1u);
    EXPECT_EQ(this->StepUser(), MN_OK);
    EXPECT_EQ(this->m_Stack.TakeCalls(), std::vector<std::string>{"OnConnectIndication(0,transport)"});
    EXPECT_EQ(this->m_Sink.m_pId, this->m_pProxy);
    auto* proxy = dynamic_cast<CPSTransportThreadProxy*>(kept.Get());
    ASSERT_NE(proxy, nullptr);
    EXPECT_NE(dynamic_cast<CFakeTransport*>(proxy->GetTransport()), nullptr);
    EXPECT_FALSE(proxy->IsFlagStopped());
    EXPECT_EQ(proxy->AddReference(), 2u);
    EXPECT_EQ(proxy->ReleaseReference(), 1u);
}

TYPED_TEST(CPSAcceptorConnectorSinkThreadProxyTTest, Success_NotKept_IsDestroyedRightAfterTheCall)
{
    this->Start();
    EXPECT_EQ(this->Indicate(0), MN_OK);
    EXPECT_EQ(this->StepUser(), MN_OK);
    this->m_Stack.TakeCalls();
    EXPECT_EQ(this->TickUser(), 1u);
    EXPECT_EQ(this->StepNetwork(), MN_OK);
    EXPECT_EQ(this->m_Stack.TakeCalls(), (std::vector<std::string>{"net:Disconnect(0)", "net:gone"}));
}

TYPED_TEST(CPSAcceptorConnectorSinkThreadProxyTTest, Success_DataBeforeTheIndicationRan_ComesBehindIt)
{
    this->Start();
    CRecordingTransportSink data;
    mantle::CMNAutoPtr<IPSTransport> kept;
    this->m_Sink.m_AtIndication = [&](IPSTransport* transport) {
        kept = transport;
        EXPECT_EQ(transport->OpenWithSink(&data), MN_OK);
    };
    this->OnNetwork([this] {
        mantle::CMNAutoPtr<CFakeTransport> transport(new CFakeTransport);
        EXPECT_EQ(this->m_pProxy->OnConnectIndication(0, transport.Get(), nullptr), MN_OK);
        EXPECT_EQ(transport->m_pSink->OnReceive(*this->Block("early"), transport.Get(), nullptr), MN_OK);
    });
    this->m_Stack.TakeCalls();
    while (this->PendingUser() != 0)
        EXPECT_EQ(this->StepUser(), MN_OK);
    EXPECT_EQ(this->m_Stack.TakeCalls(),
              (std::vector<std::string>{"OnConnectIndication(0,transport)", "OnReceive(early)"}));
}

TYPED_TEST(CPSAcceptorConnectorSinkThreadProxyTTest, Failure_AnyCode_ArrivesUnchangedWithoutTransport)
{
    for (const long result : {10001l, 4711l, -1l}) {
        EXPECT_EQ(Begin(*this->m_pProxy, &this->m_Sink), MN_OK);
        EXPECT_EQ(this->StepNetwork(), MN_OK);
        EXPECT_EQ(this->IndicateNull(result), MN_OK);
        this->m_Stack.TakeCalls();
        EXPECT_EQ(this->StepUser(), MN_OK);
        EXPECT_EQ(this->m_Stack.TakeCalls(),
                  std::vector<std::string>{"OnConnectIndication(" + std::to_string(result) + ",null)"});
        End(*this->m_pProxy);
        this->RunOut();
    }
}

TYPED_TEST(CPSAcceptorConnectorSinkThreadProxyTTest, Failure_WithATransport_DoesNotUseIt)
{
    this->Start();
    EXPECT_EQ(this->Indicate(5), MN_OK);
    EXPECT_EQ(this->m_Stack.TakeCalls(), std::vector<std::string>{"net:gone"});
    EXPECT_EQ(this->StepUser(), MN_OK);
    EXPECT_EQ(this->m_Stack.TakeCalls(), std::vector<std::string>{"OnConnectIndication(5,null)"});
}

TYPED_TEST(CPSAcceptorConnectorSinkThreadProxyTTest, Success_NullTransport_IsDeliveredAsSuchAndNothingDereferenced)
{
    this->Start();
    EXPECT_EQ(this->IndicateNull(0), MN_OK);
    EXPECT_EQ(this->StepUser(), MN_OK);
    EXPECT_EQ(this->m_Stack.TakeCalls(), std::vector<std::string>{"OnConnectIndication(0,null)"});
}

TYPED_TEST(CPSAcceptorConnectorSinkThreadProxyTTest, Success_NullTransportWhileStopped_IsDropped)
{
    this->Start();
    EXPECT_EQ(this->IndicateNull(0), MN_OK);
    EXPECT_EQ(End(*this->m_pProxy), MN_OK);
    EXPECT_EQ(this->StepUser(), MN_OK);
    EXPECT_EQ(this->m_Sink.m_nIndications, 0);
}

TYPED_TEST(CPSAcceptorConnectorSinkThreadProxyTTest, Success_OpenRefused_IsToldByAConnectorOnly)
{
    this->Start();
    const bool connector = this->m_pProxy->IsConnector();
    EXPECT_EQ(this->Indicate(0, 4711), connector ? MN_OK : 4711u);
    EXPECT_EQ(this->m_Stack.TakeCalls(),
              (std::vector<std::string>{"net:OpenWithSink", "net:Disconnect(0)", "net:gone"}));
    EXPECT_EQ(this->PendingUser(), connector ? 1u : 0u);
    if (!connector)
        return;
    EXPECT_EQ(this->StepUser(), MN_OK);
    EXPECT_EQ(this->m_Stack.TakeCalls(), std::vector<std::string>{"OnConnectIndication(4711,null)"});
}

TYPED_TEST(CPSAcceptorConnectorSinkThreadProxyTTest, Stopped_BeforeTheEventRuns_DisconnectsAndTellsNothing)
{
    this->Start();
    EXPECT_EQ(this->Indicate(0), MN_OK);
    EXPECT_EQ(End(*this->m_pProxy), MN_OK);
    EXPECT_EQ(this->StepUser(), MN_OK);
    EXPECT_EQ(this->StepNetwork(), MN_OK);  // the stop
    this->m_Stack.Ignore("ps_close");       // and the real connector's transport with it
    this->m_Stack.TakeCalls();
    EXPECT_EQ(this->StepNetwork(), MN_OK);
    EXPECT_EQ(this->TickUser(), 0u);
    this->TickNetwork();
    EXPECT_EQ(this->m_Stack.TakeCalls(), this->m_Closed);
    EXPECT_EQ(this->m_Sink.m_nIndications, 0);
}

TYPED_TEST(CPSAcceptorConnectorSinkThreadProxyTTest, UserQueueRefuses_Success_ClosesAndReturnsThePostsResult)
{
    this->Start();
    this->m_UserQueue.Refuse(true);
    EXPECT_EQ(this->Indicate(0), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(this->m_Stack.TakeCalls(), (std::vector<std::string>{"net:OpenWithSink", "net:Disconnect(10002)"}));
    this->TickNetwork();
    EXPECT_EQ(this->m_Stack.TakeCalls(), (std::vector<std::string>{"net:Disconnect(0)", "net:gone"}));
    EXPECT_EQ(this->IndicateNull(5), MN_ERROR_NOT_INITIALIZED);
}

TYPED_TEST(CPSAcceptorConnectorSinkThreadProxyTTest, UserThreadWithoutQueue_Success_Closes)
{
    this->Start();
    this->m_Thread.UseEventQueue(nullptr);
    EXPECT_EQ(this->Indicate(0), MN_ERROR_NOT_INITIALIZED);
    this->TickNetwork();
    std::vector<std::string> calls{"net:OpenWithSink"};
    calls.insert(calls.end(), this->m_Closed.begin(), this->m_Closed.end());
    EXPECT_EQ(this->m_Stack.TakeCalls(), calls);
    this->m_Thread.UseEventQueue(&this->m_UserQueue);
}

TYPED_TEST(CPSAcceptorConnectorSinkThreadProxyTTest, Dying_Success_ClosesAndReturnsNotInitialized)
{
    this->Start();
    TypeParam* proxy = this->m_pProxy;
    this->Release();
    this->m_pProxy = proxy;
    EXPECT_EQ(this->Indicate(0), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(this->IndicateNull(0), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(this->IndicateNull(7), MN_ERROR_NOT_INITIALIZED);
    this->m_pProxy = nullptr;
    EXPECT_EQ(this->PendingUser(), 0u);
    this->TickNetwork();
    std::vector<std::string> calls{"net:OpenWithSink"};
    calls.insert(calls.end(), this->m_Closed.begin(), this->m_Closed.end());
    EXPECT_EQ(this->m_Stack.TakeCalls(), calls);
}

TYPED_TEST(CPSAcceptorConnectorSinkThreadProxyTTest, EventDestroyed_NotRun_ReleasesProxyAndTransport)
{
    this->Start();
    EXPECT_EQ(this->Indicate(0), MN_OK);
    this->m_Stack.TakeCalls();
    this->m_UserQueue.DestroyAll();
    EXPECT_EQ(this->TickUser(), 1u);
    EXPECT_EQ(this->StepNetwork(), MN_OK);
    EXPECT_EQ(this->m_Stack.TakeCalls(), (std::vector<std::string>{"net:Disconnect(0)", "net:gone"}));
    EXPECT_EQ(this->m_pProxy->AddReference(), 2u);
    EXPECT_EQ(this->m_pProxy->ReleaseReference(), 1u);
}

TYPED_TEST(CPSAcceptorConnectorSinkThreadProxyTTest, Indication_OnAnotherThread_IsReported)
{
    this->Start();
    EXPECT_EQ(this->IndicateNull(5), MN_OK);
    this->OnNetwork([this] { EXPECT_EQ(this->m_UserQueue.RunOne(), MN_OK); });
    this->ExpectReports(1);
    EXPECT_EQ(this->Reports(), std::vector<std::string>{"CPSEventOnConnectIndication"});
}

TYPED_TEST(CPSAcceptorConnectorSinkThreadProxyTTest, Indication_SinkReleasesTheProxyInside_GoesAfterwards)
{
    this->Start();
    this->m_Sink.m_AtIndication = [this](IPSTransport*) { this->Release(); };
    EXPECT_EQ(this->Indicate(0), MN_OK);
    EXPECT_EQ(this->StepUser(), MN_OK);
    EXPECT_EQ(this->m_Sink.m_nIndications, 1);
    this->RunOut();
    EXPECT_EQ(this->NewLiveObjects(), 0);
}

// The event that the user queue refuses holds the last reference, inside the call of the network side.
TYPED_TEST(CPSAcceptorConnectorSinkThreadProxyTTest, UserQueueRefuses_EventHeldTheLastReference_TouchesNothingAfter)
{
    class CReleasingQueue : public CStepQueue
    {
    public:
        MNResult PostEvent(IMNEvent* event, EPriority) override
        {
            m_pProxy->ReleaseReference();
            event->OnDestorySelf();
            return MN_ERROR_NOT_INITIALIZED;
        }
        TypeParam* m_pProxy = nullptr;
    } queue;
    this->Start();
    queue.m_pProxy = this->m_pProxy;
    this->m_Thread.UseEventQueue(&queue);
    EXPECT_EQ(this->Indicate(0), MN_ERROR_NOT_INITIALIZED);
    this->m_pProxy = nullptr;
    this->m_Thread.UseEventQueue(&this->m_UserQueue);
    this->TickNetwork();
    EXPECT_EQ(this->NewLiveObjects(), 0);
}

class CPSConnectorIndicationTest : public CPSAcceptorConnectorSinkThreadProxyTTest<CPSConnectorThreadProxy>
{
};

TEST_F(CPSConnectorIndicationTest, Indication_NoSink_ReturnsNullPointerAndIsStoppedAllTheSame)
{
    Start(nullptr);
    EXPECT_EQ(Indicate(0), MN_OK);
    EXPECT_EQ(StepUser(), MN_ERROR_NULL_POINTER);
    EXPECT_TRUE(m_pProxy->IsFlagStopped());
    m_Stack.TakeCalls();
    EXPECT_EQ(TickUser(), 1u);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"net:Disconnect(0)", "net:gone"}));
}

TEST_F(CPSConnectorIndicationTest, Indication_Delivered_StopsBeforeTheCall)
{
    Start();
    m_Sink.m_AtIndication = [this](IPSTransport*) {
        EXPECT_TRUE(m_pProxy->IsFlagStopped());
        EXPECT_EQ(m_pProxy->GetApplicationSink(), nullptr);
        EXPECT_EQ(m_pProxy->CancelConnect(), 1u);
    };
    EXPECT_EQ(Indicate(0), MN_OK);
    EXPECT_EQ(Indicate(0), MN_OK);
    m_Stack.TakeCalls();
    EXPECT_EQ(StepUser(), MN_OK);
    EXPECT_EQ(StepUser(), MN_OK);
    EXPECT_EQ(m_Sink.m_nIndications, 1);
    RunOut();
}

}  // namespace
}  // namespace uxport
