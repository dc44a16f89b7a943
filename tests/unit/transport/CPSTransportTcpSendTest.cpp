// Sending on the TCP transport, and OnSend.
#include "transport/CPSTransportTcp.h"

#include "ipstack/ps_defines.h"
#include "tests/unit/doubles/TransportTcpTest.h"

namespace uxport
{
namespace
{

const std::string WATCH_BOTH = "RegisterHandler(7,12)=10012";
const std::string WATCH_READ = "RegisterHandler(7,4)=10012";

class CPSTransportTcpSendTest : public TransportTcpTest
{
protected:
    // Opened, and the OnSend that a fresh transport owes is over.
    void SetUp() override
    {
        TransportTcpTest::SetUp();
        Open();
        Transport().OnOutput(s_nSocket);
        m_Stack.TakeCalls();
    }

    CPSTransportParameter m_Parameter;
};

TEST_F(CPSTransportTcpSendTest, SendData_TakenWhole_ReturnsZeroAndDoesNotWatchForRoom)
{
    const auto block = Block("hello");
    EXPECT_EQ(Transport().SendData(*block, &m_Parameter), MN_OK);
    EXPECT_EQ(m_Parameter.SentLength, 5u);
    EXPECT_EQ(m_Parameter.Tag, 2u);
    EXPECT_EQ(block->GetChainedLength(), 0u);
    EXPECT_EQ(m_Stack.TakeSent(s_nSocket), "hello");
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_writev(7,[5],1)=5"}));
    EXPECT_EQ(Turn(), "7:1");
}

TEST_F(CPSTransportTcpSendTest, SendData_Chain_IsOneGatheredWrite)
{
    const auto chain = Chain(3, "ab");
    EXPECT_EQ(Transport().SendData(*chain, &m_Parameter), MN_OK);
    EXPECT_EQ(m_Parameter.SentLength, 6u);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_writev(7,[2,2,2],3)=6"}));
}

TEST_F(CPSTransportTcpSendTest, SendData_EmptyBlock_ReturnsZeroAndLeavesTheParameter)
{
    CMNMessageBlock block(10);
    m_Parameter.SentLength = 99;
    EXPECT_EQ(Transport().SendData(block, &m_Parameter), MN_OK);
    EXPECT_EQ(m_Parameter.SentLength, 99u);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSTransportTcpSendTest, SendData_EmptyBlockOnAClosedTransport_ReturnsZero)
{
    Transport().Disconnect(0);
    CMNMessageBlock block(10);
    m_Parameter.SentLength = 99;
    EXPECT_EQ(Transport().SendData(block, &m_Parameter), MN_OK);
    EXPECT_EQ(m_Parameter.SentLength, 99u);
}

TEST_F(CPSTransportTcpSendTest, SendData_EmptyPieces_AreSkipped)
{
    const auto chain = Block("ab");
    chain->Append(new CMNMessageBlock(5));
    chain->Append(Block("cd").release());
    EXPECT_EQ(Transport().SendData(*chain, nullptr), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_writev(7,[2,2],2)=4"}));
}

TEST_F(CPSTransportTcpSendTest, SendData_Closed_ReturnsNotInitializedClearsTheCountAndKeepsTheBlock)
{
    Transport().Disconnect(0);
    m_Stack.TakeCalls();
    const auto block = Block("hello");
    m_Parameter.SentLength = 99;
    EXPECT_EQ(Transport().SendData(*block, &m_Parameter), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(m_Parameter.SentLength, 0u);
    EXPECT_EQ(Rest(*block), "hello");
    EXPECT_EQ(Transport().SendData(*block, nullptr), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSTransportTcpSendTest, SendData_SocketFailed_ReturnsSocketErrorKeepsTheBlockAndStaysOpen)
{
    m_Stack.On("ps_writev").Fails(PS_ECONNRESET);
    const auto block = Block("hello");
    m_Parameter.SentLength = 99;
    EXPECT_EQ(Transport().SendData(*block, &m_Parameter), MN_ERROR_NETWORK_SOCKET_ERROR);
    EXPECT_EQ(m_Parameter.SentLength, 0u);
    EXPECT_EQ(Rest(*block), "hello");
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_writev(7,[5],1)=-1"}));
    EXPECT_EQ(Transport().GetHandle(), s_nSocket);
    EXPECT_EQ(Turn(), "7:1");
}

TEST_F(CPSTransportTcpSendTest, SendData_TakenInPart_ReturnsPartialDataAdvancesAndWatchesForRoom)
{
    m_Stack.On("ps_writev").Returns(2);
    const auto block = Block("hello");
    EXPECT_EQ(Transport().SendData(*block, &m_Parameter), MN_ERROR_PARTIAL_DATA);
    EXPECT_EQ(m_Parameter.SentLength, 2u);
    EXPECT_EQ(Rest(*block), "llo");
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_writev(7,[5],1)=2", WATCH_BOTH}));
    EXPECT_EQ(Turn(), "7:3");
}

TEST_F(CPSTransportTcpSendTest, SendData_TakenInPartWithoutParameter_ReturnsPartialData)
{
    m_Stack.On("ps_writev").Returns(2);
    const auto block = Block("hello");
    EXPECT_EQ(Transport().SendData(*block, nullptr), MN_ERROR_PARTIAL_DATA);
    EXPECT_EQ(Rest(*block), "llo");
}

TEST_F(CPSTransportTcpSendTest, SendData_PartEndsInsideAChain_GoesOnWhereItEnded)
{
    m_Stack.On("ps_writev").Returns(3);
    const auto chain = Chain(3, "ab");
    EXPECT_EQ(Transport().SendData(*chain, &m_Parameter), MN_ERROR_PARTIAL_DATA);
    EXPECT_EQ(Transport().SendData(*chain, &m_Parameter), MN_OK);
    EXPECT_EQ(m_Parameter.SentLength, 3u);
    EXPECT_EQ(m_Stack.TakeSent(s_nSocket), "ababab");
    const CCalls calls = m_Stack.TakeCalls();
    EXPECT_EQ(calls.back(), "ps_writev(7,[1,2],2)=3");
}

TEST_F(CPSTransportTcpSendTest, SendData_NothingTaken_ReturnsPartialDataAndOneOnSendFollows)
{
    m_Stack.On("ps_writev").Returns(0);
    const auto block = Block("hello");
    m_Parameter.SentLength = 99;
    EXPECT_EQ(Transport().SendData(*block, &m_Parameter), MN_ERROR_PARTIAL_DATA);
    EXPECT_EQ(m_Parameter.SentLength, 0u);
    EXPECT_EQ(Rest(*block), "hello");
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_writev(7,[5],1)=0", WATCH_BOTH}));
    EXPECT_EQ(Turn(s_nSocket, PS_POLLOUT), "7:3");
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{WATCH_READ, "OnSend"}));
    EXPECT_EQ(m_Sink.m_pTransport, &Transport());
    EXPECT_EQ(Turn(s_nSocket, PS_POLLOUT), "7:1");
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSTransportTcpSendTest, SendData_TwoBlocked_GiveOneOnSend)
{
    m_Stack.On("ps_writev").Returns(0).Times(2);
    const auto block = Block("hello");
    EXPECT_EQ(Transport().SendData(*block, nullptr), MN_ERROR_PARTIAL_DATA);
    EXPECT_EQ(Transport().SendData(*block, nullptr), MN_ERROR_PARTIAL_DATA);
    m_Stack.TakeCalls();
    Turn(s_nSocket, PS_POLLOUT);
    Turn(s_nSocket, PS_POLLOUT);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{WATCH_READ, "OnSend"}));
}

TEST_F(CPSTransportTcpSendTest, SendData_BlockedAgainAfterOnSend_GivesAnotherOnSend)
{
    const auto block = Block("hello");
    for (int round = 0; round < 2; ++round) {
        m_Stack.On("ps_writev").Returns(1);
        EXPECT_EQ(Transport().SendData(*block, nullptr), MN_ERROR_PARTIAL_DATA);
        m_Stack.TakeCalls();
        Turn(s_nSocket, PS_POLLOUT);
        EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{WATCH_READ, "OnSend"}));
    }
}

TEST_F(CPSTransportTcpSendTest, SendData_RegistrationFails_IsIgnored)
{
    m_Stack.On("ps_writev").Returns(0);
    m_Reactor.Refuse("RegisterHandler", MN_ERROR_INVALID_ARG);
    EXPECT_EQ(Transport().SendData(*Block("x"), nullptr), MN_ERROR_PARTIAL_DATA);
}

TEST_F(CPSTransportTcpSendTest, SendData_1025Pieces_SendsThe1024AndSaysSo)
{
    const auto chain = Chain(1025, "x");
    EXPECT_EQ(Transport().SendData(*chain, &m_Parameter), MN_ERROR_PARTIAL_DATA);
    EXPECT_EQ(m_Parameter.SentLength, 1024u);
    EXPECT_EQ(chain->GetChainedLength(), 1u);
    EXPECT_EQ(m_Stack.CountOf("ps_writev"), 1u);
    EXPECT_EQ(m_Stack.TakeCalls().back(), WATCH_BOTH);
}

TEST_F(CPSTransportTcpSendTest, SendData_1024Pieces_AreOneWrite)
{
    const auto chain = Chain(1024, "xy");
    EXPECT_EQ(Transport().SendData(*chain, &m_Parameter), MN_OK);
    EXPECT_EQ(m_Parameter.SentLength, 2048u);
    EXPECT_EQ(m_Stack.CountOf("ps_writev"), 1u);
}

TEST_F(CPSTransportTcpSendTest, SendData_NotOpened_WritesAllTheSame)
{
    CPSTransportTcp fresh(&m_Reactor);
    fresh.GetPeer().SetHandle(8);
    EXPECT_EQ(fresh.SendData(*Block("x"), nullptr), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_writev(8,[1],1)=1"}));
}

TEST_F(CPSTransportTcpSendTest, OnOutput_NothingOwed_RestoresTheWatchAndIsSilent)
{
    EXPECT_EQ(Transport().OnOutput(s_nSocket), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"RegisterHandler(7,4)=0"}));
}

TEST_F(CPSTransportTcpSendTest, OnOutput_Owed_WatchIsReadOnlyBeforeTheSinkIsTold)
{
    m_Stack.On("ps_writev").Returns(0).Times(2);
    const auto block = Block("hello");
    Transport().SendData(*block, nullptr);
    m_Stack.TakeCalls();
    // A send from inside that blocks again asks for room again, and that stays.
    m_Sink.m_AtSend = [&block](IPSTransport* transport) {
        EXPECT_EQ(transport->SendData(*block, nullptr), MN_ERROR_PARTIAL_DATA);
    };
    Turn(s_nSocket, PS_POLLOUT);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{WATCH_READ, "OnSend", "ps_writev(7,[5],1)=0", WATCH_BOTH}));
    m_Sink.m_AtSend = nullptr;
    EXPECT_EQ(Turn(s_nSocket, PS_POLLOUT), "7:3");
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{WATCH_READ, "OnSend"}));
}

TEST_F(CPSTransportTcpSendTest, OnOutput_OwedWithoutSink_CallsNobody)
{
    CPSTransportTcp fresh(&m_Reactor);
    fresh.GetPeer().SetHandle(8);
    EXPECT_EQ(fresh.OnOutput(8), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"RegisterHandler(8,4)=0"}));
}

TEST_F(CPSTransportTcpSendTest, OnOutput_SinkReleasesTheLastReference_DeletesOnTheNextTurn)
{
    m_Stack.On("ps_writev").Returns(0);
    Transport().SendData(*Block("x"), nullptr);
    m_Sink.m_AtSend = [this](IPSTransport* transport) {
        transport->Disconnect(0);
        m_pTransport = nullptr;
    };
    Turn(s_nSocket, PS_POLLOUT);
    EXPECT_EQ(NewLiveObjects(), 1);
    Turn();
    EXPECT_EQ(NewLiveObjects(), 0);
}

TEST_F(CPSTransportTcpSendTest, OnOutput_SinkAnswersACode_StaysRegistered)
{
    m_Stack.On("ps_writev").Returns(0);
    Transport().SendData(*Block("x"), nullptr);
    m_Sink.m_dwAnswer = MN_ERROR_FAILURE;
    Turn(s_nSocket, PS_POLLOUT);
    EXPECT_EQ(Turn(), "7:1");
}

TEST_F(CPSTransportTcpSendTest, SendInternal_TakenInPart_ReturnsZeroAndWatchesForNothing)
{
    m_Stack.On("ps_writev").Returns(2);
    const auto block = Block("hello");
    EXPECT_EQ(Transport().SendInternal(*block), MN_OK);
    EXPECT_EQ(Rest(*block), "llo");
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_writev(7,[5],1)=2"}));
    Turn(s_nSocket, PS_POLLOUT);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSTransportTcpSendTest, SendInternal_NothingTaken_ReturnsZero)
{
    m_Stack.On("ps_writev").Returns(0);
    const auto block = Block("hello");
    EXPECT_EQ(Transport().SendInternal(*block), MN_OK);
    EXPECT_EQ(Rest(*block), "hello");
}

TEST_F(CPSTransportTcpSendTest, SendInternal_SocketFailed_ReturnsSocketError)
{
    m_Stack.On("ps_writev").Fails(PS_ECONNRESET);
    const auto block = Block("hello");
    EXPECT_EQ(Transport().SendInternal(*block), MN_ERROR_NETWORK_SOCKET_ERROR);
    EXPECT_EQ(Rest(*block), "hello");
}

// The flag that owes an OnSend starts set.
class CPSTransportTcpFreshTest : public TransportTcpTest
{
};

TEST_F(CPSTransportTcpFreshTest, OnOutput_FreshTransport_GivesOneOnSend)
{
    Open();
    EXPECT_EQ(Transport().OnOutput(s_nSocket), 0);
    EXPECT_EQ(Transport().OnOutput(s_nSocket), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"RegisterHandler(7,4)=0", "OnSend", "RegisterHandler(7,4)=0"}));
}

TEST_F(CPSTransportTcpFreshTest, Open_WritableSocket_IsNotAskedForRoom)
{
    Open();
    EXPECT_EQ(Turn(s_nSocket, PS_POLLOUT), "7:1");
    EXPECT_EQ(m_Stack.TakeCallsOf("ps_recv"), CCalls());
}

}  // namespace
}  // namespace uxport
