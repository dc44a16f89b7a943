// Address records of the kit.
#ifndef TESTS_KIT_KITADDRESS_H
#define TESTS_KIT_KITADDRESS_H

#include <cstdint>
#include <vector>

#include "ipstack/ps_defines.h"

namespace kit
{

using CBytes = std::vector<unsigned char>;

// An address record of either family.
class CAddress
{
public:
    CAddress() = default;
    static CAddress V4(unsigned int a, unsigned int b, unsigned int c, unsigned int d, unsigned int port);
    static CAddress V6(const std::uint8_t (&address)[16], unsigned int port);
    static CAddress Loopback(unsigned int port = 0) { return V4(127, 0, 0, 1, port); }
    static CAddress Any(unsigned int port = 0) { return V4(0, 0, 0, 0, port); }
    static CAddress Loopback6(unsigned int port = 0);
    static CAddress Any6(unsigned int port = 0);

    const ps_sockaddr* Get() const { return &m_Record.m_Any; }
    ps_sockaddr* Room() { return &m_Record.m_Any; }
    static int RoomLength() { return static_cast<int>(sizeof(URecord)); }
    int Length() const;
    int Family() const { return m_Record.m_Any.sa_family; }
    unsigned int Port() const;
    CAddress WithPort(unsigned int port) const;
    CBytes Host() const;  // 4 or 16 bytes

    friend bool operator==(const CAddress& a, const CAddress& b)
    {
        return a.Family() == b.Family() && a.Port() == b.Port() && a.Host() == b.Host();
    }

private:
    union URecord
    {
        ps_sockaddr_in6 m_V6;
        ps_sockaddr_in m_V4;
        ps_sockaddr m_Any;
    };
    URecord m_Record{};
};

}  // namespace kit

#endif
