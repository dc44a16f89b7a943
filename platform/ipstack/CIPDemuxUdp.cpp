#include "CIPDemuxUdp.h"

#include <algorithm>
#include <new>
#include <unordered_map>
#include <utility>
#include <vector>

#include "CIPCounters.h"
#include "lwip/ip.h"
#include "lwip/udp.h"

namespace ipstack
{

namespace
{

// What a connected socket is found by.
struct CUdpPeer
{
    u16_t m_wLocalPort;
    u16_t m_wRemotePort;
    ip_addr_t m_Remote;

    bool operator==(const CUdpPeer& other) const noexcept
    {
        return m_wLocalPort == other.m_wLocalPort && m_wRemotePort == other.m_wRemotePort &&
               ip_addr_cmp(&m_Remote, &other.m_Remote);
    }
};
struct CUdpPeerHash
{
    std::size_t operator()(const CUdpPeer& peer) const noexcept
    {
        const CIPFlowMixer& mixer = CIPFlowMixer::Instance();
        return mixer.Address(mixer.Ports(peer.m_wLocalPort, peer.m_wRemotePort), peer.m_Remote);
    }
};

// In the order of registration.
using CUdpList = std::vector<udp_pcb*>;

// How a socket is filed.
struct CUdpFile
{
    bool m_bConnected;
    CUdpPeer m_Peer;
};

struct CUdpTable
{
    std::unordered_map<const udp_pcb*, CUdpFile> m_Files;
    std::unordered_map<u16_t, CUdpList> m_Unconnected;
    std::unordered_map<CUdpPeer, CUdpList, CUdpPeerHash> m_Connected;
    std::vector<std::pair<udp_pcb*, udp_pcb*>> m_Saved;  // has room for every socket

    static CUdpTable& Instance() noexcept
    {
        static CUdpTable& s_Table = *new CUdpTable;
        return s_Table;
    }

    // Takes the socket, where it stands first, out of the list that `file` names.
    void RemoveFrom(const CUdpFile& file, const udp_pcb* pcb) noexcept
    {
        if (file.m_bConnected) {
            Erase(m_Connected, file.m_Peer, pcb);
        } else {
            Erase(m_Unconnected, file.m_Peer.m_wLocalPort, pcb);
        }
    }

    // Takes that list out if nothing is in it.
    void ForgetList(const CUdpFile& file) noexcept { RemoveFrom(file, nullptr); }

private:
    template <class Map>
    static void Erase(Map& lists, const typename Map::key_type& key, const udp_pcb* pcb) noexcept
    {
        const auto list = lists.find(key);
        if (list == lists.end()) {
            return;
        }
        const auto at = std::find(list->second.begin(), list->second.end(), pcb);
        if (at != list->second.end()) {
            list->second.erase(at);
        }
        if (list->second.empty()) {
            lists.erase(list);
        }
    }
};

// Shows lwIP the given sockets, newest first as its own list has them.
class CUdpView
{
public:
    explicit CUdpView(udp_pcb* only) noexcept : m_pHead(udp_pcbs), m_pOnly(only), m_pOnlyNext(only->next)
    {
        only->next = nullptr;
        udp_pcbs = only;
    }
    CUdpView(const CUdpList* connected, const CUdpList* unconnected) noexcept : m_pHead(udp_pcbs)
    {
        udp_pcbs = nullptr;
        Push(unconnected);
        Push(connected);
    }
    ~CUdpView()
    {
        if (m_pOnly != nullptr) {
            m_pOnly->next = m_pOnlyNext;
        }
        for (const auto& saved : CUdpTable::Instance().m_Saved) {
            saved.first->next = saved.second;
        }
        CUdpTable::Instance().m_Saved.clear();
        udp_pcbs = m_pHead;
    }
    CUdpView(const CUdpView&) = delete;
    CUdpView& operator=(const CUdpView&) = delete;

private:
    static void Push(const CUdpList* list) noexcept
    {
        if (list == nullptr) {
            return;
        }
        for (udp_pcb* pcb : *list) {
            CUdpTable::Instance().m_Saved.emplace_back(pcb, pcb->next);
            pcb->next = udp_pcbs;
            udp_pcbs = pcb;
        }
    }

    udp_pcb* m_pHead;
    udp_pcb* m_pOnly = nullptr;
    udp_pcb* m_pOnlyNext = nullptr;
};

}  // namespace

void CIPDemuxUdp::Start()
{
    CUdpTable::Instance();
}

err_t CIPDemuxUdp::Input(const CIPFlow& flow, pbuf* packet, netif* link) noexcept
{
    const CUdpTable& table = CUdpTable::Instance();
    const auto unconnectedAt = table.m_Unconnected.find(flow.m_wDestinationPort);
    const CUdpList* unconnected = unconnectedAt == table.m_Unconnected.end() ? nullptr : &unconnectedAt->second;
    const CUdpList* connected = nullptr;
    if (!table.m_Connected.empty()) {
        const auto at = table.m_Connected.find(CUdpPeer{flow.m_wDestinationPort, flow.m_wSourcePort, flow.m_Source});
        connected = at == table.m_Connected.end() ? nullptr : &at->second;
    }
    const bool broadcast = !IP_IS_V6_VAL(flow.m_Destination) && ip_2_ip4(&flow.m_Destination)->addr == IPADDR_BROADCAST;
    if (broadcast || (connected == nullptr && unconnected == nullptr)) {
        CIPCounters::AddLocked(CIPCounters::DemuxFull);
        return ip_input(packet, link);
    }
    CIPCounters::AddLocked(CIPCounters::DemuxUdpHit);
    if (connected == nullptr && unconnected->size() == 1) {
        const CUdpView view(unconnected->front());
        return ip_input(packet, link);
    }
    if (unconnected == nullptr && connected->size() == 1) {
        const CUdpView view(connected->front());
        return ip_input(packet, link);
    }
    const CUdpView view(connected, unconnected);
    return ip_input(packet, link);
}

bool CIPDemuxUdp::Add(udp_pcb* pcb) noexcept
{
    CUdpTable& table = CUdpTable::Instance();
    const CUdpFile file{(pcb->flags & UDP_FLAGS_CONNECTED) != 0,
                        CUdpPeer{pcb->local_port, pcb->remote_port, pcb->remote_ip}};
    CUdpFile* filed = nullptr;
    try {
        if (table.m_Saved.capacity() <= table.m_Files.size()) {
            table.m_Saved.reserve(2 * (table.m_Files.size() + 1));
        }
        const auto [at, isNew] = table.m_Files.try_emplace(pcb, file);
        filed = isNew ? nullptr : &at->second;
        CUdpList& list = file.m_bConnected ? table.m_Connected[file.m_Peer] : table.m_Unconnected[pcb->local_port];
        list.push_back(pcb);
    } catch (const std::bad_alloc&) {
        table.ForgetList(file);
        if (!filed) {
            table.m_Files.erase(pcb);
        }
        CIPCounters::Add(CIPCounters::MemoryFailed);
        return false;
    }
    if (filed) {
        table.RemoveFrom(*filed, pcb);  // one of two where it is filed the same way again
        *filed = file;
    }
    return true;
}

void CIPDemuxUdp::Remove(udp_pcb* pcb) noexcept
{
    CUdpTable& table = CUdpTable::Instance();
    const auto file = table.m_Files.find(pcb);
    if (file == table.m_Files.end()) {
        return;
    }
    table.RemoveFrom(file->second, pcb);
    table.m_Files.erase(file);
}

}  // namespace ipstack
