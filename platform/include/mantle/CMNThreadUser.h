// The ready-made user thread: an event queue, a timer queue and a loop.
#ifndef MANTLE_CMNTHREADUSER_H
#define MANTLE_CMNTHREADUSER_H

#include <memory>

#include "mantle/CMNThread.h"

namespace mantle
{

// A thread that runs what is posted to it and its timers until stopped. Its queue refuses posts
// (MN_ERROR_NOT_INITIALIZED, after OnDestorySelf) once the run has ended.
class MANTLE_API CMNThreadUser : public CMNThread
{
public:
    CMNThreadUser();
    ~CMNThreadUser() override;

    // Asks the loop to end; a Stop before the loop begins ends it at once when it does. With a time-out, waits for
    // the end of a started thread as JoinFor does. Thread: any. Returns: 0, or what JoinFor does.
    MNResult Stop(CMNTimeValue* timeout = nullptr) override;
    void OnThreadRun() override;
    IMNEventQueue* GetEventQueue() override;
    IMNTimerQueue* GetTimerQueue() override;
    bool IsUserThread() override { return true; }
    void RefuseEvents() override;
    void DrainEvents() override;
    MNResult WaitLoopLeft(const CMNTimeValue& bound) override;

    // Adopts the calling thread, normally main, as a user thread. The object belongs to the manager and stays
    // valid until the process ends. Returns it, the same one when the thread is adopted already; null when the
    // thread belongs to an object of another class, or after the clean-up has begun.
    static CMNThreadUser* AdoptCurrentThread();

    // Runs events and timers on the calling (own) thread until Stop. Returns: 0; MN_ERROR_FAILURE on another thread;
    // MN_ERROR_UNEXPECTED from inside a callback of the loop. May be run again after a Stop: posts made in between are
    // kept.
    MNResult RunEventLoop();

    // Runs the events that are pending now and then the timers that are due, `maximum` of both at most, without
    // waiting; for single-stepping, on the own thread. Returns how many events and timers ran.
    unsigned long RunPending(unsigned long maximum = ~0ul);

    // Refuses posts from now on, destroys what is pending, outside the lock and until nothing is. Thread: any.
    void CloseQueue();

private:
    class CImpl;
    class CInLoop;
    std::unique_ptr<CImpl> m_pImpl;
};

}  // namespace mantle

#endif
