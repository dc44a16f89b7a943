// The queue of events that every reactor is.
#ifndef UXPORT_REACTOR_CPSEVENTQUEUE_H
#define UXPORT_REACTOR_CPSEVENTQUEUE_H

#include <atomic>
#include <list>

#include "mantle/CMNMutexThread.h"
#include "mantle/CMNTimeValue.h"
#include "mantle/IMNEvent.h"
#include "uxport/PSDefines.h"

namespace uxport
{

// First in, first out, whatever the priority; no bound. The queue owns an event from a successful post until
// it has run or been destroyed. No lock of its own: the caller of every operation but GetPendingEventsCount
// and SendEvent provides it.
class CPSEventQueueBase : public IMNEventQueue
{
public:
    CPSEventQueueBase();
    CPSEventQueueBase(const CPSEventQueueBase&) = delete;
    CPSEventQueueBase& operator=(const CPSEventQueueBase&) = delete;

    // Returns: 0; MN_ERROR_INVALID_ARG for null; MN_ERROR_NOT_INITIALIZED when stopped, after the event's
    // OnDestorySelf. MN_ERROR_UNEXPECTED when there is no memory, likewise.
    MNResult PostEvent(IMNEvent* event, EPriority priority) override;
    MNResult PostPrepared(CPlace& place);

    // Runs the event in place on the owner thread; from any other thread posts it through the most derived
    // PostEvent and waits for it. Returns: what OnEventFire returned; MN_ERROR_INVALID_ARG for null;
    // MN_ERROR_NOT_INITIALIZED when stopped; MN_ERROR_NOT_AVAILABLE when the queue destroyed the event without running
    // it; MN_ERROR_UNEXPECTED when there is no memory.
    MNResult SendEvent(IMNEvent* event) override;

    unsigned long GetPendingEventsCount() override { return m_dwPendingCount.load(std::memory_order_relaxed); }

    ~CPSEventQueueBase() override;

    // Takes up to `maximum` of the oldest events into `events`; all of them by one exchange when they are no
    // more, in which case what `events` held becomes pending. `left` receives the count that stays.
    // Returns: 0; MN_ERROR_NOT_FOUND when the count is 0 (`events` and `left` untouched).
    MNResult PopPendingEvents(std::list<IMNEvent*>& events, unsigned long maximum, unsigned long* left);

    // Takes the oldest event. Returns: 0; MN_ERROR_NOT_FOUND when there is none (`left`, which may be null, untouched).
    MNResult PopOnePendingEvent(IMNEvent*& event, unsigned long* left);

    // Runs an event, then lets it destroy itself. Returns: 0 whatever the event returned; MN_ERROR_INVALID_ARG for
    // null.
    static MNResult ProcessOneEvent(IMNEvent* event);
    static MNResult ProcessEvents(const std::list<IMNEvent*>& events);

    // Destroys what is pending, oldest first, without running any, until nothing is. The count stays as it was.
    void DestoryPendingEvents();

protected:
    // Returns: false when there is no memory.
    bool Append(IMNEvent* event) noexcept;

    // What a post without memory does: destroys the event. Returns: MN_ERROR_UNEXPECTED.
    static MNResult Lose(IMNEvent* event);

    // A refusal of what is prepared: destroys it. Returns: MN_ERROR_NOT_INITIALIZED.
    static MNResult Refuse(CPlace& place);

    // Makes the count what the list holds, after DestoryPendingEvents left it behind.
    void CorrectPendingCount() { m_dwPendingCount.store(m_Pending.size(), std::memory_order_relaxed); }

    std::list<IMNEvent*> m_Pending;
    std::atomic<unsigned long> m_dwPendingCount{0};
    CMNTimeValue m_tvReport;                        // when the queue was made
    std::atomic<unsigned long> m_dwOwnerThread{0};  // thread that runs the events, 0 before Open
    std::atomic<unsigned int> m_dwStopped{0};       // refuses posts

    static const CMNTimeValue s_tvReportInterval;
};

// The same with a mutex that guards posting and popping.
class CPSEventQueueUsingMutex : public CPSEventQueueBase
{
public:
    MNResult PostEvent(IMNEvent* event, EPriority priority) override;
    MNResult PostPrepared(CPlace& place);
    MNResult PostPreparedWithOldSize(CPlace& place, unsigned long* oldSize);

    // As PostEvent; `oldSize` (may be null) receives the count before this post.
    MNResult PostEventWithOldSize(IMNEvent* event, EPriority priority, unsigned long* oldSize);

    // As the base's; takes the list out under the mutex and destroys outside, so that an event may post.
    void DestoryPendingEvents();

    // Refuses posts from now on. Thread: any.
    void RefuseEvents();

    // Refuses, then destroys what is pending: no post made meanwhile prolongs it. Thread: any.
    void CloseQueue();

    ~CPSEventQueueUsingMutex() override;

protected:
    mantle::CMNMutexThread m_MutexQueue;
};

}  // namespace uxport

#endif
