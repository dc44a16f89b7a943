#include "mantle/CMNRandom.h"

#include <random>

#if defined(__linux__)
#  include <sys/random.h>
#  include <cerrno>
#endif

namespace mantle
{

void CMNRandom::Fill(void* data, std::size_t length) noexcept
{
    unsigned char* at = static_cast<unsigned char*>(data);
#if defined(__linux__)
    while (length > 0) {
        const ssize_t got = ::getrandom(at, length, 0);
        if (got < 0) {
            if (errno == EINTR)
                continue;
            break;
        }
        at += got;
        length -= static_cast<std::size_t>(got);
    }
#endif
    if (length > 0) {
        std::random_device device;
        for (; length > 0; --length) {
            *at++ = static_cast<unsigned char>(device());
        }
    }
}

}  // namespace mantle
