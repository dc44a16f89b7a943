// An event object that a thread waits for.
#ifndef MANTLE_CMNEVENTTHREAD_H
#define MANTLE_CMNEVENTTHREAD_H

#include "mantle/CMNMutexThread.h"
#include "mantle/CMNTimeValue.h"

namespace mantle
{

// Signalled or not. An automatic one wakes one waiter and falls back; a manual one stays until Reset.
class MANTLE_API CMNEventThread
{
public:
    // `manualReset` and `signalled`: 0 or not; the name is not used.
    CMNEventThread(int manualReset, int signalled, const char* name = nullptr);
    ~CMNEventThread();
    CMNEventThread(const CMNEventThread&) = delete;
    CMNEventThread& operator=(const CMNEventThread&) = delete;

    // Waits until signalled, `timeout` null without limit. Returns: 0; MN_ERROR_NOT_FOUND at the time-out.
    // After a waiter returned 0 the signalling thread touches nothing of this object any more.
    MNResult Wait(const CMNTimeValue* timeout = nullptr);
    MNResult Signal();
    MNResult Reset();

private:
    struct CNode;  // one who waits, on its own stack

    void Remove(CNode& node) MN_REQUIRES(m_Mutex);

    CMNMutexThread m_Mutex;
    CNode* m_pFirst MN_GUARDED_BY(m_Mutex) = nullptr;  // first come, first served
    CNode* m_pLast MN_GUARDED_BY(m_Mutex) = nullptr;
    bool m_bSignalled MN_GUARDED_BY(m_Mutex);
    const bool m_bManual;
};

}  // namespace mantle

#endif
