// The transports with a socket of their own; children are shown with their acceptors.
#include "transport/CPSTransportDatagramT.h"

#include <type_traits>

#include "tests/unit/doubles/TransportDatagramTest.h"

namespace uxport
{
namespace
{

static_assert(std::is_base_of_v<CPSTransportBase, CPSTransportUdp> &&
              std::is_base_of_v<CPSTransportBase, CPSTransportRaw>);

const std::vector<std::string> OPENING = {
    "ps_setsockopt(7,4095,4097,65535,8)=0", "ps_setsockopt(7,4095,4098,65535,8)=0",
    "ps_set_snd_rcv_buffer(7,65535,65535)=0", "ps_socket_nonblock(7)=0", "RegisterHandler(7,4)=0"};
const std::vector<std::string> CLOSING = {"RemoveHandler(7,63)=0", "ps_close(7)=0"};

class CPSTransportDatagramTTest : public TransportDatagramTest
{
protected:
    // The opening's first calls, the one that fails, the closing.
    static CCalls Failing(std::size_t count, const std::string& failure)
    {
        CCalls calls(OPENING.begin(), OPENING.begin() + static_cast<std::ptrdiff_t>(count));
        calls.push_back(failure);
        calls.insert(calls.end(), CLOSING.begin(), CLOSING.end());
        return calls;
    }
};

INSTANTIATE_DATAGRAM_SUITE(CPSTransportDatagramTTest);

TEST_P(CPSTransportDatagramTTest, Constructor_NoAcceptor_CallsNothing)
{
    EXPECT_EQ(Transport().GetHandle(), s_nSocket);
    EXPECT_EQ(Transport().GetSink(), nullptr);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
    EXPECT_EQ(NewLiveObjects(), 1);
}

TEST_P(CPSTransportDatagramTTest, OpenWithSink_OwnSocket_TunesAndRegistersForReading)
{
    EXPECT_EQ(Transport().OpenWithSink(&m_Sink), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), OPENING);
    EXPECT_EQ(Turn(), "7:1");
}

TEST_P(CPSTransportDatagramTTest, OpenWithSink_TuningRefused_IsIgnored)
{
    m_Stack.Default("ps_setsockopt").Fails(PS_EINVAL);
    m_Stack.Default("ps_set_snd_rcv_buffer").Fails(PS_EINVAL);
    EXPECT_EQ(Transport().OpenWithSink(&m_Sink), MN_OK);
}

TEST_P(CPSTransportDatagramTTest, OpenWithSink_NonBlockingRefused_ClosesAndReturnsFailure)
{
    m_Stack.On("ps_socket_nonblock").Fails(PS_EBADF);
    EXPECT_EQ(Transport().OpenWithSink(&m_Sink), MN_ERROR_FAILURE);
    EXPECT_EQ(m_Stack.TakeCalls(), Failing(3, "ps_socket_nonblock(7)=-1"));
    EXPECT_EQ(Transport().GetSink(), nullptr);
    EXPECT_EQ(Transport().GetHandle(), -1);
}

TEST_P(CPSTransportDatagramTTest, OpenWithSink_RegistrationFails_ClosesAndReturnsTheCode)
{
    m_Reactor.Refuse("RegisterHandler", MN_ERROR_UNEXPECTED);
    EXPECT_EQ(Transport().OpenWithSink(&m_Sink), MN_ERROR_UNEXPECTED);
    EXPECT_EQ(m_Stack.TakeCalls(), Failing(4, "RegisterHandler(7,4)=10006"));
}

TEST_P(CPSTransportDatagramTTest, OpenWithSink_HandleRegisteredBefore_CountsAsSuccess)
{
    m_Reactor.Refuse("RegisterHandler", MN_ERROR_FOUND);
    EXPECT_EQ(Transport().OpenWithSink(&m_Sink), MN_OK);
    EXPECT_EQ(Transport().GetSink(), &m_Sink);
}

TEST_P(CPSTransportDatagramTTest, Disconnect_OpenAndAgain_RemovesThenClosesOnce)
{
    Open();
    EXPECT_EQ(Transport().Disconnect(5), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), CLOSING);
    EXPECT_EQ(Transport().GetHandle(), -1);
    EXPECT_EQ(Transport().Disconnect(5), MN_OK);
    EXPECT_EQ(Transport().Close_t(0), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_P(CPSTransportDatagramTTest, LastRelease_Open_ClosesOnTheNextTurn)
{
    Open();
    m_pTransport = nullptr;
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ScheduleTimer(0,0s0us,1)=0"}));
    EXPECT_EQ(Turn(), "");
    EXPECT_EQ(m_Stack.TakeCalls(), CLOSING);
}

TEST_P(CPSTransportDatagramTTest, SendData_OneBlock_GoesOutAsOneDatagram)
{
    Open();
    CPSTransportParameter param;
    param.SentLength = 99;
    auto block = Block("hello");
    EXPECT_EQ(Transport().SendData(*block, &param), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_send(7,'hello',0)=5"}));
    EXPECT_EQ(param.SentLength, 5u);
    EXPECT_EQ(block->GetChainedLength(), 0u);
}

TEST_P(CPSTransportDatagramTTest, SendData_Chain_SendsTheFirstBlockAndCountsTheWholeChain)
{
    Open();
    CPSTransportParameter param;
    auto chain = Chain(3, "abc");
    m_Stack.On("ps_send").Calls([&param] { EXPECT_EQ(param.SentLength, 9u); });
    EXPECT_EQ(Transport().SendData(*chain, &param), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_send(7,'abc',0)=3"}));
    EXPECT_EQ(param.SentLength, 9u);
    EXPECT_EQ(Rest(*chain), "abcabc");
}

TEST_P(CPSTransportDatagramTTest, SendData_FirstBlockEmpty_SendsAnEmptyDatagramAndConsumesNothing)
{
    Open();
    auto chain = Block("");
    chain->Append(Block("behind").release());
    EXPECT_EQ(Transport().SendData(*chain, nullptr), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_send(7,'',0)=0"}));
    EXPECT_EQ(Rest(*chain), "behind");
}

TEST_P(CPSTransportDatagramTTest, SendData_BlockReadInPart_SendsTheRest)
{
    Open();
    auto block = Block("hello");
    block->AdvanceReadPtr(2);
    EXPECT_EQ(Transport().SendData(*block, nullptr), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_send(7,'llo',0)=3"}));
}

TEST_P(CPSTransportDatagramTTest, SendData_StackRefuses_ReturnsFailureKeepsTheDataAndStaysOpen)
{
    Open();
    CPSTransportParameter param;
    auto block = Block("hello");
    m_Stack.On("ps_send").Fails(PS_EMSGSIZE);
    EXPECT_EQ(Transport().SendData(*block, &param), MN_ERROR_FAILURE);
    EXPECT_EQ(param.SentLength, 5u);
    EXPECT_EQ(Rest(*block), "hello");
    EXPECT_EQ(Transport().SendData(*block, &param), MN_OK);
    EXPECT_EQ(Turn(), "7:1");
}

TEST_P(CPSTransportDatagramTTest, SendData_Closed_ReturnsNotInitializedWithNothingCounted)
{
    Transport().Disconnect(0);
    m_Stack.TakeCalls();
    CPSTransportParameter param;
    param.SentLength = 99;
    EXPECT_EQ(Transport().SendData(*Block("hello"), &param), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(Transport().SendData(*Block(""), nullptr), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(param.SentLength, 0u);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_P(CPSTransportDatagramTTest, InputEvent_Datagrams_AreDeliveredOneByOne)
{
    Open();
    m_Stack.On("ps_recv").WithData("one");
    m_Stack.On("ps_recv").WithData(std::string(65507, 'x'));
    Turn(s_nSocket, PS_POLLIN);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_recv(7,65535,0)=3", "OnReceive(one)", "ps_recv(7,65535,0)=65507",
                                           "OnReceive(65507 bytes)", "ps_recv(7,65535,0)=0"}));
    EXPECT_EQ(m_Sink.m_pTransport, &Transport());
}

TEST_P(CPSTransportDatagramTTest, InputEvent_EmptyDatagram_EndsThePassAndLosesNothingBehind)
{
    Open();
    m_Stack.On("ps_recv").Returns(0);
    m_Stack.On("ps_recv").WithData("behind");
    Turn(s_nSocket, PS_POLLIN);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_recv(7,65535,0)=0"}));
    Turn(s_nSocket, PS_POLLIN);
    EXPECT_EQ(m_Stack.TakeCalls().at(1), "OnReceive(behind)");
}

TEST_P(CPSTransportDatagramTTest, InputEvent_ReceiveFails_ClosesAndTellsTheSink)
{
    Open();
    m_Stack.On("ps_recv").Fails(PS_EBADF);
    Turn(s_nSocket, PS_POLLIN);
    EXPECT_EQ(m_Stack.TakeCalls(),
              (CCalls{"ps_recv(7,65535,0)=-1", "RemoveHandler(7,63)=0", "ps_close(7)=0", "OnDisconnect(10001)"}));
    EXPECT_EQ(Turn(), "");
}

TEST_P(CPSTransportDatagramTTest, Receive_SinkDisconnectsAndReleases_IsGoneAfterTheTurn)
{
    Open();
    m_Sink.m_AtReceive = [this](CMNMessageBlock&, IPSTransport* transport) {
        transport->Disconnect(0);
        m_pTransport = nullptr;
    };
    m_Stack.On("ps_recv", s_nSocket).WithData("one");
    m_Stack.Default("ps_recv", -1).Fails(PS_EBADF);
    Turn(s_nSocket, PS_POLLIN);
    EXPECT_EQ(Turn(), "");
    EXPECT_EQ(NewLiveObjects(), 0);
    EXPECT_EQ(m_Stack.CountOf("ps_close", s_nSocket), 1u);
}

TEST_P(CPSTransportDatagramTTest, OnOutput_AskedForByAnother_TellsTheSinkEachTimeAndStays)
{
    EXPECT_EQ(Transport().OnOutput(s_nSocket), 0);
    Open();
    EXPECT_EQ(Transport().OnOutput(s_nSocket), 0);
    EXPECT_EQ(Transport().OnOutput(s_nSocket), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"OnSend", "OnSend"}));
}

}  // namespace
}  // namespace uxport
