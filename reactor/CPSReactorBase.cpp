#include "reactor/CPSReactorBase.h"

#include "mantle/CMNThreadManager.h"
#include "uxport/IPSEventHandler.h"

using mantle::CMNMutexGuard;
using mantle::CMNThreadManager;
using mantle::CMNTimerQueueOrderedList;

namespace uxport
{

CPSReactorBase::~CPSReactorBase() = default;

MNResult CPSReactorBase::PostEvent(IMNEvent* event, IMNEventQueue::EPriority priority)
{
    unsigned long oldSize = 0;
    const MNResult result = PostEventWithOldSize(event, priority, &oldSize);
    if (result == MN_OK && oldSize == 0)
        NotifyHandler(nullptr, EVENTQUEUE_MASK);
    return result;
}

MNResult CPSReactorBase::PostPrepared(mantle::CMNEventPlace& place)
{
    unsigned long oldSize = 0;
    const MNResult result = PostPreparedWithOldSize(place, &oldSize);
    if (result == MN_OK && oldSize == 0)
        NotifyHandler(nullptr, EVENTQUEUE_MASK);
    return result;
}

MNResult CPSReactorBase::Open()
{
    m_EstReactor.SetToCurrentThread();
    m_dwOwnerThread.store(CMNThreadManager::GetThreadSelfId());
    BindStopFlagToCurrentThread();
    if (!m_pTimerQueue)
        m_pTimerQueue = std::make_unique<CMNTimerQueueOrderedList>(nullptr);
    CMNMutexGuard guard(m_MutexQueue);
    CorrectPendingCount();
    m_dwStopped.store(0);
    return m_Repository.Open();
}

MNResult CPSReactorBase::Close()
{
    RefuseEvents();
    m_pTimerQueue.reset();
    m_Repository.Close();
    DestoryPendingEvents();
    return MN_OK;
}

void CPSReactorBase::WakeForEarlyPosts()
{
    // A post reads the pipe's handle after its own stay in the mutex: it either is counted here or finds the pipe.
    bool pending = false;
    {
        CMNMutexGuard guard(m_MutexQueue);
        pending = GetPendingEventsCount() != 0;
    }
    if (pending)
        NotifyHandler(nullptr, EVENTQUEUE_MASK);
}

bool CPSReactorBase::IsReactorThread() const
{
    return CMNThreadManager::IsEqualCurrentThread(m_EstReactor.GetThread());
}

MNResult CPSReactorBase::RegisterHandler(IPSEventHandler* handler, long mask)
{
    EnsureReactorThread("CPSReactorBase::RegisterHandler");
    mask &= ALL_EVENTS_MASK;
    if (!handler || mask == 0)
        return MN_ERROR_INVALID_ARG;
    const int handle = handler->GetHandle();
    CElement element;
    const bool found = handle != PS_INVALID_HANDLE && m_Repository.Find(handle, element);
    if (found) {
        if (element.m_pEh == handler && element.m_Mask == mask)
            return MN_OK;
    } else if (const MNResult result = OnHandleRegister(handle, mask, handler); result != MN_OK) {
        return result;
    }
    element.m_pEh = handler;
    element.m_Mask = mask;
    const MNResult result = m_Repository.Bind(handle, element);
    if (result == MN_ERROR_UNEXPECTED && !found)
        OnHandleRemoved(handle);
    return result;
}

MNResult CPSReactorBase::RemoveHandler(IPSEventHandler* handler, long mask)
{
    EnsureReactorThread("CPSReactorBase::RemoveHandler");
    mask &= ALL_EVENTS_MASK;
    if (!handler || mask == 0)
        return MN_ERROR_INVALID_ARG;
    const int handle = handler->GetHandle();
    CElement element;
    if (handle == PS_INVALID_HANDLE || !m_Repository.Find(handle, element))
        return MN_OK;
    return RemoveHandleWithoutFinding_i(handle, element, mask);
}

MNResult CPSReactorBase::RemoveHandleWithoutFinding_i(int handle, const CElement& element, long mask)
{
    const long rest = element.m_Mask & ~(mask & ALL_EVENTS_MASK);
    if (rest == element.m_Mask)
        return MN_OK;
    if (rest != 0)
        return m_Repository.Bind(handle, CElement{element.m_pEh, rest});
    m_Repository.UnBind(handle);
    OnHandleRemoved(handle);
    if (mask & SHOULD_CALL)
        element.m_pEh->OnClose(handle, element.m_Mask);
    return MN_OK;
}

// The clean-up ends reactors with the other shared objects. One that runs in a callback leaves them, and the loop
// goes on.
bool CPSReactorBase::IsAlive(const IPSReactor* reactor)
{
    return reactor && !CMNThreadManager::Instance()->HasDestroyedObjects();
}

MNResult CPSReactorBase::RegisterHandlerIfAlive(IPSReactor* reactor, IPSEventHandler* handler, long mask)
{
    return IsAlive(reactor) ? reactor->RegisterHandler(handler, mask) : MN_ERROR_NOT_INITIALIZED;
}

MNResult CPSReactorBase::RemoveHandlerIfAlive(IPSReactor* reactor, IPSEventHandler* handler, long mask)
{
    return IsAlive(reactor) ? reactor->RemoveHandler(handler, mask) : MN_OK;
}

MNResult CPSReactorBase::CancelTimerIfAlive(IPSReactor* reactor, IMNTimerHandler* handler)
{
    return IsAlive(reactor) ? reactor->CancelTimer(handler) : MN_OK;
}

void CPSReactorBase::ForgetHandler(IPSReactor* reactor, const IPSEventHandler* handler)
{
    if (!IsAlive(reactor))
        return;
    if (auto* base = dynamic_cast<CPSReactorBase*>(reactor))
        base->m_Repository.UnBindHandler(handler->GetHandle(), handler);
}

MNResult CPSReactorBase::RunEvents_i()
{
    std::list<IMNEvent*> events;
    unsigned long left = 0;
    MNResult result = MN_OK;
    {
        CMNMutexGuard guard(m_MutexQueue);
        result = PopPendingEvents(events, s_dwMaxEvents, &left);
    }
    if (result == MN_OK)
        ProcessEvents(events);
    if (left != 0)
        NotifyHandler(nullptr, EVENTQUEUE_MASK);
    return result;
}

MNResult CPSReactorBase::ProcessHandleEvent(int handle, long mask, long, int, int dropConnect)
{
    EnsureReactorThread("CPSReactorBase::ProcessHandleEvent");
    if (handle == PS_INVALID_HANDLE)
        return RunEvents_i();

    CElement element;
    if (!m_Repository.Find(handle, element))
        return MN_ERROR_NOT_FOUND;
    if (mask & CLOSE_MASK)
        return RemoveHandleWithoutFinding_i(handle, element, ALL_EVENTS_MASK | SHOULD_CALL);

    // Whether the report came as a wake-up record makes no difference: without a ready bit nothing is called.
    const long ready = mask & element.m_Mask;
    IPSEventHandler* const handler = element.m_pEh;
    if (dropConnect != 0 && (ready & CONNECT_MASK))
        return RemoveAfterFailure_i(handle, handler);
    if (ready & INPUT_GROUP_MASK) {
        if (handler->OnInput(handle) != 0)
            return RemoveAfterFailure_i(handle, handler);
        // It may have removed or even freed itself.
        if ((ready & OUTPUT_GROUP_MASK) && (!m_Repository.Find(handle, element) || element.m_pEh != handler))
            return MN_OK;
    }
    if ((ready & OUTPUT_GROUP_MASK) && handler->OnOutput(handle) != 0)
        return RemoveAfterFailure_i(handle, handler);
    return MN_OK;
}

MNResult CPSReactorBase::RemoveAfterFailure_i(int handle, const IPSEventHandler* handler)
{
    CElement element;
    if (!m_Repository.Find(handle, element))
        return MN_ERROR_NOT_FOUND;
    if (element.m_pEh != handler)
        return MN_ERROR_UNEXPECTED;
    return RemoveHandleWithoutFinding_i(handle, element, ALL_EVENTS_MASK | SHOULD_CALL);
}

MNResult CPSReactorBase::ScheduleTimer(IMNTimerHandler* handler, void* arg, const CMNTimeValue& interval,
                                       unsigned long count)
{
    EnsureReactorThread("CPSReactorBase::ScheduleTimer");
    return m_pTimerQueue ? m_pTimerQueue->ScheduleTimer(handler, arg, interval, count) : MN_ERROR_NOT_INITIALIZED;
}

MNResult CPSReactorBase::CancelTimer(IMNTimerHandler* handler)
{
    EnsureReactorThread("CPSReactorBase::CancelTimer");
    return m_pTimerQueue ? m_pTimerQueue->CancelTimer(handler) : MN_ERROR_NOT_INITIALIZED;
}

MNResult CPSReactorBase::ProcessTimerTick()
{
    EnsureReactorThread("CPSReactorBase::ProcessTimerTick");
    if (!m_pTimerQueue)
        return MN_ERROR_NOT_INITIALIZED;
    m_pTimerQueue->CheckExpire();
    return MN_OK;
}

CMNTimeValue CPSReactorBase::FireTimers()
{
    CMNTimeValue remaining = CMNTimeValue::s_tvMax;
    if (m_pTimerQueue)
        m_pTimerQueue->CheckExpire(&remaining);
    return remaining;
}

}  // namespace uxport
