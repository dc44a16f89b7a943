// How a connection's proxy goes: on the network thread, whoever let go of it last, and revived by nothing.
#include "proxy/CPSTransportThreadProxy.h"

#include <thread>

#include "mantle/CMNInetAddr.h"
#include "mantle/CMNThreadUser.h"
#include "mantle/CMNTimerQueueOrderedList.h"
#include "tests/unit/proxy/ProxyTest.h"

namespace uxport
{
namespace
{

// A thread that does one thing and ends without having fired its timers.
class CEndingThread : public mantle::CMNThread
{
public:
    explicit CEndingThread(std::function<void()> run) : m_Run(std::move(run)) {}
    ~CEndingThread() override { Join(); }
    void OnThreadRun() override { m_Run(); }
    mantle::IMNTimerQueue* GetTimerQueue() override { return &m_Timers; }

private:
    std::function<void()> m_Run;
    mantle::CMNTimerQueueOrderedList m_Timers{nullptr};
};

class CPSTransportThreadProxyDeletionTest : public TransportProxyTest
{
protected:
    const CCalls m_Gone{"net:Disconnect(0)", "net:gone"};

    void ExpectPostedThenGone()
    {
        EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
        EXPECT_EQ(PendingNetwork(), 1u);
        EXPECT_EQ(StepNetwork(), MN_OK);
        EXPECT_EQ(m_Stack.TakeCalls(), m_Gone);
        EXPECT_EQ(NewLiveObjects(), 0);
    }
};

TEST_F(CPSTransportThreadProxyDeletionTest, LastRelease_OnTheUserThread_GoesByATimerThenAnEvent)
{
    MakeOpen();
    CPSTransportThreadProxy* proxy = m_pProxy;
    Release();
    EXPECT_TRUE(proxy->IsFlagStopped());
    EXPECT_EQ(PendingNetwork(), 0u);
    EXPECT_EQ(TickUser(), 1u);
    ExpectPostedThenGone();
}

TEST_F(CPSTransportThreadProxyDeletionTest, LastRelease_OnTheNetworkThread_GoesByItsTimerWithoutAReport)
{
    MakeOpen();
    OnNetwork([this] { Release(); });
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
    EXPECT_EQ(TickUser(), 0u);
    TickNetwork();
    EXPECT_EQ(m_Stack.TakeCalls(), m_Gone);
    EXPECT_EQ(PendingNetwork(), 0u);
    EXPECT_EQ(NewLiveObjects(), 0);
}

TEST_F(CPSTransportThreadProxyDeletionTest, LastRelease_ByAnEventOfTheNetworkQueue_GoesByTheNetworkTimer)
{
    MakeOpen();
    EXPECT_EQ(Send("x"), MN_OK);
    Release();
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls{"net:SendData(x)"});
    TickNetwork();
    EXPECT_EQ(m_Stack.TakeCalls(), m_Gone);
    EXPECT_EQ(TickUser(), 0u);
}

TEST_F(CPSTransportThreadProxyDeletionTest, LastRelease_OnAThirdThread_IsReportedAndPosted)
{
    MakeOpen();
    std::thread([this] { Release(); }).join();
    ExpectReports(1);
    EXPECT_EQ(Reports().size(), 1u);
    ExpectPostedThenGone();
}

TEST_F(CPSTransportThreadProxyDeletionTest, LastRelease_OnAThirdUserThread_IsReportedAndPosted)
{
    MakeOpen();
    mantle::CMNThreadUser third;
    ASSERT_EQ(third.Create(mantle::CMNThreadManager::Instance()->GetNewThreadType()), MN_OK);
    EXPECT_EQ(third.PostEvent(new CTestCall([&, this] {
        Release();
        third.Stop();
    })),
              MN_OK);
    EXPECT_EQ(third.Join(), MN_OK);
    ExpectReports(1);
    EXPECT_EQ(Reports().size(), 1u);
    ExpectPostedThenGone();
}

TEST_F(CPSTransportThreadProxyDeletionTest, LastRelease_NoTimerQueue_PostsAtOnce)
{
    MakeOpen();
    m_Thread.UseTimerQueue(nullptr);
    Release();
    ExpectPostedThenGone();
    m_Thread.UseReactor(nullptr);
}

TEST_F(CPSTransportThreadProxyDeletionTest, LastRelease_NoThreadObject_PostsAtOnce)
{
    MakeOpen();
    mantle::CMNThreadManager* manager = mantle::CMNThreadManager::Instance();
    mantle::CMNThread* thread = manager->AttachCurrentThread(nullptr);
    Release();
    manager->AttachCurrentThread(thread);
    ExpectPostedThenGone();
}

TEST_F(CPSTransportThreadProxyDeletionTest, LastRelease_ThreadEndsWithItsTimer_IsPostedAtTheEnd)
{
    MakeOpen();
    CEndingThread third([this] { Release(); });
    ASSERT_EQ(third.Create(mantle::CMNThreadManager::Instance()->GetNewThreadType()), MN_OK);
    EXPECT_EQ(third.Join(), MN_OK);
    ExpectReports(1);
    ExpectPostedThenGone();
}

TEST_F(CPSTransportThreadProxyDeletionTest, LastRelease_NoReactor_GoesOnTheTimer)
{
    OnNetwork([this] {
        m_pProxy = new CPSTransportThreadProxy(nullptr, nullptr, &m_Thread, CONNECTION_TYPE_TCP);
        m_pProxy->AddReference();
    });
    Release();
    EXPECT_EQ(NewLiveObjects(), 1);
    EXPECT_EQ(TickUser(), 1u);
    EXPECT_EQ(NewLiveObjects(), 0);
}

TEST_F(CPSTransportThreadProxyDeletionTest, LastRelease_NetworkQueueRefuses_LeavesNothing)
{
    m_pProxy = new CPSTransportThreadProxy(nullptr, &m_Network, &m_Thread, CONNECTION_TYPE_TCP);
    m_pProxy->AddReference();
    m_Network.Events().Refuse(true);
    Release();
    EXPECT_EQ(TickUser(), 1u);
    EXPECT_EQ(NewLiveObjects(), 0);
    m_Network.Events().Refuse(false);
}

TEST_F(CPSTransportThreadProxyDeletionTest, LastRelease_DataQueued_IsFreedWithTheProxy)
{
    MakeOpen();
    m_pFake->Answer(MN_ERROR_PARTIAL_DATA, 0);
    EXPECT_EQ(Send("never sent"), MN_OK);
    EXPECT_EQ(Send("nor this"), MN_OK);
    StepNetwork();
    Release();
    RunOut();
    EXPECT_EQ(NewLiveObjects(), 0);
}

TEST_F(CPSTransportThreadProxyDeletionTest, Dying_EveryCallOfTheNetworkSide_ReturnsNotInitializedAndRevivesNothing)
{
    MakeOpen();
    CPSTransportThreadProxy* proxy = m_pProxy;
    Release();
    m_pProxy = proxy;
    for (int i = 0; i < 2; ++i) {
        EXPECT_FALSE(proxy->TryAddReference());
        EXPECT_EQ(Arrive("x"), MN_ERROR_NOT_INITIALIZED);
        EXPECT_EQ(Ready(), i == 0 ? MN_ERROR_NOT_INITIALIZED : MN_OK);
        EXPECT_EQ(PeerCloses(5), MN_ERROR_NOT_INITIALIZED);
        EXPECT_EQ(m_Stack.TakeCalls(), CCalls{"net:Disconnect(5)"});
        EXPECT_EQ(TickUser(), i == 0 ? 1u : 0u);
    }
    m_pProxy = nullptr;
    EXPECT_EQ(PendingUser(), 0u);
    ExpectPostedThenGone();
}

TEST_F(CPSTransportThreadProxyDeletionTest, Dying_SendData_LeavesTheBlock)
{
    MakeOpen();
    CPSTransportThreadProxy* proxy = m_pProxy;
    Release();
    m_pProxy = proxy;
    EXPECT_EQ(Send("x"), MN_ERROR_NOT_INITIALIZED);
    m_pProxy = nullptr;
    EXPECT_EQ(TickUser(), 1u);
    ExpectPostedThenGone();
}

// A user thread of its own that ends while the connection is open.
TEST_F(CPSTransportThreadProxyDeletionTest, UserThreadEnded_NetworkSideGoesOn_IsClosedAndNothingDelivered)
{
    mantle::CMNThreadUser user;
    ASSERT_EQ(user.Create(mantle::CMNThreadManager::Instance()->GetNewThreadType()), MN_OK);
    OnNetwork([&] {
        m_pFake = new CFakeTransport;
        m_pProxy = new CPSTransportThreadProxy(m_pFake, &m_Network, &user, CONNECTION_TYPE_TCP);
        m_pProxy->AddReference();
    });
    EXPECT_EQ(m_pProxy->GetStopFlagThread(), user.GetThreadId());
    m_pProxy->OpenWithSink(&m_Sink);
    EXPECT_EQ(user.Stop(), MN_OK);
    EXPECT_EQ(user.Join(), MN_OK);
    EXPECT_EQ(Arrive("x"), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(Ready(), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(PeerCloses(5), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(m_Stack.TakeCalls(),
              (CCalls{"net:Disconnect(10002)", "net:Disconnect(10002)", "net:Disconnect(5)", "net:Disconnect(10002)"}));
    OnNetwork([this] { Release(); });
    TickNetwork();
    EXPECT_EQ(m_Stack.TakeCalls(), m_Gone);
}

// The refused event's reference is the last, inside a call of the network-side transport.
TEST_F(CPSTransportThreadProxyDeletionTest, UserQueueRefuses_EventHeldTheLastReference_GoesLater)
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
        CPSTransportThreadProxy* m_pProxy = nullptr;
    } queue;
    MakeOpen();
    queue.m_pProxy = m_pProxy;
    m_Thread.UseEventQueue(&queue);
    EXPECT_EQ(Arrive("x"), MN_ERROR_NOT_INITIALIZED);
    m_pProxy = nullptr;
    m_Thread.UseEventQueue(&m_UserQueue);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls{"net:Disconnect(10002)"});
    TickNetwork();
    EXPECT_EQ(m_Stack.TakeCalls(), m_Gone);
}

// What an application saw of one connection.
class COrderSink : public IPSTransportSink
{
public:
    MNResult OnReceive(CMNMessageBlock& data, IPSTransport*, CPSTransportParameter*) override
    {
        ExpectOpen("OnReceive");
        std::string text(data.GetChainedLength(), '\0');
        data.PeekChained(&text[0], text.size());
        m_strReceived += text;
        return MN_OK;
    }
    MNResult OnSend(IPSTransport*, CPSTransportParameter*) override
    {
        ExpectOpen("OnSend");
        ++m_nSends;
        return MN_OK;
    }
    MNResult OnDisconnect(long, IPSTransport*) override
    {
        ExpectOpen("OnDisconnect");
        m_bEnded = true;
        ++m_nDisconnects;
        return MN_OK;
    }

    std::string m_strReceived;
    int m_nSends = 0;
    int m_nDisconnects = 0;
    bool m_bEnded = false;  // nothing may follow

private:
    void ExpectOpen(const char* what) const { EXPECT_FALSE(m_bEnded) << what << " after the end"; }
};

class CPSTransportThreadProxyOrdersTest : public TransportProxyTest
{
protected:
    // A fresh connection with its sink, the script, and what must hold afterwards in any case.
    void Run(COrders& orders, const CActions& application, const CActions& peer)
    {
        m_OrderSink = COrderSink();
        Make();
        EXPECT_EQ(m_pProxy->OpenWithSink(&m_OrderSink), MN_OK);
        m_bClosed = false;
        m_pDying = m_pProxy;
        Play(orders, application, peer);
        EXPECT_LE(m_OrderSink.m_nDisconnects, 1);
        EXPECT_EQ(NewLiveObjects(), 0);
        const CCalls calls = m_Stack.TakeCalls();
        EXPECT_EQ(calls.empty() ? std::string() : calls.back(), "net:gone");
    }
    std::function<void()> SendAction(const char* text)
    {
        return [this, text] { EXPECT_EQ(Send(text), MN_OK); };
    }
    std::function<void()> DisconnectAction()
    {
        return [this] {
            EXPECT_EQ(m_pProxy->Disconnect(7), MN_OK);
            m_OrderSink.m_bEnded = true;
        };
    }
    std::function<void()> ReleaseAction()
    {
        return [this] {
            // Pending events may still deliver: they hold a reference. The sink stays.
            Release();
        };
    }
    // The peer's actions reach the proxy as a transport does: only while it is its sink.
    std::function<void()> DataAction(const char* text)
    {
        return [this, text] {
            if (IPSTransportSink* sink = Sink())
                sink->OnReceive(*Block(text), m_pFake, nullptr);
        };
    }
    std::function<void()> ReadyAction()
    {
        return [this] {
            if (IPSTransportSink* sink = Sink())
                sink->OnSend(m_pFake, nullptr);
        };
    }
    std::function<void()> CloseAction()
    {
        return [this] {
            if (IPSTransportSink* sink = Sink()) {
                m_pFake->m_pSink = nullptr;
                m_bClosed = true;
                sink->OnDisconnect(10001, m_pFake);
            }
        };
    }
    // Null when the transport, and with it the proxy, has gone.
    IPSTransportSink* Sink() { return NewLiveObjects() == 0 ? nullptr : m_pFake->m_pSink; }

    COrderSink m_OrderSink;
    CPSTransportThreadProxy* m_pDying = nullptr;
    bool m_bClosed = false;
};

TEST_F(CPSTransportThreadProxyOrdersTest, EveryOrder_ReceiveSendDisconnectRelease_LeavesNothingAndTellsNothingAfter)
{
    const unsigned long runs = COrders::Explore(100000, [this](COrders& orders) {
        Run(orders, {SendAction("ab"), DisconnectAction(), ReleaseAction()}, {DataAction("x"), CloseAction()});
        EXPECT_EQ(m_OrderSink.m_strReceived, std::string("x").substr(0, m_OrderSink.m_strReceived.size()));
    });
    EXPECT_GT(runs, 300u);
}

TEST_F(CPSTransportThreadProxyOrdersTest, EveryOrder_ReceiveSendRelease_RevivesNothing)
{
    const unsigned long runs = COrders::Explore(100000, [this](COrders& orders) {
        Run(orders, {SendAction("ab"), ReleaseAction()}, {DataAction("x"), ReadyAction(), DataAction("y")});
        EXPECT_EQ(m_OrderSink.m_strReceived, std::string("xy").substr(0, m_OrderSink.m_strReceived.size()));
    });
    EXPECT_GT(runs, 300u);
}

TEST_F(CPSTransportThreadProxyOrdersTest, EveryOrder_RefusalDrainDisconnectRelease_TellsOnSendPerBacklogAtMost)
{
    const unsigned long runs = COrders::Explore(100000, [this](COrders& orders) {
        bool first = true;
        const auto send = [&first, this] {
            if (first)
                m_pFake->Answer(MN_ERROR_PARTIAL_DATA, 1);
            first = false;
            EXPECT_EQ(Send("ab"), MN_OK);
        };
        Run(orders, {send, send, DisconnectAction(), ReleaseAction()}, {ReadyAction(), ReadyAction()});
        EXPECT_LE(m_OrderSink.m_nSends, 2);
    });
    EXPECT_GT(runs, 300u);
}

// Without the application's Disconnect: all that arrived before the peer's orderly close comes first, then the end.
TEST_F(CPSTransportThreadProxyOrdersTest, EveryOrder_DataThenPeersClose_DeliversAllThenOneOnDisconnect)
{
    const unsigned long runs = COrders::Explore(100000, [this](COrders& orders) {
        m_OrderSink = COrderSink();
        Make();
        EXPECT_EQ(m_pProxy->OpenWithSink(&m_OrderSink), MN_OK);
        Play(orders, {SendAction("1"), SendAction("2")},
             {DataAction("x"), ReadyAction(), DataAction("y"), CloseAction()});
        EXPECT_EQ(m_OrderSink.m_strReceived, "xy");
        EXPECT_EQ(m_OrderSink.m_nDisconnects, 1);
        EXPECT_LE(m_OrderSink.m_nSends, 1);
        EXPECT_EQ(m_pFake->m_strSent, "12");
        Release();
        RunOut();
        EXPECT_EQ(NewLiveObjects(), 0);
        m_Stack.TakeCalls();
    });
    EXPECT_GT(runs, 300u);
}

// The network thread may hold the last reference, or be the one that drops it.
TEST_F(CPSTransportThreadProxyOrdersTest, EveryOrder_BothSidesHoldAndLetGo_GoesOnTheNetworkThread)
{
    const unsigned long runs = COrders::Explore(100000, [this](COrders& orders) {
        const auto hold = [this] {
            if (NewLiveObjects() != 0)
                m_bClosed = m_pDying->TryAddReference();
        };
        const auto letGo = [this] {
            if (m_bClosed)
                m_pDying->ReleaseReference();
        };
        Run(orders, {SendAction("a"), ReleaseAction()}, {hold, DataAction("x"), letGo, DataAction("y")});
    });
    EXPECT_GT(runs, 300u);
}

}  // namespace
}  // namespace uxport
