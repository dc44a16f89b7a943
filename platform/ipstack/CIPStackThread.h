// The stack's own thread.
#ifndef IPSTACK_CIPSTACKTHREAD_H
#define IPSTACK_CIPSTACKTHREAD_H

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "CIPTimerSource.h"
#include "mantle/CMNWaiter.h"

namespace ipstack
{

class CIPCore;

// Runs lwIP's timers and the timer sources, and drains what calls have left behind. It sleeps until the earliest
// deadline; a clock that jumps is followed deadline by deadline.
class CIPStackThread
{
public:
    explicit CIPStackThread(CIPCore& core) : m_Core(core) {}

    void Start();

    // Ends and joins the thread; from the thread itself it is left to run out. Thread: any; once is enough.
    void Stop();

    void Wake() noexcept;

    void AddSource(CIPTimerSource* source);
    void RemoveSource(CIPTimerSource* source);

private:
    void Run();

    // The source with the earliest deadline, null when none has one.
    CIPTimerSource* FindEarliest(long long& deadline);
    void RunSource(CIPTimerSource* source, long long now);

    CIPCore& m_Core;
    std::thread m_Thread;
    std::atomic<bool> m_bStop{false};
    std::atomic<mantle::CMNWaiter*> m_pWaiter{nullptr};

    std::mutex m_Mutex;  // the members below, and starting and stopping
    std::condition_variable m_SourceIdle;
    std::vector<CIPTimerSource*> m_Sources;
    CIPTimerSource* m_pRunning = nullptr;
};

}  // namespace ipstack

#endif
