#include "acceptor/CPSUdpTransportHashMap.h"

#include "mantle/CMNThreadManager.h"
#include "transport/CPSTransportUdp.h"

namespace uxport
{

CPSUdpTransportHashMap* CPSUdpTransportHashMap::s_pUdpTransports = nullptr;

void CPSUdpTransportHashMap::Create_s()
{
    if (!s_pUdpTransports && !mantle::CMNThreadManager::Instance()->IsCleaningUp())
        s_pUdpTransports = new CPSUdpTransportHashMap;
}

CPSUdpTransportHashMap::CPSUdpTransportHashMap() : m_Transports(s_nBuckets) {}

CPSUdpTransportHashMap::~CPSUdpTransportHashMap()
{
    s_pUdpTransports = nullptr;
}

CPSTransportUdp* CPSUdpTransportHashMap::Find(const CPSPairInetAddr& key) const
{
    const auto found = m_Transports.find(key);
    return found == m_Transports.end() ? nullptr : found->second.Get();
}

void CPSUdpTransportHashMap::Add(const CPSPairInetAddr& key, CPSTransportUdp* transport)
{
    m_Transports.try_emplace(key, transport);
}

void CPSUdpTransportHashMap::Remove(const CPSPairInetAddr& key)
{
    const auto found = m_Transports.find(key);
    if (found != m_Transports.end())
        Erase_i(found);
}

void CPSUdpTransportHashMap::RemoveAllOf(const CMNInetAddr& local)
{
    for (auto entry = m_Transports.begin(); entry != m_Transports.end();)
        entry = entry->first.second == local ? Erase_i(entry) : std::next(entry);
}

CPSUdpTransportHashMap::CMap::iterator CPSUdpTransportHashMap::Erase_i(CMap::iterator entry)
{
    entry->second->GetPeer().SetHandle(PS_INVALID_HANDLE);
    return m_Transports.erase(entry);
}

}  // namespace uxport
