// What only the UDP acceptor does: the table that all share, children that a stop closes.
#include "acceptor/CPSAcceptorUdp.h"

#include "tests/unit/doubles/AcceptorDatagramTest.h"

namespace uxport
{
namespace
{

class CPSAcceptorUdpTest : public AcceptorDatagramTest
{
protected:
    std::size_t InTable() const { return CPSUdpTransportHashMap::s_pUdpTransports->GetCount(); }
};

INSTANTIATE_TEST_SUITE_P(Protocol, CPSAcceptorUdpTest, testing::Values(EDatagram::UDP),
                         testing::PrintToStringParamName());

TEST_P(CPSAcceptorUdpTest, StartListen_BindFails_ReturnsFailureAndLeavesNothing)
{
    m_Stack.On("ps_bind").Fails(PS_EADDRINUSE);
    EXPECT_EQ(Start(), MN_ERROR_FAILURE);
    EXPECT_EQ(m_Stack.TakeCalls(),
              (CCalls{"ps_socket(2,2,0)=7", "ps_bind(7,10.0.0.1:53{16,2},16)=-1", "ps_close(7)=0"}));
    EXPECT_EQ(Handler().GetHandle(), -1);
    EXPECT_EQ(Start(), MN_OK);
}

TEST_P(CPSAcceptorUdpTest, SecondAcceptor_Constructed_SharesTheTable)
{
    const CPSUdpTransportHashMap* map = CPSUdpTransportHashMap::s_pUdpTransports;
    ASSERT_NE(map, nullptr);
    const mantle::CMNAutoPtr<CPSAcceptorBase> second(Make());
    EXPECT_EQ(CPSUdpTransportHashMap::s_pUdpTransports, map);
}

TEST_P(CPSAcceptorUdpTest, LastAcceptor_Gone_TableStays)
{
    m_pAcceptor = nullptr;
    EXPECT_NE(CPSUdpTransportHashMap::s_pUdpTransports, nullptr);
}

TEST_P(CPSAcceptorUdpTest, TwoAcceptors_OneStops_OnlyItsOwnEntriesGo)
{
    Listen();
    Arrive(m_PeerA, "x");
    mantle::CMNAutoPtr<CPSAcceptorBase> first(m_pAcceptor);
    m_pAcceptor = Make();
    ASSERT_EQ(m_pAcceptor->StartListen(&m_Sink, CMNInetAddr("10.0.0.1", 54), 0, 0), MN_OK);
    Arrive(m_PeerA, "y");
    EXPECT_EQ(m_Sink.m_nIndications, 2);
    EXPECT_EQ(InTable(), 2u);
    EXPECT_EQ(HandleOf(Kept(0)), 7);
    EXPECT_EQ(HandleOf(Kept(1)), 8);

    EXPECT_EQ(first->StopListen(0), MN_OK);
    EXPECT_EQ(InTable(), 1u);
    EXPECT_EQ(HandleOf(Kept(0)), -1);
    EXPECT_EQ(HandleOf(Kept(1)), 8);
    m_Stack.TakeCalls();
    Arrive(m_PeerA, "z");
    EXPECT_EQ(m_Stack.TakeCalls(),
              (CCalls{Received("10.0.0.2:4000", 1, 8), "2: OnReceive(z)", "ps_recvfrom(8,65535,0,28)=0"}));
}

TEST_P(CPSAcceptorUdpTest, StopListen_Children_ForgetTheSocketAndAreClosed)
{
    Listen();
    Arrive(m_PeerA, "x");
    m_Stack.TakeCalls();
    EXPECT_EQ(m_pAcceptor->StopListen(0), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), m_Stopping);
    EXPECT_EQ(InTable(), 0u);
    EXPECT_EQ(HandleOf(Kept()), -1);
    EXPECT_EQ(Send(Kept(), "x"), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(Kept().Disconnect(0), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_P(CPSAcceptorUdpTest, StopAndStart_PeerSendsAgain_IsNewAndALateReleaseLeavesTheSuccessor)
{
    Listen();
    Arrive(m_PeerA, "x");
    m_pAcceptor->StopListen(0);
    m_Stack.SetNextHandle(8);
    ASSERT_EQ(Start(), MN_OK);
    Arrive(m_PeerA, "y");
    EXPECT_EQ(m_Sink.m_nIndications, 2);
    EXPECT_EQ(HandleOf(Kept(1)), 8);
    m_Kept.erase(m_Kept.begin());
    Turn();
    EXPECT_EQ(InTable(), 1u);
    m_Stack.TakeCalls();
    Arrive(m_PeerA, "z");
    EXPECT_EQ(m_Stack.TakeCalls().at(1), "2: OnReceive(z)");
}

TEST_P(CPSAcceptorUdpTest, StopAndStart_HandleIsTheSame_OldChildStillDoesNotTouchTheSuccessor)
{
    Listen();
    Arrive(m_PeerA, "x");
    m_pAcceptor->StopListen(0);
    m_Stack.SetNextHandle(s_nSocket);
    ASSERT_EQ(Start(), MN_OK);
    Arrive(m_PeerA, "y");
    EXPECT_EQ(Kept(0).Disconnect(0), MN_OK);
    EXPECT_EQ(InTable(), 1u);
    EXPECT_EQ(Send(Kept(1), "x"), MN_OK);
}

TEST_P(CPSAcceptorUdpTest, TwoAcceptors_BothGivenPortZero_ShareTheirPeers)
{
    const CMNInetAddr zero("10.0.0.1", 0);
    ASSERT_EQ(m_pAcceptor->StartListen(&m_Sink, zero, 0, 0), MN_OK);
    Arrive(m_PeerA, "x");
    mantle::CMNAutoPtr<CPSAcceptorBase> first(m_pAcceptor);
    m_pAcceptor = Make();
    ASSERT_EQ(m_pAcceptor->StartListen(&m_Sink, zero, 0, 0), MN_OK);
    Arrive(m_PeerA, "y");
    EXPECT_EQ(m_Sink.m_nIndications, 1);
    EXPECT_EQ(DataSink().m_pTransport, &Kept());
}

TEST_P(CPSAcceptorUdpTest, TableGone_EverythingGoesOn_TouchesNothing)
{
    Listen();
    Arrive(m_PeerA, "x");
    Arrive(m_PeerB, "x");
    m_Kept.pop_back();
    delete CPSUdpTransportHashMap::s_pUdpTransports;
    EXPECT_EQ(CPSUdpTransportHashMap::s_pUdpTransports, nullptr);
    EXPECT_EQ(m_pAcceptor->GetReferenceCount(), 3u);
    Turn();
    EXPECT_EQ(m_pAcceptor->GetReferenceCount(), 2u);
    Arrive(m_PeerA, "y");
    EXPECT_EQ(m_Sink.m_nIndications, 2);
    EXPECT_EQ(Remove(m_PeerA), MN_OK);
    EXPECT_EQ(Kept().Disconnect(0), MN_OK);
    EXPECT_EQ(m_pAcceptor->StopListen(0), MN_OK);
    m_Kept.clear();
    m_pAcceptor = nullptr;
    Turn();
    EXPECT_EQ(NewLiveObjects(), 0);
}

}  // namespace
}  // namespace uxport
