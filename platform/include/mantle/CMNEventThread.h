// An event object that a thread waits for.
#ifndef MANTLE_CMNEVENTTHREAD_H
#define MANTLE_CMNEVENTTHREAD_H

#include <condition_variable>
#include <list>
#include <mutex>

#include "mantle/CMNTimeValue.h"

namespace mantle
{

class CMNWaiter;

// Signalled or not. An automatic one wakes one waiter and falls back; a manual one stays until Reset.
class MANTLE_API CMNEventThread
{
public:
    CMNEventThread(int manualReset, int signalled, const char* name = nullptr);
    ~CMNEventThread();
    CMNEventThread(const CMNEventThread&) = delete;
    CMNEventThread& operator=(const CMNEventThread&) = delete;

    // Waits until signalled, `timeout` null without limit. Returns: 0; 10011 at the time-out.
    // After a waiter returned 0 the signalling thread touches nothing of this object any more.
    MNResult Wait(const CMNTimeValue* timeout = nullptr);
    MNResult Signal();
    MNResult Reset();

private:
    std::mutex m_Mutex;
    std::list<CMNWaiter*> m_Waiters;
    bool m_bManual;
    bool m_bSignalled;
};

}  // namespace mantle

#endif
