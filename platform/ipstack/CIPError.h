// Error numbers of the calls.
#ifndef IPSTACK_CIPERROR_H
#define IPSTACK_CIPERROR_H

#include "ipstack/ps_defines.h"
#include "lwip/err.h"

namespace ipstack
{

class CIPError
{
public:
    // Keeps the cause for get_pserrno of the calling thread. Returns: -1.
    static int Fail(int error) noexcept;

    // What a socket's operation answers: a value, or a negative error number that becomes -1 and the cause.
    static long Answer(long result) noexcept { return result >= 0 ? result : Fail(static_cast<int>(-result)); }

    static int Get() noexcept;

    // The error number of a call to lwIP that failed.
    static int FromLwip(err_t error) noexcept;
};

}  // namespace ipstack

#endif
