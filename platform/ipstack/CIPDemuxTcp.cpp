#include "CIPDemuxTcp.h"

#include <new>
#include <vector>

#include "CIPAnswerLimit.h"
#include "CIPCounters.h"
#include "lwip/ip.h"
#include "lwip/priv/tcp_priv.h"

namespace ipstack
{

namespace
{

constexpr u8_t ExtArgId = 0;

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
        const CIPFlowMixer& mixer = CIPFlowMixer::Instance();
        return mixer.Address(mixer.Address(mixer.Ports(localPort, remotePort), local), remote);
    }

    // The connection of a flow; one that is not in TIME_WAIT goes before one that is.
    tcp_pcb* Find(const CIPFlow& flow) const noexcept
    {
        const std::uint64_t hash = Hash(flow.m_Destination, flow.m_wDestinationPort, flow.m_Source, flow.m_wSourcePort);
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
        CIPCounters::Add(CIPCounters::MemoryFailed);
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

    {
        const CIPAnswerLimit::CScope scope;
        result = ip_input(packet, link);
    }

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

}  // namespace

void CIPDemuxTcp::Start()
{
    CTcpTable::Instance();
}

err_t CIPDemuxTcp::Input(const CIPFlow& flow, pbuf* packet, netif* link) noexcept
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

bool CIPDemuxTcp::Add(tcp_pcb* pcb) noexcept
{
    return CTcpTable::Instance().Add(pcb);
}

std::size_t CIPDemuxTcp::GetCount() noexcept
{
    return CTcpTable::Instance().GetCount();
}

}  // namespace ipstack
