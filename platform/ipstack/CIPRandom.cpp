#include "CIPRandom.h"

#include <cstring>

#include "arch/cc.h"
#include "mantle/CMNMutexThread.h"
#include "mantle/CMNRandom.h"

namespace ipstack
{

namespace
{

// Numbers taken from the system in one go.
constexpr std::size_t PoolLength = 256;

mantle::CMNMutexThread s_Mutex;
unsigned char s_Pool[PoolLength] MN_GUARDED_BY(s_Mutex);
std::size_t s_nLeft MN_GUARDED_BY(s_Mutex) = 0;

}  // namespace

std::uint32_t CIPRandom::Get32() noexcept
{
    mantle::CMNMutexGuard guard(s_Mutex);
    if (s_nLeft < sizeof(std::uint32_t)) {
        mantle::CMNRandom::Fill(s_Pool, sizeof(s_Pool));
        s_nLeft = sizeof(s_Pool);
    }
    s_nLeft -= sizeof(std::uint32_t);
    std::uint32_t value;
    std::memcpy(&value, s_Pool + s_nLeft, sizeof(value));
    return value;
}

std::uint32_t CIPRandom::GetBelow(std::uint32_t bound) noexcept
{
    if (bound == 0) {
        return 0;
    }
    // Values above the last whole multiple of the bound would favour small results.
    const std::uint32_t limit = UINT32_MAX - UINT32_MAX % bound;
    std::uint32_t value = Get32();
    while (value >= limit) {
        value = Get32();
    }
    return value % bound;
}

}  // namespace ipstack

extern "C" uint32_t uxport_ipstack_random(void)
{
    return ipstack::CIPRandom::Get32();
}
