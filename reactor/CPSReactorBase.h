// What the two reactors share.
#ifndef UXPORT_REACTOR_CPSREACTORBASE_H
#define UXPORT_REACTOR_CPSREACTORBASE_H

#include <memory>

#include "mantle/CMNEnsureSingleThread.h"
#include "mantle/CMNStopFlag.h"
#include "mantle/CMNTimerQueueOrderedList.h"
#include "reactor/CPSEventHandlerRepository.h"
#include "reactor/CPSEventQueue.h"
#include "uxport/IPSReactor.h"

namespace uxport
{

// The handle table with its dispatch, the timer queue and the event queue. The wait and the wake-up pipe are
// the deriving classes'.
class CPSReactorBase : public IPSReactor,
                       public mantle::CMNStopFlag,
                       public CPSEventQueueUsingMutex,
                       public mantle::IMNPreparedQueue
{
public:
    // Events that one wake-up runs at most.
    static constexpr unsigned long s_dwMaxEvents = 100000;

    MNResult PostEvent(IMNEvent* event, IMNEventQueue::EPriority priority = IMNEventQueue::EPRIORITY_NORMAL) override;
    MNResult PostPrepared(mantle::CMNEventPlace& place) override;
    MNResult SendEvent(IMNEvent* event) override { return CPSEventQueueUsingMutex::SendEvent(event); }
    unsigned long GetPendingEventsCount() override { return CPSEventQueueUsingMutex::GetPendingEventsCount(); }

    ~CPSReactorBase() override;

    long GetReactorType() override { return s_lReactorType; }
    MNResult Open() override;
    MNResult RegisterHandler(IPSEventHandler* handler, long mask) override;
    MNResult RemoveHandler(IPSEventHandler* handler, long mask) override;
    MNResult Close() override;

    // Thread: the reactor's. Returns: the timer queue's result; MN_ERROR_NOT_INITIALIZED before Open and after Close.
    MNResult ScheduleTimer(IMNTimerHandler* handler, void* arg, const CMNTimeValue& interval,
                           unsigned long count) override;
    MNResult CancelTimer(IMNTimerHandler* handler) override;

    // No cookie is kept: null.
    virtual void* GetCookie() { return nullptr; }
    virtual void SetCookie(void*) {}

    // A handle was removed from the table, or is about to enter it (anything but 0 keeps it out).
    virtual void OnHandleRemoved(int handle) = 0;
    virtual MNResult OnHandleRegister(int handle, long mask, IPSEventHandler* handler) = 0;

    // Turns a readiness report into calls of the handler; handle -1 runs up to s_dwMaxEvents events.
    // `fromNotification` and `dropConnect` are flags; the third value is not used. Thread: the reactor's.
    // Returns: 0; MN_ERROR_NOT_FOUND when the handle is not registered, when its handler removed itself and failed, or
    // when no event is pending; MN_ERROR_UNEXPECTED when the handle went to another handler during the call.
    MNResult ProcessHandleEvent(int handle, long mask, long ignored, int fromNotification, int dropConnect);

    // Fires every expired timer. Thread: the reactor's. Returns: 0; MN_ERROR_NOT_INITIALIZED without a timer queue.
    MNResult ProcessTimerTick();

    // Whether the calling thread is the one that the reactor is bound to. Thread: any.
    bool IsReactorThread() const;

    // Whether there is a reactor and the clean-up at the end of the process has not ended it. The objects stay, so
    // that a post to one that has ended is refused, not lost. Thread: any.
    static bool IsAlive(const IPSReactor* reactor);

    // As the operations of these names, for objects that may outlive the reactors: on one that is not alive they do
    // nothing; the first returns MN_ERROR_NOT_INITIALIZED, the others 0.
    static MNResult RegisterHandlerIfAlive(IPSReactor* reactor, IPSEventHandler* handler, long mask);
    static MNResult RemoveHandlerIfAlive(IPSReactor* reactor, IPSEventHandler* handler, long mask);
    static MNResult CancelTimerIfAlive(IPSReactor* reactor, IMNTimerHandler* handler);

    // Takes a handler that is about to forget its handle out of the table, if the reactor is alive. Thread: any.
    static void ForgetHandler(IPSReactor* reactor, const IPSEventHandler* handler);

protected:
    static constexpr long s_lReactorType = 4;

    // One place for the loop and the close behind it, so that a thread that is not the reactor's is reported once.
    static constexpr const char* s_szLoopPlace = "CPSReactorBase: loop";

    CPSReactorBase() { IPSReactor::SetPreparedQueue(this); }

    // The check at the head of every operation of the reactor's thread.
    bool EnsureReactorThread(const char* place) const { return m_EstReactor.EnsureSingleThread(place); }

    // Ends Open in the deriving classes: posts made before the wake-up pipe was there get their record.
    void WakeForEarlyPosts();

    // Fires expired timers and returns the time to the next one, s_tvMax without.
    CMNTimeValue FireTimers();

    mantle::CMNEnsureSingleThread m_EstReactor;
    std::unique_ptr<mantle::CMNTimerQueueOrderedList> m_pTimerQueue;
    CPSEventHandlerRepository m_Repository;

private:
    using CElement = CPSEventHandlerRepository::CElement;

    MNResult RunEvents_i();
    MNResult RemoveHandleWithoutFinding_i(int handle, const CElement& element, long mask);
    MNResult RemoveAfterFailure_i(int handle, const IPSEventHandler* handler);
};

}  // namespace uxport

#endif
