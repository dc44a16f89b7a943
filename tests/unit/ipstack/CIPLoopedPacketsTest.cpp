// What the stack sends to its own addresses is looked at as what comes in is: a program's raw packet may be malformed.
// The address sanitizer is the judge of looks behind a buffer.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "CCaptureLink.h"
#include "PacketMaker.h"
#include "SocketSupport.h"

namespace
{

using namespace packetmaker;
using socketsupport::GetCounter;

constexpr const char* s_szOwn = "10.67.0.1";
constexpr const char* s_szOwn6 = "fd67::1";
constexpr int s_nUnclaimed = 200;     // a protocol that nobody listens to
constexpr int s_nHeaderByHand = 255;  // IPPROTO_RAW: the sender writes the header

class CNowhere : public ipstack::IIPStackLowLevel
{
public:
    unsigned long IPStackLowLevelOutput(const char*, unsigned long, unsigned char) override { return 0; }
};

class CIPLoopedPacketsTest : public testing::Test
{
protected:
    CIPLoopedPacketsTest()
    {
        socketsupport::Start();
        ipstack::CIPStackConfig config;
        config.m_strAddress = s_szOwn;
        config.m_strAddress6 = s_szOwn6;
        EXPECT_EQ(0u, ipstack::IIPStackManager::Instance()->CreateStack(config, &m_Below, m_pStack));
    }
    ~CIPLoopedPacketsTest() override { EXPECT_EQ(0u, ipstack::IIPStackManager::Instance()->DestroyStack(m_pStack)); }

    static long SendTo4(int handle, const CBytes& bytes, const char* to)
    {
        ps_sockaddr_in address{};
        address.sin_len = sizeof(address);
        address.sin_family = PS_AF_INET;
        address.sin_addr = Address4(to);
        return ps_sendto(handle, bytes.data(), bytes.size(), 0, reinterpret_cast<const ps_sockaddr*>(&address),
                         sizeof(address));
    }
    static long SendTo6(int handle, const CBytes& bytes, const char* to)
    {
        ps_sockaddr_in6 address{};
        address.sin6_len = sizeof(address);
        address.sin6_family = PS_AF_INET6;
        const auto host = Address6(to);
        std::memcpy(address.sin6_addr, host.data(), host.size());
        return ps_sendto(handle, bytes.data(), bytes.size(), 0, reinterpret_cast<const ps_sockaddr*>(&address),
                         sizeof(address));
    }

    // Sends to loopback and to a link's own address. Returns: how many packets were dropped as malformed.
    static std::uint64_t Dropped6(int protocol, const CBytes& payload)
    {
        const int handle = ps_socket(PS_AF_INET6, PS_SOCK_RAW, protocol);
        EXPECT_GT(handle, 0);
        const std::uint64_t before = GetCounter("loop.malformed");
        EXPECT_EQ(static_cast<long>(payload.size()), SendTo6(handle, payload, "::1"));
        EXPECT_EQ(static_cast<long>(payload.size()), SendTo6(handle, payload, s_szOwn6));
        const std::uint64_t dropped = GetCounter("loop.malformed") - before;
        ps_close(handle);
        return dropped;
    }
    static std::uint64_t DroppedByHand4(const CPacket& packet)
    {
        const int handle = ps_socket(PS_AF_INET, PS_SOCK_RAW, s_nHeaderByHand);
        EXPECT_GT(handle, 0);
        const std::uint64_t before = GetCounter("loop.malformed");
        EXPECT_EQ(static_cast<long>(packet.size()), SendTo4(handle, packet, "127.0.0.1"));
        EXPECT_EQ(static_cast<long>(packet.size()), SendTo4(handle, packet, s_szOwn));
        const std::uint64_t dropped = GetCounter("loop.malformed") - before;
        ps_close(handle);
        return dropped;
    }

    CNowhere m_Below;
    ipstack::IIPStack* m_pStack = nullptr;
};

// An empty packet of an extension header's kind made lwIP read the header behind the buffer.
TEST_F(CIPLoopedPacketsTest, RawIpv6ExtensionHeader_ShorterThanOne_Dropped)
{
    for (const int kind : {60, 43, 44}) {
        for (std::size_t length = 0; length < 8; ++length) {
            EXPECT_EQ(2u, Dropped6(kind, CBytes(length))) << kind << ", " << length;
        }
    }
}

TEST_F(CIPLoopedPacketsTest, RawIpv6ExtensionHeader_BeyondThePacket_Dropped)
{
    for (const int kind : {60, 43}) {
        CBytes header = Extension6(17, {});
        header[1] = 1;
        EXPECT_EQ(2u, Dropped6(kind, header)) << kind;
        header[1] = 255;
        EXPECT_EQ(2u, Dropped6(kind, header)) << kind;
    }
}

TEST_F(CIPLoopedPacketsTest, RawIpv6Option_BeyondItsHeader_Dropped)
{
    EXPECT_EQ(2u, Dropped6(60, {59, 0, 1, 5, 0, 0, 0, 0}));
    EXPECT_EQ(2u, Dropped6(60, {59, 0, 0, 0, 0, 0, 0, 1}));
}

TEST_F(CIPLoopedPacketsTest, RawIpv6Fragment_EmptyNestedOrTooLong_Dropped)
{
    EXPECT_EQ(2u, Dropped6(44, Fragment6(17, 0, true, 1, {})));
    EXPECT_EQ(2u, Dropped6(44, Fragment6(44, 0, true, 1, Fragment6(17, 0, true, 2, CBytes(16)))));
    EXPECT_EQ(2u, Dropped6(44, Fragment6(60, 0, true, 1, CBytes(16))));
    EXPECT_EQ(2u, Dropped6(44, Fragment6(17, 65528, false, 1, CBytes(1000))));
    EXPECT_EQ(2u, Dropped6(44, Fragment6(17, 0, true, 1, CBytes(17))));
}

TEST_F(CIPLoopedPacketsTest, RawIpv6_NeighbourMessage_Dropped)
{
    CBytes message(24);
    message[0] = 135;
    EXPECT_EQ(2u, Dropped6(58, message));
    EXPECT_EQ(2u, Dropped6(60, Extension6(58, message)));
}

TEST_F(CIPLoopedPacketsTest, RawIpv6_WellFormed_Passes)
{
    EXPECT_EQ(0u, Dropped6(s_nUnclaimed, {}));
    EXPECT_EQ(0u, Dropped6(s_nUnclaimed, CBytes(40000)));
    EXPECT_EQ(0u, Dropped6(60, Extension6(59, {})));
    EXPECT_EQ(0u, Dropped6(60, Extension6(s_nUnclaimed, CBytes(1))));
    EXPECT_EQ(0u, Dropped6(43, Extension6(59, {})));
    EXPECT_EQ(0u, Dropped6(44, Fragment6(17, 0, true, 7, CBytes(8))));
    EXPECT_EQ(0u, Dropped6(17, {}));  // lwIP looks at the transport's length itself
    EXPECT_EQ(0u, Dropped6(6, CBytes(19)));
}

TEST_F(CIPLoopedPacketsTest, RawIpv6ExtensionHeader_WellFormed_ItsSocketHasIt)
{
    const int handle = ps_socket(PS_AF_INET6, PS_SOCK_RAW, 60);
    const CBytes payload = Extension6(59, CBytes(5, 9));
    EXPECT_EQ(static_cast<long>(payload.size()), SendTo6(handle, payload, s_szOwn6));
    ASSERT_EQ(PS_POLLIN, socketsupport::WaitFor(handle, PS_POLLIN));
    char received[100];
    EXPECT_EQ(5, ps_recv(handle, received, sizeof(received), 0));
    ps_close(handle);
}

// The checksum that a raw socket has written was written behind a payload shorter than its place.
TEST_F(CIPLoopedPacketsTest, RawIpv6Checksum_PlaceBehindThePayload_Refused)
{
    const int other = ps_socket(PS_AF_INET6, PS_SOCK_RAW, s_nUnclaimed);
    const int place = 100;
    ASSERT_EQ(0, ps_setsockopt(other, PS_IPPROTO_IPV6, PS_IPV6_CHECKSUM, &place, sizeof(place)));
    for (const std::size_t length : {0u, 10u, 101u}) {
        EXPECT_EQ(-1, SendTo6(other, CBytes(length), s_szOwn6)) << length;
        EXPECT_EQ(PS_EINVAL, get_pserrno());
    }
    EXPECT_EQ(102, SendTo6(other, CBytes(102), s_szOwn6));
    ps_close(other);
}

TEST_F(CIPLoopedPacketsTest, HeaderByHand_VersionOrLengthWrong_Dropped)
{
    for (unsigned int first = 0; first < 256; ++first) {
        CPacket packet = Make4({s_szOwn, s_szOwn, s_nUnclaimed}, CBytes(40));
        packet[0] = static_cast<std::uint8_t>(first);
        const bool good = first >> 4 == 4 && (first & 0x0F) >= 5;
        EXPECT_EQ(good ? 0u : 2u, DroppedByHand4(packet)) << first;
    }
    CPacket packet = Make4({s_szOwn, s_szOwn, s_nUnclaimed}, {});
    packet[0] = 0x4F;
    EXPECT_EQ(2u, DroppedByHand4(packet)) << "a header of sixty bytes in twenty";
    packet[0] = 0x60;
    EXPECT_EQ(2u, DroppedByHand4(packet)) << "shorter than the header of its version";
    packet[0] = 0x45;
    packet[3] = 21;
    EXPECT_EQ(2u, DroppedByHand4(packet));
    packet[3] = 19;
    EXPECT_EQ(2u, DroppedByHand4(packet));
}

TEST_F(CIPLoopedPacketsTest, HeaderByHand_FragmentEmptyOddOrTooLong_Dropped)
{
    const auto dropped = [](unsigned int field, std::size_t payload) {
        return DroppedByHand4(Make4({s_szOwn, s_szOwn, 17, static_cast<std::uint16_t>(field)}, CBytes(payload)));
    };
    EXPECT_EQ(2u, dropped(0x2000, 0));
    EXPECT_EQ(2u, dropped(0x2000, 17));
    EXPECT_EQ(2u, dropped(0x1FFF, 100));
    EXPECT_EQ(0u, dropped(0x2000, 16));
}

TEST_F(CIPLoopedPacketsTest, HeaderByHand_NobodyListens_UnreachableIsMadeInsideThePacket)
{
    // The answer quotes the header and what is behind it, however little that is.
    for (std::size_t length = 0; length < 9; ++length) {
        EXPECT_EQ(0u, DroppedByHand4(Make4({s_szOwn, s_szOwn, s_nUnclaimed}, CBytes(length))));
    }
}

TEST_F(CIPLoopedPacketsTest, HeaderByHand_OptionsPaddingAndIpv6_Pass)
{
    CPacket packet = Make4({s_szOwn, s_szOwn, s_nUnclaimed}, CBytes(40, 1));
    packet[0] = 0x4F;
    EXPECT_EQ(0u, DroppedByHand4(packet));
    packet[0] = 0x45;
    packet[3] = 40;
    EXPECT_EQ(0u, DroppedByHand4(packet)) << "padding behind the packet";
}

TEST_F(CIPLoopedPacketsTest, OwnConnections_Used_NothingDropped)
{
    const std::uint64_t before = GetCounter("loop.malformed");
    const socketsupport::CPair pair = socketsupport::MakePair();
    ASSERT_EQ(5, ps_send(pair.m_nClient, "hello", 5, 0));
    ASSERT_EQ(PS_POLLIN, socketsupport::WaitFor(pair.m_nServer, PS_POLLIN));
    const int udp = socketsupport::MakeUdp();
    const std::vector<char> longest(65507);
    EXPECT_EQ(65507, ps_sendto(udp, longest.data(), longest.size(), 0,
                               socketsupport::CLoopback(socketsupport::GetPort(udp)).Get(), sizeof(ps_sockaddr_in)));
    EXPECT_EQ(PS_POLLIN, socketsupport::WaitFor(udp, PS_POLLIN));
    EXPECT_EQ(before, GetCounter("loop.malformed"));
    for (const int handle : {pair.m_nClient, pair.m_nServer, udp}) {
        ps_close(handle);
    }
}

}  // namespace
