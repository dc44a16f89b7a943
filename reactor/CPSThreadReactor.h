// A network thread: opens a reactor, runs its loop, closes it.
#ifndef UXPORT_REACTOR_CPSTHREADREACTOR_H
#define UXPORT_REACTOR_CPSTHREADREACTOR_H

#include <atomic>

#include "mantle/CMNThread.h"
#include "uxport/PSDefines.h"

namespace uxport
{

class IPSReactor;

// Events and timers given to this thread go to its reactor.
class CPSThreadReactor : public mantle::CMNThread
{
public:
    CPSThreadReactor() = default;
    ~CPSThreadReactor() override;

    // Before Create. Owns: `reactor` from here on. Returns: 0; MN_ERROR_ALREADY_INITIALIZED when one is set;
    // MN_ERROR_INVALID_ARG for null.
    MNResult Init(IPSReactor* reactor);

    // Takes the reactor back, so that the thread object does not delete it. Returns: it, or null.
    IPSReactor* TakeReactor() { return m_pReactor.exchange(nullptr); }

    // Asks the loop to end; Join waits for it. Thread: any. Returns: 0; MN_ERROR_NOT_IMPLEMENTED for a time-out (there
    // is no timed stop); MN_ERROR_NOT_INITIALIZED without a reactor.
    MNResult Stop(mantle::CMNTimeValue* timeout = nullptr) override;

    void OnThreadInit() override;
    void OnThreadRun() override;

    // The reactor's event and timer queue; null without a reactor. Thread: any.
    IMNEventQueue* GetEventQueue() override;
    IMNTimerQueue* GetTimerQueue() override;

private:
    std::atomic<IPSReactor*> m_pReactor{nullptr};
};

}  // namespace uxport

#endif
