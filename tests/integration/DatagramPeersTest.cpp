// Many peers on one UDP or raw acceptor.
#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <set>

#include "acceptor/CPSAcceptorRaw.h"
#include "acceptor/CPSAcceptorUdp.h"
#include "acceptor/CPSUdpTransportHashMap.h"
#include "tests/integration/support/CPeerServer.h"

using namespace uxport;

namespace
{

constexpr unsigned int MANY = 10000;
constexpr unsigned int ROUNDS = 4;
constexpr long HEAP_SLACK = 64 * 1024;

class DatagramPeersTest : public testing::TestWithParam<unsigned long>
{
protected:
    void TearDown() override
    {
        m_Network.Turn();
        EXPECT_EQ(m_lBefore, mantle::CMNLiveObjects::Count());
        if (CPSUdpTransportHashMap::s_pUdpTransports) {
            EXPECT_EQ(0U, CPSUdpTransportHashMap::s_pUdpTransports->GetCount());
        }
    }

    long NewLiveObjects() { return mantle::CMNLiveObjects::Count() - m_lBefore; }
    void Listen()
    {
        m_Network.Run([this] { m_Server.Listen(CForgedLink::OwnAddress()); });
    }
    void Close(bool stop)
    {
        m_Network.Run([this, stop] { m_Server.Close(stop); });
    }

    MNResult RemoveTransport(unsigned int peer)
    {
        IPSAcceptor* acceptor = m_Server.GetAcceptor();
        if (auto* udp = dynamic_cast<CPSAcceptorUdp*>(acceptor)) {
            const CMNInetAddr address(CForgedLink::PeerName(peer), CForgedLink::s_wPeerPort);
            return udp->RemoveTransport(address, nullptr);
        }
        return dynamic_cast<CPSAcceptorRaw&>(*acceptor).RemoveTransport(CMNInetAddr(CForgedLink::PeerName(peer), 0),
                                                                        nullptr);
    }

    // Every peer leaves, half of them by the acceptor, half by their own disconnect.
    void LeaveAll()
    {
        m_Network.Run([this] {
            for (unsigned int peer = 0; peer < m_Server.m_Ends.size(); ++peer) {
                if (peer % 2 == 0) {
                    EXPECT_EQ(MN_OK, RemoveTransport(peer));
                } else {
                    EXPECT_EQ(MN_OK, m_Server.m_Ends[peer]->m_pTransport->Disconnect(0));
                }
            }
            m_Server.m_Ends.clear();
        });
        m_Network.Turn();
    }

    CNetwork m_Network;
    CForgedLink m_Link;
    const long m_lBefore = mantle::CMNLiveObjects::Count();
    CPeerServer m_Server{m_Network, GetParam()};
};

INSTANTIATE_TEST_SUITE_P(Protocol, DatagramPeersTest, testing::Values(CONNECTION_TYPE_UDP, CONNECTION_TYPE_RAW),
                         [](const auto& tested) { return tested.param == CONNECTION_TYPE_UDP ? "Udp" : "Raw"; });

TEST_P(DatagramPeersTest, ThreePeers_AllSend_EachIsAnsweredAtItsAddress)
{
    Listen();
    m_Server.m_bEcho = true;
    ASSERT_TRUE(m_Server.FeedOfEach(m_Link, 3));
    ASSERT_TRUE(m_Server.FeedOfEach(m_Link, 3));
    EXPECT_EQ(3U, m_Server.m_dwIndications);
    std::vector<std::string> output = m_Link.TakeOutput();
    std::sort(output.begin(), output.end());
    EXPECT_EQ((std::vector<std::string>{"10.10.0.0 10.10.0.0", "10.10.0.0 10.10.0.0", "10.10.0.1 10.10.0.1",
                                        "10.10.0.1 10.10.0.1", "10.10.0.2 10.10.0.2", "10.10.0.2 10.10.0.2"}),
              output);
    Close(true);
    m_Network.Run([this] { m_Server.m_Ends.clear(); });
}

TEST_P(DatagramPeersTest, ThreePeers_StopThenRelease_NothingIsLeft)
{
    Listen();
    ASSERT_TRUE(m_Server.FeedOfEach(m_Link, 3));
    EXPECT_EQ(4, NewLiveObjects());
    Close(true);
    m_Network.Turn();
    EXPECT_EQ(4, NewLiveObjects());
    m_Network.Run([this] { m_Server.m_Ends.clear(); });
    m_Network.Turn();
    EXPECT_EQ(0, NewLiveObjects());
}

TEST_P(DatagramPeersTest, OnePeerKept_ReleasedWithoutStop_AnotherPeersDatagramCallsNobody)
{
    Listen();
    ASSERT_TRUE(m_Server.FeedOfEach(m_Link, 1));
    Close(false);
    m_Network.Run([this] {
        m_Link.Input(m_Server.Packet(0));
        m_Link.Input(m_Server.Packet(1));
    });
    m_Network.Turn();
    EXPECT_EQ(1U, m_Server.m_dwIndications);
    EXPECT_EQ(1U, m_Server.m_dwReceived);
    EXPECT_EQ(2, NewLiveObjects());
    m_Network.Run([this] {
        CMNMessageBlock block(1, "x", CMNMessageBlock::DONT_DELETE, 1);
        EXPECT_EQ(MN_ERROR_NOT_INITIALIZED, m_Server.m_Ends.front()->m_pTransport->SendData(block, nullptr));
        m_Server.m_Ends.clear();
    });
    m_Network.Turn();
    EXPECT_EQ(0, NewLiveObjects());
}

TEST_P(DatagramPeersTest, StopAndStart_PeersSendAgain_UdpMakesThemNewAndRawKnowsThem)
{
    Listen();
    m_Server.m_bEcho = true;
    ASSERT_TRUE(m_Server.FeedOfEach(m_Link, 2));
    m_Network.Run([this] {
        EXPECT_EQ(MN_OK, m_Server.GetAcceptor()->StopListen(0));
        m_Server.Listen(CForgedLink::OwnAddress());
    });
    m_Link.TakeOutput();
    ASSERT_TRUE(m_Server.FeedOfEach(m_Link, 2));
    EXPECT_EQ(m_Server.IsUdp() ? 4U : 2U, m_Server.m_dwIndications);
    EXPECT_EQ(2U, m_Link.TakeOutput().size());
    Close(true);
    m_Network.Run([this] { m_Server.m_Ends.clear(); });
}

TEST_P(DatagramPeersTest, TenThousandPeers_ComeLeaveAndComeAgain_EachHasItsOwnSinkAndMemoryReturns)
{
    Listen();
    m_Server.m_bEcho = true;
    std::size_t heap[ROUNDS] = {};
    for (unsigned int round = 0; round < ROUNDS; ++round) {
        SCOPED_TRACE(round);
        ASSERT_TRUE(m_Server.FeedOfEach(m_Link, MANY));
        ASSERT_TRUE(m_Server.FeedOfEach(m_Link, MANY));
        EXPECT_EQ((round + 1) * MANY, m_Server.m_dwIndications);
        EXPECT_EQ((round + 1) * 2 * MANY, m_Server.m_dwReceived);
        EXPECT_EQ(static_cast<long>(MANY) + 1, NewLiveObjects());
        for (const auto& end : m_Server.m_Ends)
            EXPECT_EQ(2, end->m_nReceived);
        const std::vector<std::string> output = m_Link.TakeOutput();
        EXPECT_EQ(2 * MANY, output.size());
        EXPECT_EQ(MANY, std::set<std::string>(output.begin(), output.end()).size());
        LeaveAll();
        EXPECT_EQ(1, NewLiveObjects());
        heap[round] = mallinfo2().uordblks;
    }
    // The first round makes room that is kept.
    EXPECT_LT(static_cast<long>(heap[ROUNDS - 1]) - static_cast<long>(heap[1]), HEAP_SLACK);
    Close(true);
}

TEST_P(DatagramPeersTest, TenThousandPeersKept_ReleasedWithoutStop_AllGoWithThem)
{
    Listen();
    ASSERT_TRUE(m_Server.FeedOfEach(m_Link, MANY));
    Close(false);
    m_Network.Run([this] { m_Server.m_Ends.clear(); });
    m_Network.Turn();
    EXPECT_EQ(0, NewLiveObjects());
}

}  // namespace
