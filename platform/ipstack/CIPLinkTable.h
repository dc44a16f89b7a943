// The links of the stack: whose address is whose, who is whose partner, which way a packet goes.
#ifndef IPSTACK_CIPLINKTABLE_H
#define IPSTACK_CIPLINKTABLE_H

#include "CIPPacketFilter.h"
#include "lwip/ip_addr.h"

struct netif;

namespace ipstack
{

// Every call: the core lock is held. The loopback interface is not in the table.
class CIPLinkTable
{
public:
    // Takes a link in, with the addresses and the MTU that its netif has by now.
    static void AddLink(netif* link);

    // Takes a link out, before its netif goes; its partner has none from then on.
    static void RemoveLink(netif* link) noexcept;

    // Makes two links the ends of one wire: what one emits for the other's address leaves by it instead of
    // staying inside, and the other's address may be a source there.
    static void SetPartners(netif* linkA, netif* linkB) noexcept;

    // The filter's facts of a link; those of an unknown one accept nothing.
    static const CIPLinkFacts& GetFacts(const netif* link) noexcept;

    // The link that has this address, null when none has.
    static netif* FindOwner(const ip_addr_t& address) noexcept;

    // The link for a packet. Null: lwIP's own choice is right.
    static netif* Route4(const ip4_addr_t& source, const ip4_addr_t& destination) noexcept;
    static netif* Route6(const ip6_addr_t& source, const ip6_addr_t& destination) noexcept;
};

}  // namespace ipstack

#endif
