// Looks at packets before the stack does.
#ifndef IPSTACK_CIPPACKETFILTER_H
#define IPSTACK_CIPPACKETFILTER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "CIPCounters.h"

struct netif;
struct pbuf;

namespace ipstack
{

// Sixteen bytes of an IPv6 address, in network order.
using CIPAddress6 = std::array<std::uint8_t, 16>;

// The addresses of all links, loopback's excepted. IPv4 addresses are in network order.
struct CIPOwnAddresses
{
    std::vector<std::uint32_t> m_Addresses4;  // sorted
    std::vector<CIPAddress6> m_Addresses6;    // sorted

    bool Has4(std::uint32_t address) const noexcept;
    bool Has6(const CIPAddress6& address) const noexcept;
};

// What the filter must know of the link that a packet came in by.
struct CIPLinkFacts
{
    unsigned int m_dwMtu = 0;
    const CIPOwnAddresses* m_pOwn = nullptr;
    // The first and the last address of the link's network, which are nobody's (RFC 1122, section 3.2.1.3); 0 where
    // the mask leaves at most one bit (RFC 3021) or none.
    std::uint32_t m_dwNetwork4 = 0;
    std::uint32_t m_dwBroadcast4 = 0;
    // The other end of a wire between two links of this stack: an own address that may be a source here.
    std::uint32_t m_dwPartner4 = 0;
    bool m_bPartner6 = false;
    CIPAddress6 m_Partner6{};
};

// Keeps out what lwIP must not see: malformed packets (some of which would lead it outside the packet or into a
// corrupt reassembly), and of a link's also forged sources and what is not for this stack.
class CIPPacketFilter
{
public:
    // The verdict on a packet that may pass.
    static constexpr CIPCounters::EId Accepted = CIPCounters::Count;

    // A datagram's end may not lie beyond these (payload bytes behind the header).
    static constexpr unsigned int MaxReassembled4 = 65515;
    static constexpr unsigned int MaxReassembled6 = 65000;
    static constexpr unsigned int MaxExtensionHeaders = 8;

    // Looks at the bytes only. Returns: Accepted, or the counter that names the reason to drop it.
    static CIPCounters::EId Check(const std::uint8_t* data, std::size_t length, const CIPLinkFacts& facts) noexcept;

    // The same for what this stack has sent to an address of its own: any address and any length may be.
    static CIPCounters::EId CheckLooped(const std::uint8_t* data, std::size_t length) noexcept;

    // Counts and checks a packet of `link` (known to CIPLinkTable) and copies it for the stack. State: the core
    // lock is held. Returns: the packet, for CIPDemux::Input; null when it was dropped and counted.
    static pbuf* Admit(netif* link, const void* data, std::size_t length) noexcept;

    // The same for what Copy has copied already: it is freed when it is dropped.
    static pbuf* Admit(netif* link, pbuf* packet) noexcept;

    // Whether a packet from a link's own queue is what lwIP makes for TCP, UDP and ICMP: a bare header in front of a
    // whole message. Any other may be a program's, through a raw socket.
    static bool IsPlain(const std::uint8_t* data, std::size_t length) noexcept
    {
        constexpr unsigned int noOptions4 = 0x45;  // version 4, five words
        constexpr std::size_t header4 = 20;
        constexpr std::size_t header6 = 40;
        constexpr unsigned int fragment4 = 0x3FFF;  // more fragments, offset
        constexpr unsigned int icmp = 1;
        constexpr unsigned int tcp = 6;
        constexpr unsigned int udp = 17;
        const auto load = [data](std::size_t at) { return static_cast<unsigned int>(data[at]) << 8 | data[at + 1]; };
        if (length >= header4 && data[0] == noOptions4) {
            return load(2) == length && (load(6) & fragment4) == 0 &&
                   (data[9] == tcp || data[9] == udp || data[9] == icmp);
        }
        return length >= header6 && data[0] >> 4 == 6 && header6 + load(4) == length &&
               (data[6] == tcp || data[6] == udp);
    }

    // Checks one that is not plain, flat and exactly as long as its buffer. State: the core lock is held. Returns: a
    // copy with spare bytes behind it; null when it was dropped and counted.
    static pbuf* AdmitLooped(pbuf* packet) noexcept;

    // A flat copy with spare bytes behind its end, for parsers that look a byte too far. Thread: any. Returns: null
    // when there is no memory.
    static pbuf* Copy(const void* data, std::size_t length) noexcept;
};

}  // namespace ipstack

#endif
