// The inside of a thread object.
#ifndef MANTLE_CMNTHREADIMPL_H
#define MANTLE_CMNTHREADIMPL_H

#include <atomic>
#include <thread>

#include "CMNPendingDeleteList.h"
#include "mantle/CMNEventThread.h"
#include "mantle/CMNThread.h"

namespace mantle
{

// Shared by the object and the running thread, which may outlive it by a few steps.
class CMNThread::CImpl
{
public:
    enum class EState
    {
        UNUSED,
        RUNNING,  // started by Create
        ADOPTED,  // by CreateNotRun
        ENDED
    };

    bool Begin(EState state) noexcept
    {
        EState unused = EState::UNUSED;
        return m_eState.compare_exchange_strong(unused, state);
    }

    // There is no thread after all: whoever waits for it goes on.
    void StartFailed()
    {
        m_bStarted.store(false);
        m_eState.store(EState::UNUSED);
        m_Initialised.Signal();
        m_Initialised.Reset();
        m_Ended.Signal();
        m_Ended.Reset();
    }

    std::atomic<EState> m_eState{EState::UNUSED};
    std::atomic<bool> m_bStarted{false};
    std::atomic<CMNThreadManager::TType> m_nType{CMNThreadManager::TT_UNKNOWN};
    std::atomic<unsigned long> m_dwThreadId{0};
    std::atomic<unsigned long> m_dwDetachThreadId{0};
    std::atomic<void*> m_pHandle{nullptr};
    CMNEventThread m_Initialised{1, 0};
    CMNEventThread m_Ended{1, 0};
    CMNPendingDeleteList m_PendingDeletes;

    CMNMutexThread m_JoinMutex;
    std::thread m_Thread MN_GUARDED_BY(m_JoinMutex);
};

}  // namespace mantle

#endif
