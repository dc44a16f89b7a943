#include "platform/ipstack/CIPPacketFilter.h"

#include <algorithm>
#include <memory>

#include <gtest/gtest.h>

#include "PacketMaker.h"

namespace
{

using namespace packetmaker;
using ipstack::CIPCounters;
using ipstack::CIPPacketFilter;

constexpr const char* Own = "10.1.0.1";
constexpr const char* OtherOwn = "10.2.0.1";
constexpr const char* Peer = "10.1.0.9";
constexpr const char* Own6 = "fd01::1";
constexpr const char* OtherOwn6 = "fd02::1";
constexpr const char* Peer6 = "fd01::9";
constexpr unsigned int Mtu = 1400;

class CIPPacketFilterTest : public testing::Test
{
protected:
    CIPPacketFilterTest()
    {
        m_Own.m_Addresses4 = {Address4(Own), Address4(OtherOwn)};
        std::sort(m_Own.m_Addresses4.begin(), m_Own.m_Addresses4.end());
        m_Own.m_Addresses6 = {Address6(Own6), Address6(OtherOwn6)};
        std::sort(m_Own.m_Addresses6.begin(), m_Own.m_Addresses6.end());
        m_Facts.m_dwMtu = Mtu;
        m_Facts.m_pOwn = &m_Own;
    }

    // The name of the verdict, "accepted" when there is none. The packet is checked in a buffer of its exact size,
    // so that a look past its end is seen by the address sanitizer.
    std::string Verdict(const CPacket& packet) const
    {
        const std::unique_ptr<std::uint8_t[]> exact(new std::uint8_t[packet.size()]);
        std::copy(packet.begin(), packet.end(), exact.get());
        const CIPCounters::EId id = CIPPacketFilter::Check(exact.get(), packet.size(), m_Facts);
        return id == CIPPacketFilter::Accepted ? "accepted" : CIPCounters::GetName(id);
    }
    std::string Verdict4(const char* source, const char* destination, const CBytes& payload = CBytes(20)) const
    {
        return Verdict(Make4({source, destination}, payload));
    }
    std::string Verdict6(const char* source, const char* destination, const CBytes& payload = CBytes(20)) const
    {
        return Verdict(Make6({source, destination}, payload));
    }
    // An IPv6 packet from the peer with this next header and payload.
    std::string VerdictNext(std::uint8_t next, const CBytes& payload) const
    {
        return Verdict(Make6({Peer6, Own6, next}, payload));
    }
    // An IPv4 fragment from the peer.
    std::string VerdictFragment4(unsigned int field, std::size_t payload) const
    {
        return Verdict(Make4({Peer, Own, 17, static_cast<std::uint16_t>(field)}, CBytes(payload)));
    }

    ipstack::CIPOwnAddresses m_Own;
    ipstack::CIPLinkFacts m_Facts;
};

TEST_F(CIPPacketFilterTest, Link_PacketForUs_Accepted)
{
    EXPECT_EQ("accepted", Verdict4(Peer, Own));
    EXPECT_EQ("accepted", Verdict4(Peer, OtherOwn)) << "any of our addresses, by any link";
    EXPECT_EQ("accepted", Verdict4(Peer, "255.255.255.255"));
    EXPECT_EQ("accepted", Verdict4(Peer, Own, {})) << "a bare header is well-formed";
    EXPECT_EQ("accepted", Verdict6(Peer6, Own6));
    EXPECT_EQ("accepted", Verdict6(Peer6, OtherOwn6));
}

TEST_F(CIPPacketFilterTest, Link_ZeroLength_TooShort)
{
    EXPECT_EQ("filter.too_short", Verdict({}));
}

TEST_F(CIPPacketFilterTest, Link_EveryLengthBelowHeader_TooShort)
{
    const CPacket whole4 = Make4({Peer, Own}, {});
    const CPacket whole6 = Make6({Peer6, Own6, 59}, {});
    for (std::ptrdiff_t length = 1; length < 20; ++length) {
        EXPECT_EQ("filter.too_short", Verdict(CPacket(whole4.begin(), whole4.begin() + length))) << length;
    }
    for (std::ptrdiff_t length = 1; length < 40; ++length) {
        EXPECT_EQ("filter.too_short", Verdict(CPacket(whole6.begin(), whole6.begin() + length))) << length;
    }
}

TEST_F(CIPPacketFilterTest, Link_LongerThanMtu_TooLong)
{
    EXPECT_EQ("accepted", Verdict4(Peer, Own, CBytes(Mtu - 20)));
    EXPECT_EQ("filter.longer_than_mtu", Verdict4(Peer, Own, CBytes(Mtu - 19)));
}

TEST_F(CIPPacketFilterTest, Link_UnknownVersion_Dropped)
{
    for (unsigned int version = 0; version < 16; ++version) {
        CPacket packet = Make4({Peer, Own}, CBytes(40));
        packet[0] = static_cast<std::uint8_t>(version << 4 | 5);
        if (version == 4 || version == 6) {
            EXPECT_NE("filter.version", Verdict(packet));
        } else {
            EXPECT_EQ("filter.version", Verdict(packet)) << version;
        }
    }
}

TEST_F(CIPPacketFilterTest, Ipv4_HeaderLengthBelowTwenty_Dropped)
{
    for (unsigned int words = 0; words < 5; ++words) {
        CPacket packet = Make4({Peer, Own}, CBytes(40));
        packet[0] = static_cast<std::uint8_t>(0x40 | words);
        EXPECT_EQ("filter.header_length", Verdict(packet)) << words;
    }
}

TEST_F(CIPPacketFilterTest, Ipv4_TotalLengthWrong_Dropped)
{
    CPacket packet = Make4({Peer, Own}, CBytes(20));
    packet[3] = 41;
    EXPECT_EQ("filter.total_length", Verdict(packet)) << "more than received";
    packet[3] = 19;
    EXPECT_EQ("filter.total_length", Verdict(packet)) << "less than the header";
    packet[3] = 39;
    EXPECT_EQ("accepted", Verdict(packet)) << "padding behind the packet";
    packet[0] = 0x4F;
    EXPECT_EQ("filter.total_length", Verdict(packet)) << "a header of sixty bytes in forty";
}

TEST_F(CIPPacketFilterTest, Ipv6_PayloadLongerThanReceived_Dropped)
{
    CPacket packet = Make6({Peer6, Own6}, CBytes(20));
    packet[5] = 21;
    EXPECT_EQ("filter.total_length", Verdict(packet));
    packet[5] = 19;
    EXPECT_EQ("accepted", Verdict(packet));
}

TEST_F(CIPPacketFilterTest, Link_LoopbackAddress_Dropped)
{
    EXPECT_EQ("filter.loopback_address", Verdict4("127.0.0.1", Own));
    EXPECT_EQ("filter.loopback_address", Verdict4("127.9.9.9", Own));
    EXPECT_EQ("filter.loopback_address", Verdict4(Peer, "127.0.0.1"));
    EXPECT_EQ("filter.loopback_address", Verdict6("::1", Own6));
    EXPECT_EQ("filter.loopback_address", Verdict6(Peer6, "::1"));
}

TEST_F(CIPPacketFilterTest, Link_OwnSource_Dropped)
{
    EXPECT_EQ("filter.own_source", Verdict4(Own, Own));
    EXPECT_EQ("filter.own_source", Verdict4(OtherOwn, Own));
    EXPECT_EQ("filter.own_source", Verdict6(Own6, Own6));
    EXPECT_EQ("filter.own_source", Verdict6(OtherOwn6, Own6));
}

TEST_F(CIPPacketFilterTest, Wire_PartnerSource_Accepted)
{
    m_Facts.m_dwPartner4 = Address4(OtherOwn);
    m_Facts.m_bPartner6 = true;
    m_Facts.m_Partner6 = Address6(OtherOwn6);
    EXPECT_EQ("accepted", Verdict4(OtherOwn, Own));
    EXPECT_EQ("accepted", Verdict6(OtherOwn6, Own6));
    EXPECT_EQ("filter.own_source", Verdict4(Own, OtherOwn)) << "the partner alone is excepted";
    EXPECT_EQ("filter.own_source", Verdict6(Own6, OtherOwn6));
    EXPECT_EQ("filter.own_source", Verdict4(OtherOwn, OtherOwn)) << "to itself";
    EXPECT_EQ("filter.own_source", Verdict6(OtherOwn6, OtherOwn6));
}

TEST_F(CIPPacketFilterTest, Link_SourceNotUnicast_Dropped)
{
    EXPECT_EQ("filter.source_not_unicast", Verdict4("0.0.0.0", Own));
    EXPECT_EQ("filter.source_not_unicast", Verdict4("224.0.0.5", Own));
    EXPECT_EQ("filter.source_not_unicast", Verdict4("255.255.255.255", Own));
    EXPECT_EQ("filter.source_not_unicast", Verdict6("::", Own6));
    EXPECT_EQ("filter.source_not_unicast", Verdict6("ff02::1", Own6));
    EXPECT_EQ("filter.source_not_unicast", Verdict6("::ffff:10.1.0.9", Own6));
}

TEST_F(CIPPacketFilterTest, Link_ForeignDestination_NotOurs)
{
    EXPECT_EQ("filter.not_ours", Verdict4(Peer, "10.1.0.2"));
    EXPECT_EQ("filter.not_ours", Verdict4(Peer, "10.1.0.255")) << "the broadcast address of a network";
    EXPECT_EQ("filter.not_ours", Verdict4(Peer, "0.0.0.0"));
    EXPECT_EQ("filter.not_ours", Verdict6(Peer6, "fd01::2"));
}

TEST_F(CIPPacketFilterTest, Link_MulticastDestination_Dropped)
{
    EXPECT_EQ("filter.multicast", Verdict4(Peer, "224.0.0.1"));
    EXPECT_EQ("filter.multicast", Verdict4(Peer, "239.255.255.255"));
    EXPECT_EQ("filter.multicast", Verdict6(Peer6, "ff02::1"));
}

TEST_F(CIPPacketFilterTest, Ipv4_FragmentWithoutPayload_Dropped)
{
    EXPECT_EQ("filter.fragment_empty", VerdictFragment4(0x2000, 0));
    EXPECT_EQ("filter.fragment_empty", VerdictFragment4(10, 0));
}

TEST_F(CIPPacketFilterTest, Ipv4_MiddleFragmentOfOddLength_Dropped)
{
    EXPECT_EQ("accepted", VerdictFragment4(0x2000, 16));
    EXPECT_EQ("filter.fragment_odd_length", VerdictFragment4(0x2000, 17));
    EXPECT_EQ("accepted", VerdictFragment4(0x0002, 17)) << "the last may have any length";
}

TEST_F(CIPPacketFilterTest, Ipv4_FragmentEndsBeyondLimit_Dropped)
{
    // 8188 * 8 = 65504.
    EXPECT_EQ("accepted", VerdictFragment4(8188, 11));
    EXPECT_EQ("filter.fragment_too_long", VerdictFragment4(8188, 12));
    EXPECT_EQ("filter.fragment_too_long", VerdictFragment4(0x1FFF, 8));
    EXPECT_EQ("filter.fragment_too_long", VerdictFragment4(0x3FFF, 1376));
}

TEST_F(CIPPacketFilterTest, Ipv4_DontFragmentFlag_NoFragment)
{
    EXPECT_EQ("accepted", VerdictFragment4(0x4000, 0));
}

TEST_F(CIPPacketFilterTest, Ipv6_Fragments_CheckedLikeIpv4)
{
    EXPECT_EQ("accepted", VerdictNext(44, Fragment6(17, 0, true, 1, CBytes(16))));
    EXPECT_EQ("filter.fragment_empty", VerdictNext(44, Fragment6(17, 0, true, 1, {})));
    EXPECT_EQ("filter.fragment_empty", VerdictNext(44, Fragment6(17, 8, false, 1, {})));
    EXPECT_EQ("filter.fragment_odd_length", VerdictNext(44, Fragment6(17, 0, true, 1, CBytes(17))));
    EXPECT_EQ("accepted", VerdictNext(44, Fragment6(17, 64992, false, 1, CBytes(8))));
    EXPECT_EQ("filter.fragment_too_long", VerdictNext(44, Fragment6(17, 64992, false, 1, CBytes(9))));
    EXPECT_EQ("filter.fragment_too_long", VerdictNext(44, Fragment6(17, 65528, true, 1, CBytes(1344))));
}

TEST_F(CIPPacketFilterTest, Ipv6_NestedFragment_Dropped)
{
    for (const std::uint8_t next : {std::uint8_t{0}, std::uint8_t{43}, std::uint8_t{44}, std::uint8_t{60}}) {
        EXPECT_EQ("filter.fragment_nested", VerdictNext(44, Fragment6(next, 0, true, 1, CBytes(16)))) << int{next};
        EXPECT_EQ("filter.fragment_nested", VerdictNext(44, Fragment6(next, 16, false, 1, CBytes(16)))) << int{next};
    }
    EXPECT_EQ("filter.fragment_nested",
              VerdictNext(44, Fragment6(44, 0, true, 1, Fragment6(17, 0, true, 2, CBytes(16)))));
}

TEST_F(CIPPacketFilterTest, Ipv6_HopByHopNotFirst_Dropped)
{
    EXPECT_EQ("accepted", VerdictNext(0, Extension6(17, CBytes(20))));
    EXPECT_EQ("filter.hop_by_hop_not_first", VerdictNext(60, Extension6(0, Extension6(17, CBytes(20)))));
    EXPECT_EQ("filter.hop_by_hop_not_first", VerdictNext(0, Extension6(0, Extension6(17, CBytes(20)))));
}

TEST_F(CIPPacketFilterTest, Ipv6_ExtensionOverTheEnd_Dropped)
{
    for (const std::uint8_t kind : {std::uint8_t{0}, std::uint8_t{43}, std::uint8_t{60}}) {
        EXPECT_EQ("filter.extension_length", VerdictNext(kind, {})) << int{kind};
        EXPECT_EQ("filter.extension_length", VerdictNext(kind, CBytes(7))) << int{kind};
        CBytes longer = Extension6(17, CBytes(7));
        longer[1] = 1;
        EXPECT_EQ("filter.extension_length", VerdictNext(kind, longer)) << int{kind};
    }
    EXPECT_EQ("filter.extension_length", VerdictNext(44, CBytes(7)));
}

TEST_F(CIPPacketFilterTest, Ipv6_OptionOverItsHeader_Dropped)
{
    CBytes header = Extension6(17, CBytes(20));
    header[3] = 5;
    EXPECT_EQ("filter.extension_length", VerdictNext(0, header));
    EXPECT_EQ("filter.extension_length", VerdictNext(60, header));
    // Seven bytes of padding leave a type without a length.
    header = {17, 0, 0, 0, 0, 0, 0, 1};
    EXPECT_EQ("filter.extension_length", VerdictNext(0, header));
}

TEST_F(CIPPacketFilterTest, Ipv6_TooManyExtensions_Dropped)
{
    CBytes payload(20);
    std::uint8_t next = 17;
    for (unsigned int i = 0; i < CIPPacketFilter::MaxExtensionHeaders; ++i) {
        payload = Extension6(next, payload);
        next = 60;
    }
    EXPECT_EQ("accepted", VerdictNext(60, payload));
    EXPECT_EQ("filter.extension_count", VerdictNext(60, Extension6(60, payload)));
}

TEST_F(CIPPacketFilterTest, Ipv6_NeighbourMessage_Dropped)
{
    for (unsigned int type = 0; type < 256; ++type) {
        CBytes message(24);
        message[0] = static_cast<std::uint8_t>(type);
        const bool neighbour = type == 2 || (type >= 133 && type <= 137);
        EXPECT_EQ(neighbour ? "filter.neighbour_discovery" : "accepted", VerdictNext(58, message)) << type;
        EXPECT_EQ(neighbour ? "filter.neighbour_discovery" : "accepted", VerdictNext(60, Extension6(58, message)))
            << type;
        EXPECT_EQ(neighbour ? "filter.neighbour_discovery" : "accepted",
                  VerdictNext(44, Fragment6(58, 0, true, 1, message)))
            << type;
    }
}

TEST_F(CIPPacketFilterTest, Filter_RandomBytes_NeverLooksPastTheEnd)
{
    // The address sanitizer is the judge: every packet lies in a buffer of its exact size.
    std::uint32_t state = 12345;
    const auto random = [&state] {
        state = state * 1664525U + 1013904223U;
        return state >> 8;
    };
    unsigned int accepted = 0;
    for (int round = 0; round < 200000; ++round) {
        CPacket packet = random() % 2 == 0
                             ? Make4({Peer, Own, 17, static_cast<std::uint16_t>(random() % 4 == 0 ? random() : 0)},
                                     CBytes(random() % 64))
                             : Make6({Peer6, Own6, static_cast<std::uint8_t>(random() % 64)}, CBytes(random() % 64));
        for (unsigned int change = random() % 4; change > 0; --change) {
            packet[random() % packet.size()] = static_cast<std::uint8_t>(random());
        }
        packet.resize(packet.size() - random() % (packet.size() + 1));
        accepted += Verdict(packet) == "accepted" ? 1U : 0U;
    }
    EXPECT_GT(accepted, 1000U);
}

}  // namespace
