// The hand-moved clock's inside: who takes part, who waits, and when time moves.
#ifndef MANTLE_CMNMANUALCLOCKCORE_H
#define MANTLE_CMNMANUALCLOCKCORE_H

#include <atomic>
#include <vector>

#include "mantle/CMNMutexThread.h"
#include "mantle/CMNWaiter.h"

namespace mantle
{

// Locks: its mutex before a waiter's.
class CMNManualClockCore
{
public:
    static CMNManualClockCore& Instance() noexcept;

    static bool IsManual() noexcept { return s_bManual.load(std::memory_order_relaxed); }
    static long long NowUs() noexcept;

    // Returns: whether the hand-moved clock was put in force (false: one is).
    bool Begin(bool autoAdvance);
    void End();
    void Advance(long long stepUs);
    void SetAutoAdvance(bool on);
    unsigned long long GetSteps();

    void AddParticipant();
    void RemoveParticipant();

    CMNWaiter::EOutcome Wait(CMNWaiter& waiter, std::uint32_t sequence, long long deadlineUs);

    void AddWaiter(CMNWaiter* waiter);
    void RenewWaiter(CMNWaiter* waiter);  // as if it had just been made
    void RemoveWaiter(CMNWaiter* waiter);

private:
    void MoveOn() MN_REQUIRES(m_Mutex);
    void WakeDue() MN_REQUIRES(m_Mutex);
    void WakeAll() MN_REQUIRES(m_Mutex);
    static void Wake(CMNWaiter& waiter, bool due);

    // Time is the system's monotonic clock plus s_llOffset, or s_llNow where the offset says so.
    static std::atomic<long long> s_llOffset;
    static std::atomic<long long> s_llNow;
    static std::atomic<bool> s_bManual;

    CMNMutexThread m_Mutex;
    bool m_bAutoAdvance MN_GUARDED_BY(m_Mutex) = true;
    unsigned long m_dwParticipants MN_GUARDED_BY(m_Mutex) = 0;
    unsigned long m_dwParticipantsWaiting MN_GUARDED_BY(m_Mutex) = 0;
    unsigned long long m_qwOrder MN_GUARDED_BY(m_Mutex) = 0;
    unsigned long long m_qwSteps MN_GUARDED_BY(m_Mutex) = 0;
    std::vector<CMNWaiter*> m_All MN_GUARDED_BY(m_Mutex);
    std::vector<CMNWaiter*> m_Waiting MN_GUARDED_BY(m_Mutex);
};

}  // namespace mantle

#endif
