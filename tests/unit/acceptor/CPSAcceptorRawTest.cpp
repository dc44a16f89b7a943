// What only the raw acceptor does: a table of its own that lasts over a stop.
#include "acceptor/CPSAcceptorRaw.h"

#include "tests/unit/doubles/AcceptorDatagramTest.h"

namespace uxport
{
namespace
{

class CPSAcceptorRawTest : public AcceptorDatagramTest
{
protected:
    void Restart(int handle = 8)
    {
        m_pAcceptor->StopListen(0);
        m_Stack.SetNextHandle(handle);
        ASSERT_EQ(Start(), MN_OK);
        m_Stack.TakeCalls();
    }
};

INSTANTIATE_TEST_SUITE_P(Protocol, CPSAcceptorRawTest, testing::Values(EDatagram::RAW),
                         testing::PrintToStringParamName());

TEST_P(CPSAcceptorRawTest, StartListen_AnyAddress_IsNotBound)
{
    Listen();
    EXPECT_EQ(m_Stack.CountOf("ps_bind", s_nSocket), 0u);
}

TEST_P(CPSAcceptorRawTest, StartListen_Family10_OpensAnIpv6SocketAndTakesIpv6Sources)
{
    ASSERT_EQ(m_pAcceptor->StartListen(&m_Sink, CMNInetAddr("::", 0), 10, 58), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls().front(), "ps_socket(10,3,58)=7");
    const CMNInetAddr peer("fe80::2", 0);
    Arrives(peer, "one");
    Arrives(peer, "two");
    EXPECT_EQ(OnInput(), 0);
    EXPECT_EQ(m_Sink.m_nIndications, 1);
    m_Stack.TakeCalls();
    EXPECT_EQ(Send(Kept(), "x"), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_sendto(7,'x',0,[fe80::2]:0{28,10},28)=1"}));
}

TEST_P(CPSAcceptorRawTest, StopListen_Children_StayInTheTableAndAreClosedMeanwhile)
{
    Listen();
    Arrive(m_PeerA, "x");
    m_pAcceptor->StopListen(0);
    EXPECT_EQ(Send(Kept(), "x"), MN_ERROR_NOT_INITIALIZED);
    m_Kept.clear();
    Turn();
    EXPECT_EQ(NewLiveObjects(), 2);
}

TEST_P(CPSAcceptorRawTest, StopAndStart_PeerSendsAgain_ItsTransportGetsTheNewSocket)
{
    Listen();
    Arrive(m_PeerA, "x");
    Restart();
    Arrive(m_PeerA, "y");
    EXPECT_EQ(m_Sink.m_nIndications, 1);
    EXPECT_EQ(m_Stack.TakeCalls(),
              (CCalls{Received("10.0.0.2:4000", 1, 8), "1: OnReceive(y)", "ps_recvfrom(8,65535,0,28)=0"}));
    EXPECT_EQ(HandleOf(Kept()), 8);
    EXPECT_EQ(Send(Kept(), "z"), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_sendto(8,'z',0,10.0.0.2:4000{16,2},16)=1"}));
}

TEST_P(CPSAcceptorRawTest, StopAndStart_SinkAnswersInsideTheReceive_OnTheNewSocket)
{
    Listen();
    Arrive(m_PeerA, "x");
    DataSink().m_AtReceive = [](CMNMessageBlock&, IPSTransport* transport) {
        EXPECT_EQ(Send(*transport, "answer"), MN_OK);
    };
    Restart();
    Arrive(m_PeerA, "y");
    EXPECT_EQ(m_Stack.TakeCallsOf("ps_sendto"), (CCalls{"ps_sendto(8,'answer',0,10.0.0.2:4000{16,2},16)=6"}));
}

TEST_P(CPSAcceptorRawTest, StopAndStart_DisconnectedInBetween_KeepsItsEntryAndDropsWhatComes)
{
    Listen();
    Arrive(m_PeerA, "x");
    m_pAcceptor->StopListen(0);
    EXPECT_EQ(Kept().Disconnect(0), MN_OK);
    Restart();
    Arrive(m_PeerA, "y");
    EXPECT_EQ(m_Sink.m_nIndications, 1);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{Received("10.0.0.2:4000", 1, 8), "ps_recvfrom(8,65535,0,28)=0"}));
}

TEST_P(CPSAcceptorRawTest, StopAndStart_OtherListeningAddress_PeersAreNew)
{
    Listen();
    Arrive(m_PeerA, "x");
    m_pAcceptor->StopListen(0);
    ASSERT_EQ(m_pAcceptor->StartListen(&m_Sink, CMNInetAddr("10.0.0.9", 53), s_wNumber1, s_wNumber2), MN_OK);
    Arrive(m_PeerA, "y");
    EXPECT_EQ(m_Sink.m_nIndications, 2);
}

TEST_P(CPSAcceptorRawTest, StoppedWithPeersInTheTable_LastHolderReleases_TableIsEmptied)
{
    Listen();
    Arrive(m_PeerA, "x");
    Arrive(m_PeerB, "x");
    m_Kept.clear();
    m_pAcceptor->StopListen(0);
    m_pAcceptor = nullptr;
    Turn();
    EXPECT_EQ(NewLiveObjects(), 0);
}

TEST_P(CPSAcceptorRawTest, TwoAcceptors_SameAddress_HaveTablesOfTheirOwn)
{
    Listen();
    Arrive(m_PeerA, "x");
    mantle::CMNAutoPtr<CPSAcceptorBase> first(m_pAcceptor);
    m_pAcceptor = Make();
    ASSERT_EQ(Start(), MN_OK);
    Arrive(m_PeerA, "y");
    EXPECT_EQ(m_Sink.m_nIndications, 2);
}

}  // namespace
}  // namespace uxport
