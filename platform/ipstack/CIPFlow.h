// Who sends a packet to whom.
#ifndef IPSTACK_CIPFLOW_H
#define IPSTACK_CIPFLOW_H

#include <cstdint>

#include "lwip/ip_addr.h"

struct pbuf;

namespace ipstack
{

// The addresses and ports of a packet whose transport header is whole and in the first buffer.
struct CIPFlow
{
    ip_addr_t m_Source;
    ip_addr_t m_Destination;
    u16_t m_wSourcePort = 0;
    u16_t m_wDestinationPort = 0;
    u8_t m_bProtocol = 0;
    // Of a TCP segment whose fixed header is there.
    bool m_bSynOnly = false;
    u32_t m_dwSequence = 0;

    // Reads it. Returns: false for fragments, extension headers and what is neither TCP nor UDP.
    bool Read(const pbuf* packet) noexcept;
};

// A keyed mix of words, so that peers cannot choose ports that meet in one bucket.
class CIPFlowMixer
{
public:
    static const CIPFlowMixer& Instance() noexcept;

    std::uint64_t Ports(u16_t local, u16_t remote) const noexcept
    {
        return Step(m_Secret[0], static_cast<std::uint64_t>(local) << 16 | remote);
    }
    std::uint64_t Address(std::uint64_t hash, const ip_addr_t& address) const noexcept
    {
        if (IP_IS_V6_VAL(address)) {
            const u32_t* words = ip_2_ip6(&address)->addr;
            hash = Step(hash, static_cast<std::uint64_t>(words[0]) << 32 | words[1]);
            return Step(hash, static_cast<std::uint64_t>(words[2]) << 32 | words[3]);
        }
        return Step(hash, ip_2_ip4(&address)->addr);
    }

    std::uint64_t Word(std::uint64_t word) const noexcept { return Step(m_Secret[0], word); }

private:
    CIPFlowMixer() noexcept;

    // Folds a 64 by 64 bit product.
    std::uint64_t Step(std::uint64_t hash, std::uint64_t word) const noexcept
    {
        const std::uint64_t a = hash ^ m_Secret[1];
        const std::uint64_t b = word ^ m_Secret[2];
        const std::uint64_t low = (a & 0xFFFFFFFFU) * (b & 0xFFFFFFFFU);
        const std::uint64_t mid1 = (a >> 32) * (b & 0xFFFFFFFFU);
        const std::uint64_t mid2 = (a & 0xFFFFFFFFU) * (b >> 32);
        const std::uint64_t high = (a >> 32) * (b >> 32);
        const std::uint64_t middle = (low >> 32) + (mid1 & 0xFFFFFFFFU) + (mid2 & 0xFFFFFFFFU);
        return (middle << 32 | (low & 0xFFFFFFFFU)) ^ (high + (mid1 >> 32) + (mid2 >> 32) + (middle >> 32)) ^
               m_Secret[3];
    }

    std::uint64_t m_Secret[4];
};

}  // namespace ipstack

#endif
