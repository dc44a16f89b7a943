// Socket addresses and lwIP's.
#ifndef IPSTACK_CIPADDRESS_H
#define IPSTACK_CIPADDRESS_H

#include "ipstack/ps_defines.h"
#include "lwip/ip_addr.h"

namespace ipstack
{

// An IP address with a port in host byte order.
struct CIPAddress
{
    ip_addr_t m_Ip = IPADDR4_INIT(0);
    u16_t m_wPort = 0;

    // The unspecified address of a family.
    static CIPAddress Any(int family) noexcept;

    // Reads a record by its family byte; the length byte is not looked at, `length` must suffice for the family.
    // Returns: 0; PS_EINVAL for a null or short record, PS_EAFNOSUPPORT for an unknown family.
    int Read(const ps_sockaddr* address, int length) noexcept;

    // Writes the record, cut off at the room that `*length` says, and its whole length to `*length`. Null
    // `address` or `length` writes nothing.
    void Write(ps_sockaddr* address, int* length) const noexcept;

    int GetFamily() const noexcept { return IP_IS_V6(&m_Ip) ? PS_AF_INET6 : PS_AF_INET; }
    bool IsAny() const noexcept { return ip_addr_isany(&m_Ip); }

    // Whether a link, or the loopback one, has this address.
    static bool IsOwn(const ip_addr_t& ip) noexcept;
};

}  // namespace ipstack

#endif
