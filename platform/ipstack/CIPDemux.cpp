#include "CIPDemux.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <unordered_map>
#include <utility>
#include <vector>

#include "CIPCounters.h"
#include "CIPRandom.h"
#include "lwip/ip.h"
#include "lwip/priv/tcp_priv.h"
#include "lwip/udp.h"

namespace ipstack
{

namespace
{

constexpr u8_t ExtArgId = 0;

// Where the ports stand in a packet whose transport header is whole and in the first buffer.
struct CFlow
{
    ip_addr_t m_Source;
    ip_addr_t m_Destination;
    u16_t m_wSourcePort = 0;
    u16_t m_wDestinationPort = 0;
    u8_t m_bProtocol = 0;
    // Of a TCP segment whose fixed header is there.
    bool m_bSynOnly = false;
    u32_t m_dwSequence = 0;
};

constexpr u16_t FragmentMask4 = 0x3FFF;    // more fragments, offset
constexpr u16_t PortsLength = 4;
constexpr u16_t SequenceAt = 4;
constexpr u16_t FlagsAt = 13;
constexpr u16_t HeaderLength4 = 20;
constexpr u16_t HeaderLength6 = 40;

u16_t Load16(const u8_t* at) noexcept
{
    return static_cast<u16_t>(at[0] << 8 | at[1]);
}

u32_t Load32(const u8_t* at) noexcept
{
    return static_cast<u32_t>(Load16(at)) << 16 | Load16(at + 2);
}

// Reads the flow of a packet. Returns: false for fragments, extension headers and what is neither TCP nor UDP.
bool ReadFlow(const pbuf* packet, CFlow& flow) noexcept
{
    const u8_t* data = static_cast<const u8_t*>(packet->payload);
    u16_t header = 0;
    if (packet->len >= HeaderLength4 && data[0] >> 4 == 4) {
        if ((Load16(data + 6) & FragmentMask4) != 0) {
            return false;
        }
        header = static_cast<u16_t>((data[0] & 0x0F) * 4);
        flow.m_bProtocol = data[9];
        ip4_addr_t address;
        std::memcpy(&address.addr, data + 12, sizeof(address.addr));
        ip_addr_copy_from_ip4(flow.m_Source, address);
        std::memcpy(&address.addr, data + 16, sizeof(address.addr));
        ip_addr_copy_from_ip4(flow.m_Destination, address);
    } else if (packet->len >= HeaderLength6 && data[0] >> 4 == 6) {
        header = HeaderLength6;
        flow.m_bProtocol = data[6];
        ip6_addr_t address{};
        std::memcpy(address.addr, data + 8, sizeof(address.addr));
        ip_addr_copy_from_ip6(flow.m_Source, address);
        std::memcpy(address.addr, data + 24, sizeof(address.addr));
        ip_addr_copy_from_ip6(flow.m_Destination, address);
    } else {
        return false;
    }
    if ((flow.m_bProtocol != IP_PROTO_TCP && flow.m_bProtocol != IP_PROTO_UDP) || header < HeaderLength4 ||
        packet->len < header + PortsLength) {
        return false;
    }
    flow.m_wSourcePort = Load16(data + header);
    flow.m_wDestinationPort = Load16(data + header + 2);
    if (flow.m_bProtocol == IP_PROTO_TCP && packet->len >= header + TCP_HLEN) {
        flow.m_bSynOnly = (data[header + FlagsAt] & (TCP_SYN | TCP_ACK | TCP_RST | TCP_FIN)) == TCP_SYN;
        flow.m_dwSequence = Load32(data + header + SequenceAt);
    }
    return true;
}

// A keyed mix of words, so that peers cannot choose ports that meet in one bucket.
class CMixer
{
public:
    CMixer() noexcept { CIPRandom::Fill(m_Secret, sizeof(m_Secret)); }

    std::uint64_t Address(std::uint64_t hash, const ip_addr_t& address) const noexcept
    {
        if (IP_IS_V6_VAL(address)) {
            const u32_t* words = ip_2_ip6(&address)->addr;
            hash = Step(hash, static_cast<std::uint64_t>(words[0]) << 32 | words[1]);
            return Step(hash, static_cast<std::uint64_t>(words[2]) << 32 | words[3]);
        }
        return Step(hash, ip_2_ip4(&address)->addr);
    }
    std::uint64_t Start(std::uint64_t word) const noexcept { return Step(m_Secret[0], word); }

private:
    // Folds a 64 by 64 bit product.
    std::uint64_t Step(std::uint64_t hash, std::uint64_t word) const noexcept
    {
        const std::uint64_t a = hash ^ m_Secret[1];
        const std::uint64_t b = word ^ m_Secret[2];
        const std::uint64_t low = (a & 0xFFFFFFFFU) * (b & 0xFFFFFFFFU);
        const std::uint64_t mid1 = (a >> 32) * (b & 0xFFFFFFFFU);
        const std::uint64_t mid2 = (a & 0xFFFFFFFFU) * (b >> 32);
        const std::uint64_t high = (a >> 32) * (b >> 32);
        const std::uint64_t middle = (low >> 32) + (mid1 & 0xFFFFFFFFU) + (mid2 & 0xFFFFFFFFU);
        return (middle << 32 | (low & 0xFFFFFFFFU)) ^ (high + (mid1 >> 32) + (mid2 >> 32) + (middle >> 32)) ^
               m_Secret[3];
    }

    std::uint64_t m_Secret[4];
};

const CMixer& Mixer() noexcept
{
    static const CMixer s_Mixer;
    return s_Mixer;
}

// ---- TCP ----

// One connection in the table; the connection's ext-arg points back.
struct CTcpNode
{
    CTcpNode* m_pNext;
    std::uint64_t m_qwHash;
    tcp_pcb* m_pPcb;
};

class CTcpTable
{
public:
    static CTcpTable& Instance() noexcept
    {
        static CTcpTable& s_Table = *new CTcpTable;
        return s_Table;
    }

    static std::uint64_t Hash(const ip_addr_t& local, u16_t localPort, const ip_addr_t& remote,
                              u16_t remotePort) noexcept
    {
        const CMixer& mixer = Mixer();
        const std::uint64_t ports = mixer.Start(static_cast<std::uint64_t>(localPort) << 16 | remotePort);
        return mixer.Address(mixer.Address(ports, local), remote);
    }

    // The connection of a flow; one that is not in TIME_WAIT goes before one that is.
    tcp_pcb* Find(const CFlow& flow) const noexcept
    {
        const std::uint64_t hash =
            Hash(flow.m_Destination, flow.m_wDestinationPort, flow.m_Source, flow.m_wSourcePort);
        tcp_pcb* found = nullptr;
        for (const CTcpNode* node = m_Buckets[hash & m_nMask]; node != nullptr; node = node->m_pNext) {
            tcp_pcb* pcb = node->m_pPcb;
            if (node->m_qwHash == hash && pcb->local_port == flow.m_wDestinationPort &&
                pcb->remote_port == flow.m_wSourcePort && ip_addr_cmp(&pcb->remote_ip, &flow.m_Source) &&
                ip_addr_cmp(&pcb->local_ip, &flow.m_Destination)) {
                if (pcb->state != TIME_WAIT) {
                    return pcb;
                }
                found = pcb;
            }
        }
        return found;
    }

    bool Add(tcp_pcb* pcb) noexcept;
    void Remove(CTcpNode* node) noexcept
    {
        CTcpNode** at = &m_Buckets[node->m_qwHash & m_nMask];
        while (*at != node) {
            at = &(*at)->m_pNext;
        }
        *at = node->m_pNext;
        --m_nCount;
        delete node;
    }
    std::size_t GetCount() const noexcept { return m_nCount; }

private:
    static constexpr std::size_t FirstBuckets = 256;

    CTcpTable() : m_Buckets(FirstBuckets, nullptr), m_nMask(FirstBuckets - 1) {}

    void Grow()
    {
        std::vector<CTcpNode*> buckets(m_Buckets.size() * 2, nullptr);
        const std::size_t mask = buckets.size() - 1;
        for (CTcpNode* node : m_Buckets) {
            while (node != nullptr) {
                CTcpNode* next = node->m_pNext;
                node->m_pNext = buckets[node->m_qwHash & mask];
                buckets[node->m_qwHash & mask] = node;
                node = next;
            }
        }
        m_Buckets.swap(buckets);
        m_nMask = mask;
    }

    std::vector<CTcpNode*> m_Buckets;
    std::size_t m_nMask;
    std::size_t m_nCount = 0;
};

void OnPcbDestroyed(u8_t, void* node)
{
    if (node != nullptr) {
        CTcpTable::Instance().Remove(static_cast<CTcpNode*>(node));
    }
}

const tcp_ext_arg_callbacks PcbCallbacks = {&OnPcbDestroyed, nullptr};

bool CTcpTable::Add(tcp_pcb* pcb) noexcept
{
    CTcpNode* node = new (std::nothrow) CTcpNode{nullptr, 0, pcb};
    if (node == nullptr) {
        return false;
    }
    if (m_nCount >= m_Buckets.size()) {
        try {
            Grow();
        } catch (const std::bad_alloc&) {
            // The chains grow longer instead.
        }
    }
    node->m_qwHash = Hash(pcb->local_ip, pcb->local_port, pcb->remote_ip, pcb->remote_port);
    node->m_pNext = m_Buckets[node->m_qwHash & m_nMask];
    m_Buckets[node->m_qwHash & m_nMask] = node;
    ++m_nCount;
    tcp_ext_arg_set_callbacks(pcb, ExtArgId, &PcbCallbacks);
    tcp_ext_arg_set(pcb, ExtArgId, node);
    return true;
}

// Takes a connection out of a list by its address alone: it may be freed already.
void Unlink(tcp_pcb*& head, const tcp_pcb* gone, tcp_pcb* next) noexcept
{
    if (head == gone) {
        head = next;
        return;
    }
    for (tcp_pcb* at = head; at != nullptr; at = at->next) {
        if (at->next == gone) {
            at->next = next;
            return;
        }
    }
}

err_t InputToActive(tcp_pcb* pcb, pbuf* packet, netif* link) noexcept
{
    tcp_pcb* head = tcp_active_pcbs;
    tcp_pcb* next = pcb->next;
    tcp_active_pcbs = pcb;
    pcb->next = nullptr;

    const err_t result = ip_input(packet, link);

    if (tcp_active_pcbs == pcb) {
        pcb->next = next;
    } else {
        Unlink(head, pcb, next);
    }
    tcp_active_pcbs = head;
    return result;
}

err_t InputToTimeWait(tcp_pcb* pcb, pbuf* packet, netif* link) noexcept
{
    tcp_pcb* active = tcp_active_pcbs;
    tcp_pcb* head = tcp_tw_pcbs;
    tcp_pcb* next = pcb->next;
    tcp_active_pcbs = nullptr;
    tcp_tw_pcbs = pcb;
    pcb->next = nullptr;

    const err_t result = ip_input(packet, link);

    // lwIP only answers for such a connection; it stays where it is.
    pcb->next = next;
    tcp_tw_pcbs = head;
    tcp_active_pcbs = active;
    return result;
}

// For a listener or for nobody: what appears in the empty list is a half-open connection. Returns: whether one
// appeared and stayed.
bool InputToListener(pbuf* packet, netif* link, err_t& result) noexcept
{
    tcp_pcb* active = tcp_active_pcbs;
    tcp_pcb* timeWait = tcp_tw_pcbs;
    tcp_active_pcbs = nullptr;
    tcp_tw_pcbs = nullptr;

    result = ip_input(packet, link);

    tcp_pcb* child = tcp_active_pcbs;
    tcp_active_pcbs = active;
    tcp_tw_pcbs = timeWait;
    if (child == nullptr) {
        return false;
    }
    child->next = tcp_active_pcbs;
    tcp_active_pcbs = child;
    if (!CTcpTable::Instance().Add(child)) {
        tcp_abort(child);
        return false;
    }
    return true;
}

err_t InputTcp(const CFlow& flow, pbuf* packet, netif* link) noexcept
{
    err_t result = ERR_OK;
    tcp_pcb* pcb = CTcpTable::Instance().Find(flow);
    if (pcb == nullptr) {
        CIPCounters::AddLocked(CIPCounters::DemuxTcpMiss);
        InputToListener(packet, link, result);
        return result;
    }
    CIPCounters::AddLocked(CIPCounters::DemuxTcpHit);
    if (pcb->state != TIME_WAIT) {
        return InputToActive(pcb, packet, link);
    }
    if (flow.m_bSynOnly && TCP_SEQ_GT(flow.m_dwSequence, pcb->rcv_nxt)) {
        // The peer opens the same connection again, beyond the old one's numbers (RFC 1122, 4.2.2.13): a listener
        // takes it, and the old one ends.
        if (InputToListener(packet, link, result)) {
            tcp_abort(pcb);
        }
        return result;
    }
    return InputToTimeWait(pcb, packet, link);
}

// ---- UDP ----

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
        const CMixer& mixer = Mixer();
        return mixer.Address(mixer.Start(static_cast<std::uint64_t>(peer.m_wLocalPort) << 16 | peer.m_wRemotePort),
                             peer.m_Remote);
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
    std::vector<std::pair<udp_pcb*, udp_pcb*>> m_Saved;   // has room for every socket

    static CUdpTable& Instance() noexcept
    {
        static CUdpTable& s_Table = *new CUdpTable;
        return s_Table;
    }
};

void Erase(CUdpList& list, const udp_pcb* pcb) noexcept
{
    list.erase(std::remove(list.begin(), list.end(), pcb), list.end());
}

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

err_t InputUdp(const CFlow& flow, pbuf* packet, netif* link) noexcept
{
    const CUdpTable& table = CUdpTable::Instance();
    const auto unconnectedAt = table.m_Unconnected.find(flow.m_wDestinationPort);
    const CUdpList* unconnected = unconnectedAt == table.m_Unconnected.end() ? nullptr : &unconnectedAt->second;
    const CUdpList* connected = nullptr;
    if (!table.m_Connected.empty()) {
        const auto at =
            table.m_Connected.find(CUdpPeer{flow.m_wDestinationPort, flow.m_wSourcePort, flow.m_Source});
        connected = at == table.m_Connected.end() ? nullptr : &at->second;
    }
    const bool broadcast = !IP_IS_V6_VAL(flow.m_Destination) &&
                           ip_2_ip4(&flow.m_Destination)->addr == IPADDR_BROADCAST;
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

}  // namespace

err_t CIPDemux::Input(pbuf* packet, netif* link) noexcept
{
    CFlow flow;
    if (!ReadFlow(packet, flow)) {
        CIPCounters::AddLocked(CIPCounters::DemuxFull);
        return ip_input(packet, link);
    }
    return flow.m_bProtocol == IP_PROTO_TCP ? InputTcp(flow, packet, link) : InputUdp(flow, packet, link);
}

bool CIPDemux::AddTcp(tcp_pcb* pcb) noexcept
{
    return CTcpTable::Instance().Add(pcb);
}

std::size_t CIPDemux::GetTcpCount() noexcept
{
    return CTcpTable::Instance().GetCount();
}

void CIPDemux::AddUdp(udp_pcb* pcb) noexcept
{
    RemoveUdp(pcb);
    CUdpTable& table = CUdpTable::Instance();
    const CUdpFile file{(pcb->flags & UDP_FLAGS_CONNECTED) != 0,
                        CUdpPeer{pcb->local_port, pcb->remote_port, pcb->remote_ip}};
    try {
        if (table.m_Saved.capacity() <= table.m_Files.size()) {
            table.m_Saved.reserve(2 * (table.m_Files.size() + 1));
        }
        CUdpList& list =
            file.m_bConnected ? table.m_Connected[file.m_Peer] : table.m_Unconnected[pcb->local_port];
        table.m_Files.emplace(pcb, file);
        list.push_back(pcb);
    } catch (const std::bad_alloc&) {
        // It is still found in lwIP's own list, which serves what the table does not know.
        table.m_Files.erase(pcb);
    }
}

void CIPDemux::RemoveUdp(udp_pcb* pcb) noexcept
{
    CUdpTable& table = CUdpTable::Instance();
    const auto file = table.m_Files.find(pcb);
    if (file == table.m_Files.end()) {
        return;
    }
    if (file->second.m_bConnected) {
        const auto list = table.m_Connected.find(file->second.m_Peer);
        Erase(list->second, pcb);
        if (list->second.empty()) {
            table.m_Connected.erase(list);
        }
    } else {
        const auto list = table.m_Unconnected.find(file->second.m_Peer.m_wLocalPort);
        Erase(list->second, pcb);
        if (list->second.empty()) {
            table.m_Unconnected.erase(list);
        }
    }
    table.m_Files.erase(file);
}

}  // namespace ipstack
