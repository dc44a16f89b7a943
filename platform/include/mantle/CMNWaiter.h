// What a thread sleeps on.
#ifndef MANTLE_CMNWAITER_H
#define MANTLE_CMNWAITER_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "mantle/MNDefines.h"

namespace mantle
{

// One sleeper and any number of wakers: a sequence number that every signal raises. The sleeper reads the
// sequence, looks whether it has something to do, and sleeps only while the sequence is unchanged, so that
// no signal between look and sleep is lost. Every sleep of the framework and of the stack goes through
// this class, which is what lets the hand-moved clock see that all wait.
class MANTLE_API CMNWaiter
{
public:
    static constexpr long long s_llForever = -1;

    CMNWaiter();
    ~CMNWaiter();
    CMNWaiter(const CMNWaiter&) = delete;
    CMNWaiter& operator=(const CMNWaiter&) = delete;

    // Thread: the sleeper.
    std::uint32_t GetSequence() const noexcept { return m_dwSequence.load(); }

    // Sleeps while the sequence equals `sequence` and the clock is before `deadlineUs` (CMNClock::NowUs;
    // s_llForever: no deadline). Thread: the sleeper. Returns: true when signalled, false at the deadline.
    bool Wait(std::uint32_t sequence, long long deadlineUs);

    // Raises the sequence and wakes the sleeper when it sleeps; no system call when it does not. The waiter must
    // outlive the call: those that Current gives do. Thread: any.
    void Signal() noexcept;

    // The calling thread's own waiter. Never freed: when the thread has ended another one gets it, so that a late
    // Signal does no more than wake somebody who then finds nothing to do.
    static CMNWaiter& Current();

private:
    friend class CMNManualClockCore;

    enum class EOutcome
    {
        SIGNALLED,
        DEADLINE,
        CLOCK_CHANGED
    };
    EOutcome WaitReal(std::uint32_t sequence, long long deadlineUs);

    std::atomic<std::uint32_t> m_dwSequence{0};
    std::atomic<bool> m_bAsleep{false};
    std::mutex m_Mutex;  // between the last look at the sequence and the sleep
    std::condition_variable m_Condition;

    // The hand-moved clock's own, under its mutex.
    unsigned long long m_qwOrder = 0;
    long long m_llDeadline = s_llForever;
    std::uint32_t m_dwExpected = 0;
    std::atomic<bool> m_bDue{false};
};

}  // namespace mantle

#endif
