#include "mantle/CMNThreadManager.h"

#include <algorithm>
#include <cstdlib>

#include "CMNManualClockCore.h"
#include "CMNThreadImpl.h"
#include "CMNThreadLocal.h"
#include "CMNThreadManagerImpl.h"

namespace mantle
{

namespace
{

constexpr long s_lJoinBoundSec = 10;
constexpr CMNThreadManager::TType s_nFirstNewType = 100;

void CleanUpAtExit()
{
    CMNThreadManager::Instance()->CleanUp();
}

}  // namespace

CMNThreadManager::CMNThreadManager() : m_pImpl(std::make_unique<CImpl>())
{
    m_pImpl->m_nNextType.store(s_nFirstNewType);
    SetJoinBound(CMNTimeValue(s_lJoinBoundSec, 0));
    std::atexit(&CleanUpAtExit);
}

CMNThreadManager::~CMNThreadManager() = default;

// Never deleted: late callers find it, whatever has been destroyed already.
CMNThreadManager* CMNThreadManager::Instance()
{
    static CMNThreadManager* const s_pInstance = new CMNThreadManager;
    return s_pInstance;
}

CMNThread* CMNThreadManager::GetThread(TType type)
{
    if (m_pImpl->m_ePhase.load() == CImpl::EPhase::OVER)
        return nullptr;
    if (type == TT_CURRENT)
        return CMNThreadLocal::Get().m_pThread;
    CMNThread* ended = nullptr;
    CMNMutexGuard guard(m_pImpl->m_Mutex);
    for (const CImpl::CEntry& entry : m_pImpl->m_Threads) {
        if (entry.m_pThread->m_pImpl->m_nType.load() != type)
            continue;
        if (entry.m_pThread->IsRunning())
            return entry.m_pThread;
        ended = entry.m_pThread;
    }
    return ended;
}

CMNThreadManager::TType CMNThreadManager::GetNewThreadType()
{
    return m_pImpl->m_nNextType.fetch_add(1);
}

CMNMutexThreadBase* CMNThreadManager::GetSingletonMutex()
{
    return m_pImpl->m_ePhase.load() == CImpl::EPhase::OVER ? nullptr : &m_pImpl->m_SingletonMutex;
}

unsigned long CMNThreadManager::GetThreadSelfId() noexcept
{
    static std::atomic<unsigned long> s_dwLastId{0};
    CMNThreadLocal& local = CMNThreadLocal::Get();
    if (local.m_dwThreadId == 0)
        local.m_dwThreadId = s_dwLastId.fetch_add(1) + 1;
    return local.m_dwThreadId;
}

CMNThread* CMNThreadManager::AttachCurrentThread(CMNThread* thread) noexcept
{
    CMNThreadLocal& local = CMNThreadLocal::Get();
    CMNThread* before = local.m_pThread;
    if (before == thread)
        return before;
    if (before && before->IsAdopted())
        before->EndAdopted();
    local.m_pThread = thread;
    if (thread && !before) {
        if (local.m_dwParticipant++ == 0)
            CMNManualClockCore::Instance().AddParticipant();
        local.GiveBackAtEnd();
    } else if (!thread && local.m_dwParticipant != 0 && --local.m_dwParticipant == 0) {
        CMNManualClockCore::Instance().RemoveParticipant();
    }
    return before;
}

void CMNThreadManager::RegisterThread(CMNThread* thread, bool owned)
{
    CMNMutexGuard guard(m_pImpl->m_Mutex);
    if (thread)
        m_pImpl->Register(thread, owned);
}

bool CMNThreadManager::EnlistThread(CMNThread* thread)
{
    CMNMutexGuard guard(m_pImpl->m_Mutex);
    if (IsCleaningUp())
        return false;
    m_pImpl->Register(thread, false);
    return true;
}

void CMNThreadManager::UnregisterThread(CMNThread* thread)
{
    CMNMutexGuard guard(m_pImpl->m_Mutex);
    auto& threads = m_pImpl->m_Threads;
    threads.erase(std::remove_if(threads.begin(), threads.end(),
                                 [thread](const CImpl::CEntry& entry) { return entry.m_pThread == thread; }),
                  threads.end());
}

void CMNThreadManager::CImpl::Register(CMNThread* thread, bool owned)
{
    for (CEntry& entry : m_Threads) {
        if (entry.m_pThread == thread) {
            entry.m_bOwned = entry.m_bOwned || owned;
            return;
        }
    }
    m_Threads.push_back(CEntry{thread, owned});
}

void CMNThreadManager::SetJoinBound(const CMNTimeValue& bound)
{
    CMNMutexGuard guard(m_pImpl->m_Mutex);
    m_pImpl->m_tvJoinBound = bound;
}

bool CMNThreadManager::IsCleaningUp() const noexcept
{
    return m_pImpl->m_ePhase.load() != CImpl::EPhase::RUNNING;
}

bool CMNThreadManager::IsCleanUpThread() noexcept
{
    return CMNThreadLocal::Get().m_bCleanUp;
}

bool CMNThreadManager::HasDestroyedObjects() const noexcept
{
    return m_pImpl->m_bObjectsDestroyed.load();
}

void CMNThreadManager::AddCleanUp(CMNCleanUpBase* object)
{
    CMNMutexGuard guard(m_pImpl->m_Mutex);
    m_pImpl->m_Objects.push_back(object);
}

void CMNThreadManager::RemoveCleanUp(CMNCleanUpBase* object)
{
    CMNMutexGuard guard(m_pImpl->m_Mutex);
    auto& objects = m_pImpl->m_Objects;
    objects.erase(std::remove(objects.begin(), objects.end(), object), objects.end());
}

CMNPendingDeleteList& CMNThreadManager::GetCleanUpDeletes() noexcept
{
    return m_pImpl->m_PendingDeletes;
}

}  // namespace mantle
