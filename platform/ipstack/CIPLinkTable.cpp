#include "CIPLinkTable.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "lwip/netif.h"
#include "lwip/sys.h"
#include "lwip_hooks.h"
#include "mantle/CMNClock.h"

namespace ipstack
{

namespace
{

// One link as the table keeps it.
struct CEntry
{
    netif* m_pLink = nullptr;
    netif* m_pPartner = nullptr;
    CIPLinkFacts m_Facts;
};

// An address and the link that has it; sorted by address.
struct COwner4
{
    std::uint32_t m_dwAddress;
    netif* m_pLink;
};
struct COwner6
{
    CIPAddress6 m_Address;
    netif* m_pLink;
};

struct CTable
{
    std::vector<std::unique_ptr<CEntry>> m_Entries;
    std::vector<COwner4> m_Owners4;
    std::vector<COwner6> m_Owners6;
    CIPOwnAddresses m_Own;
};

// Guarded by the core lock; never destroyed, since lwIP's lists live as long as the process.
CTable& Table()
{
    static CTable& s_Table = *new CTable;
    return s_Table;
}

CEntry* FindEntry(const netif* link) noexcept
{
    for (const std::unique_ptr<CEntry>& entry : Table().m_Entries) {
        if (entry->m_pLink == link) {
            return entry.get();
        }
    }
    return nullptr;
}

CIPAddress6 ToAddress6(const ip6_addr_t& address) noexcept
{
    CIPAddress6 bytes;
    std::memcpy(bytes.data(), address.addr, bytes.size());
    return bytes;
}

// The link's IPv6 address; links have one at most.
bool GetAddress6(const netif* link, CIPAddress6& address) noexcept
{
    for (s8_t i = 0; i < LWIP_IPV6_NUM_ADDRESSES; ++i) {
        if (ip6_addr_isvalid(netif_ip6_addr_state(link, i))) {
            address = ToAddress6(*netif_ip6_addr(link, i));
            return true;
        }
    }
    return false;
}

netif* FindOwner4(std::uint32_t address) noexcept
{
    const std::vector<COwner4>& owners = Table().m_Owners4;
    const auto at = std::lower_bound(owners.begin(), owners.end(), address,
                                     [](const COwner4& owner, std::uint32_t key) { return owner.m_dwAddress < key; });
    return at != owners.end() && at->m_dwAddress == address ? at->m_pLink : nullptr;
}

netif* FindOwner6(const CIPAddress6& address) noexcept
{
    const std::vector<COwner6>& owners = Table().m_Owners6;
    const auto at =
        std::lower_bound(owners.begin(), owners.end(), address,
                         [](const COwner6& owner, const CIPAddress6& key) { return owner.m_Address < key; });
    return at != owners.end() && at->m_Address == address ? at->m_pLink : nullptr;
}

// Makes the sorted tables anew from the entries.
void Rebuild()
{
    CTable& table = Table();
    table.m_Owners4.clear();
    table.m_Owners6.clear();
    table.m_Own.m_Addresses4.clear();
    table.m_Own.m_Addresses6.clear();
    for (const std::unique_ptr<CEntry>& entry : table.m_Entries) {
        const std::uint32_t address4 = netif_ip4_addr(entry->m_pLink)->addr;
        if (address4 != 0) {
            table.m_Owners4.push_back({address4, entry->m_pLink});
            table.m_Own.m_Addresses4.push_back(address4);
        }
        CIPAddress6 address6;
        if (GetAddress6(entry->m_pLink, address6)) {
            table.m_Owners6.push_back({address6, entry->m_pLink});
            table.m_Own.m_Addresses6.push_back(address6);
        }
    }
    std::sort(table.m_Owners4.begin(), table.m_Owners4.end(),
              [](const COwner4& a, const COwner4& b) { return a.m_dwAddress < b.m_dwAddress; });
    std::sort(table.m_Owners6.begin(), table.m_Owners6.end(),
              [](const COwner6& a, const COwner6& b) { return a.m_Address < b.m_Address; });
    std::sort(table.m_Own.m_Addresses4.begin(), table.m_Own.m_Addresses4.end());
    std::sort(table.m_Own.m_Addresses6.begin(), table.m_Own.m_Addresses6.end());
}

void SetPartner(CEntry& entry, netif* partner) noexcept
{
    entry.m_pPartner = partner;
    entry.m_Facts.m_dwPartner4 = partner == nullptr ? 0 : netif_ip4_addr(partner)->addr;
    entry.m_Facts.m_bPartner6 = partner != nullptr && GetAddress6(partner, entry.m_Facts.m_Partner6);
}

bool IsOnLink4(const netif* link, const ip4_addr_t& address) noexcept
{
    return ip4_addr_netcmp(&address, netif_ip4_addr(link), netif_ip4_netmask(link)) ||
           ip4_addr_cmp(&address, netif_ip4_gw(link));
}

// A packet to one of our own links: across the wire when the other end or nobody in particular sends it, otherwise
// it stays inside.
netif* RouteToOwn(netif* owner, bool sourceAny, const netif* sourceOwner) noexcept
{
    const CEntry* entry = FindEntry(owner);
    netif* partner = entry == nullptr ? nullptr : entry->m_pPartner;
    return partner != nullptr && (sourceAny || sourceOwner == partner) ? partner : owner;
}

}  // namespace

void CIPLinkTable::AddLink(netif* link)
{
    std::unique_ptr<CEntry> entry(new CEntry);
    entry->m_pLink = link;
    entry->m_Facts.m_dwMtu = link->mtu;
    entry->m_Facts.m_pOwn = &Table().m_Own;
    const std::uint32_t hosts = ~netif_ip4_netmask(link)->addr;
    if ((hosts & (hosts - 1)) != 0) {  // two bits at least
        entry->m_Facts.m_dwNetwork4 = netif_ip4_addr(link)->addr & ~hosts;
        entry->m_Facts.m_dwBroadcast4 = netif_ip4_addr(link)->addr | hosts;
    }
    Table().m_Entries.push_back(std::move(entry));
    Rebuild();
}

void CIPLinkTable::RemoveLink(netif* link) noexcept
{
    std::vector<std::unique_ptr<CEntry>>& entries = Table().m_Entries;
    for (const std::unique_ptr<CEntry>& entry : entries) {
        if (entry->m_pPartner == link) {
            SetPartner(*entry, nullptr);
        }
    }
    entries.erase(std::remove_if(entries.begin(), entries.end(),
                                 [link](const std::unique_ptr<CEntry>& entry) { return entry->m_pLink == link; }),
                  entries.end());
    Rebuild();
}

void CIPLinkTable::SetPartners(netif* linkA, netif* linkB) noexcept
{
    CEntry* entryA = FindEntry(linkA);
    CEntry* entryB = FindEntry(linkB);
    if (entryA != nullptr && entryB != nullptr) {
        SetPartner(*entryA, linkB);
        SetPartner(*entryB, linkA);
    }
}

const CIPLinkFacts& CIPLinkTable::GetFacts(const netif* link) noexcept
{
    static const CIPOwnAddresses s_None;
    static const CIPLinkFacts s_Unknown = [] {
        CIPLinkFacts facts;
        facts.m_pOwn = &s_None;
        return facts;
    }();
    const CEntry* entry = FindEntry(link);
    return entry == nullptr ? s_Unknown : entry->m_Facts;
}

netif* CIPLinkTable::FindOwner(const ip_addr_t& address) noexcept
{
    return IP_IS_V6_VAL(address) ? FindOwner6(ToAddress6(*ip_2_ip6(&address))) : FindOwner4(ip_2_ip4(&address)->addr);
}

netif* CIPLinkTable::Route4(const ip4_addr_t& source, const ip4_addr_t& destination) noexcept
{
    if (Table().m_Entries.empty()) {
        return nullptr;
    }
    const bool fromLoopback = ip4_addr_isloopback(&source);
    netif* sourceOwner = fromLoopback || ip4_addr_isany_val(source) ? nullptr : FindOwner4(source.addr);
    netif* owner = FindOwner4(destination.addr);
    if (owner != nullptr) {
        return RouteToOwn(owner, ip4_addr_isany_val(source), sourceOwner);
    }
    if (fromLoopback) {
        // A loopback source must not leave the machine: the loopback interface takes it and drops it.
        netif* loopback = nullptr;
        NETIF_FOREACH(loopback) {
            if (ip4_addr_isloopback(netif_ip4_addr(loopback))) {
                break;
            }
        }
        return loopback;
    }
    if (sourceOwner == nullptr || ip4_addr_isloopback(&destination)) {
        return nullptr;
    }
    // The link of the source's address, when it leads there at all.
    if (IsOnLink4(sourceOwner, destination) || destination.addr == IPADDR_BROADCAST) {
        return sourceOwner;
    }
    if (ip4_addr_isany_val(*netif_ip4_gw(sourceOwner))) {
        return nullptr;
    }
    netif* other = nullptr;
    NETIF_FOREACH(other) {
        if (IsOnLink4(other, destination)) {
            return nullptr;
        }
    }
    return sourceOwner;
}

netif* CIPLinkTable::Route6(const ip6_addr_t& source, const ip6_addr_t& destination) noexcept
{
    if (Table().m_Entries.empty() || ip6_addr_isloopback(&destination)) {
        return nullptr;
    }
    const bool sourceAny = ip6_addr_isany_val(source);
    netif* sourceOwner = sourceAny ? nullptr : FindOwner6(ToAddress6(source));
    netif* owner = FindOwner6(ToAddress6(destination));
    if (owner != nullptr) {
        return RouteToOwn(owner, sourceAny, sourceOwner);
    }
    // A static address implies its /64.
    return sourceOwner != nullptr && ip6_addr_netcmp_zoneless(&source, &destination) ? sourceOwner : nullptr;
}

}  // namespace ipstack

extern "C" {

netif* uxport_ipstack_ip4_route(const ip4_addr_t* source, const ip4_addr_t* destination)
{
    static const ip4_addr_t s_Any = {IPADDR_ANY};
    return ipstack::CIPLinkTable::Route4(source == nullptr ? s_Any : *source, *destination);
}

netif* uxport_ipstack_ip6_route(const ip6_addr_t* source, const ip6_addr_t* destination)
{
    return ipstack::CIPLinkTable::Route6(*source, *destination);
}

// lwIP notes with it when an interface came up, and nothing else.
u32_t sys_now(void)
{
    return static_cast<u32_t>(mantle::CMNClock::NowUs() / 1000);
}

}  // extern "C"
