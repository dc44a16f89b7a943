// The messages of ICMP echo (RFC 792).
#ifndef PING_ICMPECHO_H
#define PING_ICMPECHO_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace icmp
{

inline constexpr unsigned short PROTOCOL = 1;
inline constexpr std::size_t HEADER_LENGTH = 8;

struct CReply
{
    unsigned int m_dwIdentifier;
    unsigned int m_dwSequence;
    unsigned int m_dwTtl;
    std::size_t m_nLength;  // of the ICMP message
};

// The Internet checksum (RFC 1071).
inline std::uint16_t Checksum(const std::vector<unsigned char>& bytes)
{
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i)
        sum += i % 2 == 0 ? static_cast<std::uint32_t>(bytes[i]) << 8 : bytes[i];
    while (sum > 0xFFFF)
        sum = (sum & 0xFFFF) + (sum >> 16);
    return static_cast<std::uint16_t>(~sum);
}

inline std::vector<unsigned char> MakeRequest(unsigned int identifier, unsigned int sequence, std::size_t dataLength)
{
    constexpr unsigned char echoRequest = 8;
    std::vector<unsigned char> message(HEADER_LENGTH + dataLength);
    const auto put = [&message](std::size_t at, unsigned int value) {
        message[at] = static_cast<unsigned char>(value >> 8);
        message[at + 1] = static_cast<unsigned char>(value);
    };
    message[0] = echoRequest;
    put(4, identifier);
    put(6, sequence);
    put(2, Checksum(message));
    return message;
}

// Reads what a raw connection hears: an IPv4 header, then the message. Returns: nothing when it is no echo reply.
inline std::optional<CReply> ReadReply(const void* packet, std::size_t length)
{
    constexpr std::size_t leastIpHeader = 20;
    constexpr std::size_t ttlAt = 8;
    constexpr unsigned char echoReply = 0;
    const auto* ip = static_cast<const unsigned char*>(packet);
    if (length < leastIpHeader)
        return std::nullopt;
    const std::size_t header = (ip[0] & 0xFU) * 4;
    if (length < header + HEADER_LENGTH || ip[header] != echoReply)
        return std::nullopt;
    const unsigned char* message = ip + header;
    return CReply{message[4] * 256U + message[5], message[6] * 256U + message[7], ip[ttlAt], length - header};
}

}  // namespace icmp

#endif
