// Initial sequence numbers of TCP connections.
#ifndef IPSTACK_CIPISN_H
#define IPSTACK_CIPISN_H

#include <cstdint>

#include "lwip/ip_addr.h"
#include "mantle/CMNSipHash.h"

namespace ipstack
{

// RFC 6528: a clock that ticks every 4 microseconds plus a keyed hash of the connection's addresses and ports, so
// that one connection's numbers grow while nobody without the key can tell another connection's.
class CIPIsn
{
public:
    // The number for a connection that opens now. Units: ports in host byte order.
    static std::uint32_t Make(const ip_addr_t& localIp, std::uint16_t localPort, const ip_addr_t& remoteIp,
                              std::uint16_t remotePort) noexcept;

    // The same for a given key and time.
    static std::uint32_t Compute(const std::uint8_t (&key)[mantle::CMNSipHash::KeyLength], long long nowUs,
                                 const ip_addr_t& localIp, std::uint16_t localPort, const ip_addr_t& remoteIp,
                                 std::uint16_t remotePort) noexcept;
};

}  // namespace ipstack

#endif
