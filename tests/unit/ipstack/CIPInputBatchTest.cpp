// Packets that are handed in during a burst: what the thread itself sees of them.
#include "platform/ipstack/CIPInputBatch.h"

#include "InputBatchTest.h"
#include "platform/ipstack/CIPCore.h"

namespace
{

using namespace inputbatch;

class CIPInputBatchTest : public InputBatchTest
{
};

TEST_F(CIPInputBatchTest, Burst_Packets_TakenInAtItsEndInOrder)
{
    {
        mantle::CMNBurst burst;
        for (std::uint16_t id = 1; id <= 5; ++id) {
            EXPECT_EQ(Input(m_pLinkA, Ping("10.8.0.1", id)), 0u);
        }
        EXPECT_TRUE(m_BelowA.m_Sent.empty());
        EXPECT_FALSE(ipstack::CIPInputBatch::IsEmpty());
    }
    EXPECT_TRUE(ipstack::CIPInputBatch::IsEmpty());
    ASSERT_EQ(m_BelowA.m_Sent.size(), 5u);
    for (unsigned int index = 0; index < 5; ++index) {
        EXPECT_EQ(IdOf(m_BelowA.m_Sent[index]), index + 1);
    }
    EXPECT_TRUE(m_BelowA.m_bInBurst);  // the answers left together
}

TEST_F(CIPInputBatchTest, NoBurst_Packet_TakenInAtOnceAndAnswerLeavesAlone)
{
    EXPECT_EQ(Input(m_pLinkA, Ping("10.8.0.1", 1)), 0u);
    EXPECT_EQ(m_BelowA.m_Sent.size(), 1u);
    EXPECT_FALSE(m_BelowA.m_bInBurst);
}

TEST_F(CIPInputBatchTest, Burst_AsManyAsOneHoldOfTheLock_TakenInBeforeItsEnd)
{
    mantle::CMNBurst burst;
    for (unsigned int id = 1; id < ipstack::CIPCore::s_dwStretch; ++id) {
        Input(m_pLinkA, Ping("10.8.0.1", static_cast<std::uint16_t>(id)));
    }
    EXPECT_TRUE(m_BelowA.m_Sent.empty());
    Input(m_pLinkA, Ping("10.8.0.1", 1000));
    EXPECT_EQ(m_BelowA.m_Sent.size(), static_cast<std::size_t>(ipstack::CIPCore::s_dwStretch));
}

TEST_F(CIPInputBatchTest, Burst_AnotherLinksPacket_FirstLinksComeFirst)
{
    mantle::CMNBurst burst;
    Input(m_pLinkA, Ping("10.8.0.1", 1));
    Input(m_pLinkB, Ping("10.8.1.1", 2));
    EXPECT_EQ(m_BelowA.m_Sent.size(), 1u);
    EXPECT_TRUE(m_BelowB.m_Sent.empty());
}

TEST_F(CIPInputBatchTest, Burst_OwnReceive_SeesWhatWasHandedIn)
{
    MakeSocket();
    mantle::CMNBurst burst;
    Input(m_pLinkA, Datagram("10.8.0.1", "one"));
    EXPECT_EQ(Receive(), "one");
    Input(m_pLinkA, Datagram("10.8.0.1", "two"));
    EXPECT_EQ(Receive(), "two");
    EXPECT_EQ(Receive(), "");
}

TEST_F(CIPInputBatchTest, Burst_OwnPoll_SeesWhatWasHandedIn)
{
    MakeSocket();
    mantle::CMNBurst burst;
    Input(m_pLinkA, Datagram("10.8.0.1", "one"));
    ps_pollfd entry{m_nSocket, PS_POLLIN, 0};
    EXPECT_EQ(ps_poll(&entry, 1, 0), 1);
    EXPECT_EQ(Receive(), "one");
    Input(m_pLinkA, Datagram("10.8.0.1", "two"));
    EXPECT_EQ(ps_poll(&entry, 1, -1), 1);  // would wait for ever
}

TEST_F(CIPInputBatchTest, Burst_OwnSelect_SeesWhatWasHandedIn)
{
    MakeSocket();
    mantle::CMNBurst burst;
    Input(m_pLinkA, Datagram("10.8.0.1", "one"));
    ps_fdsets sets{};
    sets.read.count = 1;
    sets.read.handles[0] = m_nSocket;
    const ps_timeval now{0, 0};
    EXPECT_EQ(ps_select(0, &sets, &sets, &now), 1);
}

TEST_F(CIPInputBatchTest, Burst_OwnCounters_HaveWhatWasHandedIn)
{
    const std::uint64_t before = socketsupport::GetCounter("link.in");
    mantle::CMNBurst burst;
    Input(m_pLinkA, Ping("10.8.0.1", 1));
    EXPECT_EQ(socketsupport::GetCounter("link.in"), before + 1);
}

TEST_F(CIPInputBatchTest, Burst_PacketThatMayNotPass_KeptAndCountedAtTheEnd)
{
    const std::uint64_t in = socketsupport::GetCounter("link.in");
    const std::uint64_t notOurs = socketsupport::GetCounter("filter.not_ours");
    const std::uint64_t tooShort = socketsupport::GetCounter("filter.too_short");
    {
        mantle::CMNBurst burst;
        EXPECT_EQ(Input(m_pLinkA, Ping("10.8.7.7", 1)), 0u);
        EXPECT_EQ(m_pLinkA->Input("E", 1), 0u);
    }
    EXPECT_EQ(socketsupport::GetCounter("link.in"), in + 2);
    EXPECT_EQ(socketsupport::GetCounter("filter.not_ours"), notOurs + 1);
    EXPECT_EQ(socketsupport::GetCounter("filter.too_short"), tooShort + 1);
    EXPECT_TRUE(m_BelowA.m_Sent.empty());
}

TEST_F(CIPInputBatchTest, Burst_PacketLongerThanTheMtu_RefusedAtOnceBehindTheOthers)
{
    const std::uint64_t before = socketsupport::GetCounter("filter.longer_than_mtu");
    mantle::CMNBurst burst;
    Input(m_pLinkA, Ping("10.8.0.1", 1));
    EXPECT_EQ(Input(m_pLinkA, CPacket(1401)), mantle::MN_ERROR_INVALID_ARG);
    EXPECT_EQ(m_BelowA.m_Sent.size(), 1u);
    EXPECT_EQ(socketsupport::GetCounter("filter.longer_than_mtu"), before + 1);
}

TEST_F(CIPInputBatchTest, Burst_EmptyPacket_RefusedAtOnce)
{
    mantle::CMNBurst burst;
    EXPECT_EQ(m_pLinkA->Input(nullptr, 0), mantle::MN_ERROR_INVALID_ARG);
}

// The first link's answer goes into a third link while the second one's packet is being handed in.
TEST_F(CIPInputBatchTest, Burst_AnswerFedIntoAThirdLink_EachPacketReachesItsLink)
{
    CBelow belowC;
    IIPStack* linkC = MakeLink(belowC, "10.8.2.1");
    m_BelowA.m_fOnOutput = [&](const CPacket&) { Input(linkC, Ping("10.8.2.1", 3)); };
    {
        mantle::CMNBurst burst;
        Input(m_pLinkA, Ping("10.8.0.1", 1));
        Input(m_pLinkB, Ping("10.8.1.1", 2));
    }
    ASSERT_EQ(belowC.m_Sent.size(), 1u);
    EXPECT_EQ(IdOf(belowC.m_Sent[0]), 3u);
    ASSERT_EQ(m_BelowB.m_Sent.size(), 1u);
    EXPECT_EQ(IdOf(m_BelowB.m_Sent[0]), 2u);
    m_BelowA.m_fOnOutput = nullptr;
    EXPECT_EQ(IIPStackManager::Instance()->DestroyStack(linkC), 0u);
}

TEST_F(CIPInputBatchTest, Burst_OwnOutputFedIntoALink_DeliveredBeforeTheCallReturns)
{
    m_BelowA.m_fOnOutput = [&](const CPacket&) { Input(m_pLinkB, Ping("10.8.1.1", 3)); };
    mantle::CMNBurst burst;
    Input(m_pLinkA, Ping("10.8.0.1", 1));
    socketsupport::GetCounter("link.in");  // any call
    EXPECT_EQ(m_BelowA.m_Sent.size(), 1u);
    EXPECT_EQ(m_BelowB.m_Sent.size(), 1u);
    m_BelowA.m_fOnOutput = nullptr;
}

TEST_F(CIPInputBatchTest, Burst_BlockingReceive_GetsWhatWasHandedIn)
{
    MakeSocket();
    ASSERT_EQ(ps_fcntl(m_nSocket, 4, 0), 0);
    mantle::CMNBurst burst;
    Input(m_pLinkA, Datagram("10.8.0.1", "one"));
    EXPECT_EQ(Receive(), "one");
}

}  // namespace
