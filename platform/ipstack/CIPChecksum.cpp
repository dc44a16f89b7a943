#include "CIPChecksum.h"

#include <cstring>

#include "lwip/opt.h"

namespace ipstack
{

namespace
{

constexpr std::size_t s_nStep = sizeof(std::uint64_t);

std::uint64_t Load(const unsigned char* at) noexcept
{
    std::uint64_t word;
    std::memcpy(&word, at, sizeof(word));
    return word;
}

// Both halves, so that nothing carries out of 64 bits however long the data is.
std::uint64_t Halves(std::uint64_t word) noexcept
{
    return (word & 0xFFFFFFFFu) + (word >> 32);
}

}  // namespace

std::uint16_t CIPChecksum::Sum(const void* data, std::size_t length) noexcept
{
    const auto* at = static_cast<const unsigned char*>(data);
    std::uint64_t sums[4] = {0, 0, 0, 0};
    for (; length >= 4 * s_nStep; length -= 4 * s_nStep, at += 4 * s_nStep) {
        sums[0] += Halves(Load(at));
        sums[1] += Halves(Load(at + s_nStep));
        sums[2] += Halves(Load(at + 2 * s_nStep));
        sums[3] += Halves(Load(at + 3 * s_nStep));
    }
    for (; length >= s_nStep; length -= s_nStep, at += s_nStep) {
        sums[0] += Halves(Load(at));
    }
    if (length != 0) {
        std::uint64_t last = 0;
        std::memcpy(&last, at, length);
        sums[1] += Halves(last);
    }
    std::uint64_t sum = Halves(sums[0]) + Halves(sums[1]) + Halves(sums[2]) + Halves(sums[3]);
    while (sum >> 16) {
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    return static_cast<std::uint16_t>(sum);
}

}  // namespace ipstack

extern "C" unsigned short uxport_ipstack_checksum(const void* data, int length)
{
    return ipstack::CIPChecksum::Sum(data, static_cast<std::size_t>(length));
}
