// Random numbers from the system's generator.
#ifndef IPSTACK_CIPRANDOM_H
#define IPSTACK_CIPRANDOM_H

#include <cstdint>

namespace ipstack
{

// Thread: any.
class CIPRandom
{
public:
    // An unpredictable number, all values equally likely; for ports.
    static std::uint32_t Get32() noexcept;

    // An unpredictable number below `bound`, all values equally likely; 0 when `bound` is 0.
    static std::uint32_t GetBelow(std::uint32_t bound) noexcept;
};

}  // namespace ipstack

#endif
