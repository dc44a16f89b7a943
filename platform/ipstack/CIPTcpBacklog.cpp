#include "CIPTcpBacklog.h"

#include <algorithm>
#include <new>

#include "CIPCounters.h"
#include "CIPRoom.h"
#include "CIPSocketTable.h"
#include "CIPSocketTcp.h"
#include "lwip/priv/tcp_priv.h"

namespace ipstack
{

namespace
{

// lwIP's own count, which stays at 0.
constexpr u8_t s_cBacklog = 1;

}  // namespace

const tcp_ext_arg_callbacks CIPTcpBacklog::s_Callbacks = {nullptr, OnPassiveOpen};

std::vector<CIPTcpBacklog*>& CIPTcpBacklog::All()
{
    static auto* all = new std::vector<CIPTcpBacklog*>;
    return *all;
}

int CIPTcpBacklog::Open(const CIPAddress& address, int most)
{
    std::vector<CIPTcpBacklog*>& all = All();
    if (!ReserveOne(all)) {
        return PS_ENOMEM;
    }
    tcp_pcb* pcb = tcp_new_ip_type(IP_GET_TYPE(&address.m_Ip));
    if (!pcb) {
        return PS_ENOMEM;
    }
    ip_addr_copy(pcb->local_ip, address.m_Ip);
    pcb->local_port = address.m_wPort;
    TCP_REG(&tcp_bound_pcbs, pcb);
    err_t error = ERR_OK;
    tcp_pcb* listener = tcp_listen_with_backlog_and_err(pcb, s_cBacklog, &error);
    if (!listener) {
        tcp_close(pcb);
        return PS_ENOMEM;
    }
    m_pListener = listener;
    m_nMost = most;
    tcp_arg(listener, this);
    tcp_accept(listener, OnAccept);
    tcp_ext_arg_set_callbacks(listener, CIPTcpEnd::s_cExtArg, &s_Callbacks);
    tcp_ext_arg_set(listener, CIPTcpEnd::s_cExtArg, this);
    all.push_back(this);
    return 0;
}

CIPTcpBacklog::~CIPTcpBacklog()
{
    if (!m_pListener) {
        return;
    }
    std::vector<CIPTcpBacklog*>& all = All();
    all.erase(std::remove(all.begin(), all.end(), this), all.end());
    // Half-open connections are reset by lwIP when their last step comes; they know no listener from now on.
    while (CIPTcpEnd* end = m_HalfOpen.m_pFirst) {
        end->DropBacklog();
    }
    tcp_close(m_pListener);
    while (CIPSocketTcp* socket = m_pFirst) {
        Pop();
        socket->AbortUnaccepted();
        delete socket;
    }
}

void CIPTcpBacklog::Append(CIPSocketTcp& socket) noexcept
{
    (m_pLast ? m_pLast->m_pNextReady : m_pFirst) = &socket;
    m_pLast = &socket;
    ++m_nReady;
}

void CIPTcpBacklog::Pop() noexcept
{
    m_pFirst = m_pFirst->m_pNextReady;
    if (!m_pFirst) {
        m_pLast = nullptr;
    }
    --m_nReady;
}

err_t CIPTcpBacklog::OnPassiveOpen(u8_t, tcp_pcb_listen* listener, tcp_pcb* pcb)
{
    auto* backlog = static_cast<CIPTcpBacklog*>(listener->ext_args[CIPTcpEnd::s_cExtArg].data);
    tcp_backlog_accepted(pcb);
    if (backlog->IsFull()) {
        CIPCounters::Add(CIPCounters::SegmentBacklog);
        return ERR_MEM;  // dropped without an answer
    }
    if (!ip_route(&pcb->local_ip, &pcb->remote_ip)) {
        CIPCounters::Add(CIPCounters::SegmentNoRoute);
        return ERR_RTE;
    }
    auto* end = new (std::nothrow) CIPTcpEnd(pcb, nullptr, backlog);
    if (!end) {
        CIPCounters::Add(CIPCounters::MemoryFailed);
        return ERR_MEM;
    }
    if (backlog->m_HalfOpen.m_dwCount >= s_dwMostHalfOpen) {
        backlog->m_HalfOpen.m_pFirst->GiveWay();
    }
    backlog->m_HalfOpen.Append(*end);
    return ERR_OK;
}

err_t CIPTcpBacklog::OnAccept(void* arg, tcp_pcb* pcb, err_t error)
{
    if (!pcb || error != ERR_OK) {
        return ERR_OK;  // no memory for it: nothing was made
    }
    auto* backlog = static_cast<CIPTcpBacklog*>(arg);
    auto* end = static_cast<CIPTcpEnd*>(tcp_ext_arg_get(pcb, CIPTcpEnd::s_cExtArg));
    CIPSocketTcp* const socket = CIPSocketTcp::MakeAccepted(backlog->m_Owner, *end);
    if (!socket) {
        return ERR_MEM;  // lwIP resets it
    }
    backlog->Append(*socket);
    if (!CIPSocketTable::IsFull()) {
        backlog->m_Owner.RaiseLocked(CIPReadiness::s_dwIn);
    }
    return ERR_OK;
}

void CIPTcpBacklog::OnTableRoom()
{
    for (CIPTcpBacklog* backlog : All()) {
        if (!backlog->IsEmpty()) {
            backlog->m_Owner.RaiseLocked(CIPReadiness::s_dwIn);
        }
    }
}

void CIPTcpBacklog::OnTableFull()
{
    for (CIPTcpBacklog* backlog : All()) {
        backlog->m_Owner.Clear(CIPReadiness::s_dwIn);
    }
}

}  // namespace ipstack
