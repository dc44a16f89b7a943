// The ready-made user thread: an event queue, a timer queue and a loop.
#ifndef MANTLE_CMNTHREADUSER_H
#define MANTLE_CMNTHREADUSER_H

#include <memory>

#include "mantle/CMNThread.h"

namespace mantle
{

// A thread that runs what is posted to it and its timers until stopped. Its queue refuses posts (10002, after
// OnDestorySelf) once the run has ended.
class MANTLE_API CMNThreadUser : public CMNThread
{
public:
    CMNThreadUser();
    ~CMNThreadUser() override;

    MNResult Stop(CMNTimeValue* timeout = nullptr) override;
    void OnThreadRun() override;
    IMNEventQueue* GetEventQueue() override;
    IMNTimerQueue* GetTimerQueue() override;
    bool IsUserThread() override { return true; }

    // Adopts the calling thread, normally main, as a user thread that the manager owns. Returns its object, the same
    // one when it is adopted already; null when the thread belongs to another thread object.
    static CMNThreadUser* AdoptCurrentThread();

    // Runs events and timers on the calling (own) thread until Stop. Returns: 0; 10001 on another thread.
    // May be run again after a Stop: posts made in between are kept.
    MNResult RunEventLoop();

    // Runs what is pending and due now without waiting; for single-stepping. Returns how many events and timers ran.
    unsigned long RunPending(unsigned long maximum = ~0ul);

    // Refuses posts from now on, destroys what is pending, outside the lock and until nothing is.
    void CloseQueue();

private:
    class CImpl;
    std::unique_ptr<CImpl> m_pImpl;
};

}  // namespace mantle

#endif
