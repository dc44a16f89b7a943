#include "examples/udp-echo/CEchoServer.h"

#include <gtest/gtest.h>

#include <deque>

#include "tests/unit/examples/CScriptedTransport.h"

using mantle::CMNTimeValue;

namespace
{

constexpr std::size_t MOST = 3;
constexpr long IDLE = 60;

class CEchoServerTest : public testing::Test
{
protected:
    ~CEchoServerTest() override
    {
        m_Server.Stop();
        for (const CScriptedTransport& peer : m_Peers) {
            EXPECT_EQ(0u, peer.m_dwReferences);
            EXPECT_EQ(1, peer.m_nDisconnects);
        }
        EXPECT_EQ(0u, m_Timers.GetTimers());
    }

    CScriptedTransport& Come()
    {
        CScriptedTransport& peer = m_Peers.emplace_back();
        peer.m_nRoom = 1000;
        m_Server.OnConnectIndication(0, &peer, nullptr);
        return peer;
    }
    void Pass(long seconds) { m_Timers.Pass(CMNTimeValue(seconds, 0)); }

    CHandMovedTimers m_Timers;
    std::deque<CScriptedTransport> m_Peers;
    CEchoServer m_Server{MOST, IDLE};
};

TEST_F(CEchoServerTest, Peers_Say_HearTheirOwn)
{
    CScriptedTransport& one = Come();
    CScriptedTransport& two = Come();
    one.Receive("one");
    two.Receive("two");
    EXPECT_EQ("one", one.m_strSent);
    EXPECT_EQ("two", two.m_strSent);
    EXPECT_EQ(2u, m_Server.GetMost());
}

// A peer was kept for ever.
TEST_F(CEchoServerTest, PeerSilent_TimePasses_Forgotten)
{
    CScriptedTransport& one = Come();
    CScriptedTransport& two = Come();
    Pass(IDLE - 1);
    two.Receive("still here");
    EXPECT_EQ(0, one.m_nDisconnects);
    Pass(1);
    EXPECT_EQ(1, one.m_nDisconnects);
    EXPECT_EQ(0, two.m_nDisconnects);
    Pass(IDLE - 1);
    EXPECT_EQ(1, two.m_nDisconnects);
    EXPECT_EQ(2u, m_Server.GetIdle());
}

// Their number had no bound.
TEST_F(CEchoServerTest, AllPlacesTaken_AnotherComes_LongestSilentGivesWay)
{
    CScriptedTransport& one = Come();
    CScriptedTransport& two = Come();
    CScriptedTransport& three = Come();
    one.Receive("not the longest");
    CScriptedTransport& four = Come();
    EXPECT_EQ(1, two.m_nDisconnects);
    EXPECT_EQ(0, one.m_nDisconnects + three.m_nDisconnects + four.m_nDisconnects);
    for (int i = 0; i < 1000; ++i)
        Come();
    EXPECT_EQ(MOST, m_Server.GetMost());
    EXPECT_EQ(1001u, m_Server.GetDisplaced());
    EXPECT_EQ(MOST, m_Timers.GetTimers());
    EXPECT_EQ(0u, m_Server.GetIdle());
}

TEST_F(CEchoServerTest, PeerEnds_AnotherComes_NobodyGivesWay)
{
    CScriptedTransport& one = Come();
    Come();
    Come();
    one.m_pSink->OnDisconnect(0, &one);
    EXPECT_EQ(1, one.m_nDisconnects);
    Come();
    EXPECT_EQ(0u, m_Server.GetDisplaced());
}

}  // namespace
