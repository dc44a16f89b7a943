#include "CIPIsn.h"

#include <cstring>

#include "lwip_hooks.h"
#include "mantle/CMNClock.h"
#include "mantle/CMNRandom.h"

namespace ipstack
{

namespace
{

constexpr long long TickUs = 4;              // RFC 6528, section 3
constexpr std::size_t AddressRoom = 1 + 16;  // family, address
constexpr std::size_t MessageLength = 2 * (AddressRoom + 2);

std::uint8_t* PutAddress(std::uint8_t* at, const ip_addr_t& address) noexcept
{
    std::memset(at, 0, AddressRoom);
    if (IP_IS_V6_VAL(address)) {
        at[0] = 6;
        std::memcpy(at + 1, ip_2_ip6(&address)->addr, 16);
    } else {
        at[0] = 4;
        std::memcpy(at + 1, &ip_2_ip4(&address)->addr, 4);
    }
    return at + AddressRoom;
}

std::uint8_t* PutPort(std::uint8_t* at, std::uint16_t port) noexcept
{
    at[0] = static_cast<std::uint8_t>(port >> 8);
    at[1] = static_cast<std::uint8_t>(port & 0xFF);
    return at + 2;
}

// The secret key of this process.
struct CKey
{
    CKey() noexcept { mantle::CMNRandom::Fill(m_Bytes, sizeof(m_Bytes)); }

    std::uint8_t m_Bytes[mantle::CMNSipHash::KeyLength];
};

}  // namespace

std::uint32_t CIPIsn::Make(const ip_addr_t& localIp, std::uint16_t localPort, const ip_addr_t& remoteIp,
                           std::uint16_t remotePort) noexcept
{
    static const CKey s_Key;
    return Compute(s_Key.m_Bytes, mantle::CMNClock::NowUs(), localIp, localPort, remoteIp, remotePort);
}

std::uint32_t CIPIsn::Compute(const std::uint8_t (&key)[mantle::CMNSipHash::KeyLength], long long nowUs,
                              const ip_addr_t& localIp, std::uint16_t localPort, const ip_addr_t& remoteIp,
                              std::uint16_t remotePort) noexcept
{
    std::uint8_t message[MessageLength];
    std::uint8_t* at = PutPort(PutAddress(message, localIp), localPort);
    PutPort(PutAddress(at, remoteIp), remotePort);
    return static_cast<std::uint32_t>(nowUs / TickUs) +
           static_cast<std::uint32_t>(mantle::CMNSipHash::Hash(key, message, sizeof(message)));
}

}  // namespace ipstack

extern "C" u32_t uxport_ipstack_tcp_isn(const ip_addr_t* localIp, u16_t localPort, const ip_addr_t* remoteIp,
                                        u16_t remotePort)
{
    return ipstack::CIPIsn::Make(*localIp, localPort, *remoteIp, remotePort);
}
