// The timer queue of a user thread.
#ifndef MANTLE_CMNTIMERQUEUEUSER_H
#define MANTLE_CMNTIMERQUEUEUSER_H

#include <atomic>

#include "mantle/CMNTimerQueueOrderedList.h"

namespace mantle
{

class CMNThread;

// An ordered list that only its thread may use (before the thread has started: whoever has it) and that can be
// closed. Use on another thread is reported and answered MN_ERROR_UNEXPECTED, and changes nothing.
class CMNTimerQueueUser : public IMNTimerQueue
{
public:
    explicit CMNTimerQueueUser(CMNThread& thread) : m_Thread(thread) {}

    MNResult ScheduleTimer(IMNTimerHandler* handler, void* arg, const CMNTimeValue& interval,
                           unsigned long count) override;
    MNResult CancelTimer(IMNTimerHandler* handler) override;

    // For the loop.
    unsigned long CheckExpire(CMNTimeValue* remaining, unsigned long maximum)
    {
        return m_Timers.CheckExpire(remaining, maximum);
    }

    // Forgets every timer and refuses new ones.
    void Close() noexcept;

private:
    MNResult Check(const char* place);

    CMNThread& m_Thread;
    CMNTimerQueueOrderedList m_Timers;
    std::atomic<bool> m_bClosed{false};
};

}  // namespace mantle

#endif
