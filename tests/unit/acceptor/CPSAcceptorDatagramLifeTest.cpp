// Children and their acceptor: who keeps whom.
#include "acceptor/CPSAcceptorDatagramT.h"
#include "tests/unit/doubles/AcceptorDatagramTest.h"

namespace uxport
{
namespace
{

class CPSAcceptorDatagramLifeTest : public AcceptorDatagramTest
{
protected:
    void SetUp() override
    {
        AcceptorDatagramTest::SetUp();
        Listen();
    }

    void ArriveThree()
    {
        for (const char* host : {"10.0.0.2", "10.0.0.3", "10.0.0.4"})
            Arrive(CMNInetAddr(host, 4000), "x");
        m_Stack.TakeCalls();
    }

    // Nothing of the acceptor is left but the object: not registered, closed, its sink never called.
    void ExpectServiceOver()
    {
        EXPECT_EQ(m_Stack.TakeCalls(), m_Stopping);
        const int indications = m_Sink.m_nIndications;
        EXPECT_EQ(Turn(s_nSocket, PS_POLLIN), "");
        EXPECT_EQ(m_Stack.CountOf("ps_close", s_nSocket), 1u);
        EXPECT_EQ(m_Sink.m_nIndications, indications);
    }
};

INSTANTIATE_DATAGRAM_SUITE(CPSAcceptorDatagramLifeTest);

TEST_P(CPSAcceptorDatagramLifeTest, References_WithChildren_AreOneMoreForEach)
{
    ArriveThree();
    EXPECT_EQ(m_pAcceptor->GetReferenceCount(), 4u);
    EXPECT_EQ(Kept().Disconnect(0), MN_OK);
    m_Kept.erase(m_Kept.begin());
    Turn();
    EXPECT_EQ(m_pAcceptor->GetReferenceCount(), 3u);
}

TEST_P(CPSAcceptorDatagramLifeTest, ThreePeers_StopThenReleaseAll_NothingIsLeft)
{
    ArriveThree();
    EXPECT_EQ(m_pAcceptor->StopListen(0), MN_OK);
    m_pAcceptor = nullptr;
    EXPECT_EQ(NewLiveObjects(), 4);
    m_Kept.clear();
    Turn();
    EXPECT_EQ(NewLiveObjects(), 0);
    EXPECT_EQ(m_Stack.CountOf("ps_close", s_nSocket), 1u);
}

TEST_P(CPSAcceptorDatagramLifeTest, ThreePeers_ReleaseTransportsThenStopThenRelease_NothingIsLeft)
{
    ArriveThree();
    m_Kept.clear();
    Turn();
    EXPECT_EQ(NewLiveObjects(), 4);
    EXPECT_EQ(m_pAcceptor->StopListen(0), MN_OK);
    m_pAcceptor = nullptr;
    Turn();
    EXPECT_EQ(NewLiveObjects(), 0);
}

TEST_P(CPSAcceptorDatagramLifeTest, ThreePeersInTheTable_ReleaseWithoutStop_NothingIsLeft)
{
    ArriveThree();
    m_Kept.clear();
    m_pAcceptor = nullptr;
    Turn();
    EXPECT_EQ(NewLiveObjects(), 0);
    EXPECT_EQ(m_Stack.CountOf("ps_close", s_nSocket), 1u);
}

TEST_P(CPSAcceptorDatagramLifeTest, OnePeerKept_ReleaseWithoutStop_StopsByItselfAndCallsNobody)
{
    Arrive(m_PeerA, "x");
    m_Stack.TakeCalls();
    m_pAcceptor = nullptr;
    ExpectServiceOver();
    EXPECT_EQ(Send(Kept(), "x"), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(Kept().Disconnect(0), MN_OK);
    EXPECT_EQ(NewLiveObjects(), 2);
    m_Kept.clear();
    Turn();
    EXPECT_EQ(NewLiveObjects(), 0);
}

TEST_P(CPSAcceptorDatagramLifeTest, SecondHolder_ReleasesFirst_ServiceGoesOn)
{
    Arrive(m_PeerA, "x");
    m_Stack.TakeCalls();
    m_pAcceptor->AddReference();
    EXPECT_EQ(m_pAcceptor->ReleaseReference(), 2u);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
    EXPECT_EQ(Turn(), "7:1");
    m_pAcceptor = nullptr;
    ExpectServiceOver();
}

TEST_P(CPSAcceptorDatagramLifeTest, LastChild_DiesOnItsTimer_AcceptorDiesWithItOnTheSameTurn)
{
    Arrive(m_PeerA, "x");
    m_pAcceptor = nullptr;
    m_Stack.TakeCalls();
    m_Kept.clear();
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{m_strDeletion}));
    EXPECT_EQ(NewLiveObjects(), 2);
    Turn();
    EXPECT_EQ(NewLiveObjects(), 0);
}

TEST_P(CPSAcceptorDatagramLifeTest, Receive_SinkReleasesTheLastHolder_StopsBehindThePassOnly)
{
    Arrive(m_PeerA, "one");
    DataSink().m_AtReceive = [this](CMNMessageBlock&, IPSTransport*) {
        m_pAcceptor = nullptr;
        EXPECT_EQ(m_Stack.CountOf("ps_close", s_nSocket), 0u);
        EXPECT_EQ(Send(Kept(), "answer"), MN_OK);
    };
    m_Stack.TakeCalls();
    Arrives(m_PeerA, "two");
    Turn(s_nSocket, PS_POLLIN);
    EXPECT_EQ(m_Stack.TakeCalls(),
              (CCalls{Received("10.0.0.2:4000", 3), "1: OnReceive(two)",
                      "ps_sendto(7,'answer',0,10.0.0.2:4000{16,2},16)=6", "RemoveHandler(7,4)=0", "ps_close(7)=0"}));
    EXPECT_EQ(Turn(), "");
}

TEST_P(CPSAcceptorDatagramLifeTest, ReactorGone_ReleaseAll_NothingIsLeft)
{
    ArriveThree();
    m_Reactor.Close();
    m_Thread.UseReactor(nullptr);
    m_pAcceptor = nullptr;
    m_Kept.clear();
    FireDueTimers();
    EXPECT_EQ(NewLiveObjects(), 0);
}

}  // namespace
}  // namespace uxport
