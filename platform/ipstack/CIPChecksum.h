// The checksum of the Internet protocols.
#ifndef IPSTACK_CIPCHECKSUM_H
#define IPSTACK_CIPCHECKSUM_H

#include <cstddef>
#include <cstdint>

namespace ipstack
{

// RFC 1071, eight bytes a step. lwIP sums with it, through LWIP_CHKSUM.
class CIPChecksum
{
public:
    // The folded sum of the 16-bit words as they lie in memory, an odd byte padded with 0; not inverted.
    static std::uint16_t Sum(const void* data, std::size_t length) noexcept;
};

}  // namespace ipstack

#endif
