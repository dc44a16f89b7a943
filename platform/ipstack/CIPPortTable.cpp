#include "CIPPortTable.h"

#include <algorithm>
#include <memory>
#include <new>

#include "CIPCounters.h"
#include "CIPRandom.h"

namespace ipstack
{

namespace
{

// Random picks before the range is searched from the last one up.
constexpr int s_nRandomTries = 16;
constexpr std::uint32_t s_dwChoices = 65536 - CIPPortTable::s_wFirst;

bool IsPipeAddress(CIPPortTable::EProtocol protocol, const CIPAddress& address) noexcept
{
    return protocol == CIPPortTable::Tcp && address.m_wPort == CIPPortTable::s_wPipePort &&
           IP_IS_V4_VAL(address.m_Ip) && ip_2_ip4(&address.m_Ip)->addr == PP_HTONL(IPADDR_LOOPBACK);
}

bool DoOverlap(const ip_addr_t& a, const ip_addr_t& b) noexcept
{
    return IP_IS_V6(&a) == IP_IS_V6(&b) && (ip_addr_isany(&a) || ip_addr_isany(&b) || ip_addr_cmp(&a, &b));
}

}  // namespace

CIPPortTable::CPort* CIPPortTable::s_Ports[ProtocolCount][65536];

bool CIPPortTable::IsFree(EProtocol protocol, const CIPAddress& address, bool reuse) noexcept
{
    const CPort* port = s_Ports[protocol][address.m_wPort];
    if (!port) {
        return true;
    }
    const bool pipe = IsPipeAddress(protocol, address);
    for (const CEntry& entry : *port) {
        if (!DoOverlap(entry.m_Ip, address.m_Ip) || (pipe && ip_addr_cmp(&entry.m_Ip, &address.m_Ip))) {
            continue;
        }
        if (entry.m_dwUses[Bound] != 0 || entry.m_dwUses[Open] != 0 || (entry.m_dwUses[Closing] != 0 && !reuse)) {
            return false;
        }
    }
    return true;
}

u16_t CIPPortTable::ChoosePort(EProtocol protocol, CIPAddress address) noexcept
{
    std::uint32_t choice = 0;
    for (int i = 0; i < s_nRandomTries; ++i) {
        choice = CIPRandom::GetBelow(s_dwChoices);
        address.m_wPort = static_cast<u16_t>(s_wFirst + choice);
        if (IsFree(protocol, address, false)) {
            return address.m_wPort;
        }
    }
    for (std::uint32_t i = 1; i < s_dwChoices; ++i) {
        address.m_wPort = static_cast<u16_t>(s_wFirst + (choice + i) % s_dwChoices);
        if (IsFree(protocol, address, false)) {
            return address.m_wPort;
        }
    }
    return 0;
}

int CIPPortTable::Enter(CHold& hold, EProtocol protocol, const CIPAddress& address, EUse use) noexcept
{
    CPort*& port = s_Ports[protocol][address.m_wPort];
    CPort::iterator entry;
    try {
        std::unique_ptr<CPort> made(port ? nullptr : new CPort);
        CPort& entries = made ? *made : *port;
        entry = std::find_if(entries.begin(), entries.end(),
                             [&](const CEntry& e) { return ip_addr_cmp(&e.m_Ip, &address.m_Ip) != 0; });
        if (entry == entries.end()) {
            entry = entries.insert(entry, CEntry{address.m_Ip, {}});
        }
        if (made) {
            port = made.release();
        }
    } catch (const std::bad_alloc&) {
        CIPCounters::Add(CIPCounters::MemoryFailed);
        return PS_ENOMEM;
    }
    ++entry->m_dwUses[use];
    CHold before(static_cast<CHold&&>(hold));  // given back last: it may be of the same port
    hold.m_Address = address;
    hold.m_eProtocol = protocol;
    hold.m_eUse = use;
    hold.m_bHeld = true;
    return 0;
}

unsigned int CIPPortTable::CountUses(EProtocol protocol, u16_t port) noexcept
{
    unsigned int count = 0;
    if (const CPort* entries = s_Ports[protocol][port]) {
        for (const CEntry& entry : *entries) {
            count += entry.m_dwUses[Bound] + entry.m_dwUses[Open] + entry.m_dwUses[Closing];
        }
    }
    return count;
}

CIPPortTable::CHold& CIPPortTable::CHold::operator=(CHold&& other) noexcept
{
    if (this != &other) {
        Release();
        m_Address = other.m_Address;
        m_eProtocol = other.m_eProtocol;
        m_eUse = other.m_eUse;
        m_bHeld = other.m_bHeld;
        other.m_bHeld = false;
    }
    return *this;
}

int CIPPortTable::CHold::Bind(EProtocol protocol, const CIPAddress& address, bool reuse)
{
    CIPAddress chosen = address;
    if (chosen.m_wPort == 0) {
        chosen.m_wPort = ChoosePort(protocol, chosen);
        if (chosen.m_wPort == 0) {
            return PS_EADDRINUSE;
        }
    } else if (!IsFree(protocol, chosen, reuse)) {
        return PS_EADDRINUSE;
    }
    return Enter(*this, protocol, chosen, Bound);
}

int CIPPortTable::CHold::Join(EProtocol protocol, const CIPAddress& address)
{
    return Enter(*this, protocol, address, Open);
}

void CIPPortTable::CHold::Change(EUse use) noexcept
{
    if (!m_bHeld || use == m_eUse) {
        return;
    }
    for (CEntry& entry : *s_Ports[m_eProtocol][m_Address.m_wPort]) {
        if (ip_addr_cmp(&entry.m_Ip, &m_Address.m_Ip)) {
            --entry.m_dwUses[m_eUse];
            ++entry.m_dwUses[use];
        }
    }
    m_eUse = use;
}

void CIPPortTable::CHold::Release() noexcept
{
    if (!m_bHeld) {
        return;
    }
    m_bHeld = false;
    CPort*& port = s_Ports[m_eProtocol][m_Address.m_wPort];
    for (auto entry = port->begin(); entry != port->end(); ++entry) {
        if (!ip_addr_cmp(&entry->m_Ip, &m_Address.m_Ip)) {
            continue;
        }
        --entry->m_dwUses[m_eUse];
        if (entry->m_dwUses[Bound] == 0 && entry->m_dwUses[Open] == 0 && entry->m_dwUses[Closing] == 0) {
            port->erase(entry);
        }
        break;
    }
    if (port->empty()) {
        delete port;
        port = nullptr;
    }
}

}  // namespace ipstack
