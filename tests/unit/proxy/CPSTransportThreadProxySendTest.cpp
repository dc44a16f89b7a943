// Sending through a connection of another thread: what is taken, queued, drained and told.
#include "proxy/CPSTransportThreadProxy.h"

#include <algorithm>

#include "tests/unit/proxy/ProxyTest.h"

namespace uxport
{
namespace
{

constexpr MNResult WOULD_BLOCK = MN_ERROR_PARTIAL_DATA;

class CPSTransportThreadProxySendTest : public TransportProxyTest
{
protected:
    // In place, on the network thread. The block is emptied on success.
    MNResult SendInPlace(CMNMessageBlock& block, CPSTransportParameter* param = nullptr)
    {
        MNResult result = MN_OK;
        OnNetwork([&] { result = m_pProxy->SendData(block, param); });
        return result;
    }
    MNResult SendInPlace(const std::string& text, CPSTransportParameter* param = nullptr)
    {
        return SendInPlace(*Block(text), param);
    }

    // Refuses the first send, so that it is queued.
    void Block_i(const std::string& text)
    {
        m_pFake->Answer(WOULD_BLOCK, 0);
        EXPECT_EQ(Send(text), MN_OK);
        EXPECT_EQ(StepNetwork(), MN_OK);
        m_Stack.TakeCalls();
    }
    void ExpectToldOnce()
    {
        EXPECT_EQ(PendingUser(), 1u);
        EXPECT_EQ(StepUser(), MN_OK);
        const CCalls calls = m_Stack.TakeCalls();
        EXPECT_EQ(std::count(calls.begin(), calls.end(), "OnSend"), 1);
    }
};

TEST_F(CPSTransportThreadProxySendTest, SendData_OnTheUserThread_TakesAllBeforeTheNetworkSideHasSeenIt)
{
    MakeOpen();
    CPSTransportParameter param;
    param.SentLength = 99;
    param.Tag = 7;
    EXPECT_EQ(Send("hello", &param), MN_OK);
    EXPECT_EQ(param.SentLength, 5u);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
    EXPECT_EQ(PendingNetwork(), 1u);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls{"net:SendData(hello,7)"});
    EXPECT_EQ(param.SentLength, 5u);
}

TEST_F(CPSTransportThreadProxySendTest, SendData_Chain_TakesEveryBlock)
{
    MakeOpen();
    auto block = Block("ab");
    block->Append(Block("").release());
    block->Append(Block("cde").release());
    CPSTransportParameter param;
    EXPECT_EQ(m_pProxy->SendData(*block, &param), MN_OK);
    EXPECT_EQ(block->GetChainedLength(), 0u);
    EXPECT_EQ(param.SentLength, 5u);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_EQ(m_pFake->m_strSent, "abcde");
}

TEST_F(CPSTransportThreadProxySendTest, SendData_HalfReadBlock_SendsTheRest)
{
    MakeOpen();
    auto block = Block("abcdef");
    EXPECT_EQ(block->AdvanceReadPtr(2), MN_OK);
    EXPECT_EQ(m_pProxy->SendData(*block, nullptr), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_EQ(m_pFake->m_strSent, "cdef");
}

TEST_F(CPSTransportThreadProxySendTest, SendData_EmptyBlock_IsCarriedOver)
{
    MakeOpen();
    CPSTransportParameter param;
    param.SentLength = 9;
    EXPECT_EQ(Send("", &param), MN_OK);
    EXPECT_EQ(param.SentLength, 0u);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls{"net:SendData(,2)"});
}

TEST_F(CPSTransportThreadProxySendTest, SendData_BufferNotOwned_LaterWritesAreNotSeen)
{
    MakeOpen();
    char buffer[] = "early";
    CMNMessageBlock block(5, buffer, CMNMessageBlock::DONT_DELETE, 5);
    EXPECT_EQ(m_pProxy->SendData(block, nullptr), MN_OK);
    std::fill_n(buffer, 5, '!');
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_EQ(m_pFake->m_strSent, "early");
}

TEST_F(CPSTransportThreadProxySendTest, SendInPlace_RefusedBufferNotOwned_LaterWritesAreNotSeen)
{
    MakeOpen();
    char buffer[] = "early";
    CMNMessageBlock block(5, buffer, CMNMessageBlock::DONT_DELETE, 5);
    m_pFake->Answer(WOULD_BLOCK, 0);
    EXPECT_EQ(SendInPlace(block), MN_OK);
    std::fill_n(buffer, 5, '!');
    EXPECT_EQ(Ready(), MN_OK);
    EXPECT_EQ(m_pFake->m_strSent, "early");
}

TEST_F(CPSTransportThreadProxySendTest, SendData_PostRefused_LeavesTheBlock)
{
    MakeOpen();
    m_Network.Events().Refuse(true);
    CPSTransportParameter param;
    param.SentLength = 9;
    EXPECT_EQ(Send("hello", &param), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(param.SentLength, 0u);
    m_Network.Events().Refuse(false);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSTransportThreadProxySendTest, SendData_NoReactor_LeavesTheBlock)
{
    OnNetwork([this] {
        m_pFake = new CFakeTransport;
        m_pProxy = new CPSTransportThreadProxy(m_pFake, nullptr, &m_Thread, CONNECTION_TYPE_TCP);
        EXPECT_EQ(m_pProxy->AddReference(), 1u);
    });
    EXPECT_EQ(Send("hello"), MN_ERROR_NOT_INITIALIZED);
    OnNetwork([this] { Release(); });
}

TEST_F(CPSTransportThreadProxySendTest, SendData_NetworkSideRefuses_IsNotTold)
{
    MakeOpen();
    m_pFake->Answer(MN_ERROR_NETWORK_SOCKET_ERROR, 0);
    CPSTransportParameter param;
    EXPECT_EQ(Send("hello", &param), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_EQ(param.SentLength, 5u);
    EXPECT_EQ(PendingUser(), 0u);
}

TEST_F(CPSTransportThreadProxySendTest, SendEvent_NoTransport_ReturnsNullPointerAndFreesTheData)
{
    m_pProxy = new CPSTransportThreadProxy(nullptr, &m_Network, &m_Thread, CONNECTION_TYPE_TCP);
    EXPECT_EQ(m_pProxy->AddReference(), 1u);
    EXPECT_EQ(Send("hello"), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_ERROR_NULL_POINTER);
    auto block = Block("hello");
    EXPECT_EQ(SendInPlace(*block), MN_ERROR_NULL_POINTER);
    EXPECT_EQ(Text(*block), "hello");
}

TEST_F(CPSTransportThreadProxySendTest, SendEvent_Destroyed_FreesTheDataAndTheReference)
{
    MakeOpen();
    EXPECT_EQ(Send("hello"), MN_OK);
    OnNetwork([this] { m_Network.Events().DestroyAll(); });
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
    EXPECT_EQ(m_pProxy->AddReference(), 2u);
    EXPECT_EQ(m_pProxy->ReleaseReference(), 1u);
}

TEST_F(CPSTransportThreadProxySendTest, SendInPlace_Taken_NeedsNoEvent)
{
    MakeOpen();
    CPSTransportParameter param;
    param.Tag = 5;
    auto block = Block("hello");
    EXPECT_EQ(SendInPlace(*block, &param), MN_OK);
    EXPECT_EQ(block->GetChainedLength(), 0u);
    EXPECT_EQ(param.SentLength, 5u);
    EXPECT_EQ(PendingNetwork(), 0u);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls{"net:SendData(hello,5)"});
}

TEST_F(CPSTransportThreadProxySendTest, SendInPlace_TakenInPart_QueuesTheRestAndSaysHowMuch)
{
    MakeOpen();
    m_pFake->Answer(WOULD_BLOCK, 2);
    CPSTransportParameter param;
    auto block = Block("hello");
    EXPECT_EQ(SendInPlace(*block, &param), MN_OK);
    EXPECT_EQ(block->GetChainedLength(), 0u);
    EXPECT_EQ(param.SentLength, 3u);
    EXPECT_EQ(Ready(), MN_OK);
    EXPECT_EQ(m_pFake->m_strSent, "hello");
    EXPECT_EQ(param.SentLength, 3u);
}

TEST_F(CPSTransportThreadProxySendTest, SendInPlace_BehindABacklog_IsQueuedAndSaysHowMuch)
{
    MakeOpen();
    Block_i("first");
    m_pFake->Answer(WOULD_BLOCK, 0);
    CPSTransportParameter param;
    EXPECT_EQ(SendInPlace("second", &param), MN_OK);
    EXPECT_EQ(param.SentLength, 6u);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls{"net:SendData(first)"});
    EXPECT_EQ(Ready(), MN_OK);
    EXPECT_EQ(m_pFake->m_strSent, "firstsecond");
}

TEST_F(CPSTransportThreadProxySendTest, Backlog_NewDataDrainsIt_KeepsTheOrder)
{
    MakeOpen();
    Block_i("a");
    EXPECT_EQ(Send("b"), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"net:SendData(a)", "net:SendData(b)"}));
    EXPECT_EQ(m_pFake->m_strSent, "ab");
    EXPECT_EQ(PendingUser(), 0u);
    EXPECT_EQ(Ready(), MN_OK);
    ExpectToldOnce();
}

TEST_F(CPSTransportThreadProxySendTest, Backlog_DrainStopsPartWay_TellsNothingAndGoesOnFromThere)
{
    MakeOpen();
    Block_i("abc");
    m_pFake->Answer(WOULD_BLOCK, 1);
    EXPECT_EQ(Send("def"), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    m_pFake->Answer(MN_OK, CFakeTransport::s_dwAll);
    m_pFake->Answer(WOULD_BLOCK, 1);
    m_Stack.TakeCalls();
    EXPECT_EQ(Ready(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"net:SendData(bc)", "net:SendData(def)"}));
    EXPECT_EQ(PendingUser(), 0u);
    EXPECT_EQ(Ready(), MN_OK);
    EXPECT_EQ(m_pFake->m_strSent, "abcdef");
    ExpectToldOnce();
}

TEST_F(CPSTransportThreadProxySendTest, Backlog_Parameters_TravelWithTheirData)
{
    MakeOpen();
    m_pFake->Answer(WOULD_BLOCK, 0);
    CPSTransportParameter param;
    param.Tag = 1;
    EXPECT_EQ(Send("a", &param), MN_OK);
    param.Tag = 2;
    EXPECT_EQ(StepNetwork(), MN_OK);
    m_pFake->Answer(WOULD_BLOCK, 0);
    EXPECT_EQ(SendInPlace("b", &param), MN_OK);
    param.Tag = 3;
    m_pFake->Answer(WOULD_BLOCK, 0);
    EXPECT_EQ(SendInPlace("c"), MN_OK);
    m_Stack.TakeCalls();
    EXPECT_EQ(Ready(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"net:SendData(a,1)", "net:SendData(b,2)", "net:SendData(c)"}));
}

TEST_F(CPSTransportThreadProxySendTest, Backlog_SocketFails_StaysAndGoesWithTheProxy)
{
    MakeOpen();
    m_pFake->Answer(MN_ERROR_NETWORK_SOCKET_ERROR, 0);
    EXPECT_EQ(Send("a"), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    m_pFake->Answer(MN_ERROR_NOT_INITIALIZED, 0);
    EXPECT_EQ(Ready(), MN_OK);
    EXPECT_EQ(PendingUser(), 0u);
    EXPECT_EQ(m_pFake->m_strSent, "");
}

TEST_F(CPSTransportThreadProxySendTest, SendData_AfterDisconnect_IsTakenAndGoesNowhere)
{
    MakeOpen();
    EXPECT_EQ(m_pProxy->Disconnect(0), MN_OK);
    EXPECT_EQ(Send("late"), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    m_pFake->Answer(MN_ERROR_NOT_INITIALIZED, 0);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_EQ(m_pFake->m_strSent, "");
}

TEST_F(CPSTransportThreadProxySendTest, OnSend_FirstReadiness_IsToldOnce)
{
    MakeOpen();
    EXPECT_EQ(Ready(), MN_OK);
    EXPECT_EQ(Ready(), MN_OK);
    ExpectToldOnce();
    EXPECT_EQ(m_Sink.m_pTransport, m_pProxy);
    EXPECT_EQ(Ready(), MN_OK);
    EXPECT_EQ(PendingUser(), 0u);
}

TEST_F(CPSTransportThreadProxySendTest, OnSend_FirstReadinessAfterAnAcceptedSend_IsSwallowed)
{
    MakeOpen();
    EXPECT_EQ(Send("a"), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_EQ(Ready(), MN_OK);
    EXPECT_EQ(PendingUser(), 0u);
}

TEST_F(CPSTransportThreadProxySendTest, OnSend_EachDrainedBacklog_IsToldOnce)
{
    MakeOpen();
    EXPECT_EQ(Ready(), MN_OK);
    ExpectToldOnce();
    for (int i = 0; i < 3; ++i) {
        Block_i("x");
        EXPECT_EQ(Ready(), MN_OK);
        EXPECT_EQ(Ready(), MN_OK);
        ExpectToldOnce();
    }
    EXPECT_EQ(m_pFake->m_strSent, "xxx");
}

TEST_F(CPSTransportThreadProxySendTest, OnSend_Stopped_IsNotTold)
{
    MakeOpen();
    EXPECT_EQ(Ready(), MN_OK);
    EXPECT_EQ(m_pProxy->Disconnect(0), MN_OK);
    EXPECT_EQ(StepUser(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSTransportThreadProxySendTest, OnSend_NoSink_ReturnsNullPointer)
{
    Make();
    EXPECT_EQ(Ready(), MN_OK);
    EXPECT_EQ(StepUser(), MN_ERROR_NULL_POINTER);
}

TEST_F(CPSTransportThreadProxySendTest, DrainOnly_EmptyQueue_OwesAnOnSendAgain)
{
    MakeOpen();
    EXPECT_EQ(Send("a"), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    OnNetwork([this] { EXPECT_EQ(m_pProxy->Send_i(nullptr, nullptr, false), MN_OK); });
    EXPECT_EQ(Ready(), MN_OK);
    ExpectToldOnce();
}

TEST_F(CPSTransportThreadProxySendTest, Udp_Refused_IsDroppedAndOnlyToldInPlace)
{
    MakeOpen(CONNECTION_TYPE_UDP);
    m_pFake->Answer(MN_ERROR_FAILURE, 0);
    CPSTransportParameter param;
    EXPECT_EQ(Send("a", &param), MN_OK);
    EXPECT_EQ(param.SentLength, 1u);
    EXPECT_EQ(StepNetwork(), MN_ERROR_FAILURE);
    m_pFake->Answer(MN_ERROR_FAILURE, 0);
    auto block = Block("b");
    EXPECT_EQ(SendInPlace(*block, &param), MN_ERROR_FAILURE);
    EXPECT_EQ(Text(*block), "b");
    EXPECT_EQ(param.SentLength, 0u);
    EXPECT_EQ(Send("c"), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_OK);
    EXPECT_EQ(m_pFake->m_strSent, "c");
}

TEST_F(CPSTransportThreadProxySendTest, Udp_OnSend_IsNeverTold)
{
    MakeOpen(CONNECTION_TYPE_UDP);
    EXPECT_EQ(Ready(), MN_OK);
    m_pFake->Answer(MN_ERROR_FAILURE, 0);
    EXPECT_EQ(Send("a"), MN_OK);
    EXPECT_EQ(StepNetwork(), MN_ERROR_FAILURE);
    EXPECT_EQ(Ready(), MN_OK);
    EXPECT_EQ(PendingUser(), 0u);
}

TEST_F(CPSTransportThreadProxySendTest, Raw_Refused_IsQueued)
{
    MakeOpen(CONNECTION_TYPE_RAW);
    Block_i("a");
    EXPECT_EQ(Ready(), MN_OK);
    ExpectToldOnce();
    EXPECT_EQ(m_pFake->m_strSent, "a");
}

// Whatever the mixture of sends by event and in place, refusals and drains: the bytes come out in order.
TEST_F(CPSTransportThreadProxySendTest, EveryOrder_SendsRefusalsAndDrains_KeepsTheBytesInOrder)
{
    const unsigned long runs = COrders::Explore(200000, [this](COrders& orders) {
        MakeOpen();
        // Of each send the network side takes nothing, a part or all, in turns.
        for (int i = 0; i < 3; ++i) {
            m_pFake->Answer(WOULD_BLOCK, 1);
            m_pFake->Answer(WOULD_BLOCK, 0);
            m_pFake->Answer(MN_OK, CFakeTransport::s_dwAll);
        }
        std::string expected;
        std::string posted;
        const auto inPlace = [&](const char* text) {
            // Events that are still queued go behind it.
            return [this, &expected, text] {
                EXPECT_EQ(m_pProxy->SendData(*Block(text), nullptr), MN_OK);
                expected += text;
            };
        };
        const auto byEvent = [&](const char* text) {
            return [this, &posted, text] {
                EXPECT_EQ(Send(text), MN_OK);
                posted += text;
            };
        };
        const auto ready = [this] { EXPECT_EQ(m_pProxy->OnSend(m_pFake, nullptr), MN_OK); };
        Play(orders, {byEvent("ab"), byEvent("cd"), byEvent("ef")}, {inPlace("12"), ready, inPlace("34")});
        while (m_pFake->m_strSent.size() < 10)
            EXPECT_EQ(Ready(), MN_OK);
        std::string events;
        std::string direct;
        for (const char c : m_pFake->m_strSent)
            (c < 'a' ? direct : events) += c;
        EXPECT_EQ(events, posted);
        EXPECT_EQ(direct, expected);
        Release();
        RunOut();
        m_Stack.TakeCalls();
    });
    EXPECT_GT(runs, 400u);
}

}  // namespace
}  // namespace uxport
