#include "mantle/CMNInetAddr.h"

#include <arpa/inet.h>

#include <cstring>

#include "mantle/CMNRandom.h"
#include "mantle/CMNSipHash.h"

namespace mantle
{

namespace
{

// Places in the stack's record.
constexpr int s_nAtSize = 0;
constexpr int s_nAtFamily = 1;
constexpr int s_nAtPort = 2;
constexpr int s_nAtIpv4 = 4;
constexpr int s_nAtIpv6 = 8;
constexpr int s_nIpv4Bytes = 4;
constexpr int s_nIpv6Bytes = 16;
constexpr unsigned char s_cSizeIpv4 = 16;
constexpr unsigned char s_cSizeIpv6 = 28;

// The secret of this process.
CMNSipHash::CKey MakeHashKey() noexcept
{
    CMNSipHash::CKey key;
    CMNRandom::Fill(&key, sizeof key);
    return key;
}

template <class Word>
Word Load(const unsigned char* bytes) noexcept
{
    Word word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

// Other threads may look at and write these two bytes at the same time.
void StoreIfDifferent(unsigned char* place, unsigned char value) noexcept
{
    if (__atomic_load_n(place, __ATOMIC_RELAXED) != value)
        __atomic_store_n(place, value, __ATOMIC_RELAXED);
}

}  // namespace

CMNInetAddr CMNInetAddr::s_InetAddrAny;

CMNInetAddr::CMNInetAddr() noexcept : m_Record{}, m_cSize(s_cSizeIpv4), m_cFamily(s_wFamilyIpv4)
{
    m_Record.m_Bytes[s_nAtSize] = m_cSize;
    m_Record.m_Bytes[s_nAtFamily] = m_cFamily;
}

CMNInetAddr::CMNInetAddr(const char* host, unsigned short port) noexcept : CMNInetAddr()
{
    Set(host, port);
}

CMNInetAddr::CMNInetAddr(const CMNString& host, unsigned short port) noexcept : CMNInetAddr(host.c_str(), port) {}

CMNInetAddr::CMNInetAddr(const CMNInetAddr& other) noexcept : m_Record{}
{
    *this = other;
}

// The two bytes that others may be writing are not read. m_Rest has one value in all of them.
// cppcheck-suppress operatorEqVarError
CMNInetAddr& CMNInetAddr::operator=(const CMNInetAddr& other) noexcept
{
    if (this == &other)
        return *this;
    m_cSize = other.m_cSize;
    m_cFamily = other.m_cFamily;
    StoreIfDifferent(&m_Record.m_Bytes[s_nAtSize], m_cSize);
    StoreIfDifferent(&m_Record.m_Bytes[s_nAtFamily], m_cFamily);
    std::memcpy(m_Record.m_Bytes + s_nAtPort, other.m_Record.m_Bytes + s_nAtPort, sizeof(m_Record) - s_nAtPort);
    return *this;
}

MNResult CMNInetAddr::Set(const char* host, unsigned short port) noexcept
{
    *this = CMNInetAddr();
    unsigned char address[s_nIpv6Bytes];
    if (!host)
        return MN_ERROR_INVALID_ARG;
    if (::inet_pton(AF_INET, host, address) == 1) {
        std::memcpy(m_Record.m_Bytes + s_nAtIpv4, address, s_nIpv4Bytes);
    } else if (::inet_pton(AF_INET6, host, address) == 1) {
        m_cSize = s_cSizeIpv6;
        m_cFamily = s_wFamilyIpv6;
        std::memcpy(m_Record.m_Bytes + s_nAtIpv6, address, s_nIpv6Bytes);
    } else {
        return MN_ERROR_INVALID_ARG;
    }
    SetPort(port);
    PrepareForStack();
    return MN_OK;
}

MNResult CMNInetAddr::Set(const void* record, int length) noexcept
{
    if (!record || length < s_nAtFamily + 1)
        return MN_ERROR_INVALID_ARG;
    const unsigned char family = static_cast<const unsigned char*>(record)[s_nAtFamily];
    const unsigned char size = family == s_wFamilyIpv6 ? s_cSizeIpv6 : s_cSizeIpv4;
    if ((family != s_wFamilyIpv4 && family != s_wFamilyIpv6) || length < size)
        return MN_ERROR_INVALID_ARG;
    CMNInetAddr address;  // the record may be this object's own
    std::memcpy(address.m_Record.m_Bytes, record, size);
    address.m_cSize = size;
    address.m_cFamily = family;
    *this = address;
    return MN_OK;
}

void CMNInetAddr::SetPort(unsigned short port) noexcept
{
    m_Record.m_Bytes[s_nAtPort] = static_cast<unsigned char>(port >> 8);
    m_Record.m_Bytes[s_nAtPort + 1] = static_cast<unsigned char>(port & 0xff);
}

unsigned short CMNInetAddr::GetPort() const noexcept
{
    return static_cast<unsigned short>(m_Record.m_Bytes[s_nAtPort] << 8 | m_Record.m_Bytes[s_nAtPort + 1]);
}

unsigned short CMNInetAddr::GetType() const noexcept
{
    return m_cFamily;
}

int CMNInetAddr::GetSize() const noexcept
{
    return m_cSize;
}

const void* CMNInetAddr::PrepareForStack() const noexcept
{
    auto* bytes = const_cast<unsigned char*>(m_Record.m_Bytes);
    StoreIfDifferent(bytes + s_nAtSize, m_cSize);
    StoreIfDifferent(bytes + s_nAtFamily, m_cFamily);
    return bytes;
}

CMNString CMNInetAddr::GetHostString() const
{
    char text[INET6_ADDRSTRLEN] = "";
    if (m_cFamily == s_wFamilyIpv6)
        ::inet_ntop(AF_INET6, m_Record.m_Bytes + s_nAtIpv6, text, sizeof(text));
    else
        ::inet_ntop(AF_INET, m_Record.m_Bytes + s_nAtIpv4, text, sizeof(text));
    return text;
}

CMNString CMNInetAddr::ToString() const
{
    const CMNString port = std::to_string(GetPort());
    if (m_cFamily == s_wFamilyIpv6)
        return "[" + GetHostString() + "]:" + port;
    return GetHostString() + ":" + port;
}

// Peers choose their addresses and ports: without the key they can't choose where they go in a table.
std::uint32_t CMNInetAddr::hash() const noexcept
{
    static const CMNSipHash::CKey s_Key = MakeHashKey();
    const unsigned char* bytes = m_Record.m_Bytes;
    std::uint64_t last = std::uint64_t{m_cFamily} << 48 | std::uint64_t{Load<std::uint16_t>(bytes + s_nAtPort)} << 32;
    std::uint64_t address[2];
    std::size_t words = 0;
    if (m_cFamily == s_wFamilyIpv6) {
        address[words++] = Load<std::uint64_t>(bytes + s_nAtIpv6);
        address[words++] = Load<std::uint64_t>(bytes + s_nAtIpv6 + sizeof address[0]);
    } else {
        last |= Load<std::uint32_t>(bytes + s_nAtIpv4);
    }
    return static_cast<std::uint32_t>(CMNSipHash::HashForTable(s_Key, address, words, last));
}

bool operator==(const CMNInetAddr& a, const CMNInetAddr& b) noexcept
{
    const bool v6 = a.m_cFamily == CMNInetAddr::s_wFamilyIpv6;
    const int first = v6 ? s_nAtIpv6 : s_nAtIpv4;
    const std::size_t count = v6 ? s_nIpv6Bytes : s_nIpv4Bytes;
    return a.m_cFamily == b.m_cFamily && a.GetPort() == b.GetPort() &&
           std::memcmp(a.m_Record.m_Bytes + first, b.m_Record.m_Bytes + first, count) == 0;
}

}  // namespace mantle
