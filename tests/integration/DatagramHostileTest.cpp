// Malformed and hostile packets at UDP and raw acceptors.
#include <gtest/gtest.h>

#include <functional>
#include <random>

#include "tests/integration/support/CPeerServer.h"

using namespace uxport;
using packetmaker::CPacket;

namespace
{

constexpr unsigned int FLOOD = 20000;
constexpr unsigned int GOOD_PEER = 0;
constexpr unsigned int STRANGERS = 100;  // forged peers are from here on

class DatagramHostileTest : public testing::TestWithParam<unsigned long>
{
protected:
    void SetUp() override
    {
        m_Network.Run([this] { m_Server.Listen(CForgedLink::OwnAddress()); });
        ExpectServed();
    }
    void TearDown() override
    {
        ExpectServed();
        m_Network.Run([this] {
            m_Server.Close();
            m_Server.m_Ends.clear();
        });
        m_Network.Turn();
        EXPECT_EQ(m_lBefore, mantle::CMNLiveObjects::Count());
        EXPECT_EQ(0U, CForgedLink::Counter("stack.assertion"));
    }

    // A peer that plays by the rules gets through, and what was waiting before has been read.
    void ExpectServed()
    {
        const unsigned int before = m_Server.m_dwReceived;
        m_Network.Run([this] { m_Link.Input(m_Server.Packet(GOOD_PEER)); });
        EXPECT_TRUE(m_Network.WaitFor([&] { return m_Server.m_dwReceived > before; }));
    }

    CPacket Packet(unsigned int peer, const std::string& text = std::string()) { return m_Server.Packet(peer, text); }
    std::uint64_t QueueFull() const
    {
        return CForgedLink::Counter(m_Server.IsUdp() ? "udp.queue_full" : "raw.queue_full");
    }
    long NewLiveObjects() { return mantle::CMNLiveObjects::Count() - m_lBefore; }

    // Writes the low bytes of `value` in network order, and the header's checksum anew.
    static CPacket With16(CPacket packet, std::size_t at, unsigned int value)
    {
        packet[at] = static_cast<std::uint8_t>(value >> 8);
        packet[at + 1] = static_cast<std::uint8_t>(value);
        packetmaker::FixChecksum4(packet);
        return packet;
    }

    // The packet reaches nobody.
    void ExpectDropped(const CPacket& packet)
    {
        const unsigned int indications = m_Server.m_dwIndications;
        m_Network.Run([&] { m_Link.Input(packet); });
        m_Network.Turn(1);
        EXPECT_EQ(indications, m_Server.m_dwIndications);
    }

    CNetwork m_Network;
    CForgedLink m_Link;
    const long m_lBefore = mantle::CMNLiveObjects::Count();
    CPeerServer m_Server{m_Network, GetParam()};
    std::mt19937 m_Random{20260607};
};

INSTANTIATE_TEST_SUITE_P(Protocol, DatagramHostileTest, testing::Values(CONNECTION_TYPE_UDP, CONNECTION_TYPE_RAW),
                         [](const auto& tested) { return tested.param == CONNECTION_TYPE_UDP ? "Udp" : "Raw"; });

class UdpHostileTest : public DatagramHostileTest
{
};

INSTANTIATE_TEST_SUITE_P(Protocol, UdpHostileTest, testing::Values(CONNECTION_TYPE_UDP));

TEST_P(DatagramHostileTest, RandomBytes_AtTheLink_HarmNothing)
{
    m_Server.m_bStrangers = true;
    m_Network.Run([this] {
        for (unsigned int i = 0; i < FLOOD; ++i) {
            CPacket packet(m_Random() % 200);
            for (std::uint8_t& byte : packet)
                byte = static_cast<std::uint8_t>(m_Random());
            m_Link.Input(packet);
        }
    });
    EXPECT_LE(FLOOD, CForgedLink::Counter("link.in"));
}

TEST_P(DatagramHostileTest, RandomBytes_BehindAGoodHeader_HarmNothing)
{
    m_Server.m_bStrangers = true;
    for (unsigned int portion = 0; portion < FLOOD; portion += 500) {
        m_Network.Run([this] {
            for (unsigned int i = 0; i < 500; ++i) {
                CPacket packet = Packet(STRANGERS + i, std::string(m_Random() % 100, 'x'));
                for (std::size_t at = 20; at < packet.size(); ++at)
                    packet[at] = static_cast<std::uint8_t>(m_Random());
                m_Link.Input(packet);
            }
        });
        m_Network.Turn(1);
    }
    m_Network.Turn();
    EXPECT_EQ(2, NewLiveObjects());
}

TEST_P(DatagramHostileTest, OneByteChanged_EverywhereInAGoodPacket_HarmsNothing)
{
    m_Server.m_bStrangers = true;
    const CPacket good = Packet(STRANGERS, "some text");
    m_Network.Run([&] {
        for (std::size_t at = 0; at < good.size(); ++at) {
            for (const unsigned int flip : {0x01U, 0x80U, 0xFFU}) {
                CPacket packet = good;
                packet[at] = static_cast<std::uint8_t>(packet[at] ^ flip);
                m_Link.Input(packet);
                packetmaker::FixChecksum4(packet);
                m_Link.Input(packet);
            }
        }
    });
    m_Network.Turn();
    EXPECT_EQ(2, NewLiveObjects());
}

TEST_P(DatagramHostileTest, LyingIpLength_LongerThanThePacketOrShorterThanItsHeader_IsDroppedAndCounted)
{
    const std::uint64_t before = CForgedLink::Counter("filter.total_length");
    const CPacket good = Packet(STRANGERS, "some text");
    for (const unsigned int length : {0U, 1U, 19U, static_cast<unsigned int>(good.size()) + 1, 1400U, 0xFFFFU})
        ExpectDropped(With16(good, 2, length));
    EXPECT_EQ(before + 6, CForgedLink::Counter("filter.total_length"));
}

TEST_P(UdpHostileTest, LyingUdpLength_ShortOrLong_IsDroppedAndCounted)
{
    const std::uint64_t before = CForgedLink::Counter("udp.bad_length") + CForgedLink::Counter("lwip.udp.lenerr") +
                                 CForgedLink::Counter("lwip.udp.chkerr");
    CPacket good = Packet(STRANGERS, "some text");
    good[26] = good[27] = 0;  // without a checksum, so that the length alone is wrong
    for (const unsigned int length : {0U, 4U, 7U, static_cast<unsigned int>(good.size()) - 19, 1400U, 0xFFFFU})
        ExpectDropped(With16(good, 24, length));
    EXPECT_EQ(before + 6, CForgedLink::Counter("udp.bad_length") + CForgedLink::Counter("lwip.udp.lenerr") +
                              CForgedLink::Counter("lwip.udp.chkerr"));
}

TEST_P(DatagramHostileTest, FragmentsThatNeverComplete_AsManyAsWanted_StayWithinABound)
{
    constexpr unsigned int MORE = 0x2000;
    constexpr std::uint64_t BOUND = 512;  // packets that the stack keeps for reassembly
    for (unsigned int i = 0; i < FLOOD / 4; ++i) {
        const std::string name = CForgedLink::PeerName(STRANGERS + i);
        packetmaker::CHeader4 header{name.c_str(), "10.9.0.1", 17};
        header.m_bProtocol = m_Server.IsUdp() ? std::uint8_t{17} : CForgedLink::s_bRawProtocol;
        header.m_wFragment = static_cast<std::uint16_t>(MORE + (i % 3));
        header.m_wId = static_cast<std::uint16_t>(i);
        m_Link.Input(packetmaker::Make4(header, packetmaker::CBytes(1024, 'x')));
        if (i % 100 == 0) {
            EXPECT_LE(CForgedLink::Counter("lwip.used.reassembly"), BOUND);
        }
    }
    EXPECT_LE(CForgedLink::Counter("lwip.used.reassembly"), BOUND);
    EXPECT_GE(CForgedLink::Counter("lwip.mib2.ipreasmfails"), FLOOD / 4 - BOUND);
    EXPECT_EQ(1U, m_Server.m_dwIndications);
}

TEST_P(DatagramHostileTest, Flood_WhileTheLoopDoesNotRead_IsBoundedAndCountedToTheLastOne)
{
    const std::uint64_t full = QueueFull();
    const unsigned int received = m_Server.m_dwReceived;
    m_Network.Run([this] {
        for (unsigned int i = 0; i < FLOOD; ++i)
            EXPECT_EQ(0UL, m_Link.Input(Packet(GOOD_PEER)));
    });
    const std::uint64_t dropped = QueueFull() - full;
    EXPECT_GT(dropped, FLOOD / 2);
    EXPECT_TRUE(m_Network.WaitFor([&] { return m_Server.m_dwReceived - received == FLOOD - dropped; }));
    m_Network.Turn();
    EXPECT_EQ(FLOOD - dropped, m_Server.m_dwReceived - received);
}

TEST_P(DatagramHostileTest, ForgedPeers_SinkDisconnectsStrangers_MemoryIsBackAtTheStart)
{
    m_Server.m_bStrangers = true;
    const unsigned int indications = m_Server.m_dwIndications;
    unsigned int fed = 0;
    while (fed < FLOOD) {
        m_Network.Run([&] {
            for (unsigned int i = 0; i < 500; ++i)
                EXPECT_EQ(0UL, m_Link.Input(Packet(STRANGERS + fed++)));
        });
        ASSERT_TRUE(m_Network.WaitFor([&] { return m_Server.m_dwIndications - indications == fed; }));
    }
    m_Network.Turn();
    EXPECT_EQ(2, NewLiveObjects());
}

TEST_P(DatagramHostileTest, ForgedPeers_SinkKeepsThem_MemoryGrowsByTheTransportsOnly)
{
    constexpr unsigned int KEPT = 2000;
    const long before = NewLiveObjects();
    ASSERT_TRUE(m_Server.FeedOfEach(m_Link, KEPT));
    EXPECT_EQ(before + static_cast<long>(KEPT) - 1, NewLiveObjects());  // the good peer is the first of them
}

}  // namespace
