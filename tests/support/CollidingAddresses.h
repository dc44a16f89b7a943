// Addresses that a stranger would choose against a hash without a key.
#ifndef TESTS_SUPPORT_COLLIDINGADDRESSES_H
#define TESTS_SUPPORT_COLLIDINGADDRESSES_H

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "mantle/CMNInetAddr.h"

// FNV-1a over family, port and IPv4 address, the hash that everybody can compute. What a finisher makes of equal numbers
// is equal, so that these addresses met in every table.
class CUnkeyedHash
{
public:
    static std::uint32_t Of(const mantle::CMNInetAddr& address)
    {
        const auto* bytes = static_cast<const unsigned char*>(address.GetPtr());
        std::uint32_t value = Add(s_dwBasis, static_cast<unsigned char>(address.GetType()));
        for (int at = 2; at < 8; ++at)
            value = Add(value, bytes[at]);
        return value;
    }

    // `count` IPv4 addresses of one hash. The last two bytes are computed backwards from it, the port and the first two
    // are tried until they meet one of these.
    static std::vector<mantle::CMNInetAddr> Collide(std::size_t count)
    {
        constexpr std::uint32_t target = 0x12345678;
        std::unordered_map<std::uint32_t, unsigned int> ends;  // what leads to the target, with which bytes
        std::vector<bool> filter(s_dwFilter);
        for (unsigned int bytes = 0; bytes < 0x10000; ++bytes) {
            const std::uint32_t before = Undo(Undo(target, bytes & 0xff), bytes >> 8);
            ends[before] = bytes;
            filter[before % s_dwFilter] = true;
        }
        std::vector<mantle::CMNInetAddr> found;
        for (unsigned int port = 1024; port < 0x10000 && found.size() < count; ++port) {
            const std::uint32_t ofPort = Add(Add(Add(s_dwBasis, 2), port >> 8), port & 0xff);
            for (unsigned int bytes = 0x0100; bytes < 0xe000 && found.size() < count; ++bytes) {
                const std::uint32_t value = Add(Add(ofPort, bytes >> 8), bytes & 0xff);
                if (!filter[value % s_dwFilter])
                    continue;
                if (const auto end = ends.find(value); end != ends.end())
                    found.push_back(Make(bytes, end->second, static_cast<unsigned short>(port)));
            }
        }
        return found;
    }

private:
    static constexpr std::uint32_t s_dwBasis = 2166136261U;
    static constexpr std::uint32_t s_dwPrime = 16777619U;
    static constexpr std::uint32_t s_dwInverse = 899433627U;  // of the prime, modulo 2 to the 32nd
    static constexpr std::uint32_t s_dwFilter = 1U << 24;

    static std::uint32_t Add(std::uint32_t value, unsigned int byte) { return (value ^ byte) * s_dwPrime; }
    static std::uint32_t Undo(std::uint32_t value, unsigned int byte) { return (value * s_dwInverse) ^ byte; }
    static mantle::CMNInetAddr Make(unsigned int first, unsigned int last, unsigned short port)
    {
        const std::string host = std::to_string(first >> 8) + "." + std::to_string(first & 0xff) + "." +
                                 std::to_string(last >> 8) + "." + std::to_string(last & 0xff);
        return mantle::CMNInetAddr(host, port);
    }
};

#endif
