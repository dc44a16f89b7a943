#include "CIPTcpEnd.h"

#include "CIPAddress.h"
#include "CIPCounters.h"
#include "CIPDemux.h"
#include "CIPRoom.h"
#include "CIPSocketTcp.h"
#include "CIPTcpBacklog.h"
#include "lwip/priv/tcp_priv.h"

namespace ipstack
{

namespace
{

constexpr u32_t s_dwMsecPerSec = 1000;
constexpr u32_t s_dwTicksPerSecond = s_dwMsecPerSec / TCP_SLOW_INTERVAL;
constexpr u32_t s_dwOrphanTicks = CIPTcpEnd::s_dwOrphanSeconds * s_dwTicksPerSecond;

// Connections in TIME_WAIT over a wire between two links stay this long, for a last segment on its way.
constexpr u32_t s_dwWireTicks = 2 * s_dwTicksPerSecond;

// What the retransmission timer begins with, at least (RFC 6298, section 2.4); later measurements bring it down to lwIP's
// own least. The longest round trip that lwIP's fields hold eight times, with room for what follows.
constexpr u32_t s_dwLeastTimeOut = s_dwTicksPerSecond;
constexpr u32_t s_dwLongestTrip = 60 * s_dwTicksPerSecond;

// Slow ticks between window probes; the last goes on.
constexpr u16_t s_ProbeTicks[] = {3, 6, 12, 24, 48, 96, 120};

u32_t GetUnsent(const tcp_pcb* pcb) noexcept
{
    return TCP_SND_BUF - pcb->snd_buf;
}

}  // namespace

CIPTcpEnd::CList CIPTcpEnd::s_Orphans;
CIPTcpEnd::CList CIPTcpEnd::s_GivenWay;
CIPTcpEnd* CIPTcpEnd::s_pDead = nullptr;
int CIPTcpEnd::s_nAbortReason = 0;
const tcp_ext_arg_callbacks CIPTcpEnd::s_Callbacks = {OnDestroyed, nullptr};

void CIPTcpEnd::CList::Append(CIPTcpEnd& end) noexcept
{
    end.m_pList = this;
    end.m_pPrevious = m_pLast;
    end.m_pNext = nullptr;
    (m_pLast ? m_pLast->m_pNext : m_pFirst) = &end;
    m_pLast = &end;
    ++m_dwCount;
}

void CIPTcpEnd::CList::Remove(CIPTcpEnd& end) noexcept
{
    (end.m_pPrevious ? end.m_pPrevious->m_pNext : m_pFirst) = end.m_pNext;
    (end.m_pNext ? end.m_pNext->m_pPrevious : m_pLast) = end.m_pPrevious;
    end.m_pPrevious = end.m_pNext = nullptr;
    end.m_pList = nullptr;
    --m_dwCount;
}

CIPTcpEnd::CIPTcpEnd(tcp_pcb* pcb, CIPSocketTcp* socket, CIPTcpBacklog* backlog)
    : m_pPcb(pcb), m_pSocket(socket), m_pBacklog(backlog)
{
    tcp_ext_arg_set_callbacks(pcb, s_cExtArg, &s_Callbacks);
    tcp_ext_arg_set(pcb, s_cExtArg, this);
    if (socket) {
        Adopt(socket);
    }
}

void CIPTcpEnd::Adopt(CIPSocketTcp* socket) noexcept
{
    m_pSocket = socket;
    DropBacklog();
    tcp_arg(m_pPcb, this);
    tcp_recv(m_pPcb, OnReceived);
    tcp_sent(m_pPcb, OnSent);
    tcp_err(m_pPcb, OnError);
    m_pPcb->connected = OnConnected;
    m_bPeerOwn = CIPAddress::IsOwn(m_pPcb->remote_ip);
}

void CIPTcpEnd::DropBacklog() noexcept
{
    m_pBacklog = nullptr;
    if (m_pList) {
        m_pList->Remove(*this);
    }
}

void CIPTcpEnd::GiveWay() noexcept
{
    m_pList->Remove(*this);
    s_GivenWay.Append(*this);
    CIPCounters::Add(CIPCounters::TcpHalfOpenDropped);
}

std::vector<CIPTcpEnd*>& CIPTcpEnd::Unsent()
{
    static auto* unsent = new std::vector<CIPTcpEnd*>;
    return *unsent;
}

void CIPTcpEnd::NoteUnsent() noexcept
{
    // Without room lwIP's own probes do until the next try to send.
    if (m_nUnsent == s_nNone && m_bPeerOwn && m_pPcb && m_pPcb->unsent && ReserveOne(Unsent())) {
        m_nUnsent = Unsent().size();
        Unsent().push_back(this);
        m_cProbes = 0;
        m_wProbeTicks = 0;
    }
}

void CIPTcpEnd::ForgetUnsent() noexcept
{
    if (m_nUnsent != s_nNone) {
        std::vector<CIPTcpEnd*>& unsent = Unsent();
        unsent[m_nUnsent] = unsent.back();
        unsent[m_nUnsent]->m_nUnsent = m_nUnsent;
        unsent.pop_back();
        m_nUnsent = s_nNone;
    }
}

void CIPTcpEnd::ProbeWindows()
{
    std::vector<CIPTcpEnd*>& unsent = Unsent();
    for (std::size_t i = unsent.size(); i-- > 0;) {
        CIPTcpEnd& end = *unsent[i];
        tcp_pcb* pcb = end.m_pPcb;
        if (!pcb->unsent) {
            end.ForgetUnsent();
        } else if (pcb->persist_backoff == 0) {
            end.m_cProbes = 0;
            end.m_wProbeTicks = 0;
        } else {
            // lwIP's timer stands still at its beginning. Once the reader has made room the peer opens its window
            // for a whole segment.
            pcb->persist_backoff = 1;
            pcb->persist_cnt = 0;
            if (++end.m_wProbeTicks >= s_ProbeTicks[end.m_cProbes]) {
                end.m_wProbeTicks = 0;
                if (end.m_cProbes + 1u < sizeof(s_ProbeTicks) / sizeof(s_ProbeTicks[0])) {
                    ++end.m_cProbes;
                }
                ++pcb->persist_probe;  // nothing from the peer for TCP_MAXRTX of them: lwIP gives up
                tcp_keepalive(pcb);    // no byte of data: the answer tells the window
            }
        }
    }
}

void CIPTcpEnd::Orphan(CIPPortTable::CHold&& hold) noexcept
{
    m_pSocket = nullptr;
    tcp_pcb* pcb = m_pPcb;
    if (!pcb) {
        return;
    }
    m_Hold = static_cast<CIPPortTable::CHold&&>(hold);
    m_Hold.Change(CIPPortTable::Closing);
    if (pcb->state == TIME_WAIT) {
        return;
    }
    pcb->tmr = tcp_ticks;
    if (s_Orphans.m_dwCount >= s_dwMostOrphans) {
        s_Orphans.m_pFirst->AbortOrphan();
    }
    m_dwProgress = tcp_ticks;
    s_Orphans.Append(*this);
    // Only the sending side is closed: a peer that goes on sending must not reset what is still to go out.
    SendFin(pcb);
    if (m_pPcb && pcb->state == FIN_WAIT_2) {
        tcp_set_flags(pcb, TF_RXCLOSED);
    }
}

void CIPTcpEnd::SendFin(tcp_pcb* pcb) noexcept
{
    if (pcb->state != ESTABLISHED && pcb->state != CLOSE_WAIT) {
        return;
    }
    // The closing states' time-outs count from the last activity, which may be long ago.
    pcb->tmr = tcp_ticks;
    if (tcp_enqueue_flags(pcb, TCP_FIN) == ERR_OK) {
        pcb->state = pcb->state == ESTABLISHED ? FIN_WAIT_1 : LAST_ACK;
        tcp_output(pcb);
        static_cast<CIPTcpEnd*>(tcp_ext_arg_get(pcb, s_cExtArg))->NoteUnsent();
    } else {
        tcp_shutdown(pcb, 0, 1);  // no memory: lwIP tries again on its timer
    }
}

void CIPTcpEnd::Abort() noexcept
{
    m_pSocket = nullptr;
    if (!m_pPcb) {
        return;
    }
    if (m_pPcb->state == SYN_SENT || m_pPcb->state == CLOSED) {
        tcp_close(m_pPcb);
    } else {
        CIPCounters::Add(CIPCounters::TcpUnsentDiscarded, GetUnsent(m_pPcb));
        tcp_abort(m_pPcb);
    }
}

void CIPTcpEnd::AbortOrphan() noexcept
{
    CIPCounters::Add(CIPCounters::TcpOrphanAborted);
    Abort();
}

void CIPTcpEnd::OnSlowTick()
{
    ProbeWindows();
    while (s_Orphans.m_pFirst && tcp_ticks - s_Orphans.m_pFirst->m_dwProgress > s_dwOrphanTicks) {
        s_Orphans.m_pFirst->AbortOrphan();
    }
    if (tcp_ticks % s_dwTicksPerSecond == 0) {
        for (CIPTcpEnd* end = s_Orphans.m_pFirst; end;) {
            CIPTcpEnd* next = end->m_pNext;
            if (end->m_pPcb->state == FIN_WAIT_2) {
                // All has arrived: what the peer still sends is answered with a reset, and lwIP's time-out holds.
                tcp_set_flags(end->m_pPcb, TF_RXCLOSED);
            } else if (end->m_pPcb->state == TIME_WAIT) {
                s_Orphans.Remove(*end);
            }
            end = next;
        }
    }
    ReapTimeWait();
    unsigned int count = 0;
    for (tcp_pcb* pcb = tcp_tw_pcbs; pcb;) {
        tcp_pcb* next = pcb->next;
        if (++count > s_dwMostTimeWait) {
            CIPCounters::Add(CIPCounters::TcpTimeWaitDropped);
            tcp_abort(pcb);
        }
        pcb = next;
    }
}

bool CIPTcpEnd::IsInside(const tcp_pcb* pcb) noexcept
{
    return ip_addr_cmp(&pcb->remote_ip, &pcb->local_ip) || ip_addr_isloopback(&pcb->remote_ip) ||
           ip_addr_isloopback(&pcb->local_ip);
}

void CIPTcpEnd::ReapTimeWait()
{
    for (tcp_pcb* pcb = tcp_tw_pcbs; pcb;) {
        tcp_pcb* next = pcb->next;
        if (IsInside(pcb) || (CIPAddress::IsOwn(pcb->remote_ip) && tcp_ticks - pcb->tmr > s_dwWireTicks)) {
            tcp_abort(pcb);
        }
        pcb = next;
    }
}

void CIPTcpEnd::FreeDeadOnes() noexcept
{
    while (CIPTcpEnd* end = s_GivenWay.m_pFirst) {
        tcp_abandon(end->m_pPcb, 0);  // and with it the end leaves the list
    }
    while (CIPTcpEnd* end = s_pDead) {
        s_pDead = end->m_pNext;
        if (end->m_pSocket) {
            end->m_pSocket->OnEndFreed();
        }
        delete end;
    }
}

err_t CIPTcpEnd::Discard(tcp_pcb* pcb, pbuf* packet) noexcept
{
    CIPCounters::Add(CIPCounters::TcpUnreadDiscarded, packet->tot_len);
    const u16_t length = packet->tot_len;
    pbuf_free(packet);
    if (pcb->state == FIN_WAIT_2) {
        tcp_abort(pcb);  // all of ours has arrived: the peer learns that nobody reads
        return ERR_ABRT;
    }
    tcp_recved(pcb, length);
    return ERR_OK;
}

err_t CIPTcpEnd::OnReceived(void* arg, tcp_pcb* pcb, pbuf* packet, err_t)
{
    auto* end = static_cast<CIPTcpEnd*>(arg);
    if (end->m_pSocket) {
        return end->m_pSocket->OnReceived(pcb, packet);
    }
    if (packet) {
        return end->Discard(pcb, packet);
    }
    return ERR_OK;
}

err_t CIPTcpEnd::OnSent(void* arg, tcp_pcb* pcb, u16_t)
{
    auto* end = static_cast<CIPTcpEnd*>(arg);
    if (!pcb->unsent) {
        // lwIP leaves the persist timer running when a probe's byte was the last one.
        pcb->persist_backoff = 0;
    } else {
        end->NoteUnsent();
    }
    if (end->m_pSocket) {
        end->m_pSocket->OnSent(pcb);
    } else if (end->IsOrphan()) {
        pcb->tmr = tcp_ticks;
        end->m_dwProgress = tcp_ticks;
        s_Orphans.Remove(*end);
        s_Orphans.Append(*end);
    }
    return ERR_OK;
}

void CIPTcpEnd::StartTimer(tcp_pcb* pcb) noexcept
{
    // RFC 6298, sections 2.2 and 2.4, and Karn's algorithm (section 3). lwIP keeps eight times the smoothed round trip
    // and four times its variation, which begins with half the round trip.
    if (pcb->nrtx == 0 && pcb->rttest != 0) {
        const u32_t trip = LWIP_MIN(tcp_ticks - pcb->rttest, s_dwLongestTrip);
        const u32_t variation = 2 * trip;
        pcb->sa = static_cast<s16_t>(8 * trip);
        pcb->sv = static_cast<s16_t>(trip + variation < s_dwLeastTimeOut ? s_dwLeastTimeOut - trip : variation);
        pcb->rto = static_cast<s16_t>(trip + static_cast<u32_t>(pcb->sv));
    }
    pcb->rttest = 0;
    pcb->nrtx = 0;  // what the request of the connection has used up does not count for the data
}

err_t CIPTcpEnd::OnConnected(void* arg, tcp_pcb* pcb, err_t)
{
    auto* end = static_cast<CIPTcpEnd*>(arg);
    end->m_bPeerOwn = CIPAddress::IsOwn(pcb->remote_ip);
    if (end->m_pSocket) {
        end->m_pSocket->OnConnected(pcb);
    }
    return ERR_OK;
}

void CIPTcpEnd::OnError(void* arg, err_t error)
{
    auto* end = static_cast<CIPTcpEnd*>(arg);
    end->m_pPcb = nullptr;
    end->ForgetUnsent();
    if (end->m_pSocket) {
        end->m_pSocket->OnFailed(error, s_nAbortReason);
    }
}

void CIPTcpEnd::OnDestroyed(u8_t, void* data)
{
    auto* end = static_cast<CIPTcpEnd*>(data);
    end->m_pPcb = nullptr;
    end->m_Hold.Release();
    end->ForgetUnsent();
    end->DropBacklog();
    // An error callback may still follow: the end is deleted when the lock is given up.
    end->m_pNext = s_pDead;
    s_pDead = end;
}

}  // namespace ipstack
