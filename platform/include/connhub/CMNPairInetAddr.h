// The two ends of a session, as a key.
#ifndef CONNHUB_CMNPAIRINETADDR_H
#define CONNHUB_CMNPAIRINETADDR_H

#include <cstddef>
#include <cstdint>

#include "mantle/CMNInetAddr.h"

namespace connhub
{

// First the source, second the local address.
struct CMNPairInetAddr
{
    mantle::CMNInetAddr first;
    mantle::CMNInetAddr second;
};

inline bool operator==(const CMNPairInetAddr& a, const CMNPairInetAddr& b) noexcept
{
    return a.first == b.first && a.second == b.second;
}

inline bool operator!=(const CMNPairInetAddr& a, const CMNPairInetAddr& b) noexcept
{
    return !(a == b);
}

// Folds a signed 32-bit number onto itself with arithmetic shifts (the sign comes in from above) by 16 and by 8,
// and widens the result with its sign.
inline std::size_t FoldInetAddrHash(std::int32_t value) noexcept
{
    value ^= value >> 16;
    value ^= value >> 8;
    return static_cast<std::size_t>(static_cast<std::ptrdiff_t>(value));
}

// Hash of a pair: both addresses' hashes, one on the other, folded.
struct InetAddrHash
{
    std::size_t operator()(const CMNPairInetAddr& pair) const noexcept
    {
        return FoldInetAddrHash(static_cast<std::int32_t>(pair.first.hash() ^ pair.second.hash()));
    }
};

}  // namespace connhub

#endif
