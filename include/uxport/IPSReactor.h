// The loop of a network thread.
#ifndef UXPORT_IPSREACTOR_H
#define UXPORT_IPSREACTOR_H

#include "mantle/IMNEvent.h"
#include "mantle/IMNTimerQueue.h"
#include "uxport/PSDefines.h"

namespace uxport
{

class IPSEventHandler;

// Thread: Open binds the reactor to the calling thread; everything but PostEvent, SendEvent,
// GetPendingEventsCount, NotifyHandler and StopEventLoop belongs to that thread. A SendEvent from another
// thread waits until the loop has run the event, and for ever where no loop runs.
class UXPORT_API IPSReactor : public IMNEventQueue, public IMNTimerQueue
{
public:
    // A number for the kind of reactor: 4.
    virtual long GetReactorType() = 0;

    // Binds to the calling thread, makes the timer queue and the wake-up pipe. Returns: 0; MN_ERROR_FAILURE when the
    // pipe can't be opened (all is closed again).
    virtual MNResult Open() = 0;

    // Watches the handler's handle for `mask`; a mask given before is replaced. Owns: the handler stays the
    // caller's and must be removed before it dies. Returns: 0; MN_ERROR_FOUND when the handle had a handler or another
    // mask, which is replaced: a success for callers that change their mask; MN_ERROR_INVALID_ARG for null, a mask
    // without a registration bit, or handle -1; MN_ERROR_UNEXPECTED when there is no memory (nothing changes).
    virtual MNResult RegisterHandler(IPSEventHandler* handler, long mask) = 0;

    // Takes the bits of `mask` off whatever handler is registered under this handler's handle; OnClose is not
    // called. Returns: 0, also when nothing is registered; MN_ERROR_FOUND when bits remain; MN_ERROR_INVALID_ARG for
    // null or a mask without a registration bit.
    virtual MNResult RemoveHandler(IPSEventHandler* handler, long mask) = 0;

    // Makes the reactor treat the handler's handle as ready for `mask` on its next turn (a null handler with
    // EVENTQUEUE_MASK: run the events). Thread: any. Returns: 0; MN_ERROR_NOT_INITIALIZED when the reactor is closed;
    // MN_ERROR_UNEXPECTED when the wake-up pipe has no room (on the reactor's own thread, which never waits for room)
    // or failed.
    virtual MNResult NotifyHandler(IPSEventHandler* handler, long mask) = 0;

    // Runs until StopEventLoop. Returns: 0 after a stop, and on a thread that the reactor is not bound to;
    // MN_ERROR_FAILURE when the wait failed.
    virtual MNResult RunEventLoop() = 0;

    // Ends the loop at the top of its next turn. Thread: any. Returns: 0.
    virtual MNResult StopEventLoop() = 0;

    // Refuses posts from here on (MN_ERROR_NOT_INITIALIZED; the next Open takes them again), forgets handlers, timers
    // and events without calling any of them, closes the pipe. Returns: 0.
    virtual MNResult Close() = 0;
};

}  // namespace uxport

#endif
