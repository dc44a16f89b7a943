// A thread of the framework.
#ifndef MANTLE_CMNTHREAD_H
#define MANTLE_CMNTHREAD_H

#include <memory>

#include "mantle/CMNThreadManager.h"
#include "mantle/IMNEvent.h"
#include "mantle/IMNTimerQueue.h"

namespace mantle
{

class CMNPendingDeleteList;
class IMNReactor;  // the framework's own reactor type; no thread has one

// The object of one thread. It stays valid after the thread has ended, until the clean-up.
class MANTLE_API CMNThread
{
public:
    CMNThread();

    // The id of the thread; 0 until it has started. Thread: any.
    virtual unsigned long GetThreadId();
    virtual unsigned long GetDetachThreadId();
    virtual void SetThreadId(unsigned long threadId);
    virtual void SetDetachThreadId(unsigned long threadId);
    virtual CMNThreadManager::TType GetThreadType();
    virtual void* GetThreadHandle();
    virtual bool IsSubThread(CMNThreadManager::TType type);  // of that type and started, not adopted

    // Starts the thread and registers it with the manager. Returns when its OnThreadInit has finished, so that
    // what is posted right after meets an open queue: 0; MN_ERROR_ALREADY_INITIALIZED when it runs or has run;
    // MN_ERROR_FAILURE when the system gives no thread or the clean-up has begun (it may then be tried again, or the
    // object be deleted).
    virtual MNResult Create(CMNThreadManager::TType type,
                            CMNThreadManager::TFlag flags = CMNThreadManager::TF_JOINABLE);

    // Makes this the calling thread's object without starting one, until AttachCurrentThread takes it back, the
    // thread ends or the object is deleted. Returns: 0; MN_ERROR_ALREADY_INITIALIZED when it runs or has run, or when
    // the calling thread has another object already.
    virtual MNResult CreateNotRun(CMNThreadManager::TType type,
                                  CMNThreadManager::TFlag flags = CMNThreadManager::TF_NONE);

    // Asks the thread to end and does not wait; the time-out, where offered, bounds a wait for its end. Here:
    // MN_ERROR_NOT_IMPLEMENTED, as there is no loop. Thread: any.
    virtual MNResult Stop(CMNTimeValue* timeout = nullptr);

    virtual void OnCreate();     // on the creating thread, before the new one starts
    virtual void BlockSignal();  // on the new thread: signals go to the others

    // Waits for the end of a started thread. Returns: 0; MN_ERROR_NOT_INITIALIZED when it was never started;
    // MN_ERROR_FAILURE on the thread itself.
    virtual MNResult Join();

    // Deletes the object of a thread that has ended or never ran. Returns: 0; MN_ERROR_FAILURE while it runs.
    virtual MNResult Destory();

    // On the new thread, one after the other. When the run has ended, the deletions that are pending on the
    // thread are done.
    virtual void OnThreadInit();
    virtual void OnThreadRun();

    // Null where the thread has none; the base has none.
    virtual IMNReactor* GetReactor();
    virtual IMNEventQueue* GetEventQueue();
    virtual IMNTimerQueue* GetTimerQueue();

    // To the thread's event queue; without one the event is destroyed and MN_ERROR_NOT_INITIALIZED returned.
    // MN_ERROR_INVALID_ARG for null.
    virtual MNResult PostEvent(IMNEvent* event, IMNEventQueue::EPriority priority = IMNEventQueue::EPRIORITY_NORMAL);
    virtual MNResult SendEvent(IMNEvent* event);
    virtual bool IsPool();
    virtual ~CMNThread();

    CMNThread(const CMNThread&) = delete;
    CMNThread& operator=(const CMNThread&) = delete;

    // Whether this is a user thread, whose queue the clean-up closes first (network threads answer false).
    virtual bool IsUserThread() { return false; }

    // What the clean-up asks of a user thread. RefuseEvents (any thread): posts are refused from now on, and a
    // running loop destroys what is pending. DrainEvents (the own thread): destroys what is pending and fires the
    // timers that are due, until neither is left. WaitLoopLeft (any thread): waits, `bound` at most, until the
    // thread runs no callbacks; 0, or MN_ERROR_NOT_FOUND at the bound.
    virtual void RefuseEvents() {}
    virtual void DrainEvents() {}
    virtual MNResult WaitLoopLeft(const CMNTimeValue& bound);

    // Whether the thread has been started and its run has not ended. Thread: any.
    bool IsRunning() const noexcept;

    // Join that waits `bound` at most. Returns: what Join does; MN_ERROR_NOT_FOUND at the bound.
    MNResult JoinFor(const CMNTimeValue& bound);

    // Counted objects whose deletion is pending on this thread.
    CMNPendingDeleteList& GetPendingDeletes() noexcept;

private:
    friend class CMNThreadManager;
    friend class CMNThreadEnd;
    class CImpl;
    static void Run(CMNThread* thread, const std::shared_ptr<CImpl>& impl);
    bool IsAdopted() const noexcept;
    void EndAdopted();

    std::shared_ptr<CImpl> m_pImpl;  // shared with the running thread
};

}  // namespace mantle

#endif
