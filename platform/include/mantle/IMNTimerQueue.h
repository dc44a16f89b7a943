// Timers: what runs them and what is called.
#ifndef MANTLE_IMNTIMERQUEUE_H
#define MANTLE_IMNTIMERQUEUE_H

#include "mantle/CMNTimeValue.h"

namespace mantle
{

class MANTLE_API IMNTimerHandler
{
public:
    // Called on the queue's thread at `now`; `arg` as scheduled. The handler may schedule, cancel or delete
    // any handler, itself included.
    virtual void OnTimeout(const CMNTimeValue& now, void* arg) = 0;

    virtual ~IMNTimerHandler() = default;
};

class MANTLE_API IMNTimerQueue
{
public:
    // Calls `handler` after `interval`, `count` times with `interval` in between (0: until cancelled).
    // Scheduling a handler again replaces its schedule. Returns: 0; MN_ERROR_INVALID_ARG for a null handler or a
    // negative interval; MN_ERROR_NOT_INITIALIZED when the queue is closed; MN_ERROR_UNEXPECTED when there is no memory
    // (nothing changes; a handler that is scheduled already needs none).
    virtual MNResult ScheduleTimer(IMNTimerHandler* handler, void* arg, const CMNTimeValue& interval,
                                   unsigned long count) = 0;

    // Returns: 0, also for a handler that is not scheduled; MN_ERROR_INVALID_ARG for null; MN_ERROR_NOT_INITIALIZED
    // when the queue is closed.
    virtual MNResult CancelTimer(IMNTimerHandler* handler) = 0;

    virtual ~IMNTimerQueue() = default;
};

}  // namespace mantle

#endif
