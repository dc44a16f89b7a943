#include "CIPAddress.h"

#include <algorithm>
#include <cstring>

#include "lwip/def.h"
#include "lwip/netif.h"

namespace ipstack
{

CIPAddress CIPAddress::Any(int family) noexcept
{
    CIPAddress address;
    if (family == PS_AF_INET6) {
        ip_addr_set_zero_ip6(&address.m_Ip);
    }
    return address;
}

int CIPAddress::Read(const ps_sockaddr* address, int length) noexcept
{
    if (!address || length < 2) {
        return PS_EINVAL;
    }
    unsigned char lead[2];
    std::memcpy(lead, address, sizeof(lead));
    if (lead[1] == PS_AF_INET) {
        ps_sockaddr_in in;
        constexpr int needed = sizeof(in) - sizeof(in.sin_zero);
        if (length < needed) {
            return PS_EINVAL;
        }
        std::memcpy(&in, address, needed);
        ip_addr_set_ip4_u32(&m_Ip, in.sin_addr);
        m_wPort = lwip_ntohs(in.sin_port);
        return 0;
    }
    if (lead[1] == PS_AF_INET6) {
        ps_sockaddr_in6 in6;
        constexpr int needed = sizeof(in6) - sizeof(in6.sin6_scope_id);
        if (length < needed) {
            return PS_EINVAL;
        }
        std::memcpy(&in6, address, needed);
        ip_addr_set_zero_ip6(&m_Ip);
        std::memcpy(ip_2_ip6(&m_Ip)->addr, in6.sin6_addr, sizeof(in6.sin6_addr));
        m_wPort = lwip_ntohs(in6.sin6_port);
        return 0;
    }
    return PS_EAFNOSUPPORT;
}

void CIPAddress::Write(ps_sockaddr* address, int* length) const noexcept
{
    if (!address || !length) {
        return;
    }
    union
    {
        ps_sockaddr_in in;
        ps_sockaddr_in6 in6;
    } record;
    std::memset(&record, 0, sizeof(record));
    std::size_t size;
    if (IP_IS_V6(&m_Ip)) {
        size = sizeof(record.in6);
        record.in6.sin6_len = static_cast<uint8_t>(size);
        record.in6.sin6_family = PS_AF_INET6;
        record.in6.sin6_port = lwip_htons(m_wPort);
        std::memcpy(record.in6.sin6_addr, ip_2_ip6(&m_Ip)->addr, sizeof(record.in6.sin6_addr));
    } else {
        size = sizeof(record.in);
        record.in.sin_len = static_cast<uint8_t>(size);
        record.in.sin_family = PS_AF_INET;
        record.in.sin_port = lwip_htons(m_wPort);
        record.in.sin_addr = ip_2_ip4(&m_Ip)->addr;
    }
    if (*length > 0) {
        std::memcpy(address, &record, std::min(size, static_cast<std::size_t>(*length)));
    }
    *length = static_cast<int>(size);
}

bool CIPAddress::IsOwn(const ip_addr_t& ip) noexcept
{
    struct netif* link;
    NETIF_FOREACH(link) {
        if (IP_IS_V6_VAL(ip)) {
            if (netif_get_ip6_addr_match(link, ip_2_ip6(&ip)) >= 0) {
                return true;
            }
        } else if (!ip4_addr_isany(netif_ip4_addr(link)) && ip4_addr_cmp(netif_ip4_addr(link), ip_2_ip4(&ip))) {
            return true;
        }
    }
    return false;
}

}  // namespace ipstack
