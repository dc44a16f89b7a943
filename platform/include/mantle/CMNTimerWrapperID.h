// One timer for one object, on the calling thread's own timer queue.
#ifndef MANTLE_CMNTIMERWRAPPERID_H
#define MANTLE_CMNTIMERWRAPPERID_H

#include "mantle/IMNTimerQueue.h"

namespace mantle
{

class CMNTimerWrapperID;

class MANTLE_API CMNTimerWrapperIDSink
{
public:
    virtual void OnTimer(CMNTimerWrapperID* timer) = 0;

protected:
    virtual ~CMNTimerWrapperIDSink() = default;
};

// Finds the calling thread's timer queue when it is first scheduled and keeps it for its life; from then on
// it is scheduled and cancelled on that thread.
class MANTLE_API CMNTimerWrapperID : public IMNTimerHandler
{
public:
    CMNTimerWrapperID() = default;
    ~CMNTimerWrapperID() override;
    CMNTimerWrapperID(const CMNTimerWrapperID&) = delete;
    CMNTimerWrapperID& operator=(const CMNTimerWrapperID&) = delete;

    // Calls `sink` after `interval`, `count` times (0: until cancelled). Returns: the queue's result;
    // MN_ERROR_NULL_POINTER when the calling thread has no thread object or no timer queue.
    MNResult Schedule(CMNTimerWrapperIDSink* sink, const CMNTimeValue& interval, unsigned int count = 0);

    // Returns: 0 when nothing is scheduled; MN_ERROR_NULL_POINTER without a queue; otherwise the queue's result.
    MNResult Cancel();

    void OnTimeout(const CMNTimeValue& now, void* arg) override;

private:
    bool m_bScheduled = false;  // not cleared by an expiry
    IMNTimerQueue* m_pTimerQueue = nullptr;
};

}  // namespace mantle

#endif
