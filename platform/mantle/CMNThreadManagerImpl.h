// The inside of the thread manager.
#ifndef MANTLE_CMNTHREADMANAGERIMPL_H
#define MANTLE_CMNTHREADMANAGERIMPL_H

#include <atomic>
#include <vector>

#include "CMNMutexRecursive.h"
#include "CMNPendingDeleteList.h"
#include "mantle/CMNEventThread.h"
#include "mantle/CMNThreadManager.h"

namespace mantle
{

class CMNThreadManager::CImpl
{
public:
    enum class EPhase
    {
        RUNNING,
        CLEANING_UP,
        OVER
    };

    struct CEntry
    {
        CMNThread* m_pThread;
        bool m_bOwned;
    };

    void Register(CMNThread* thread, bool owned) MN_REQUIRES(m_Mutex);
    std::vector<CMNThread*> GetThreads();
    CMNTimeValue GetJoinBound();

    // Stops and joins the user threads, or the others. Returns: whether all have come back.
    bool EndThreads(const std::vector<CMNThread*>& threads, bool user, CMNThread* self);
    bool EndThread(CMNThread& thread);
    void DestroyObjects(CMNThread* self);
    void DeletePending(CMNThread* self);
    void DeleteOwnedThreads();

    std::atomic<EPhase> m_ePhase{EPhase::RUNNING};
    std::atomic<bool> m_bObjectsDestroyed{false};
    std::atomic<TType> m_nNextType;
    CMNEventThread m_Over{1, 0};
    CMNMutexRecursive m_SingletonMutex;     // making one singleton may need another
    CMNPendingDeleteList m_PendingDeletes;  // of the thread that cleans up

    CMNMutexThread m_Mutex;
    std::vector<CEntry> m_Threads MN_GUARDED_BY(m_Mutex);
    std::vector<CMNCleanUpBase*> m_Objects MN_GUARDED_BY(m_Mutex);
    CMNTimeValue m_tvJoinBound MN_GUARDED_BY(m_Mutex);
};

}  // namespace mantle

#endif
