// A keyed hash for short messages.
#ifndef IPSTACK_CIPSIPHASH_H
#define IPSTACK_CIPSIPHASH_H

#include <cstddef>
#include <cstdint>

namespace ipstack
{

// SipHash-2-4 as in Aumasson and Bernstein, "SipHash: a fast short-input PRF", INDOCRYPT 2012.
class CIPSipHash
{
public:
    static constexpr std::size_t KeyLength = 16;

    // Units: `key` and the message are byte strings; words are read little-endian, as the paper has it.
    static std::uint64_t Hash(const std::uint8_t (&key)[KeyLength], const std::uint8_t* message,
                              std::size_t length) noexcept;
};

}  // namespace ipstack

#endif
