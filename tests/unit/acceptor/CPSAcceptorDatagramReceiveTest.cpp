// Datagrams, peers, and what a sink may do meanwhile.
#include "acceptor/CPSAcceptorDatagramT.h"

#include <algorithm>
#include <functional>

#include "tests/unit/doubles/AcceptorDatagramTest.h"

namespace uxport
{
namespace
{

class CPSAcceptorDatagramReceiveTest : public AcceptorDatagramTest
{
protected:
    void SetUp() override
    {
        AcceptorDatagramTest::SetUp();
        Listen();
    }

    // What a sink does to its acceptor and its transports, in every order that matters.
    using CDeed = std::function<void()>;
    std::vector<CDeed> Deeds()
    {
        const CDeed stop = [this] { m_pAcceptor->StopListen(0); };
        const CDeed disconnect = [this] { Kept().Disconnect(0); };
        const CDeed releaseAcceptor = [this] { m_pAcceptor = nullptr; };
        const CDeed releaseTransports = [this] { m_Kept.clear(); };
        const CDeed remove = [this] { Remove(m_PeerA); };
        return {
            [=] {
                stop();
                releaseAcceptor();
                releaseTransports();
            },
            [=] {
                releaseAcceptor();
                releaseTransports();
            },
            [=] {
                releaseTransports();
                releaseAcceptor();
            },
            [=] {
                disconnect();
                releaseTransports();
                releaseAcceptor();
            },
            [=] {
                remove();
                releaseTransports();
                stop();
                releaseAcceptor();
            },
            [=] {
                stop();
                disconnect();
                releaseTransports();
                releaseAcceptor();
            },
        };
    }
    void NewListener()
    {
        m_DataSinks.clear();
        m_Stack.SetNextHandle(s_nSocket);
        m_pAcceptor = Make();
        Listen();
    }
};

INSTANTIATE_DATAGRAM_SUITE(CPSAcceptorDatagramReceiveTest);

TEST_P(CPSAcceptorDatagramReceiveTest, OnInput_NothingWaits_ReturnsZero)
{
    EXPECT_EQ(OnInput(), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{m_strNoMore}));
    EXPECT_EQ(Turn(), "7:1");
}

TEST_P(CPSAcceptorDatagramReceiveTest, OnInput_ReceiveFails_ReturnsWhatItAnswered)
{
    m_Stack.On("ps_recvfrom").Fails(PS_EBADF);
    EXPECT_EQ(OnInput(), -1);
    EXPECT_EQ(m_Sink.m_nIndications, 0);
}

TEST_P(CPSAcceptorDatagramReceiveTest, FirstDatagram_OfAPeer_IsIndicatedThenDeliveredInTheSamePass)
{
    Arrive(m_PeerA, "hello");
    EXPECT_EQ(m_Stack.TakeCalls(),
              (CCalls{Received("10.0.0.2:4000", 5), m_strIndication, "1: OnReceive(hello)", m_strNoMore}));
    EXPECT_EQ(m_Sink.m_pId, m_pAcceptor.Get());
    EXPECT_EQ(m_Sink.m_pTransport, &Kept());
    EXPECT_EQ(DataSink().m_pTransport, &Kept());
}

TEST_P(CPSAcceptorDatagramReceiveTest, SecondDatagram_OfTheSamePeer_GoesToTheSameTransportUnindicated)
{
    Arrives(m_PeerA, "one");
    Arrives(m_PeerA, "two");
    EXPECT_EQ(OnInput(), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{Received("10.0.0.2:4000", 3), m_strIndication, "1: OnReceive(one)",
                                           Received("10.0.0.2:4000", 3), "1: OnReceive(two)", m_strNoMore}));
    EXPECT_EQ(NewLiveObjects(), 2);
}

TEST_P(CPSAcceptorDatagramReceiveTest, TwoPeers_InOnePass_HaveATransportEach)
{
    Arrives(m_PeerA, "a1");
    Arrives(m_PeerB, "b1");
    Arrives(m_PeerA, "a2");
    EXPECT_EQ(OnInput(), 0);
    EXPECT_EQ(m_Sink.m_nIndications, 2);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{Received("10.0.0.2:4000", 2), m_strIndication, "1: OnReceive(a1)",
                                           Received("10.0.0.3:4000", 2), m_strIndication, "2: OnReceive(b1)",
                                           Received("10.0.0.2:4000", 2), "1: OnReceive(a2)", m_strNoMore}));
    CMNInetAddr peer;
    EXPECT_EQ(Kept(1).GetPeerAddr(peer), MN_OK);
    EXPECT_EQ(peer, m_PeerB);
}

TEST_P(CPSAcceptorDatagramReceiveTest, InputEvent_LargestDatagram_IsDeliveredWholeByTheLoop)
{
    Arrives(m_PeerA, std::string(65507, 'x'));
    Turn(s_nSocket, PS_POLLIN);
    EXPECT_EQ(m_Stack.TakeCalls(),
              (CCalls{Received("10.0.0.2:4000", 65507), m_strIndication, "1: OnReceive(65507 bytes)", m_strNoMore}));
}

TEST_P(CPSAcceptorDatagramReceiveTest, Sink_OpensLater_LosesWhatCameBefore)
{
    m_Sink.m_AtIndication = [this](IPSTransport* transport) { m_Kept.emplace_back(transport); };
    Arrive(m_PeerA, "lost");
    Arrive(m_PeerA, "lost too");
    Keep(&Kept());
    Arrive(m_PeerA, "heard");
    EXPECT_EQ(m_Sink.m_nIndications, 1);
    const CCalls calls = m_Stack.TakeCalls();
    EXPECT_EQ(std::count_if(calls.begin(), calls.end(),
                            [](const std::string& call) { return call.find("OnReceive") != std::string::npos; }),
              1);
    EXPECT_EQ(calls.at(calls.size() - 2), "1: OnReceive(heard)");
}

TEST_P(CPSAcceptorDatagramReceiveTest, Sink_KeepsNothing_TransportLivesInTheTable)
{
    CRecordingTransportSink data;
    m_Sink.m_AtIndication = [&data](IPSTransport* transport) { EXPECT_EQ(transport->OpenWithSink(&data), MN_OK); };
    Arrive(m_PeerA, "one");
    Turn();
    Turn();
    EXPECT_EQ(NewLiveObjects(), 2);
    m_Stack.TakeCalls();
    Arrive(m_PeerA, "two");
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{Received("10.0.0.2:4000", 3), "OnReceive(two)", m_strNoMore}));
    m_pAcceptor->StopListen(0);
    m_pAcceptor = nullptr;
}

TEST_P(CPSAcceptorDatagramReceiveTest, Sink_AnswersCodes_AreIgnored)
{
    m_Sink.m_dwAnswer = MN_ERROR_FAILURE;
    Arrive(m_PeerA, "one");
    DataSink().m_dwAnswer = MN_ERROR_FAILURE;
    Arrive(m_PeerA, "two");
    Arrive(m_PeerB, "three");
    EXPECT_EQ(m_Sink.m_nIndications, 2);
}

TEST_P(CPSAcceptorDatagramReceiveTest, EmptyDatagram_BetweenOthers_EndsThePassAndLosesNothingBehind)
{
    Arrives(m_PeerA, "before");
    m_Stack.On("ps_recvfrom").WithAddress("10.0.0.3", 4000).Returns(0);
    Arrives(m_PeerA, "behind");
    EXPECT_EQ(OnInput(), 0);
    EXPECT_EQ(m_Stack.TakeCalls().back(), Received("10.0.0.3:4000", 0));
    EXPECT_EQ(m_Sink.m_nIndications, 1);
    Turn(s_nSocket, PS_POLLIN);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{Received("10.0.0.2:4000", 6), "1: OnReceive(behind)", m_strNoMore}));
}

TEST_P(CPSAcceptorDatagramReceiveTest, Flood_InOnePass_LetsTheLoopGoOn)
{
    Arrive(m_PeerA, "x");
    m_Stack.SetRecording(false);
    m_Stack.Default("ps_recvfrom").WithAddress("10.0.0.2", 4000).WithData("x");
    const unsigned int before = m_Stack.CountOf("ps_recvfrom");
    EXPECT_EQ(OnInput(), 0);
    EXPECT_EQ(m_Stack.CountOf("ps_recvfrom") - before, 1024u);
    m_Stack.SetRecording(true);
    EXPECT_EQ(Turn(), "7:1");
}

TEST_P(CPSAcceptorDatagramReceiveTest, Child_Sends_OnTheSharedSocketToItsPeer)
{
    Arrive(m_PeerA, "x");
    Arrive(m_PeerB, "x");
    m_Stack.TakeCalls();
    EXPECT_EQ(Send(Kept(0), "to a"), MN_OK);
    EXPECT_EQ(Send(Kept(1), "to b"), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_sendto(7,'to a',0,10.0.0.2:4000{16,2},16)=4",
                                           "ps_sendto(7,'to b',0,10.0.0.3:4000{16,2},16)=4"}));
    EXPECT_EQ(Turn(), "7:1");
}

TEST_P(CPSAcceptorDatagramReceiveTest, Child_Disconnects_LeavesTheTableAndTheSocketOpen)
{
    Arrive(m_PeerA, "x");
    Arrive(m_PeerB, "x");
    m_Stack.TakeCalls();
    EXPECT_EQ(Kept(0).Disconnect(0), MN_OK);
    EXPECT_EQ(Kept(0).Disconnect(0), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
    EXPECT_EQ(Send(Kept(0), "x"), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(Send(Kept(1), "x"), MN_OK);
    Arrive(m_PeerB, "still");
    EXPECT_EQ(m_Sink.m_nIndications, 2);
}

TEST_P(CPSAcceptorDatagramReceiveTest, Peer_DisconnectedAndSendsAgain_IsNew)
{
    Arrive(m_PeerA, "one");
    EXPECT_EQ(Kept().Disconnect(0), MN_OK);
    m_Stack.TakeCalls();
    Arrive(m_PeerA, "two");
    EXPECT_EQ(m_Stack.TakeCalls(),
              (CCalls{Received("10.0.0.2:4000", 3), m_strIndication, "2: OnReceive(two)", m_strNoMore}));
    EXPECT_NE(&Kept(0), &Kept(1));
    EXPECT_EQ(Send(Kept(0), "x"), MN_ERROR_NOT_INITIALIZED);
}

TEST_P(CPSAcceptorDatagramReceiveTest, Peer_RemovedAndSendsAgain_IsNewAndTheFirstsReleaseDoesNotHarmIt)
{
    Arrive(m_PeerA, "one");
    EXPECT_EQ(Remove(m_PeerA), MN_OK);
    EXPECT_EQ(Send(Kept(0), "x"), MN_ERROR_NOT_INITIALIZED);
    Arrive(m_PeerA, "two");
    EXPECT_EQ(m_Sink.m_nIndications, 2);
    m_Kept.erase(m_Kept.begin());
    Turn();
    EXPECT_EQ(NewLiveObjects(), 2);
    m_Stack.TakeCalls();
    Arrive(m_PeerA, "three");
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{Received("10.0.0.2:4000", 5), "2: OnReceive(three)", m_strNoMore}));
}

TEST_P(CPSAcceptorDatagramReceiveTest, ChildRelease_LastHolder_LivesOnInTheTableUntilDisconnected)
{
    Arrive(m_PeerA, "one");
    IPSTransport* transport = &Kept();
    m_Kept.clear();
    Turn();
    EXPECT_EQ(NewLiveObjects(), 2);
    EXPECT_EQ(transport->Disconnect(0), MN_OK);
    Turn();
    EXPECT_EQ(NewLiveObjects(), 1);
    EXPECT_EQ(m_Stack.CountOf("ps_close", s_nSocket), 0u);
}

TEST_P(CPSAcceptorDatagramReceiveTest, Indication_SinkDisconnects_NothingIsDeliveredAndNothingStays)
{
    m_Sink.m_AtIndication = [this](IPSTransport* transport) {
        Keep(transport);
        transport->Disconnect(0);
        m_Kept.clear();
    };
    for (int i = 0; i < 3; ++i)
        Arrives(m_PeerA, "x");
    EXPECT_EQ(OnInput(), 0);
    EXPECT_EQ(m_Sink.m_nIndications, 3);
    EXPECT_EQ(m_Stack.TakeCalls().at(2), m_strDeletion);
    Turn();
    EXPECT_EQ(NewLiveObjects(), 1);
}

TEST_P(CPSAcceptorDatagramReceiveTest, Indication_SinkStops_DeliversThisOneAndReadsNoMore)
{
    m_Sink.m_AtIndication = [this](IPSTransport* transport) {
        Keep(transport);
        m_pAcceptor->StopListen(0);
    };
    Arrives(m_PeerA, "one");
    Turn(s_nSocket, PS_POLLIN);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{Received("10.0.0.2:4000", 3), m_strIndication, "RemoveHandler(7,4)=0",
                                           "ps_close(7)=0", "1: OnReceive(one)"}));
    EXPECT_EQ(Send(Kept(), "x"), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(Turn(), "");
}

TEST_P(CPSAcceptorDatagramReceiveTest, Receive_SinkStopsAndStartsAgain_EndsThePassWithTheNewListenerUnharmed)
{
    Arrive(m_PeerA, "one");
    DataSink().m_AtReceive = [this](CMNMessageBlock&, IPSTransport*) {
        m_pAcceptor->StopListen(0);
        EXPECT_EQ(Start(), MN_OK);
    };
    m_Stack.SetNextHandle(8);
    Arrives(m_PeerA, "two");
    Turn(s_nSocket, PS_POLLIN);
    EXPECT_EQ(m_Stack.CountOf("ps_recvfrom", 8), 0u);
    EXPECT_EQ(Turn(), "8:1");
}

TEST_P(CPSAcceptorDatagramReceiveTest, Indication_SinkDoesAnythingAndReleasesEverything_DiesAfterThePass)
{
    const std::size_t deeds = Deeds().size();
    for (std::size_t i = 0; i < deeds; ++i) {
        m_Sink.m_AtIndication = [this, i](IPSTransport* transport) {
            Keep(transport);
            Deeds().at(i)();
        };
        Arrives(m_PeerA, "x");
        Turn(s_nSocket, PS_POLLIN);
        EXPECT_EQ(Turn(), "") << i;
        EXPECT_EQ(NewLiveObjects(), 0) << i;
        EXPECT_EQ(m_Stack.CountOf("ps_close", s_nSocket), i + 1) << i;
        EXPECT_EQ(m_Stack.CountOf("ps_recvfrom"), i + 1) << i;
        NewListener();
    }
}

TEST_P(CPSAcceptorDatagramReceiveTest, Receive_SinkDoesAnythingAndReleasesEverything_DiesAfterThePass)
{
    const std::size_t deeds = Deeds().size();
    for (std::size_t i = 0; i < deeds; ++i) {
        Arrive(m_PeerA, "first");
        DataSink().m_AtReceive = [this, i](CMNMessageBlock& data, IPSTransport*) {
            Deeds().at(i)();
            EXPECT_EQ(Rest(data), "second");
        };
        const unsigned int receives = m_Stack.CountOf("ps_recvfrom");
        Arrives(m_PeerA, "second");
        Turn(s_nSocket, PS_POLLIN);
        EXPECT_EQ(Turn(), "") << i;
        EXPECT_EQ(NewLiveObjects(), 0) << i;
        EXPECT_EQ(m_Stack.CountOf("ps_close", s_nSocket), i + 1) << i;
        EXPECT_EQ(m_Stack.CountOf("ps_recvfrom"), receives + 1) << i;
        NewListener();
    }
}

TEST_P(CPSAcceptorDatagramReceiveTest, Receive_SinkReleasesItsTransport_TransportOutlivesTheCall)
{
    Arrive(m_PeerA, "one");
    DataSink().m_AtReceive = [this](CMNMessageBlock&, IPSTransport* transport) {
        transport->Disconnect(0);
        m_Kept.clear();
        EXPECT_EQ(transport->GetSink(), nullptr);
    };
    Arrives(m_PeerA, "two");
    Arrives(m_PeerA, "three");
    EXPECT_EQ(OnInput(), 0);
    EXPECT_EQ(m_Sink.m_nIndications, 2);
}

}  // namespace
}  // namespace uxport
