// Addresses as the stack takes them.
#ifndef UXPORT_SOCKET_PSSTACKADDRESS_H
#define UXPORT_SOCKET_PSSTACKADDRESS_H

#include "ipstack/ps_defines.h"
#include "mantle/CMNInetAddr.h"

namespace uxport
{

// The record inside `address`, with its length and family bytes written, to be passed with GetSize(). The two
// bytes are written into the object although it is constant, and only when they differ.
inline const ps_sockaddr* PSStackAddress(const mantle::CMNInetAddr& address)
{
    return static_cast<const ps_sockaddr*>(address.PrepareForStack());
}

inline ps_sockaddr* PSStackAddress(mantle::CMNInetAddr& address)
{
    address.PrepareForStack();
    return static_cast<ps_sockaddr*>(address.GetPtr());
}

// A zeroed record that the stack fills, with the room and then the length of what it holds.
struct CPSAddressBuffer
{
    explicit CPSAddressBuffer(const mantle::CMNInetAddr& receiver) : m_nLength(receiver.GetInetAddrSize()) {}

    // Sets `address` when the family is IPv4 or IPv6, otherwise leaves it alone.
    void StoreTo(mantle::CMNInetAddr& address) const
    {
        if (m_Record.sa_family == PS_AF_INET || m_Record.sa_family == PS_AF_INET6)
            static_cast<void>(address.Set(&m_Record, m_nLength));
    }

    alignas(8) ps_sockaddr m_Record{};
    int m_nLength;
};

}  // namespace uxport

#endif
