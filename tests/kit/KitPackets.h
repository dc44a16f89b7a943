// Packets made by hand, with right checksums unless changed afterwards.
#ifndef TESTS_KIT_KITPACKETS_H
#define TESTS_KIT_KITPACKETS_H

#include "KitSupport.h"

namespace kit
{

constexpr std::size_t s_dwIpHeader = 20;   // RFC 791, no options
constexpr std::size_t s_dwIp6Header = 40;  // RFC 8200
constexpr std::size_t s_dwTcpHeader = 20;  // RFC 9293, no options
constexpr std::size_t s_dwUdpHeader = 8;   // RFC 768

constexpr unsigned char s_cTcpFin = 1;
constexpr unsigned char s_cTcpSyn = 2;
constexpr unsigned char s_cTcpRst = 4;
constexpr unsigned char s_cTcpPsh = 8;
constexpr unsigned char s_cTcpAck = 16;

// RFC 1071.
std::uint16_t Checksum(const CBytes& data);

// Big-endian fields of a packet.
void Put16(CBytes& packet, std::size_t at, unsigned int value);
unsigned int Get16(const CBytes& packet, std::size_t at);
std::uint32_t Get32(const CBytes& packet, std::size_t at);

// An IP packet of the addresses' family around a payload.
CBytes IpPacket(const CAddress& from, const CAddress& to, unsigned char protocol, const CBytes& payload);

// Recomputes the IPv4 header's checksum after a change.
void FixIpChecksum(CBytes& packet);

// Whole packets.
CBytes UdpPacket(const CAddress& from, const CAddress& to, const CBytes& payload);
CBytes EchoRequest(const CAddress& from, const CAddress& to, unsigned int id, unsigned int sequence,
                   const CBytes& payload = CBytes());
CBytes TcpPacket(const CAddress& from, const CAddress& to, unsigned char flags, std::uint32_t sequence,
                 std::uint32_t acknowledged, const CBytes& payload = CBytes(), const CBytes& options = CBytes(),
                 unsigned int window = 65535);

// The ICMP message alone; IPv6 needs both addresses for its checksum.
CBytes EchoMessage(const CAddress& from, const CAddress& to, unsigned int id, unsigned int sequence,
                   const CBytes& payload);

// Tests on emitted packets of either family.
bool IsEchoReply(const CBytes& packet, unsigned int id, unsigned int sequence);
bool IsTcp(const CBytes& packet, unsigned int destinationPort);
unsigned char TcpFlags(const CBytes& packet);
std::size_t HeaderLength(const CBytes& packet);

}  // namespace kit

#endif
