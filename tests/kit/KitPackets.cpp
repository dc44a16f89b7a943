#include "KitPackets.h"

#include <algorithm>

namespace kit
{

namespace
{

constexpr unsigned char s_cEchoRequest = 8;
constexpr unsigned char s_cEchoReply = 0;
constexpr unsigned char s_cEchoRequest6 = 128;
constexpr unsigned char s_cEchoReply6 = 129;

void Append16(CBytes& bytes, unsigned int value)
{
    bytes.push_back(static_cast<unsigned char>(value >> 8));
    bytes.push_back(static_cast<unsigned char>(value));
}

void Append32(CBytes& bytes, std::uint32_t value)
{
    Append16(bytes, value >> 16);
    Append16(bytes, value & 0xFFFF);
}

void AppendAll(CBytes& bytes, const CBytes& more)
{
    bytes.insert(bytes.end(), more.begin(), more.end());
}

// Checksum over the pseudo header and the message (RFC 9293 3.1, RFC 8200 8.1).
std::uint16_t PseudoChecksum(const CAddress& from, const CAddress& to, unsigned char protocol, const CBytes& message)
{
    CBytes all = from.Host();
    AppendAll(all, to.Host());
    if (from.Family() == PS_AF_INET6) {
        Append32(all, static_cast<std::uint32_t>(message.size()));
        Append32(all, protocol);
    } else {
        Append16(all, protocol);
        Append16(all, static_cast<unsigned int>(message.size()));
    }
    AppendAll(all, message);
    return Checksum(all);
}

}  // namespace

std::uint16_t Checksum(const CBytes& data)
{
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < data.size(); ++i) {
        sum += i % 2 == 0 ? static_cast<std::uint32_t>(data[i]) << 8 : data[i];
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    return static_cast<std::uint16_t>(~sum);
}

void Put16(CBytes& packet, std::size_t at, unsigned int value)
{
    packet.at(at) = static_cast<unsigned char>(value >> 8);
    packet.at(at + 1) = static_cast<unsigned char>(value);
}

unsigned int Get16(const CBytes& packet, std::size_t at)
{
    return (static_cast<unsigned int>(packet.at(at)) << 8) | packet.at(at + 1);
}

std::uint32_t Get32(const CBytes& packet, std::size_t at)
{
    return (static_cast<std::uint32_t>(Get16(packet, at)) << 16) | Get16(packet, at + 2);
}

CBytes IpPacket(const CAddress& from, const CAddress& to, unsigned char protocol, const CBytes& payload)
{
    CBytes packet;
    if (from.Family() == PS_AF_INET6) {
        Append32(packet, 0x60000000);
        Append16(packet, static_cast<unsigned int>(payload.size()));
        packet.push_back(protocol);
        packet.push_back(64);
    } else {
        packet = {0x45, 0};
        Append16(packet, static_cast<unsigned int>(s_dwIpHeader + payload.size()));
        Append32(packet, 0x4B490000);
        packet.push_back(64);
        packet.push_back(protocol);
        Append16(packet, 0);
    }
    AppendAll(packet, from.Host());
    AppendAll(packet, to.Host());
    AppendAll(packet, payload);
    if (from.Family() == PS_AF_INET) {
        FixIpChecksum(packet);
    }
    return packet;
}

void FixIpChecksum(CBytes& packet)
{
    Put16(packet, 10, 0);
    const std::size_t length = std::min<std::size_t>((packet.at(0) & 15U) * 4U, packet.size());
    Put16(packet, 10, Checksum(CBytes(packet.begin(), packet.begin() + static_cast<std::ptrdiff_t>(length))));
}

CBytes UdpPacket(const CAddress& from, const CAddress& to, const CBytes& payload)
{
    CBytes message;
    Append16(message, from.Port());
    Append16(message, to.Port());
    Append16(message, static_cast<unsigned int>(s_dwUdpHeader + payload.size()));
    Append16(message, 0);
    AppendAll(message, payload);
    const unsigned int sum = PseudoChecksum(from, to, PS_IPPROTO_UDP, message);
    Put16(message, 6, sum == 0 ? 0xFFFF : sum);
    return IpPacket(from, to, PS_IPPROTO_UDP, message);
}

CBytes EchoMessage(const CAddress& from, const CAddress& to, unsigned int id, unsigned int sequence,
                   const CBytes& payload)
{
    const bool v6 = from.Family() == PS_AF_INET6;
    CBytes message = {v6 ? s_cEchoRequest6 : s_cEchoRequest, 0, 0, 0};
    Append16(message, id);
    Append16(message, sequence);
    AppendAll(message, payload);
    Put16(message, 2, v6 ? PseudoChecksum(from, to, PS_IPPROTO_ICMPV6, message) : Checksum(message));
    return message;
}

CBytes EchoRequest(const CAddress& from, const CAddress& to, unsigned int id, unsigned int sequence,
                   const CBytes& payload)
{
    return IpPacket(from, to, from.Family() == PS_AF_INET6 ? PS_IPPROTO_ICMPV6 : PS_IPPROTO_ICMP,
                    EchoMessage(from, to, id, sequence, payload));
}

CBytes TcpPacket(const CAddress& from, const CAddress& to, unsigned char flags, std::uint32_t sequence,
                 std::uint32_t acknowledged, const CBytes& payload, const CBytes& options, unsigned int window)
{
    CBytes segment;
    Append16(segment, from.Port());
    Append16(segment, to.Port());
    Append32(segment, sequence);
    Append32(segment, acknowledged);
    CBytes padded = options;
    padded.resize((options.size() + 3) / 4 * 4);
    segment.push_back(static_cast<unsigned char>((s_dwTcpHeader + padded.size()) / 4 << 4));
    segment.push_back(flags);
    Append16(segment, window);
    Append32(segment, 0);
    AppendAll(segment, padded);
    AppendAll(segment, payload);
    Put16(segment, 16, PseudoChecksum(from, to, PS_IPPROTO_TCP, segment));
    return IpPacket(from, to, PS_IPPROTO_TCP, segment);
}

std::size_t HeaderLength(const CBytes& packet)
{
    return packet.at(0) >> 4 == 6 ? s_dwIp6Header : (packet.at(0) & 15U) * 4U;
}

bool IsEchoReply(const CBytes& packet, unsigned int id, unsigned int sequence)
{
    const bool v6 = !packet.empty() && packet[0] >> 4 == 6;
    if (packet.size() < (v6 ? s_dwIp6Header : s_dwIpHeader) + 8) {
        return false;
    }
    const std::size_t at = HeaderLength(packet);
    return packet[v6 ? 6 : 9] == (v6 ? PS_IPPROTO_ICMPV6 : PS_IPPROTO_ICMP) &&
           packet[at] == (v6 ? s_cEchoReply6 : s_cEchoReply) && Get16(packet, at + 4) == id &&
           Get16(packet, at + 6) == sequence;
}

bool IsTcp(const CBytes& packet, unsigned int destinationPort)
{
    const bool v6 = !packet.empty() && packet[0] >> 4 == 6;
    if (packet.size() < (v6 ? s_dwIp6Header : s_dwIpHeader) + s_dwTcpHeader) {
        return false;
    }
    return packet[v6 ? 6 : 9] == PS_IPPROTO_TCP && Get16(packet, HeaderLength(packet) + 2) == destinationPort;
}

unsigned char TcpFlags(const CBytes& packet)
{
    return packet.at(HeaderLength(packet) + 13);
}

}  // namespace kit
