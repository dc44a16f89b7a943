#include "CIPCore.h"

#include <algorithm>
#include <thread>

#include "CIPAnswerLimit.h"
#include "CIPAssertion.h"
#include "CIPCounters.h"
#include "CIPDemux.h"
#include "CIPInputBatch.h"
#include "CIPLink.h"
#include "CIPPacketFilter.h"
#include "CIPStackThread.h"
#include "CIPTcpBacklog.h"
#include "CIPTcpEnd.h"
#include "lwip/init.h"
#include "lwip/ip4_frag.h"
#include "lwip/ip6_frag.h"
#include "lwip/netif.h"
#include "lwip/priv/tcp_priv.h"
#include "lwip/snmp.h"
#include "lwip/stats.h"
#include "mantle/CMNClock.h"

namespace ipstack
{

namespace
{

constexpr long long s_llUsecPerMsec = 1000;
constexpr long long s_llTcpIntervalUs = TCP_TMR_INTERVAL * s_llUsecPerMsec;
constexpr long long s_llReassIntervalUs = IP_TMR_INTERVAL * s_llUsecPerMsec;

// Ticks missed by more than this (the process was stopped, the machine slept) are left out: in a burst they would
// run through every retransmission before the peer can answer.
constexpr long long s_llMostLateUs = 1000 * s_llUsecPerMsec;

long long NextTick(long long deadline, long long interval, long long now)
{
    return now - deadline > s_llMostLateUs ? now + interval : deadline + interval;
}

// A fragment is dropped when its age reaches this many ticks; one more, as the first may come at once.
constexpr unsigned int s_dwReassTicks = IP_REASS_MAXAGE + 1;

#if defined(__GNUC__)
__attribute__((tls_model("initial-exec")))
#endif
thread_local bool t_bHeld = false;

// The packet that a link's own queue holds longest: always one flat buffer.
pbuf* PopLooped(netif* link) noexcept
{
    pbuf* packet = link->loop_first;
    link->loop_first = packet->next;
    if (!link->loop_first) {
        link->loop_last = nullptr;
    }
    packet->next = nullptr;
    return packet;
}

// Whether the timer has nothing to do for the connection: it is open, nothing is on its way, nothing is owed.
bool IsAtRest(const tcp_pcb& pcb) noexcept
{
    constexpr unsigned int owed = TF_ACK_DELAY | TF_ACK_NOW | TF_CLOSEPEND;
    return (pcb.state == ESTABLISHED || pcb.state == CLOSE_WAIT) && !pcb.unsent && !pcb.unacked && !pcb.ooseq &&
           !pcb.refused_data && pcb.persist_backoff == 0 && (pcb.flags & owed) == 0 &&
           !ip_get_option(&pcb, SOF_KEEPALIVE);
}

// Whether TCP needs its timer. What changes that holds the core lock, and the timer is set when it lets go.
bool NeedsTicks() noexcept
{
    bool needs = tcp_tw_pcbs != nullptr;
    for (const tcp_pcb* pcb = tcp_active_pcbs; pcb && !needs; pcb = pcb->next) {
        needs = !IsAtRest(*pcb);
    }
    return needs;
}

}  // namespace

CIPCore::CIPCore() : m_pThread(new CIPStackThread(*this)) {}

CIPCore& CIPCore::Instance()
{
    static CIPCore* const core = new CIPCore;
    return *core;
}

bool CIPCore::Start()
{
    {
        CIPCoreGuard guard;
        if (m_bStarted.load()) {
            return false;
        }
        lwip_init();
        CIPDemux::Start();
        CIPTcpEnd::Start();
        CIPTcpBacklog::Start();
        tcp_ticks = 1;  // a round trip that began at 0 would not be measured
        m_bStarted.store(true, std::memory_order_release);
    }
    m_pThread->Start();
    return true;
}

void CIPCore::StopThread()
{
    m_pThread->Stop();
}

bool CIPCore::IsHeld() noexcept
{
    return t_bHeld;
}

void CIPCore::AddTimerSource(CIPTimerSource* source)
{
    m_pThread->AddSource(source);
}

void CIPCore::RemoveTimerSource(CIPTimerSource* source)
{
    m_pThread->RemoveSource(source);
}

void CIPCore::WakeTimerThread() noexcept
{
    m_pThread->Wake();
}

void CIPCore::LeaveOutput(CIPLink* link)
{
    CIPCoreGuard guard;
    CIPCounters::Add(CIPCounters::DrainLimit);
    if (!m_LeftOutputs.Add(link)) {
        // Another call has left it there already, or there is no memory: the link's next packet takes the rest along.
        link->m_dwInside.fetch_sub(1);
    }
    WakeTimerThread();
}

void CIPCore::NoteFragment()
{
    m_dwReassTicks = s_dwReassTicks;
    if (m_llReassDeadline == CIPTimerSource::NoDeadline) {
        m_llReassDeadline = mantle::CMNClock::NowUs() + s_llReassIntervalUs;
        WakeTimerThread();
    }
}

bool CIPCore::IsFragment(const pbuf* packet) noexcept
{
    const auto* data = static_cast<const unsigned char*>(packet->payload);
    constexpr unsigned int ip6 = 6;
    if (packet->len >= IP_HLEN && (data[0] >> 4) != ip6) {
        const auto* header = static_cast<const ip_hdr*>(packet->payload);
        return (IPH_OFFSET(header) & PP_HTONS(IP_OFFMASK | IP_MF)) != 0;
    }
    if (packet->len < IP6_HLEN) {
        return false;
    }
    switch (IP6H_NEXTH(static_cast<const ip6_hdr*>(packet->payload))) {
    case IP6_NEXTH_HOPBYHOP:
    case IP6_NEXTH_DESTOPTS:
    case IP6_NEXTH_ROUTING:
    case IP6_NEXTH_FRAGMENT:
        return true;  // a fragment header may follow any of them
    default:
        return false;
    }
}

bool CIPCore::HasPackets() const noexcept
{
    netif* link;
    NETIF_FOREACH(link) {
        if (link->loop_first) {
            return true;
        }
    }
    return false;
}

void CIPCore::Lock()
{
    if (!m_Mutex.try_lock()) {
        m_dwWaiting.fetch_add(1, std::memory_order_relaxed);
        m_Mutex.lock();
        m_dwWaiting.fetch_sub(1, std::memory_order_relaxed);
    }
    t_bHeld = true;
    if (!CIPInputBatch::IsEmpty()) {
        CIPInputBatch::TakeIn();
    }
}

void CIPCore::Unlock()
{
    CIPTcpEnd::FreeDead();
    if (m_Wakes.IsEmpty() && m_Outputs.IsEmpty()) {
        t_bHeld = false;
        m_Mutex.unlock();
    } else {
        CIPWakeList wakes;
        m_Wakes.MoveTo(wakes);
        CIPShortList<CIPLink> outputs;
        m_Outputs.MoveTo(outputs);
        outputs.ForEach([](CIPLink& link) { link.m_bListed = false; });
        t_bHeld = false;
        m_Mutex.unlock();
        wakes.ForEach([](mantle::CMNWaiter& waiter) { waiter.Signal(); });
        outputs.ForEach([](CIPLink& link) { link.SendQueued(); });
    }
    CIPAssertion::TracePending();
}

void CIPCore::Leave()
{
    unsigned int drained = 0;
    for (;;) {
        const unsigned int count = DrainStretch(s_dwStretch);
        drained += count;
        if (count < s_dwStretch) {
            break;
        }
        if (drained >= s_dwDrainLimit) {
            if (HasPackets()) {
                CIPCounters::Add(CIPCounters::DrainLimit);
                m_bDrainLeft = true;
                WakeTimerThread();
            }
            break;
        }
        Unlock();
        if (m_dwWaiting.load(std::memory_order_relaxed) != 0) {
            std::this_thread::yield();
        }
        Lock();
    }
    const bool touched = drained != 0 || !m_bOnlyTimers;
    m_bOnlyTimers = false;
    if (touched && m_llTcpDeadline == CIPTimerSource::NoDeadline && (tcp_active_pcbs || tcp_tw_pcbs)) {
        m_llTcpDeadline = mantle::CMNClock::NowUs() + s_llTcpIntervalUs;
        WakeTimerThread();
    }
    Unlock();
}

unsigned int CIPCore::DrainStretch(unsigned int limit)
{
    unsigned int count = 0;
    bool found = true;
    while (found) {
        found = false;
        netif* link;
        NETIF_FOREACH(link) {
            while (link->loop_first) {
                if (count == limit) {
                    return count;
                }
                pbuf* packet = PopLooped(link);
                ++count;
                found = true;
                LINK_STATS_INC(link.recv);
                MIB2_STATS_NETIF_ADD(link, ifinoctets, packet->tot_len);
                MIB2_STATS_NETIF_INC(link, ifinucastpkts);
                if (!CIPPacketFilter::IsPlain(static_cast<const u8_t*>(packet->payload), packet->len)) {
                    packet = CIPPacketFilter::AdmitLooped(packet);
                    if (!packet) {
                        continue;
                    }
                    if (IsFragment(packet)) {
                        NoteFragment();
                    }
                }
                CIPDemux::Input(packet, link);
            }
        }
    }
    return count;
}

long long CIPCore::NextDeadline() const noexcept
{
    return std::min(m_llTcpDeadline, m_llReassDeadline);
}

void CIPCore::StepTimer(long long now)
{
    m_bOnlyTimers = true;
    if (m_llTcpDeadline <= now && m_llTcpDeadline <= m_llReassDeadline) {
        const u32_t ticks = tcp_ticks;
        tcp_tmr();
        if (tcp_ticks != ticks) {
            CIPTcpEnd::OnSlowTick();
        }
        m_llTcpDeadline = NeedsTicks() ? NextTick(m_llTcpDeadline, s_llTcpIntervalUs, now) : CIPTimerSource::NoDeadline;
    } else if (m_llReassDeadline <= now) {
        const CIPAnswerLimit::CScope scope;
        ip_reass_tmr();
        ip6_reass_tmr();
        m_llReassDeadline =
            --m_dwReassTicks != 0 ? NextTick(m_llReassDeadline, s_llReassIntervalUs, now) : CIPTimerSource::NoDeadline;
    }
}

}  // namespace ipstack

extern "C" void uxport_ipstack_assert_core_locked(void)
{
    if (!ipstack::CIPCore::IsHeld()) {
        ipstack::CIPCounters::Add(ipstack::CIPCounters::CoreLockMissing);
    }
}
