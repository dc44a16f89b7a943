// Internet addresses.
#ifndef MANTLE_CMNINETADDR_H
#define MANTLE_CMNINETADDR_H

#include <cstdint>
#include <type_traits>

#include "mantle/MNDefines.h"

namespace mantle
{

// An IPv4 or IPv6 address with a port. The storage is the stack's own record: first byte its length, second
// the family (2 or 10), then port and address in network byte order. Equality and hash() look at family,
// address and port only. A default-made one is IPv4 0.0.0.0 port 0 and equals s_InetAddrAny.
class MANTLE_API CMNInetAddr
{
public:
    static constexpr unsigned short s_wFamilyIpv4 = 2;
    static constexpr unsigned short s_wFamilyIpv6 = 10;

    CMNInetAddr() noexcept;

    // From a dotted or IPv6 text. Text that is no address leaves 0.0.0.0 port 0.
    CMNInetAddr(const char* host, unsigned short port) noexcept;
    CMNInetAddr(const CMNString& host, unsigned short port) noexcept;

    // A copy may be taken while another thread passes the original to the stack.
    CMNInetAddr(const CMNInetAddr& other) noexcept;
    CMNInetAddr& operator=(const CMNInetAddr& other) noexcept;

    // Returns: 0; MN_ERROR_INVALID_ARG for text that is no address, the object is then 0.0.0.0 port 0.
    MNResult Set(const char* host, unsigned short port) noexcept;

    // The same for a number of any other type, as a literal is. Returns: also MN_ERROR_INVALID_ARG, and leaves 0.0.0.0
    // port 0, for one that is no port.
    template <class Port, std::enable_if_t<std::is_integral_v<Port>, int> = 0>
    MNResult Set(const char* host, Port port) noexcept
    {
        const auto number = static_cast<unsigned short>(port);
        const bool fits = static_cast<std::uint64_t>(port) == number;
        return Set(fits ? host : nullptr, number);
    }

    // From a stack record of family 2 or 10 (by its second byte). Returns: 0; MN_ERROR_INVALID_ARG for any other family
    // or a length that is too short for it, the object is then unchanged.
    MNResult Set(const void* record, int length) noexcept;

    void SetPort(unsigned short port) noexcept;
    unsigned short GetPort() const noexcept;

    // Family: 2 or 10.
    unsigned short GetType() const noexcept;

    // Length of the address now held (16 or 28), and the room for the largest record (28).
    int GetSize() const noexcept;
    static constexpr int GetInetAddrSize() noexcept { return s_nRoom; }

    // The stack's record. The length and family bytes are what GetSize and GetType say, whatever was written
    // into those two; PrepareForStack writes them where they differ, so that two threads may pass one address.
    const void* GetPtr() const noexcept { return m_Record.m_Bytes; }
    void* GetPtr() noexcept { return m_Record.m_Bytes; }
    const void* PrepareForStack() const noexcept;

    // "1.2.3.4", "::1"; with port "1.2.3.4:80", "[::1]:80".
    CMNString GetHostString() const;
    CMNString ToString() const;

    // Keyed with a secret of this process, so that strangers can't find addresses that meet in a table: another
    // process answers another number.
    std::uint32_t hash() const noexcept;

    // 0.0.0.0 port 0. Writable memory, because the two bytes are written into whatever is passed.
    static CMNInetAddr s_InetAddrAny;

private:
    static constexpr int s_nRoom = 28;

    struct alignas(8) CRecord
    {
        unsigned char m_Bytes[s_nRoom + 4];
    };
    CRecord m_Record;
    unsigned char m_cSize;  // kept beside the record, whose two leading bytes others may write
    unsigned char m_cFamily;
    [[maybe_unused]] unsigned char m_Rest[6]{};  // what would be padding, written as every byte of an object is

    friend MANTLE_API bool operator==(const CMNInetAddr& a, const CMNInetAddr& b) noexcept;
};

MANTLE_API bool operator==(const CMNInetAddr& a, const CMNInetAddr& b) noexcept;
inline bool operator!=(const CMNInetAddr& a, const CMNInetAddr& b) noexcept
{
    return !(a == b);
}

}  // namespace mantle

#endif
