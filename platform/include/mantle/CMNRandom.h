// Random numbers from the system's generator.
#ifndef MANTLE_CMNRANDOM_H
#define MANTLE_CMNRANDOM_H

#include <cstddef>

#include "mantle/MNDefines.h"

namespace mantle
{

class MANTLE_API CMNRandom
{
public:
    // Unpredictable bytes, for keys. A system call. Thread: any.
    static void Fill(void* data, std::size_t length) noexcept;
};

}  // namespace mantle

#endif
