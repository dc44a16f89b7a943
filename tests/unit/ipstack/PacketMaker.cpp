#include "PacketMaker.h"

#include <arpa/inet.h>
#include <cstring>

namespace packetmaker
{

namespace
{

void Put16(CBytes& bytes, unsigned int value)
{
    bytes.push_back(static_cast<std::uint8_t>(value >> 8));
    bytes.push_back(static_cast<std::uint8_t>(value & 0xFF));
}

void Put32(CBytes& bytes, std::uint32_t value)
{
    Put16(bytes, value >> 16);
    Put16(bytes, value & 0xFFFF);
}

void Append(CBytes& bytes, const CBytes& more)
{
    bytes.insert(bytes.end(), more.begin(), more.end());
}

void Store16(CBytes& bytes, std::size_t at, unsigned int value)
{
    bytes[at] = static_cast<std::uint8_t>(value >> 8);
    bytes[at + 1] = static_cast<std::uint8_t>(value & 0xFF);
}

// RFC 1071.
unsigned int Checksum(const CBytes& bytes)
{
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        sum += static_cast<std::uint32_t>(bytes[i]) << (i % 2 == 0 ? 8 : 0);
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    return ~sum & 0xFFFF;
}

CBytes Pseudo4(const CHeader4& header, std::uint8_t protocol, std::size_t length)
{
    CBytes bytes(8);
    const std::uint32_t source = Address4(header.m_szSource);
    const std::uint32_t destination = Address4(header.m_szDestination);
    std::memcpy(bytes.data(), &source, 4);
    std::memcpy(bytes.data() + 4, &destination, 4);
    Put16(bytes, protocol);
    Put16(bytes, static_cast<unsigned int>(length));
    return bytes;
}

CBytes Pseudo6(const CHeader6& header, std::uint8_t protocol, std::size_t length)
{
    CBytes bytes;
    const auto source = Address6(header.m_szSource);
    const auto destination = Address6(header.m_szDestination);
    bytes.insert(bytes.end(), source.begin(), source.end());
    bytes.insert(bytes.end(), destination.begin(), destination.end());
    Put32(bytes, static_cast<std::uint32_t>(length));
    Put32(bytes, protocol);
    return bytes;
}

void Seal(CBytes& message, std::size_t checksumAt, CBytes pseudo)
{
    Append(pseudo, message);
    Store16(message, checksumAt, Checksum(pseudo));
}

CBytes UdpBare(std::uint16_t source, std::uint16_t destination, const CBytes& data)
{
    CBytes bytes;
    Put16(bytes, source);
    Put16(bytes, destination);
    Put16(bytes, static_cast<unsigned int>(8 + data.size()));
    Put16(bytes, 0);
    Append(bytes, data);
    return bytes;
}

CBytes TcpBare(const CTcp& tcp)
{
    CBytes bytes;
    Put16(bytes, tcp.m_wSource);
    Put16(bytes, tcp.m_wDestination);
    Put32(bytes, tcp.m_dwSequence);
    Put32(bytes, tcp.m_dwAck);
    Put16(bytes, static_cast<unsigned int>((20 + tcp.m_Options.size()) / 4) << 12 | tcp.m_bFlags);
    Put16(bytes, tcp.m_wWindow);
    Put32(bytes, 0);
    Append(bytes, tcp.m_Options);
    Append(bytes, tcp.m_Data);
    return bytes;
}

CBytes EchoBare(std::uint8_t type, std::uint16_t id, const CBytes& data)
{
    CBytes bytes{type, 0, 0, 0};
    Put16(bytes, id);
    Put16(bytes, 1);
    Append(bytes, data);
    return bytes;
}

}  // namespace

std::uint32_t Address4(const char* text)
{
    in_addr address{};
    inet_pton(AF_INET, text, &address);
    return address.s_addr;
}

std::array<std::uint8_t, 16> Address6(const char* text)
{
    std::array<std::uint8_t, 16> bytes{};
    inet_pton(AF_INET6, text, bytes.data());
    return bytes;
}

CPacket Make4(const CHeader4& header, const CBytes& payload)
{
    CPacket packet{0x45, 0};
    Put16(packet, static_cast<unsigned int>(20 + payload.size()));
    Put16(packet, header.m_wId);
    Put16(packet, header.m_wFragment);
    packet.push_back(64);
    packet.push_back(header.m_bProtocol);
    Put16(packet, 0);
    const CBytes addresses = Pseudo4(header, 0, 0);
    packet.insert(packet.end(), addresses.begin(), addresses.begin() + 8);
    FixChecksum4(packet);
    Append(packet, payload);
    return packet;
}

void FixChecksum4(CPacket& packet)
{
    Store16(packet, 10, 0);
    const std::size_t length = static_cast<std::size_t>(packet[0] & 0x0F) * 4;
    Store16(packet, 10, Checksum(CBytes(packet.begin(), packet.begin() + static_cast<std::ptrdiff_t>(length))));
}

CPacket Make6(const CHeader6& header, const CBytes& payload)
{
    CPacket packet{0x60, 0, 0, 0};
    Put16(packet, static_cast<unsigned int>(payload.size()));
    packet.push_back(header.m_bNext);
    packet.push_back(64);
    const CBytes addresses = Pseudo6(header, 0, 0);
    packet.insert(packet.end(), addresses.begin(), addresses.begin() + 32);
    Append(packet, payload);
    return packet;
}

CBytes Udp4(const CHeader4& header, std::uint16_t source, std::uint16_t destination, const CBytes& data)
{
    CBytes bytes = UdpBare(source, destination, data);
    Seal(bytes, 6, Pseudo4(header, 17, bytes.size()));
    return bytes;
}

CBytes Udp6(const CHeader6& header, std::uint16_t source, std::uint16_t destination, const CBytes& data)
{
    CBytes bytes = UdpBare(source, destination, data);
    Seal(bytes, 6, Pseudo6(header, 17, bytes.size()));
    return bytes;
}

CBytes Tcp4(const CHeader4& header, const CTcp& tcp)
{
    CBytes bytes = TcpBare(tcp);
    Seal(bytes, 16, Pseudo4(header, 6, bytes.size()));
    return bytes;
}

CBytes Tcp6(const CHeader6& header, const CTcp& tcp)
{
    CBytes bytes = TcpBare(tcp);
    Seal(bytes, 16, Pseudo6(header, 6, bytes.size()));
    return bytes;
}

CBytes Fragment6(std::uint8_t next, unsigned int offset, bool more, std::uint32_t id, const CBytes& payload)
{
    CBytes bytes{next, 0};
    Put16(bytes, offset | (more ? 1U : 0U));
    Put32(bytes, id);
    Append(bytes, payload);
    return bytes;
}

CBytes Extension6(std::uint8_t next, const CBytes& payload)
{
    CBytes bytes{next, 0, 1, 4, 0, 0, 0, 0};
    Append(bytes, payload);
    return bytes;
}

CBytes Echo4(std::uint16_t id, const CBytes& data)
{
    CBytes bytes = EchoBare(8, id, data);
    Store16(bytes, 2, Checksum(bytes));
    return bytes;
}

CBytes Echo6(const CHeader6& header, std::uint16_t id, const CBytes& data)
{
    CBytes bytes = EchoBare(128, id, data);
    Seal(bytes, 2, Pseudo6(header, 58, bytes.size()));
    return bytes;
}

CBytes Icmp4(std::uint8_t type, std::uint8_t code, const CBytes& rest)
{
    CBytes bytes{type, code, 0, 0};
    Append(bytes, rest);
    Store16(bytes, 2, Checksum(bytes));
    return bytes;
}

CBytes Icmp6(const CHeader6& header, std::uint8_t type, std::uint8_t code, const CBytes& rest)
{
    CBytes bytes{type, code, 0, 0};
    Append(bytes, rest);
    Seal(bytes, 2, Pseudo6(header, 58, bytes.size()));
    return bytes;
}

}  // namespace packetmaker
