#include "mantle/CMNThread.h"

#include <pthread.h>

#include <csignal>
#include <system_error>

#include "CMNManualClockCore.h"
#include "CMNThreadImpl.h"
#include "CMNThreadLocal.h"

namespace mantle
{

CMNThread::CMNThread() : m_pImpl(std::make_shared<CImpl>()) {}

CMNThread::~CMNThread()
{
    CMNThreadManager::Instance()->UnregisterThread(this);
    if (CMNThreadLocal::Get().m_pThread == this)
        CMNThreadManager::Instance()->AttachCurrentThread(nullptr);
    m_pImpl->m_PendingDeletes.DeleteAll(nullptr);
    CMNMutexGuard guard(m_pImpl->m_JoinMutex);
    if (!m_pImpl->m_Thread.joinable())
        return;
    if (m_pImpl->m_eState.load() == CImpl::EState::ENDED && m_pImpl->m_Thread.get_id() != std::this_thread::get_id())
        m_pImpl->m_Thread.join();
    else
        m_pImpl->m_Thread.detach();
}

unsigned long CMNThread::GetThreadId()
{
    return m_pImpl->m_dwThreadId.load();
}

unsigned long CMNThread::GetDetachThreadId()
{
    return m_pImpl->m_dwDetachThreadId.load();
}

void CMNThread::SetThreadId(unsigned long threadId)
{
    m_pImpl->m_dwThreadId.store(threadId);
}

void CMNThread::SetDetachThreadId(unsigned long threadId)
{
    m_pImpl->m_dwDetachThreadId.store(threadId);
}

CMNThreadManager::TType CMNThread::GetThreadType()
{
    return m_pImpl->m_nType.load();
}

void* CMNThread::GetThreadHandle()
{
    return m_pImpl->m_pHandle.load();
}

bool CMNThread::IsSubThread(CMNThreadManager::TType type)
{
    return m_pImpl->m_bStarted.load() && GetThreadType() == type;
}

MNResult CMNThread::Create(CMNThreadManager::TType type, CMNThreadManager::TFlag flags)
{
    CMNThreadManager* manager = CMNThreadManager::Instance();
    if (!m_pImpl->Begin(CImpl::EState::RUNNING))
        return MN_ERROR_ALREADY_INITIALIZED;
    m_pImpl->m_nType.store(type);
    m_pImpl->m_bStarted.store(true);
    if (!manager->EnlistThread(this)) {
        m_pImpl->StartFailed();
        return MN_ERROR_FAILURE;
    }
    OnCreate();
    // Counted before it runs: no time passes between its creation and its first step.
    CMNManualClockCore::Instance().AddParticipant();
    try {
        CMNMutexGuard guard(m_pImpl->m_JoinMutex);
        m_pImpl->m_Thread = std::thread(&CMNThread::Run, this, m_pImpl);
        if ((flags & CMNThreadManager::TF_JOINABLE) == 0)
            m_pImpl->m_Thread.detach();
    } catch (const std::system_error&) {
        CMNManualClockCore::Instance().RemoveParticipant();
        manager->UnregisterThread(this);
        m_pImpl->StartFailed();
        return MN_ERROR_FAILURE;
    }
    m_pImpl->m_Initialised.Wait();
    return MN_OK;
}

MNResult CMNThread::CreateNotRun(CMNThreadManager::TType type, CMNThreadManager::TFlag)
{
    CMNThreadLocal& local = CMNThreadLocal::Get();
    if ((local.m_pThread && local.m_pThread != this) || !m_pImpl->Begin(CImpl::EState::ADOPTED))
        return MN_ERROR_ALREADY_INITIALIZED;
    m_pImpl->m_nType.store(type);
    m_pImpl->m_pHandle.store(reinterpret_cast<void*>(::pthread_self()));
    SetThreadId(CMNThreadManager::GetThreadSelfId());
    CMNThreadManager::Instance()->AttachCurrentThread(this);
    CMNThreadManager::Instance()->RegisterThread(this, false);
    return MN_OK;
}

// The body of a started thread.
void CMNThread::Run(CMNThread* thread, const std::shared_ptr<CImpl>& impl)
{
    CMNThreadLocal& local = CMNThreadLocal::Get();
    local.m_dwParticipant = 1;
    local.GiveBackAtEnd();
    local.m_pThread = thread;
    local.m_dwInLoop = 1;
    CMNWaiter::Current();  // taken now: the hand-moved clock wakes threads in the order of their creation
    impl->m_pHandle.store(reinterpret_cast<void*>(::pthread_self()));
    thread->SetThreadId(CMNThreadManager::GetThreadSelfId());
    thread->BlockSignal();
    thread->OnThreadInit();
    impl->m_Initialised.Signal();
    thread->OnThreadRun();
    impl->m_PendingDeletes.DeleteAll(thread->GetTimerQueue());
    local.m_dwInLoop = 0;
    local.m_pThread = nullptr;
    // From here on the object may go at any time.
    impl->m_eState.store(CImpl::EState::ENDED);
    impl->m_Ended.Signal();
}

MNResult CMNThread::Stop(CMNTimeValue*)
{
    return MN_ERROR_NOT_IMPLEMENTED;
}

void CMNThread::OnCreate() {}

// All but those that a fault of this thread itself raises.
void CMNThread::BlockSignal()
{
    sigset_t signals;
    ::sigfillset(&signals);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS, SIGPROF})
        ::sigdelset(&signals, fault);
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

MNResult CMNThread::Join()
{
    return JoinFor(CMNTimeValue::s_tvMax);
}

MNResult CMNThread::JoinFor(const CMNTimeValue& bound)
{
    const std::shared_ptr<CImpl> impl = m_pImpl;
    if (!impl->m_bStarted.load())
        return MN_ERROR_NOT_INITIALIZED;
    if (CMNThreadLocal::Get().m_pThread == this)
        return MN_ERROR_FAILURE;
    const MNResult result = impl->m_Ended.Wait(&bound);
    if (result != MN_OK)
        return result;
    CMNMutexGuard guard(impl->m_JoinMutex);
    if (impl->m_Thread.joinable())
        impl->m_Thread.join();
    return MN_OK;
}

MNResult CMNThread::Destory()
{
    if (IsRunning())
        return MN_ERROR_FAILURE;
    delete this;
    return MN_OK;
}

void CMNThread::OnThreadInit() {}

void CMNThread::OnThreadRun() {}

IMNReactor* CMNThread::GetReactor()
{
    return nullptr;
}

IMNEventQueue* CMNThread::GetEventQueue()
{
    return nullptr;
}

IMNTimerQueue* CMNThread::GetTimerQueue()
{
    return nullptr;
}

MNResult CMNThread::PostEvent(IMNEvent* event, IMNEventQueue::EPriority priority)
{
    if (!event)
        return MN_ERROR_INVALID_ARG;
    if (IMNEventQueue* queue = GetEventQueue())
        return queue->PostEvent(event, priority);
    return MNRefuseEvent(event);
}

MNResult CMNThread::SendEvent(IMNEvent* event)
{
    if (!event)
        return MN_ERROR_INVALID_ARG;
    if (IMNEventQueue* queue = GetEventQueue())
        return queue->SendEvent(event);
    return MNRefuseEvent(event);
}

bool CMNThread::IsPool()
{
    return false;
}

MNResult CMNThread::WaitLoopLeft(const CMNTimeValue&)
{
    return MN_OK;
}

bool CMNThread::IsRunning() const noexcept
{
    const CImpl::EState state = m_pImpl->m_eState.load();
    return state == CImpl::EState::RUNNING || state == CImpl::EState::ADOPTED;
}

bool CMNThread::IsAdopted() const noexcept
{
    return m_pImpl->m_eState.load() == CImpl::EState::ADOPTED;
}

// The adopted thread ends, or is taken back.
void CMNThread::EndAdopted()
{
    DrainEvents();
    m_pImpl->m_PendingDeletes.DeleteAll(GetTimerQueue());
    m_pImpl->m_eState.store(CImpl::EState::ENDED);
    m_pImpl->m_Ended.Signal();
}

CMNPendingDeleteList& CMNThread::GetPendingDeletes() noexcept
{
    return m_pImpl->m_PendingDeletes;
}

}  // namespace mantle
