// What the application asks of a connection of its own thread, and what it is told.
#include "proxy/CPSTransportThreadProxy.h"

#include "mantle/CMNInetAddr.h"
#include "tests/unit/proxy/ProxyTest.h"

namespace uxport
{
namespace
{

// Looks at the parameter records, and keeps what came.
class CParameterSink : public IPSTransportSink
{
public:
    MNResult OnReceive(CMNMessageBlock&, IPSTransport*, CPSTransportParameter* param) override { return Keep(param); }
    MNResult OnSend(IPSTransport*, CPSTransportParameter* param) override { return Keep(param); }
    MNResult OnDisconnect(long, IPSTransport*) override { return MN_OK; }

    CPSTransportParameter m_Last;
    CPSTransportParameter* m_pLast = nullptr;
    int m_nCalls = 0;

private:
    MNResult Keep(CPSTransportParameter* param)
    {
        ++m_nCalls;
        m_pLast = param;
        m_Last = param ? *param : CPSTransportParameter();
        return MN_OK;
    }
};

class CPSTransportThreadProxyTest : public TransportProxyTest
{
protected:
    // Without a network-side transport.
    void MakeEmpty()
    {
        m_pProxy = new CPSTransportThreadProxy(nullptr, &m_Network, &m_Thread, CONNECTION_TYPE_TCP);
        EXPECT_EQ(m_pProxy->AddReference(), 1u);
    }
};

TEST_F(CPSTransportThreadProxyTest, Construction_Fresh_IsStartedAndBoundToTheUserThread)
{
    Make();
    EXPECT_FALSE(m_pProxy->IsFlagStopped());
    EXPECT_EQ(m_pProxy->GetStopFlagThread(), mantle::CMNThreadManager::GetThreadSelfId());
    EXPECT_EQ(m_pProxy->GetSink(), nullptr);
    EXPECT_EQ(m_pProxy->GetTransport(), m_pFake);
    EXPECT_EQ(NewLiveObjects(), 2);
}

TEST_F(CPSTransportThreadProxyTest, OpenWithSink_Null_ReturnsInvalidArgAndKeepsTheSink)
{
    MakeOpen();
    EXPECT_EQ(m_pProxy->OpenWithSink(nullptr), MN_ERROR_INVALID_ARG);
    EXPECT_EQ(m_pProxy->GetSink(), &m_Sink);
}

TEST_F(CPSTransportThreadProxyTest, OpenWithSink_Again_ReplacesTheSinkAndPostsNothing)
{
    MakeOpen();
    CRecordingTransportSink second;
    EXPECT_EQ(m_pProxy->OpenWithSink(&second), MN_OK);
    EXPECT_EQ(m_pProxy->GetSink(), &second);
    EXPECT_EQ(PendingNetwork(), 0u);
    EXPECT_EQ(PendingUser(), 0u);
    second.m_strName = "second:";
    EXPECT_EQ(Arrive("x"), MN_OK);
    EXPECT_EQ(StepUser(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls{"second:OnReceive(x)"});
}

TEST_F(CPSTransportThreadProxyTest, References_AddAndRelease_ReturnTheCount)
{
    Make();
    EXPECT_EQ(m_pProxy->AddReference(), 2u);
    EXPECT_TRUE(m_pProxy->TryAddReference());
    EXPECT_EQ(m_pProxy->ReleaseReference(), 2u);
    EXPECT_EQ(m_pProxy->ReleaseReference(), 1u);
}

TEST_F(CPSTransportThreadProxyTest, Disconnect_Running_PostsOnceAndForgetsTheSink)
{
    MakeOpen();
    EXPECT_EQ(m_pProxy->Disconnect(7), MN_OK);
    EXPECT_TRUE(m_pProxy->IsFlagStopped());
    EXPECT_EQ(m_pProxy->GetSink(), nullptr);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
    EXPECT_EQ(PendingNetwork(), 1u);
    m_pFake->m_dwDisconnect = 4711;
    EXPECT_EQ(StepNetwork(), 4711u);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls{"net:Disconnect(7)"});
}

TEST_F(CPSTransportThreadProxyTest, Disconnect_Twice_SecondReturnsZeroAndPostsNothing)
{
    MakeOpen();
    EXPECT_EQ(m_pProxy->Disconnect(7), MN_OK);
    EXPECT_EQ(m_pProxy->Disconnect(8), MN_OK);
    EXPECT_EQ(PendingNetwork(), 1u);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_EQ(m_pProxy->Disconnect(9), MN_OK);
    EXPECT_EQ(PendingNetwork(), 0u);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls{"net:Disconnect(7)"});
}

TEST_F(CPSTransportThreadProxyTest, Disconnect_PostRefused_ReturnsThePostsResultAndIsStopped)
{
    MakeOpen();
    m_Network.Events().Refuse(true);
    EXPECT_EQ(m_pProxy->Disconnect(7), MN_ERROR_NOT_INITIALIZED);
    EXPECT_TRUE(m_pProxy->IsFlagStopped());
    m_Network.Events().Refuse(false);
}

TEST_F(CPSTransportThreadProxyTest, Disconnect_OnTheWrongThread_IsReported)
{
    MakeOpen();
    OnNetwork([this] { EXPECT_EQ(m_pProxy->Disconnect(7), MN_OK); });
    ExpectReports(1);
    EXPECT_EQ(Reports(), CCalls{"CPSTransportThreadProxy::Disconnect"});
}

TEST_F(CPSTransportThreadProxyTest, DisconnectEvent_NoTransport_ReturnsNullPointer)
{
    MakeEmpty();
    EXPECT_EQ(m_pProxy->Disconnect(7), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_ERROR_NULL_POINTER);
}

TEST_F(CPSTransportThreadProxyTest, Queries_NoTransport_ReturnNullPointer)
{
    MakeEmpty();
    std::uint64_t value = 5;
    CMNInetAddr addr;
    EXPECT_EQ(m_pProxy->SetOption(OPT_KEEPALIVE, &value), MN_ERROR_NULL_POINTER);
    EXPECT_EQ(m_pProxy->GetOption(OPT_SEND_BUFFER, &value), MN_ERROR_NULL_POINTER);
    EXPECT_EQ(m_pProxy->GetOption(OPT_TYPE, &value), MN_ERROR_NULL_POINTER);
    EXPECT_EQ(m_pProxy->GetOption(OPT_TYPE, nullptr), MN_ERROR_NULL_POINTER);
    EXPECT_EQ(m_pProxy->GetOption(OPT_NETWORK_TRANSPORT, &value), MN_ERROR_NULL_POINTER);
    EXPECT_EQ(m_pProxy->GetPeerAddr(addr), MN_ERROR_NULL_POINTER);
    EXPECT_EQ(m_pProxy->GetLocalAddr(addr), MN_ERROR_NULL_POINTER);
    EXPECT_EQ(value, 5u);
}

TEST_F(CPSTransportThreadProxyTest, SetOption_Any_AsksTheTransportOnTheCallingThread)
{
    Make();
    std::uint64_t value = 5;
    m_pFake->m_dwOptionResult = 4711;
    for (const unsigned long id : {101ul, 103ul, 107ul, 108ul, 112ul, 136ul, 5000ul}) {
        EXPECT_EQ(m_pProxy->SetOption(id, &value), 4711u);
        EXPECT_EQ(m_pFake->m_dwOption, id);
        EXPECT_EQ(m_pFake->m_pArg, &value);
    }
    EXPECT_EQ(m_pProxy->SetOption(OPT_KEEPALIVE, nullptr), 4711u);
    EXPECT_EQ(m_pFake->m_pArg, nullptr);
    EXPECT_EQ(PendingNetwork(), 0u);
}

TEST_F(CPSTransportThreadProxyTest, GetOption_OtherIds_ArePassedThrough)
{
    Make();
    std::uint64_t value = 5;
    m_pFake->m_dwOptionResult = 4711;
    for (const unsigned long id : {101ul, 102ul, 103ul, 104ul, 105ul, 106ul, 109ul, 110ul, 111ul, 113ul, 136ul}) {
        EXPECT_EQ(m_pProxy->GetOption(id, &value), 4711u);
        EXPECT_EQ(m_pFake->m_dwOption, id);
        EXPECT_EQ(m_pFake->m_pArg, &value);
    }
    EXPECT_EQ(PendingNetwork(), 0u);
}

TEST_F(CPSTransportThreadProxyTest, GetOptionType_Answered_StoresTheWholeValue)
{
    Make();
    m_pFake->m_qwType = 0x123456789abcdef0ull;
    std::uint64_t value = 0;
    EXPECT_EQ(m_pProxy->GetOption(OPT_TYPE, &value), MN_OK);
    EXPECT_EQ(value, 0x123456789abcdef0ull);
    EXPECT_NE(m_pFake->m_pArg, &value);
}

TEST_F(CPSTransportThreadProxyTest, GetOptionType_TransportFails_ReturnsThatEvenForNull)
{
    Make();
    m_pFake->m_dwOptionResult = 4711;
    std::uint64_t value = 5;
    EXPECT_EQ(m_pProxy->GetOption(OPT_TYPE, &value), 4711u);
    EXPECT_EQ(m_pProxy->GetOption(OPT_TYPE, nullptr), 4711u);
    EXPECT_EQ(value, 5u);
}

TEST_F(CPSTransportThreadProxyTest, GetOptionType_Null_ReturnsInvalidArgAfterTheQuery)
{
    Make();
    EXPECT_EQ(m_pProxy->GetOption(OPT_TYPE, nullptr), MN_ERROR_INVALID_ARG);
    EXPECT_EQ(m_pFake->m_dwOption, static_cast<unsigned long>(OPT_TYPE));
}

TEST_F(CPSTransportThreadProxyTest, GetOptionNetworkTransport_Place_GivesThePointerAndNoReference)
{
    Make();
    IPSTransport* transport = nullptr;
    EXPECT_EQ(m_pProxy->GetOption(OPT_NETWORK_TRANSPORT, &transport), MN_OK);
    EXPECT_EQ(transport, m_pFake);
    EXPECT_EQ(m_pFake->m_dwOption, 0u);
    OnNetwork([this] {
        EXPECT_EQ(m_pFake->AddReference(), 2u);
        EXPECT_EQ(m_pFake->ReleaseReference(), 1u);
    });
}

TEST_F(CPSTransportThreadProxyTest, GetOptionNetworkTransport_Null_ReturnsInvalidArg)
{
    Make();
    EXPECT_EQ(m_pProxy->GetOption(OPT_NETWORK_TRANSPORT, nullptr), MN_ERROR_INVALID_ARG);
}

TEST_F(CPSTransportThreadProxyTest, Addresses_Any_ComeFromTheTransport)
{
    Make();
    CMNInetAddr addr;
    EXPECT_EQ(m_pProxy->GetPeerAddr(addr), MN_OK);
    EXPECT_EQ(addr, m_pFake->m_Peer);
    EXPECT_EQ(m_pProxy->GetLocalAddr(addr), MN_OK);
    EXPECT_EQ(addr, m_pFake->m_Local);
    m_pFake->m_dwAddrResult = 4711;
    EXPECT_EQ(m_pProxy->GetPeerAddr(addr), 4711u);
    EXPECT_EQ(m_pProxy->GetLocalAddr(addr), 4711u);
    EXPECT_EQ(PendingNetwork(), 0u);
}

TEST_F(CPSTransportThreadProxyTest, Receive_Running_IsDeliveredOnceFromTheProxy)
{
    MakeOpen();
    EXPECT_EQ(Arrive("abc"), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
    EXPECT_EQ(PendingUser(), 1u);
    EXPECT_EQ(StepUser(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls{"OnReceive(abc)"});
    EXPECT_EQ(m_Sink.m_pTransport, m_pProxy);
    EXPECT_EQ(PendingUser(), 0u);
}

TEST_F(CPSTransportThreadProxyTest, Receive_Stopped_IsDropped)
{
    MakeOpen();
    EXPECT_EQ(Arrive("before"), MN_OK);
    EXPECT_EQ(m_pProxy->Disconnect(0), MN_OK);
    EXPECT_EQ(Arrive("after"), MN_OK);
    EXPECT_EQ(StepUser(), MN_OK);
    EXPECT_EQ(StepUser(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSTransportThreadProxyTest, Receive_NoSink_ReturnsNullPointerAndIsLost)
{
    Make();
    EXPECT_EQ(Arrive("abc"), MN_OK);
    EXPECT_EQ(StepUser(), MN_ERROR_NULL_POINTER);
    EXPECT_EQ(m_pProxy->OpenWithSink(&m_Sink), MN_OK);
    EXPECT_EQ(StepUser(), MN_ERROR_NOT_FOUND);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSTransportThreadProxyTest, Receive_BufferNotOwned_LaterWritesAreNotSeen)
{
    MakeOpen();
    char buffer[] = "early";
    OnNetwork([&] {
        CMNMessageBlock block(5, buffer, CMNMessageBlock::DONT_DELETE, 5);
        EXPECT_EQ(m_pProxy->OnReceive(block, m_pFake, nullptr), MN_OK);
    });
    std::fill_n(buffer, 5, '!');
    EXPECT_EQ(StepUser(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls{"OnReceive(early)"});
}

TEST_F(CPSTransportThreadProxyTest, Receive_SinkKeepsADuplicate_TheRestIsFreed)
{
    MakeOpen();
    CMNMessageBlock* kept = nullptr;
    m_Sink.m_AtReceive = [&](CMNMessageBlock& data, IPSTransport*) { kept = data.DuplicateChained(); };
    EXPECT_EQ(Arrive("abc"), MN_OK);
    EXPECT_EQ(StepUser(), MN_OK);
    EXPECT_EQ(Text(*kept), "abc");
    kept->DestroyChained();
}

TEST_F(CPSTransportThreadProxyTest, ReceiveAndSend_Parameter_IsCopiedOnce)
{
    Make();
    CParameterSink sink;
    EXPECT_EQ(m_pProxy->OpenWithSink(&sink), MN_OK);
    CPSTransportParameter param;
    param.SentLength = 11;
    param.Tag = 22;
    EXPECT_EQ(Arrive("x", &param), MN_OK);
    EXPECT_EQ(Ready(&param), MN_OK);
    param.SentLength = param.Tag = 0;
    for (int i = 1; i <= 2; ++i) {
        EXPECT_EQ(StepUser(), MN_OK);
        EXPECT_EQ(sink.m_nCalls, i);
        EXPECT_NE(sink.m_pLast, &param);
        EXPECT_EQ(sink.m_Last.SentLength, 11u);
        EXPECT_EQ(sink.m_Last.Tag, 22u);
    }
    EXPECT_EQ(Arrive("x"), MN_OK);
    EXPECT_EQ(StepUser(), MN_OK);
    EXPECT_EQ(sink.m_pLast, nullptr);
}

TEST_F(CPSTransportThreadProxyTest, PeerCloses_Running_ClosesAtOnceThenTellsOnce)
{
    MakeOpen();
    EXPECT_EQ(PeerCloses(10001), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls{"net:Disconnect(10001)"});
    EXPECT_EQ(PeerCloses(10006), MN_OK);
    EXPECT_EQ(StepUser(), MN_OK);
    EXPECT_TRUE(m_pProxy->IsFlagStopped());
    EXPECT_EQ(StepUser(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"net:Disconnect(10006)", "OnDisconnect(10001)"}));
    EXPECT_EQ(m_Sink.m_pTransport, m_pProxy);
}

TEST_F(CPSTransportThreadProxyTest, PeerCloses_DataBefore_IsDeliveredFirstAndNothingAfter)
{
    MakeOpen();
    EXPECT_EQ(Arrive("a"), MN_OK);
    EXPECT_EQ(Arrive("b"), MN_OK);
    EXPECT_EQ(PeerCloses(), MN_OK);
    EXPECT_EQ(Arrive("c"), MN_OK);
    EXPECT_EQ(Ready(), MN_OK);
    m_Stack.TakeCalls();
    while (PendingUser() != 0)
        EXPECT_EQ(StepUser(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"OnReceive(a)", "OnReceive(b)", "OnDisconnect(10001)"}));
}

TEST_F(CPSTransportThreadProxyTest, PeerCloses_AfterDisconnect_IsNotTold)
{
    MakeOpen();
    EXPECT_EQ(m_pProxy->Disconnect(0), MN_OK);
    EXPECT_EQ(PeerCloses(), MN_OK);
    EXPECT_EQ(StepUser(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls{"net:Disconnect(10001)"});
}

TEST_F(CPSTransportThreadProxyTest, PeerCloses_NoSink_ReturnsNullPointerAndIsStopped)
{
    Make();
    EXPECT_EQ(PeerCloses(), MN_OK);
    EXPECT_EQ(StepUser(), MN_ERROR_NULL_POINTER);
    EXPECT_TRUE(m_pProxy->IsFlagStopped());
    EXPECT_EQ(m_pProxy->Disconnect(0), MN_OK);
    EXPECT_EQ(PendingNetwork(), 0u);
}

TEST_F(CPSTransportThreadProxyTest, PeerCloses_NoTransport_IsToldAllTheSame)
{
    MakeEmpty();
    EXPECT_EQ(m_pProxy->OpenWithSink(&m_Sink), MN_OK);
    EXPECT_EQ(PeerCloses(5), MN_OK);
    EXPECT_EQ(StepUser(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls{"OnDisconnect(5)"});
}

TEST_F(CPSTransportThreadProxyTest, OnDisconnect_SinkReleasesInside_ProxyGoesAfterwards)
{
    MakeOpen();
    m_Sink.m_AtDisconnect = [this](IPSTransport*) {
        EXPECT_EQ(m_pProxy->ReleaseReference(), 1u);
        m_pProxy = nullptr;
    };
    EXPECT_EQ(PeerCloses(), MN_OK);
    EXPECT_EQ(StepUser(), MN_OK);
    m_Stack.TakeCalls();
    RunOut();
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"net:Disconnect(0)", "net:gone"}));
}

TEST_F(CPSTransportThreadProxyTest, OnReceive_SinkDisconnectsAndReleasesInside_NothingFollows)
{
    MakeOpen();
    m_Sink.m_AtReceive = [this](CMNMessageBlock&, IPSTransport* transport) {
        EXPECT_EQ(transport->Disconnect(3), MN_OK);
        EXPECT_EQ(transport->ReleaseReference(), 2u);
        m_pProxy = nullptr;
    };
    EXPECT_EQ(Arrive("a"), MN_OK);
    EXPECT_EQ(Arrive("b"), MN_OK);
    EXPECT_EQ(Ready(), MN_OK);
    EXPECT_EQ(PeerCloses(), MN_OK);
    m_Stack.TakeCalls();
    m_Sink.m_AtReceive = [this](CMNMessageBlock&, IPSTransport* transport) {
        EXPECT_EQ(transport->Disconnect(3), MN_OK);
        EXPECT_NE(transport->ReleaseReference(), 0u);
        m_pProxy = nullptr;
    };
    while (PendingUser() != 0)
        EXPECT_EQ(StepUser(), MN_OK);
    RunOut();
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"OnReceive(a)", "net:Disconnect(3)", "net:Disconnect(0)", "net:gone"}));
}

TEST_F(CPSTransportThreadProxyTest, EveryUserEvent_OnAnotherThread_IsReported)
{
    MakeOpen();
    EXPECT_EQ(Arrive("x"), MN_OK);
    EXPECT_EQ(Ready(), MN_OK);
    EXPECT_EQ(PeerCloses(), MN_OK);
    OnNetwork([this] {
        while (m_UserQueue.GetPendingEventsCount() != 0)
            m_UserQueue.RunOne();
    });
    ExpectReports(3);
    EXPECT_EQ(Reports(), (CCalls{"CPSEventOnReceive", "CPSEventOnSend", "CPSEventOnDisconnect"}));
}

// The user thread has ended: whatever is refused closes the network side.
TEST_F(CPSTransportThreadProxyTest, UserQueueRefuses_OnReceive_ClosesWithNotInitialized)
{
    MakeOpen();
    m_UserQueue.Refuse(true);
    EXPECT_EQ(Arrive("x"), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls{"net:Disconnect(10002)"});
}

TEST_F(CPSTransportThreadProxyTest, UserQueueRefuses_OnSend_ClosesWithNotInitialized)
{
    MakeOpen();
    m_UserQueue.Refuse(true);
    EXPECT_EQ(Ready(), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls{"net:Disconnect(10002)"});
}

TEST_F(CPSTransportThreadProxyTest, UserQueueRefuses_OnDisconnect_ReturnsNotInitialized)
{
    MakeOpen();
    m_UserQueue.Refuse(true);
    EXPECT_EQ(PeerCloses(), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"net:Disconnect(10001)", "net:Disconnect(10002)"}));
}

TEST_F(CPSTransportThreadProxyTest, UserThreadWithoutQueue_OnReceive_ClosesWithNotInitialized)
{
    MakeOpen();
    m_Thread.UseEventQueue(nullptr);
    EXPECT_EQ(Arrive("x"), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls{"net:Disconnect(10002)"});
    m_Thread.UseEventQueue(&m_UserQueue);
}

TEST_F(CPSTransportThreadProxyTest, NoUserThread_OnReceive_ClosesWithNotInitialized)
{
    OnNetwork([this] {
        m_pFake = new CFakeTransport;
        m_pProxy = new CPSTransportThreadProxy(m_pFake, &m_Network, nullptr, CONNECTION_TYPE_TCP);
        EXPECT_EQ(m_pProxy->AddReference(), 1u);
    });
    EXPECT_EQ(Arrive("x"), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls{"net:Disconnect(10002)"});
}

// The event's reference is the last one when the queue destroys it.
TEST_F(CPSTransportThreadProxyTest, UserQueueDestroyed_EventsPending_ReleasesThem)
{
    MakeOpen();
    EXPECT_EQ(Arrive("x"), MN_OK);
    EXPECT_EQ(PeerCloses(), MN_OK);
    EXPECT_EQ(m_pProxy->ReleaseReference(), 2u);
    m_pProxy = nullptr;
    m_Stack.TakeCalls();
    m_UserQueue.DestroyAll();
    RunOut();
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"net:Disconnect(0)", "net:gone"}));
}

}  // namespace
}  // namespace uxport
