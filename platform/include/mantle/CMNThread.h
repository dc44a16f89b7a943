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

    virtual unsigned long GetThreadId();
    virtual unsigned long GetDetachThreadId();
    virtual void SetThreadId(unsigned long threadId);
    virtual void SetDetachThreadId(unsigned long threadId);
    virtual CMNThreadManager::TType GetThreadType();
    virtual void* GetThreadHandle();
    virtual bool IsSubThread(CMNThreadManager::TType type);

    // Starts the thread. Returns when its OnThreadInit has finished, so that what is posted right after meets
    // an open queue: 0; 10003 when it runs already; 10001 when the system gives no thread.
    virtual MNResult Create(CMNThreadManager::TType type, CMNThreadManager::TFlag flags = CMNThreadManager::TF_JOINABLE);

    // Makes this the calling thread's object without starting one. Returns: 0; 10003 when it runs already.
    virtual MNResult CreateNotRun(CMNThreadManager::TType type, CMNThreadManager::TFlag flags = CMNThreadManager::TF_NONE);

    // Asks the thread to end; the time-out, where offered, bounds the wait.
    virtual MNResult Stop(CMNTimeValue* timeout = nullptr);

    virtual void OnCreate();       // on the creating thread, before the new one starts
    virtual void BlockSignal();    // on the new thread: signals go to the others

    // Waits for the thread's end. Returns: 0; 10002 when it was never started; 10001 on the thread itself.
    virtual MNResult Join();
    virtual MNResult Destory();    // deletes the object of a thread that has ended or never ran; 10001 while it runs

    virtual void OnThreadInit();
    virtual void OnThreadRun();
    virtual IMNReactor* GetReactor();
    virtual IMNEventQueue* GetEventQueue();
    virtual IMNTimerQueue* GetTimerQueue();
    virtual MNResult PostEvent(IMNEvent* event, IMNEventQueue::EPriority priority = IMNEventQueue::EPRIORITY_NORMAL);
    virtual MNResult SendEvent(IMNEvent* event);
    virtual bool IsPool();
    virtual ~CMNThread();

    CMNThread(const CMNThread&) = delete;
    CMNThread& operator=(const CMNThread&) = delete;

    // Whether this is a user thread, whose queue the clean-up closes first (network threads answer false).
    virtual bool IsUserThread() { return false; }

    // Whether the thread has been started and its run has not ended. Thread: any.
    bool IsRunning() const noexcept;

    // Waits for the thread's end at most `bound`. Returns: 0; 10011 at the bound.
    MNResult JoinFor(const CMNTimeValue& bound);

    // Counted objects whose deletion is pending on this thread.
    CMNPendingDeleteList& GetPendingDeletes() noexcept;

private:
    class CImpl;
    std::unique_ptr<CImpl> m_pImpl;
};

}  // namespace mantle

#endif
