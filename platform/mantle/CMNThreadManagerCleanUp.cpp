// The orderly end of the process.
#include "CMNManualClockCore.h"
#include "CMNThreadImpl.h"
#include "CMNThreadLocal.h"
#include "CMNThreadManagerImpl.h"
#include "mantle/CMNSingleton.h"
#include "mantle/IMNTraceManager.h"

namespace mantle
{

namespace
{

constexpr std::size_t s_nTraceLine = 256;

void TraceLeft(CMNThread& thread)
{
    char buffer[s_nTraceLine];
    Text_Formator line(buffer, sizeof(buffer));
    line << "clean-up: thread " << thread.GetThreadId() << " of type " << thread.GetThreadType()
         << " has not ended; the objects are left as they are";
    IMNTraceManager::Instance()->Trace(0, line.GetText());
}

}  // namespace

void CMNThreadManager::CleanUp()
{
    CMNThreadLocal& local = CMNThreadLocal::Get();
    CImpl::EPhase running = CImpl::EPhase::RUNNING;
    if (!m_pImpl->m_ePhase.compare_exchange_strong(running, CImpl::EPhase::CLEANING_UP)) {
        const CMNTimeValue bound = m_pImpl->GetJoinBound();
        if (running == CImpl::EPhase::CLEANING_UP && !local.m_bCleanUp && local.m_dwInLoop == 0)
            m_pImpl->m_Over.Wait(&bound);
        return;
    }
    local.m_bCleanUp = true;
    CMNManualClockCore::Instance().End();

    CMNThread* const self = local.m_pThread;
    const std::vector<CMNThread*> threads = m_pImpl->GetThreads();
    for (CMNThread* thread : threads) {
        if (thread->IsUserThread())
            thread->RefuseEvents();
    }
    if (self && self->IsUserThread())
        self->DrainEvents();
    const bool usersEnded = m_pImpl->EndThreads(threads, true, self);
    const bool othersEnded = m_pImpl->EndThreads(threads, false, self);
    // From a callback: it goes on afterwards, and what it uses must still be there.
    if (local.m_dwInLoop == 0 && usersEnded && othersEnded) {
        m_pImpl->DestroyObjects(self);
        m_pImpl->m_bObjectsDestroyed.store(true);
        m_pImpl->m_ePhase.store(CImpl::EPhase::OVER);
        m_pImpl->DeleteOwnedThreads();
    } else {
        m_pImpl->m_ePhase.store(CImpl::EPhase::OVER);
    }
    m_pImpl->m_Over.Signal();
}

std::vector<CMNThread*> CMNThreadManager::CImpl::GetThreads()
{
    std::vector<CMNThread*> threads;
    CMNMutexGuard guard(m_Mutex);
    threads.reserve(m_Threads.size());
    for (const CEntry& entry : m_Threads)
        threads.push_back(entry.m_pThread);
    return threads;
}

CMNTimeValue CMNThreadManager::CImpl::GetJoinBound()
{
    CMNMutexGuard guard(m_Mutex);
    return m_tvJoinBound;
}

// All are asked first, then each is waited for.
bool CMNThreadManager::CImpl::EndThreads(const std::vector<CMNThread*>& threads, bool user, CMNThread* self)
{
    const CMNTimeValue bound = GetJoinBound();
    std::vector<CMNThread*> asked;
    for (CMNThread* thread : threads) {
        if (thread == self || thread->IsUserThread() != user)
            continue;
        if (!thread->IsRunning()) {
            // Ended by itself, or never started; what the system keeps of it is given back.
            thread->JoinFor(bound);
            continue;
        }
        asked.push_back(thread);
        // A thread that is being created opens what Stop closes, and main would go on to a second end of the process.
        if (!thread->IsAdopted())
            thread->m_pImpl->m_Initialised.Wait(&bound);
        if (thread->GetThreadType() != TT_MAIN)
            thread->Stop(nullptr);
    }
    bool ended = true;
    for (CMNThread* thread : asked) {
        if (!EndThread(*thread)) {
            TraceLeft(*thread);
            ended = false;
        }
    }
    return ended;
}

// An adopted thread cannot be joined. What matters is that it runs no callback.
bool CMNThreadManager::CImpl::EndThread(CMNThread& thread)
{
    if (!thread.IsAdopted())
        return thread.JoinFor(GetJoinBound()) != MN_ERROR_NOT_FOUND;
    const bool main = thread.GetThreadType() == TT_MAIN;
    return thread.WaitLoopLeft(main ? CMNTimeValue::s_tvZero : GetJoinBound()) == MN_OK;
}

void CMNThreadManager::CImpl::DestroyObjects(CMNThread* self)
{
    DeletePending(self);
    while (true) {
        CMNCleanUpBase* object = nullptr;
        {
            CMNMutexGuard guard(m_Mutex);
            if (m_Objects.empty())
                return;
            object = m_Objects.back();
            m_Objects.pop_back();
        }
        object->CleanUp();
        DeletePending(self);
    }
}

void CMNThreadManager::CImpl::DeletePending(CMNThread* self)
{
    unsigned long deleted = 0;
    do {
        deleted = m_PendingDeletes.DeleteAll(nullptr);
        if (self)
            deleted += self->GetPendingDeletes().DeleteAll(self->GetTimerQueue());
    } while (deleted != 0);
}

void CMNThreadManager::CImpl::DeleteOwnedThreads()
{
    std::vector<CMNThread*> owned;
    {
        CMNMutexGuard guard(m_Mutex);
        for (const CEntry& entry : m_Threads) {
            if (entry.m_bOwned && !entry.m_pThread->IsRunning())
                owned.push_back(entry.m_pThread);
        }
    }
    for (CMNThread* thread : owned)
        delete thread;
}

}  // namespace mantle
