// A 32-bit integer that threads share.
#ifndef MANTLE_CMNATOMIC_H
#define MANTLE_CMNATOMIC_H

#include <atomic>
#include <cstdint>

namespace mantle
{

using CMNAtomic32 = std::atomic<std::int32_t>;

}  // namespace mantle

#endif
