// The one lock under which lwIP runs, and what happens when it is given up.
#ifndef IPSTACK_CIPCORE_H
#define IPSTACK_CIPCORE_H

#include <atomic>
#include <cstdint>
#include <mutex>

#include "CIPReadiness.h"
#include "CIPShortList.h"
#include "CIPTimerSource.h"

struct pbuf;

namespace ipstack
{

class CIPLink;
class CIPStackThread;

// The core of the stack. lwIP, the sockets' connection state, the port table and the links belong to whoever
// holds the core lock, which is taken by CIPCoreGuard only. Made once and never destroyed: threads may still be
// inside a call while the process ends.
class CIPCore
{
public:
    // Packets between two pauses of a drain, and packets that one call drains at most.
    static constexpr unsigned int s_dwStretch = 64;
    static constexpr unsigned int s_dwDrainLimit = 10000;

    static CIPCore& Instance();

    // Starts lwIP and the stack's own thread. Returns: false when it was started before. Thread: any.
    bool Start();
    bool IsStarted() const noexcept { return m_bStarted.load(std::memory_order_acquire); }

    // Ends the stack's own thread; calls still work afterwards, time stands still for lwIP. Thread: any.
    void StopThread();

    // Whether the calling thread holds the core lock.
    static bool IsHeld() noexcept;

    // Sources of deadlines beside lwIP's own. Remove waits for a running Run of the source, except on the
    // stack's own thread. Thread: any, the core lock not held.
    void AddTimerSource(CIPTimerSource* source);
    void RemoveTimerSource(CIPTimerSource* source);

    // Makes the stack's own thread ask for deadlines again. Thread: any.
    void WakeTimerThread() noexcept;

    // Collects a waiter to be signalled when the lock is given up. State: the core lock is held.
    CIPWakeList& GetWakes() noexcept { return m_Wakes; }

    // Has `link` send what its queue holds once the lock is given up. State: the core lock is held. Returns: false when
    // there is no memory.
    bool AddOutput(CIPLink* link) noexcept { return m_Outputs.Add(link); }

    // Leaves what `link` has still to send to the stack's own thread. Thread: any, the core lock not held.
    void LeaveOutput(CIPLink* link);

    // Tells that a fragment may have been taken in: reassembly needs its timer for a while. State: the core lock
    // is held.
    void NoteFragment();
    static bool IsFragment(const pbuf* packet) noexcept;

    // Packets on the stack's own queues now. State: the core lock is held. For tests.
    bool HasPackets() const noexcept;

private:
    friend class CIPCoreGuard;
    friend class CIPStackThread;

    CIPCore();
    ~CIPCore() = delete;
    CIPCore(const CIPCore&) = delete;
    CIPCore& operator=(const CIPCore&) = delete;

    void Lock();

    // Gives the lock up as it is, signals waiters, sends link output.
    void Unlock();

    // Drains packets within the call's bound, what is beyond is left to the stack's own thread, and gives the
    // lock up.
    void Leave();

    // Takes up to `limit` packets off the links' own queues. Returns their number.
    unsigned int DrainStretch(unsigned int limit);

    // lwIP's next deadline. StepTimer runs the earliest one that is due. State: the core lock is held.
    long long NextDeadline() const noexcept;
    void StepTimer(long long now);

    std::mutex m_Mutex;
    std::atomic<unsigned int> m_dwWaiting{0};  // threads that want the lock now
    std::atomic<bool> m_bStarted{false};

    CIPWakeList m_Wakes;
    CIPShortList<CIPLink> m_Outputs;
    CIPShortList<CIPLink> m_LeftOutputs;  // left to the stack's own thread
    long long m_llTcpDeadline = CIPTimerSource::NoDeadline;
    long long m_llReassDeadline = CIPTimerSource::NoDeadline;
    unsigned int m_dwReassTicks = 0;  // ticks that reassembly still gets
    bool m_bDrainLeft = false;        // packets are left to the stack's own thread
    bool m_bOnlyTimers = false;       // this hold of the lock is the stack's own thread's, for its timers

    CIPStackThread* m_pThread;
};

// Holds the core lock for a scope. What the scope caused is finished when it ends: its packets are delivered, its
// waiters signalled, its link output sent.
class CIPCoreGuard
{
public:
    CIPCoreGuard() { CIPCore::Instance().Lock(); }
    ~CIPCoreGuard() { CIPCore::Instance().Leave(); }
    CIPCoreGuard(const CIPCoreGuard&) = delete;
    CIPCoreGuard& operator=(const CIPCoreGuard&) = delete;
};

}  // namespace ipstack

#endif
