// An event that its sender waits for.
#ifndef UXPORT_REACTOR_CPSEVENTSYNCHRONOUS_H
#define UXPORT_REACTOR_CPSEVENTSYNCHRONOUS_H

#include <atomic>

#include "mantle/CMNAtomic.h"
#include "mantle/CMNEventThread.h"
#include "mantle/IMNEvent.h"
#include "uxport/PSDefines.h"

namespace uxport
{

class CPSEventQueueBase;

// Carries an event to the queue's thread and its result back. It is destroyed twice: the first OnDestorySelf
// destroys the carried event, the second frees the wrapper; the sender posts it a second time for that, so
// that the queue's thread frees it.
class CPSEventSynchronous : public IMNEvent
{
public:
    // Owns: `event`. `queue` must outlive the wait.
    CPSEventSynchronous(IMNEvent* event, CPSEventQueueBase* queue);
    CPSEventSynchronous(const CPSEventSynchronous&) = delete;
    CPSEventSynchronous& operator=(const CPSEventSynchronous&) = delete;

    // Runs the carried event, keeps its result and wakes the sender. Returns: that result; MN_ERROR_NULL_POINTER
    // without an event; 0 on the second run, which does nothing.
    MNResult OnEventFire() override;

    // May be called by the two threads at once, once each. A wrapper destroyed without having run wakes its
    // sender, whose result is then MN_ERROR_NOT_AVAILABLE.
    void OnDestorySelf() override;

    // Waits without limit, hands the wrapper back to the queue and touches it no more. Thread: the sender.
    // Returns: the result; what the wait returned when it failed (the wrapper is then left alone).
    MNResult WaitResultAndDeleteThis();

    ~CPSEventSynchronous() override;

private:
    std::atomic<IMNEvent*> m_pEvent;
    MNResult m_dwResult = MN_ERROR_NOT_AVAILABLE;
    CPSEventQueueBase* m_pQueue;
    mantle::CMNAtomic32 m_lDestroyed{0};
    bool m_bFired = false;  // the queue's thread has run it; ordered by the event object's signal
    mantle::CMNEventThread m_Event;
};

}  // namespace uxport

#endif
