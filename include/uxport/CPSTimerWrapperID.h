// One timer for one object of a network thread.
#ifndef UXPORT_CPSTIMERWRAPPERID_H
#define UXPORT_CPSTIMERWRAPPERID_H

#include "mantle/IMNTimerQueue.h"
#include "uxport/PSDefines.h"

namespace uxport
{

class CPSTimerWrapperID;

class UXPORT_API IPSTimerWrapperIDSink
{
public:
    // `timer` expired. Reenter: the sink may schedule, cancel or delete it.
    virtual void OnTimer(CPSTimerWrapperID* timer) = 0;

protected:
    virtual ~IPSTimerWrapperIDSink() = default;
};

// Takes the calling thread's timer queue at its first Schedule and keeps it for life. Thread: from then on,
// that one alone; destruction cancels.
class UXPORT_API CPSTimerWrapperID : public IMNTimerHandler
{
public:
    CPSTimerWrapperID() = default;
    CPSTimerWrapperID(const CPSTimerWrapperID&) = delete;
    CPSTimerWrapperID& operator=(const CPSTimerWrapperID&) = delete;

    // Calls `sink` after `interval`, `count` times (0: until cancelled); replaces an earlier schedule. A null
    // sink is never called. Returns: the timer queue's result; MN_ERROR_NULL_POINTER when the thread has no timer
    // queue.
    MNResult Schedule(IPSTimerWrapperIDSink* sink, const CMNTimeValue& interval, unsigned int count);

    // Returns: 0 when nothing is scheduled; MN_ERROR_NULL_POINTER without a timer queue; else the timer queue's result.
    MNResult Cancel();

    void OnTimeout(const CMNTimeValue& now, void* arg) override;
    ~CPSTimerWrapperID() override;

private:
    bool m_bScheduled = false;  // an expiry leaves it set
    IMNTimerQueue* m_pTimerQueue = nullptr;
};

}  // namespace uxport

#endif
