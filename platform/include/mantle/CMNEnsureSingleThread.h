// The check that an object is used by one thread alone.
#ifndef MANTLE_CMNENSURESINGLETHREAD_H
#define MANTLE_CMNENSURESINGLETHREAD_H

#include <atomic>

#include "mantle/MNDefines.h"

namespace mantle
{

// What a failed check tells its handler.
struct CMNSingleThreadReport
{
    const char* m_szPlace;          // the operation, static storage
    unsigned long m_dwBoundThread;  // the thread that the object belongs to
    unsigned long m_dwThisThread;   // the thread that called
};

// On in every build. A failed check is reported and never aborts: what the caller does next is its affair.
// A check that is bound to no thread passes. On the thread that runs the clean-up at the end of the process
// every check passes.
class MANTLE_API CMNEnsureSingleThread
{
public:
    using FHandler = void (*)(const CMNSingleThreadReport& report);

    CMNEnsureSingleThread() noexcept = default;

    // Binds to the calling thread, to a given one, to none. Thread: any.
    void SetToCurrentThread() noexcept;
    void SetToThread(unsigned long threadId) noexcept { m_dwThreadId.store(threadId, std::memory_order_relaxed); }
    void Reset() noexcept { m_dwThreadId.store(0, std::memory_order_relaxed); }
    unsigned long GetThread() const noexcept { return m_dwThreadId.load(std::memory_order_relaxed); }

    // Checks, and reports a failure with `place` (static storage). Returns: whether the check passed.
    bool EnsureSingleThread(const char* place) const;

    // The same without a report.
    bool IsSatisfied() const noexcept;

    // Replaces the handler of failed checks; null restores the default, which writes a trace line, each place
    // at most once a second. Returns the handler before. Thread: any.
    static FHandler SetHandler(FHandler handler) noexcept;

    // Reports to the handler in force; also for other misuse that the framework notices.
    static void Report(const CMNSingleThreadReport& report);

private:
    std::atomic<unsigned long> m_dwThreadId{0};
};

}  // namespace mantle

#endif
