// The inside of the thread manager.
#ifndef MANTLE_CMNTHREADMANAGERIMPL_H
#define MANTLE_CMNTHREADMANAGERIMPL_H

#include <atomic>
#include <mutex>
#include <vector>

#include "CMNPendingDeleteList.h"
#include "mantle/CMNEventThread.h"
#include "mantle/CMNThreadManager.h"

namespace mantle
{

// Recursive: making one singleton may need another.
class CMNSingletonMutex : public CMNMutexThreadBase
{
public:
    int Lock() MN_NO_THREAD_SAFETY_ANALYSIS override
    {
        m_Mutex.lock();
        return 0;
    }
    int UnLock() MN_NO_THREAD_SAFETY_ANALYSIS override
    {
        m_Mutex.unlock();
        return 0;
    }

private:
    std::recursive_mutex m_Mutex;
};

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

    std::vector<CMNThread*> GetThreads();
    CMNTimeValue GetJoinBound();

    // Stops and joins the user threads, or the others. Returns: whether all have come back.
    bool EndThreads(const std::vector<CMNThread*>& threads, bool user, CMNThread* self);
    bool EndAdopted(CMNThread& thread);
    void DestroyObjects(CMNThread* self);
    void DeletePending(CMNThread* self);
    void DeleteOwnedThreads();

    std::atomic<EPhase> m_ePhase{EPhase::RUNNING};
    std::atomic<TType> m_nNextType;
    CMNEventThread m_Over{1, 0};
    CMNSingletonMutex m_SingletonMutex;
    CMNPendingDeleteList m_PendingDeletes;  // of the thread that cleans up

    CMNMutexThread m_Mutex;
    std::vector<CEntry> m_Threads MN_GUARDED_BY(m_Mutex);
    std::vector<CMNCleanUpBase*> m_Objects MN_GUARDED_BY(m_Mutex);
    CMNTimeValue m_tvJoinBound MN_GUARDED_BY(m_Mutex);
};

}  // namespace mantle

#endif
