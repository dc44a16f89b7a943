// The system's random numbers, the same ones in every process: a find that hangs on a port or a first sequence number
// comes again.
#include <sys/random.h>

#include <cstdint>

extern "C" ssize_t getrandom(void* data, size_t length, unsigned int)
{
    static std::uint64_t s_qwState = 0x9e3779b97f4a7c15U;
    for (size_t i = 0; i < length; ++i) {
        // xorshift64 (Marsaglia 2003)
        s_qwState ^= s_qwState << 13;
        s_qwState ^= s_qwState >> 7;
        s_qwState ^= s_qwState << 17;
        static_cast<unsigned char*>(data)[i] = static_cast<unsigned char>(s_qwState >> 32);
    }
    return static_cast<ssize_t>(length);
}
