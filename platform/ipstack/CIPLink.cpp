#include "CIPLink.h"

#include <cstring>
#include <optional>
#include <thread>

#include "CIPAddress.h"
#include "CIPAnswerLimit.h"
#include "CIPCore.h"
#include "CIPDemux.h"
#include "CIPIdentification.h"
#include "CIPInputBatch.h"
#include "CIPLinkTable.h"
#include "CIPPacketFilter.h"
#include "CIPTcpEnd.h"
#include "lwip/ip.h"
#include "lwip/pbuf.h"
#include "lwip/priv/tcp_priv.h"
#include "lwip/prot/icmp.h"
#include "mantle/CMNBurst.h"
#include "mantle/MNDefines.h"

namespace ipstack
{

namespace
{

constexpr unsigned int s_dwMtuLeast4 = 576;   // RFC 791
constexpr unsigned int s_dwMtuLeast6 = 1280;  // RFC 8200, section 5
constexpr unsigned int s_dwMtuMost = 65535;
constexpr unsigned int s_dwMaxLinks = 200;  // lwIP counts them with 8 bits

// Four decimal numbers, nothing else.
bool ReadDotted(const std::string& text, ip4_addr_t& address)
{
    int dots = 0;
    for (const char c : text) {
        if (c == '.') {
            ++dots;
        } else if (c < '0' || c > '9') {
            return false;
        }
    }
    return dots == 3 && ip4addr_aton(text.c_str(), &address) != 0;
}

bool IsUsable4(const ip4_addr_t& address)
{
    constexpr u32_t reserved = 240;
    return !ip4_addr_isany_val(address) && !ip4_addr_isloopback(&address) && !ip4_addr_ismulticast(&address) &&
           ip4_addr1(&address) < reserved && ip4_addr1(&address) != 0;
}

bool IsUsable6(const ip6_addr_t& address)
{
    return !ip6_addr_isany_val(address) && !ip6_addr_isloopback(&address) && !ip6_addr_ismulticast(&address);
}

unsigned int CountLinks()
{
    unsigned int count = 0;
    netif* link;
    NETIF_FOREACH(link) {
        ++count;
    }
    return count;
}

// That the rest of a broadcast did not come is nobody's to be told (RFC 1122, section 3.2.2); lwIP tells.
bool IsTimeExceededOfBroadcast(const pbuf* packet)
{
    constexpr u16_t quoted = IP_HLEN + 8;  // behind the ICMP header
    const auto* data = static_cast<const u8_t*>(packet->payload);
    if (packet->len < quoted + IP_HLEN || IPH_PROTO(static_cast<const ip_hdr*>(packet->payload)) != IP_PROTO_ICMP ||
        data[IP_HLEN] != ICMP_TE) {
        return false;
    }
    ip_hdr header;
    std::memcpy(&header, data + quoted, sizeof(header));
    return header.dest.addr == IPADDR_BROADCAST;
}

}  // namespace

CIPLink::~CIPLink()
{
    FreeQueue();
}

void CIPLink::FreeQueue()
{
    mantle::CMNMutexGuard guard(m_Mutex);
    while (pbuf* packet = m_pFirst) {
        m_pFirst = packet->next;
        packet->next = nullptr;
        pbuf_free(packet);
    }
    m_pLast = nullptr;
    m_dwQueued = 0;
}

unsigned long CIPLink::Open(const CIPStackConfig& config)
{
    ip4_addr_t address;
    ip4_addr_t mask;
    ip4_addr_t gateway;
    ip4_addr_set_zero(&gateway);
    if (!ReadDotted(config.m_strAddress, address) || !IsUsable4(address) || !ReadDotted(config.m_strMask, mask) ||
        !ip4_addr_netmask_valid(mask.addr) ||
        (!config.m_strGateway.empty() && (!ReadDotted(config.m_strGateway, gateway) || !IsUsable4(gateway)))) {
        return mantle::MN_ERROR_INVALID_ARG;
    }
    ip_addr_t full = IPADDR4_INIT(address.addr);
    const bool hasIp6 = !config.m_strAddress6.empty();
    ip_addr_t address6 = IPADDR4_INIT(0);
    if (hasIp6) {
        ip_addr_set_zero_ip6(&address6);
        if (!ip6addr_aton(config.m_strAddress6.c_str(), ip_2_ip6(&address6)) || !IsUsable6(*ip_2_ip6(&address6)) ||
            CIPAddress::IsOwn(address6)) {
            return mantle::MN_ERROR_INVALID_ARG;
        }
    }
    if (CIPAddress::IsOwn(full) || config.m_dwMtu < (hasIp6 ? s_dwMtuLeast6 : s_dwMtuLeast4) ||
        config.m_dwMtu > s_dwMtuMost) {
        return mantle::MN_ERROR_INVALID_ARG;
    }
    m_wMtu = static_cast<u16_t>(config.m_dwMtu);
    if (CountLinks() >= s_dwMaxLinks || !netif_add(&m_Netif, &address, &mask, &gateway, this, OnInit, ip_input)) {
        return mantle::MN_ERROR_FAILURE;
    }
    if (hasIp6) {
        netif_ip6_addr_set(&m_Netif, 0, ip_2_ip6(&address6));
        netif_ip6_addr_set_state(&m_Netif, 0, IP6_ADDR_PREFERRED);
    }
    netif_set_up(&m_Netif);
    if (!ip4_addr_isany_val(gateway) && !netif_default) {
        netif_set_default(&m_Netif);
    }
    CIPLinkTable::AddLink(&m_Netif);
    m_bOpen = true;
    return mantle::MN_OK;
}

void CIPLink::AbortConnections()
{
    bool found = true;
    while (found) {
        found = false;
        for (tcp_pcb* pcb = tcp_active_pcbs; pcb; pcb = pcb->next) {
            bool own = false;
            if (IP_IS_V6_VAL(pcb->local_ip)) {
                own = netif_get_ip6_addr_match(&m_Netif, ip_2_ip6(&pcb->local_ip)) >= 0;
            } else {
                own = ip4_addr_cmp(ip_2_ip4(&pcb->local_ip), netif_ip4_addr(&m_Netif));
            }
            if (own) {
                tcp_abort(pcb);
                found = true;
                break;
            }
        }
    }
}

void CIPLink::Close()
{
    CIPTcpEnd::CIPAbortReason reason(PS_ECONNABORTED);
    AbortConnections();
    m_bOpen = false;
    CIPLinkTable::RemoveLink(&m_Netif);
    netif_set_down(&m_Netif);
    netif_remove(&m_Netif);
    while (pbuf* packet = m_Netif.loop_first) {
        m_Netif.loop_first = packet->next;
        packet->next = nullptr;
        pbuf_free(packet);
    }
    m_Netif.loop_last = nullptr;
}

void CIPLink::WaitUntilIdle() const
{
    for (;;) {
        bool sending;
        {
            mantle::CMNMutexGuard guard(m_Mutex);
            sending = m_bSending;
        }
        if (!sending && m_dwInside.load() == 0) {
            return;
        }
        std::this_thread::yield();
    }
}

unsigned long CIPLink::Input(const char* data, unsigned long length)
{
    if (mantle::CMNBurst::IsOpen() && length != 0 && length <= m_wMtu) {
        if (pbuf* copy = CIPPacketFilter::Copy(data, length)) {
            CIPInputBatch::Add(*this, copy);
            return mantle::MN_OK;
        }
    }
    CIPCoreGuard guard;
    if (IsClosed()) {
        return mantle::MN_ERROR_NOT_INITIALIZED;
    }
    pbuf* packet = CIPPacketFilter::Admit(&m_Netif, data, length);
    if (!packet) {
        return mantle::MN_ERROR_INVALID_ARG;
    }
    Deliver(packet);
    return mantle::MN_OK;
}

void CIPLink::TakeIn(pbuf* packet) noexcept
{
    if (IsClosed()) {
        pbuf_free(packet);
    } else if (pbuf* admitted = CIPPacketFilter::Admit(&m_Netif, packet)) {
        Deliver(admitted);
    }
}

// Counts what comes too late.
bool CIPLink::IsClosed() const noexcept
{
    if (!m_bOpen) {
        CIPCounters::Add(CIPCounters::LinkIn);
        CIPCounters::Add(CIPCounters::FilterLinkClosing);
    }
    return !m_bOpen;
}

void CIPLink::Deliver(pbuf* packet) noexcept
{
    if (CIPCore::IsFragment(packet)) {
        CIPCore::Instance().NoteFragment();
    }
    CIPDemux::Input(packet, &m_Netif);
}

void CIPLink::SendQueued()
{
    {
        mantle::CMNMutexGuard guard(m_Mutex);
        if (m_bSending || !m_pFirst) {
            m_dwInside.fetch_sub(1);
            return;
        }
        m_bSending = true;
    }
    unsigned int count = 0;
    bool more = true;
    bool mine = true;
    while (mine) {
        count += SendSome(CIPCore::s_dwDrainLimit - count);
        mantle::CMNMutexGuard guard(m_Mutex);
        more = m_pFirst != nullptr;
        mine = m_bSending = more && count < CIPCore::s_dwDrainLimit;
    }
    if (more) {
        // Others keep the queue filled: this call has done its share. Still counted as inside.
        CIPCore::Instance().LeaveOutput(this);
    } else {
        m_dwInside.fetch_sub(1);
    }
}

// Sends what waits, `most` packets at most, more than one as a burst: what the low level puts off is done before this
// returns, when no other thread may send yet and the link is still in use. Returns: how many.
unsigned int CIPLink::SendSome(unsigned int most)
{
    std::optional<mantle::CMNBurst> burst;
    if (mantle::CMNBurst::IsOpen()) {
        burst.emplace();  // one of its own, to be ended here
    }
    unsigned int count = 0;
    while (count < most) {
        pbuf* packet;
        {
            mantle::CMNMutexGuard guard(m_Mutex);
            packet = m_pFirst;
            if (!packet) {
                break;
            }
            m_pFirst = packet->next;
            --m_dwQueued;
        }
        if (packet->next && !burst) {
            burst.emplace();
        }
        packet->next = nullptr;
        ++count;
        CIPCounters::Add(CIPCounters::LinkOut);
        CIPCounters::Add(CIPCounters::LinkOutBytes, packet->len);
        m_LowLevel.IPStackLowLevelOutput(static_cast<const char*>(packet->payload), packet->len, 0);
        pbuf_free(packet);
    }
    return count;
}

err_t CIPLink::OnInit(netif* link)
{
    link->name[0] = 'l';
    link->name[1] = 'k';
    link->mtu = static_cast<CIPLink*>(link->state)->m_wMtu;
    link->output = OnOutput4;
    link->output_ip6 = OnOutput6;
    link->flags = NETIF_FLAG_LINK_UP;
    return ERR_OK;
}

err_t CIPLink::OnOutput4(netif* link, pbuf* packet, const ip4_addr_t*)
{
    if (CIPAnswerLimit::IsArmed() && IsTimeExceededOfBroadcast(packet)) {
        CIPCounters::AddLocked(CIPCounters::IcmpOfBroadcast);
        return ERR_OK;
    }
    return static_cast<CIPLink*>(link->state)->Enqueue(packet);
}

err_t CIPLink::OnOutput6(netif* link, pbuf* packet, const ip6_addr_t*)
{
    return static_cast<CIPLink*>(link->state)->Enqueue(packet);
}

err_t CIPLink::Enqueue(pbuf* packet)
{
    if (CIPAnswerLimit::IsArmed() && !CIPAnswerLimit::MayLeave(packet)) {
        return ERR_OK;
    }
    pbuf* copy = pbuf_alloc(PBUF_RAW, packet->tot_len, PBUF_RAM);
    if (!copy) {
        return ERR_MEM;
    }
    pbuf_copy_partial(packet, copy->payload, packet->tot_len, 0);
    if (!m_bListed) {
        if (!CIPCore::Instance().AddOutput(this)) {
            pbuf_free(copy);
            return ERR_MEM;
        }
        // Counted as inside until it has sent, so that nobody frees the link meanwhile.
        m_bListed = true;
        m_dwInside.fetch_add(1);
    }
    CIPIdentification::Write(static_cast<std::uint8_t*>(copy->payload), copy->len);
    {
        mantle::CMNMutexGuard guard(m_Mutex);
        if (m_dwQueued >= s_dwQueueLimit) {
            CIPCounters::Add(CIPCounters::LinkOutputFull);
            pbuf_free(copy);
            return ERR_MEM;
        }
        (m_pFirst ? m_pLast->next : m_pFirst) = copy;
        m_pLast = copy;
        ++m_dwQueued;
    }
    return ERR_OK;
}

}  // namespace ipstack
