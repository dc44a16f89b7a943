#include "KitAddress.h"

#include <cstring>

namespace kit
{

namespace
{

std::uint16_t ToNetwork(unsigned int value)
{
    const unsigned char bytes[2] = {static_cast<unsigned char>(value >> 8), static_cast<unsigned char>(value)};
    std::uint16_t result;
    std::memcpy(&result, bytes, sizeof(result));
    return result;
}

unsigned int FromNetwork(std::uint16_t value)
{
    unsigned char bytes[2];
    std::memcpy(bytes, &value, sizeof(value));
    return (static_cast<unsigned int>(bytes[0]) << 8) | bytes[1];
}

}  // namespace

CAddress CAddress::V4(unsigned int a, unsigned int b, unsigned int c, unsigned int d, unsigned int port)
{
    const unsigned char host[4] = {static_cast<unsigned char>(a), static_cast<unsigned char>(b),
                                   static_cast<unsigned char>(c), static_cast<unsigned char>(d)};
    CAddress made;
    made.m_Record.m_V4.sin_len = sizeof(ps_sockaddr_in);
    made.m_Record.m_V4.sin_family = PS_AF_INET;
    made.m_Record.m_V4.sin_port = ToNetwork(port);
    std::memcpy(&made.m_Record.m_V4.sin_addr, host, sizeof(host));
    return made;
}

CAddress CAddress::V6(const std::uint8_t (&address)[16], unsigned int port)
{
    CAddress made;
    made.m_Record.m_V6.sin6_len = sizeof(ps_sockaddr_in6);
    made.m_Record.m_V6.sin6_family = PS_AF_INET6;
    made.m_Record.m_V6.sin6_port = ToNetwork(port);
    std::memcpy(made.m_Record.m_V6.sin6_addr, address, sizeof(address));
    return made;
}

CAddress CAddress::Loopback6(unsigned int port)
{
    const std::uint8_t address[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    return V6(address, port);
}

CAddress CAddress::Any6(unsigned int port)
{
    const std::uint8_t address[16] = {};
    return V6(address, port);
}

int CAddress::Length() const
{
    return static_cast<int>(Family() == PS_AF_INET6 ? sizeof(ps_sockaddr_in6) : sizeof(ps_sockaddr_in));
}

unsigned int CAddress::Port() const
{
    return FromNetwork(Family() == PS_AF_INET6 ? m_Record.m_V6.sin6_port : m_Record.m_V4.sin_port);
}

CAddress CAddress::WithPort(unsigned int port) const
{
    CAddress changed = *this;
    (Family() == PS_AF_INET6 ? changed.m_Record.m_V6.sin6_port : changed.m_Record.m_V4.sin_port) = ToNetwork(port);
    return changed;
}

CBytes CAddress::Host() const
{
    if (Family() == PS_AF_INET6) {
        return CBytes(m_Record.m_V6.sin6_addr, m_Record.m_V6.sin6_addr + sizeof(m_Record.m_V6.sin6_addr));
    }
    CBytes host(sizeof(m_Record.m_V4.sin_addr));
    std::memcpy(host.data(), &m_Record.m_V4.sin_addr, host.size());
    return host;
}

}  // namespace kit
