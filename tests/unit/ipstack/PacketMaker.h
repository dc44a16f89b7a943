// Makes IP packets for the stack's unit tests.
#ifndef TESTS_UNIT_IPSTACK_PACKETMAKER_H
#define TESTS_UNIT_IPSTACK_PACKETMAKER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace packetmaker
{

using CPacket = std::vector<std::uint8_t>;
using CBytes = std::vector<std::uint8_t>;

// Network-order word of a dotted address; sixteen bytes of an IPv6 one.
std::uint32_t Address4(const char* text);
std::array<std::uint8_t, 16> Address6(const char* text);

// What an IPv4 header is made of; `m_wFragment` is flags and offset as they stand in the header.
struct CHeader4
{
    const char* m_szSource;
    const char* m_szDestination;
    std::uint8_t m_bProtocol = 17;
    std::uint16_t m_wFragment = 0;
    std::uint16_t m_wId = 1;
};

struct CHeader6
{
    const char* m_szSource;
    const char* m_szDestination;
    std::uint8_t m_bNext = 17;
};

// Whole packets, with right checksums.
CPacket Make4(const CHeader4& header, const CBytes& payload);
CPacket Make6(const CHeader6& header, const CBytes& payload);

// Writes the header checksum anew.
void FixChecksum4(CPacket& packet);

// A UDP datagram with ports and the checksum of these addresses.
CBytes Udp4(const CHeader4& header, std::uint16_t source, std::uint16_t destination, const CBytes& data);
CBytes Udp6(const CHeader6& header, std::uint16_t source, std::uint16_t destination, const CBytes& data);

// A TCP segment.
struct CTcp
{
    std::uint16_t m_wSource = 0;
    std::uint16_t m_wDestination = 0;
    std::uint32_t m_dwSequence = 0;
    std::uint32_t m_dwAck = 0;
    std::uint8_t m_bFlags = 0;
    std::uint16_t m_wWindow = 0xFFFF;
    CBytes m_Options = {};  // a multiple of four bytes
    CBytes m_Data = {};
};
CBytes Tcp4(const CHeader4& header, const CTcp& tcp);
CBytes Tcp6(const CHeader6& header, const CTcp& tcp);

constexpr std::uint8_t Fin = 0x01;
constexpr std::uint8_t Syn = 0x02;
constexpr std::uint8_t Rst = 0x04;
constexpr std::uint8_t Psh = 0x08;
constexpr std::uint8_t Ack = 0x10;

// An IPv6 fragment header in front of `payload`; `offset` in bytes.
CBytes Fragment6(std::uint8_t next, unsigned int offset, bool more, std::uint32_t id, const CBytes& payload);

// A hop-by-hop (0), destination (60) or routing (43) header of eight bytes with padding, in front of `payload`.
CBytes Extension6(std::uint8_t next, const CBytes& payload);

// An ICMP echo request.
CBytes Echo4(std::uint16_t id, const CBytes& data);
CBytes Echo6(const CHeader6& header, std::uint16_t id, const CBytes& data);

// Any ICMP message: type, code, checksum, and what is behind them.
CBytes Icmp4(std::uint8_t type, std::uint8_t code, const CBytes& rest);
CBytes Icmp6(const CHeader6& header, std::uint8_t type, std::uint8_t code, const CBytes& rest);

}  // namespace packetmaker

#endif
