#include "CIPSocketTcp.h"

#include <algorithm>
#include <new>

#include "CIPCounters.h"
#include "CIPDemux.h"
#include "CIPError.h"
#include "CIPSocketTable.h"
#include "lwip/priv/tcp_priv.h"

namespace ipstack
{

namespace
{

constexpr int s_nMsecPerSec = 1000;

// Picks of a port before a connection to the own port is given up.
constexpr int s_nPortTries = 8;

bool IsSameConnection(const tcp_pcb* pcb, const CIPAddress& local, const CIPAddress& peer) noexcept
{
    return pcb->local_port == local.m_wPort && pcb->remote_port == peer.m_wPort &&
           ip_addr_cmp(&pcb->local_ip, &local.m_Ip) && ip_addr_cmp(&pcb->remote_ip, &peer.m_Ip);
}

// Whether a connection between these addresses is still there. One in TIME_WAIT is ended for it.
bool IsConnectionTaken(const CIPAddress& local, const CIPAddress& peer) noexcept
{
    for (tcp_pcb* pcb = tcp_tw_pcbs; pcb; pcb = pcb->next) {
        if (IsSameConnection(pcb, local, peer)) {
            tcp_abort(pcb);
            return false;
        }
    }
    for (tcp_pcb* pcb = tcp_active_pcbs; pcb; pcb = pcb->next) {
        if (IsSameConnection(pcb, local, peer)) {
            return true;
        }
    }
    return false;
}

}  // namespace

CIPSocketTcp::CIPSocketTcp(int family) noexcept
    : CIPSocket(family, PS_SOCK_STREAM),
      m_Local(CIPAddress::Any(family)),
      m_KeepAlive{TCP_KEEPIDLE_DEFAULT / s_nMsecPerSec, TCP_KEEPINTVL_DEFAULT / s_nMsecPerSec, TCP_KEEPCNT_DEFAULT}
{
}

CIPSocketTcp::~CIPSocketTcp() = default;

CIPSocketTcp* CIPSocketTcp::MakeAccepted(CIPSocketTcp& listener, CIPTcpEnd& end)
{
    auto* socket = new (std::nothrow) CIPSocketTcp(listener.GetFamily());
    CIPAddress local;
    ip_addr_copy(local.m_Ip, end.GetPcb()->local_ip);
    local.m_wPort = end.GetPcb()->local_port;
    if (!socket || socket->m_Hold.Join(CIPPortTable::Tcp, local) != 0) {
        delete socket;
        CIPCounters::Add(CIPCounters::MemoryFailed);
        return nullptr;
    }
    socket->m_nSendLimit.store(listener.m_nSendLimit.load());
    socket->m_nReceiveLimit.store(listener.m_nReceiveLimit.load());
    socket->m_cSocketOptions = listener.m_cSocketOptions;
    socket->m_cTos = listener.m_cTos;
    socket->m_cTtl = listener.m_cTtl;
    socket->m_bNoDelay = listener.m_bNoDelay;
    socket->m_KeepAlive = listener.m_KeepAlive;
    socket->m_pEnd = &end;
    end.Adopt(socket);
    tcp_pcb* pcb = end.GetPcb();
    socket->m_Local = local;
    ip_addr_copy(socket->m_Peer.m_Ip, pcb->remote_ip);
    socket->m_Peer.m_wPort = pcb->remote_port;
    socket->m_eState = Connected;
    socket->ApplySettings(pcb);
    socket->StartWindow(pcb, true);
    CIPTcpEnd::StartTimer(pcb);
    mantle::CMNMutexGuard guard(socket->m_QueueMutex);
    socket->m_bOpen = true;
    return socket;
}

void CIPSocketTcp::AbortUnaccepted() noexcept
{
    if (m_pEnd) {
        m_pEnd->Abort();
        m_pEnd = nullptr;
    }
    m_Hold.Release();
}

void CIPSocketTcp::CloseLocked()
{
    m_pBacklog.reset();
    std::uint32_t unread;
    {
        mantle::CMNMutexGuard guard(m_QueueMutex);
        unread = static_cast<std::uint32_t>(m_Queue.GetSize());
        m_Queue.Clear();
        m_bOpen = false;
        m_bReceiveShut = true;
    }
    if (unread != 0) {
        CIPCounters::Add(CIPCounters::TcpUnreadDiscarded, unread);
    }
    if (m_pEnd) {
        tcp_pcb* pcb = GetPcb();
        if (m_eState == Connecting || (m_bLinger && m_nLingerSeconds == 0)) {
            m_pEnd->Abort();
        } else {
            if (pcb) {
                m_dwUncredited.fetch_add(unread);
                Credit(pcb, true);
            }
            m_pEnd->Orphan(std::move(m_Hold));
        }
        m_pEnd = nullptr;
    }
    m_Hold.Release();
    m_bSendShut = true;
}

int CIPSocketTcp::GetStateError(int otherwise) const noexcept
{
    if (IsClosed()) {
        return PS_EBADF;
    }
    const int failure = m_nFailure.load();
    return failure != 0 ? failure : otherwise;
}

long CIPSocketTcp::Bind(const CIPAddress& address)
{
    CIPAddress local = address;
    if (const int error = FitBindAddress(local)) {
        return -error;
    }
    CIPCoreGuard guard;
    if (IsClosed()) {
        return -PS_EBADF;
    }
    if (m_eState != Idle || m_Hold.IsHeld()) {
        return -PS_EINVAL;
    }
    if (!local.IsAny() && !CIPAddress::IsOwn(local.m_Ip)) {
        return -PS_EADDRNOTAVAIL;
    }
    const int error = m_Hold.Bind(CIPPortTable::Tcp, local, m_bReuse);
    if (error == 0) {
        m_Local = m_Hold.GetAddress();
    }
    return -error;
}

int CIPSocketTcp::StartConnect(const CIPAddress& address)
{
    if (IsClosed()) {
        return PS_EBADF;
    }
    switch (m_eState) {
    case Idle:
        break;
    case Connecting:
        return PS_EALREADY;
    case Failed:
        return m_nFailure.load();
    default:
        return PS_EISCONN;
    }
    const bool own = CIPAddress::IsOwn(address.m_Ip);
    if (own) {
        CIPTcpEnd::ReapTimeWait();
    }
    CIPAddress local = m_Local;
    netif* link = ip_route(&local.m_Ip, &address.m_Ip);
    if (!link || ip_addr_ismulticast(&address.m_Ip) || ip_addr_isbroadcast(&address.m_Ip, link)) {
        return PS_ENETUNREACH;
    }
    if (local.IsAny()) {
        const ip_addr_t* source = ip_netif_get_local_ip(link, &address.m_Ip);
        if (!source) {
            return PS_ENETUNREACH;
        }
        ip_addr_copy(local.m_Ip, *source);
    }
    CIPPortTable::CHold hold;
    if (!m_Hold.IsHeld()) {
        for (int i = 0; i < s_nPortTries; ++i) {
            CIPPortTable::CHold next;
            if (const int error = next.Bind(CIPPortTable::Tcp, local, false)) {
                return error == PS_EADDRINUSE ? PS_EADDRNOTAVAIL : error;
            }
            hold = std::move(next);
            if (!own || hold.GetAddress().m_wPort != address.m_wPort) {
                break;
            }
        }
        local = hold.GetAddress();
    } else if (CIPPortTable::CountUses(CIPPortTable::Tcp, local.m_wPort) > 1 && IsConnectionTaken(local, address)) {
        return PS_EADDRNOTAVAIL;
    }
    tcp_pcb* pcb = tcp_new_ip_type(IP_GET_TYPE(&local.m_Ip));
    if (!pcb) {
        return PS_ENOMEM;
    }
    ip_addr_copy(pcb->local_ip, local.m_Ip);
    pcb->local_port = local.m_wPort;
    TCP_REG(&tcp_bound_pcbs, pcb);
    m_pEnd = new (std::nothrow) CIPTcpEnd(pcb, this, nullptr);
    if (!m_pEnd) {
        CIPCounters::Add(CIPCounters::MemoryFailed);
        tcp_close(pcb);
        return PS_ENOMEM;
    }
    ApplySettings(pcb);
    const err_t error = tcp_connect(pcb, &address.m_Ip, address.m_wPort, pcb->connected);
    if (error != ERR_OK || !CIPDemux::AddTcp(pcb)) {
        m_pEnd->Abort();
        m_pEnd = nullptr;
        return error != ERR_OK ? CIPError::FromLwip(error) : PS_ENOMEM;
    }
    if (hold.IsHeld()) {
        m_Hold = std::move(hold);
    }
    m_Local = local;
    m_Peer = address;
    m_eState = Connecting;
    mantle::CMNMutexGuard guard(m_QueueMutex);
    m_bOpen = true;
    return 0;
}

long CIPSocketTcp::Connect(const CIPAddress& address)
{
    CIPAddress peer = address;
    if (const int error = FitDestination(peer)) {
        return -error;
    }
    if (peer.m_wPort == 0) {
        return -PS_EADDRNOTAVAIL;
    }
    {
        CIPCoreGuard guard;
        if (const int error = StartConnect(peer)) {
            return -error;
        }
    }
    if (IsNonBlocking()) {
        return 0;
    }
    if (!WaitFor(CIPReadiness::s_dwOut)) {
        return -PS_EBADF;
    }
    return -m_nFailure.load();
}

long CIPSocketTcp::Listen(int backlog)
{
    const int most = std::min(std::max(backlog, 1), CIPTcpBacklog::s_nMost);
    CIPCoreGuard guard;
    if (IsClosed()) {
        return -PS_EBADF;
    }
    if (m_eState == Listening) {
        m_pBacklog->SetMost(most);
        return 0;
    }
    if (m_eState != Idle) {
        return -PS_EINVAL;
    }
    CIPPortTable::CHold hold;
    if (!m_Hold.IsHeld()) {
        if (const int error = hold.Bind(CIPPortTable::Tcp, CIPAddress::Any(GetFamily()), false)) {
            return -error;
        }
    }
    const CIPAddress local = hold.IsHeld() ? hold.GetAddress() : m_Local;
    std::unique_ptr<CIPTcpBacklog> opened(new (std::nothrow) CIPTcpBacklog(*this));
    if (const int error = opened ? opened->Open(local, most) : PS_ENOMEM) {
        CIPCounters::Add(CIPCounters::MemoryFailed);
        return -error;
    }
    if (hold.IsHeld()) {
        m_Hold = std::move(hold);
    }
    m_Local = local;
    m_pBacklog = std::move(opened);
    m_eState = Listening;
    return 0;
}

long CIPSocketTcp::Accept(CIPAddress& peer)
{
    for (;;) {
        {
            CIPCoreGuard guard;
            if (IsClosed()) {
                return -PS_EBADF;
            }
            if (m_eState != Listening) {
                return -PS_EINVAL;
            }
            if (CIPSocketTcp* socket = m_pBacklog->Front()) {
                const int handle = CIPSocketTable::Open(socket);
                if (handle == 0) {
                    return -PS_EMFILE;
                }
                m_pBacklog->Pop();
                socket->SetHandleLocked(handle);
                peer = socket->m_Peer;
                if (m_pBacklog->IsEmpty()) {
                    Clear(CIPReadiness::s_dwIn);
                }
                if (CIPSocketTable::IsFull()) {
                    CIPTcpBacklog::OnTableFull();
                }
                return handle;
            }
        }
        if (IsNonBlocking()) {
            return -PS_EAGAIN;
        }
        if (!WaitFor(CIPReadiness::s_dwIn)) {
            return -PS_EBADF;
        }
    }
}

long CIPSocketTcp::Shutdown(int direction)
{
    constexpr int both = 2;
    if (direction != PS_SHUT_RD && direction != PS_SHUT_WR && direction != both) {
        return -PS_EINVAL;
    }
    CIPCoreGuard guard;
    if (IsClosed()) {
        return -PS_EBADF;
    }
    if (m_eState != Connected) {
        return -PS_ENOTCONN;
    }
    tcp_pcb* pcb = GetPcb();
    if (direction != PS_SHUT_WR) {
        std::uint32_t unread;
        {
            mantle::CMNMutexGuard queueGuard(m_QueueMutex);
            m_bReceiveShut = true;
            unread = static_cast<std::uint32_t>(m_Queue.GetSize());
            m_Queue.Clear();
            RaiseLocked(CIPReadiness::s_dwIn);
        }
        CIPCounters::Add(CIPCounters::TcpUnreadDiscarded, unread);
        m_dwUncredited.fetch_add(unread);
        if (pcb) {
            Credit(pcb, true);
        }
    }
    if (direction != PS_SHUT_RD && !m_bSendShut) {
        m_bSendShut = true;
        if (pcb) {
            CIPTcpEnd::SendFin(pcb);
        }
        RaiseLocked(CIPReadiness::s_dwOut);  // a write ends at once
    }
    return 0;
}

long CIPSocketTcp::GetLocal(CIPAddress& address)
{
    CIPCoreGuard guard;
    address = m_Local;
    return IsClosed() ? -PS_EBADF : 0;
}

long CIPSocketTcp::GetPeer(CIPAddress& address)
{
    CIPCoreGuard guard;
    if (IsClosed() || m_eState != Connected) {
        return IsClosed() ? -PS_EBADF : -PS_ENOTCONN;
    }
    address = m_Peer;
    return 0;
}

std::uint32_t CIPSocketTcp::GetBitsLocked()
{
    std::uint32_t bits = 0;
    if (m_eState == Listening) {
        return m_pBacklog->IsEmpty() || CIPSocketTable::IsFull() ? 0 : CIPReadiness::s_dwIn;
    }
    {
        mantle::CMNMutexGuard guard(m_QueueMutex);
        if (m_eState != Idle && (m_Queue.GetSize() != 0 || !m_bOpen || m_bReceiveShut)) {
            bits |= CIPReadiness::s_dwIn;
        }
    }
    if (m_nFailure.load() != 0) {
        bits |= CIPReadiness::s_dwError;
    }
    const tcp_pcb* pcb = GetPcb();
    if (m_eState == Connected && (m_bSendShut || (pcb && IsWritable(pcb)))) {
        bits |= CIPReadiness::s_dwOut;
    }
    return bits;
}

void CIPSocketTcp::OnConnected(tcp_pcb* pcb)
{
    m_eState = Connected;
    ApplySettings(pcb);
    StartWindow(pcb, false);
    CIPTcpEnd::StartTimer(pcb);
    UpdateOut(pcb);
}

void CIPSocketTcp::OnFailed(err_t error, int abortReason)
{
    const bool connecting = m_eState == Connecting;
    int failure;
    if (error == ERR_RST) {
        failure = connecting ? PS_ECONNREFUSED : PS_ECONNRESET;
    } else if (error == ERR_CLSD) {
        failure = 0;
    } else {
        failure = abortReason != 0 ? abortReason : PS_ETIMEDOUT;
    }
    mantle::CMNMutexGuard guard(m_QueueMutex);
    if (m_bSendShut && !m_bOpen) {
        failure = 0;  // both directions had ended in order
    }
    m_bOpen = false;
    if (failure == 0) {
        RaiseLocked(CIPReadiness::s_dwIn);
        return;
    }
    m_eState = Failed;
    m_nFailure.store(failure);
    m_nError.store(failure);
    RaiseLocked(connecting ? CIPReadiness::s_dwError : CIPReadiness::s_dwError | CIPReadiness::s_dwIn);
}

}  // namespace ipstack
