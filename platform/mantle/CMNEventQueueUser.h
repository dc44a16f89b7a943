// The event queue of a user thread.
#ifndef MANTLE_CMNEVENTQUEUEUSER_H
#define MANTLE_CMNEVENTQUEUEUSER_H

#include <atomic>

#include "mantle/CMNMutexThread.h"
#include "mantle/IMNEvent.h"

namespace mantle
{

class CMNThread;
class CMNWaiter;

class CMNEventQueueUser : public IMNEventQueue, public IMNPreparedQueue
{
public:
    explicit CMNEventQueueUser(CMNThread& thread) : m_Thread(thread) { SetPreparedQueue(this); }
    ~CMNEventQueueUser() override;

    MNResult PostEvent(IMNEvent* event, EPriority priority) override;
    MNResult PostPrepared(CPlace& place) override;
    MNResult SendEvent(IMNEvent* event) override;
    unsigned long GetPendingEventsCount() override { return m_dwCount.load(); }

    // What a post that turns the queue non-empty wakes, and what Wake does.
    void SetWaiter(CMNWaiter* waiter);
    void Wake();

    // Runs what is pending now, `maximum` events at most, until `stop` or the queue is closed. The rest stays in
    // front. Thread: the own one. Returns: how many ran.
    unsigned long Run(unsigned long maximum, const std::atomic<bool>& stop);

    // Refuses posts from now on and wakes the loop.
    void Close();
    bool IsClosed() const noexcept { return m_bClosed.load(); }

    // Destroys what is pending until nothing is; on the own thread also what a run has taken out. Returns: how
    // many were destroyed.
    unsigned long DestroyPending();

private:
    using CEvents = CPlace;

    bool IsOwnThread() const;

    // Returns: false when the queue is closed; the event is then still the caller's.
    bool Push(CPlace& place);

    CMNThread& m_Thread;
    std::atomic<unsigned long> m_dwCount{0};
    std::atomic<bool> m_bClosed{false};  // written under the mutex
    CEvents m_Batch;                     // taken out to be run; the own thread's

    CMNMutexThread m_Mutex;
    CEvents m_Pending MN_GUARDED_BY(m_Mutex);
    CMNWaiter* m_pWaiter MN_GUARDED_BY(m_Mutex) = nullptr;
};

}  // namespace mantle

#endif
