#include "reactor/CPSEventQueue.h"

#include <new>

#include "mantle/CMNThreadManager.h"
#include "reactor/CPSEventSynchronous.h"

using mantle::CMNMutexGuard;
using mantle::CMNThreadManager;

namespace uxport
{

const CMNTimeValue CPSEventQueueBase::s_tvReportInterval(0, 50000);

CPSEventQueueBase::CPSEventQueueBase() : m_tvReport(CMNTimeValue::GetTimeOfDay()) {}

CPSEventQueueBase::~CPSEventQueueBase()
{
    DestoryPendingEvents();
}

MNResult CPSEventQueueBase::PostEvent(IMNEvent* event, EPriority)
{
    if (!event)
        return MN_ERROR_INVALID_ARG;
    if (m_dwStopped.load() != 0)
        return mantle::MNRefuseEvent(event);
    return Append(event) ? MN_OK : Lose(event);
}

MNResult CPSEventQueueBase::PostPrepared(CPlace& place)
{
    if (m_dwStopped.load() != 0)
        return Refuse(place);
    m_Pending.splice(m_Pending.end(), place);
    m_dwPendingCount.fetch_add(1, std::memory_order_relaxed);
    return MN_OK;
}

bool CPSEventQueueBase::Append(IMNEvent* event) noexcept
{
    try {
        m_Pending.push_back(event);
    } catch (const std::bad_alloc&) {
        return false;
    }
    m_dwPendingCount.fetch_add(1, std::memory_order_relaxed);
    return true;
}

MNResult CPSEventQueueBase::Lose(IMNEvent* event)
{
    event->OnDestorySelf();
    return MN_ERROR_UNEXPECTED;
}

MNResult CPSEventQueueBase::Refuse(CPlace& place)
{
    IMNEvent* const event = place.front();
    place.clear();
    return mantle::MNRefuseEvent(event);
}

MNResult CPSEventQueueBase::SendEvent(IMNEvent* event)
{
    if (!event)
        return MN_ERROR_INVALID_ARG;
    if (m_dwStopped.load() != 0)
        return mantle::MNRefuseEvent(event);
    if (CMNThreadManager::IsEqualCurrentThread(m_dwOwnerThread.load())) {
        const MNResult result = event->OnEventFire();
        event->OnDestorySelf();
        return result;
    }
    auto* synchronous = new (std::nothrow) CPSEventSynchronous(event, this);
    if (!synchronous)
        return Lose(event);
    if (const MNResult result = PostEvent(synchronous, EPRIORITY_NORMAL); result != MN_OK) {
        // The refusal was the wrapper's first destruction; this is the second, which frees it.
        synchronous->OnDestorySelf();
        return result;
    }
    return synchronous->WaitResultAndDeleteThis();
}

MNResult CPSEventQueueBase::PopPendingEvents(std::list<IMNEvent*>& events, unsigned long maximum, unsigned long* left)
{
    const unsigned long count = m_dwPendingCount.load(std::memory_order_relaxed);
    if (count == 0)
        return MN_ERROR_NOT_FOUND;
    if (count <= maximum) {
        m_Pending.swap(events);
        m_dwPendingCount.store(0, std::memory_order_relaxed);
        *left = 0;
        return MN_OK;
    }
    auto end = m_Pending.begin();
    unsigned long taken = 0;
    for (; taken < maximum && end != m_Pending.end(); ++taken)
        ++end;
    events.splice(events.end(), m_Pending, m_Pending.begin(), end);
    // A count that DestoryPendingEvents left behind is larger than the list.
    *left = m_Pending.empty() ? 0 : count - taken;
    m_dwPendingCount.store(*left, std::memory_order_relaxed);
    return MN_OK;
}

MNResult CPSEventQueueBase::PopOnePendingEvent(IMNEvent*& event, unsigned long* left)
{
    if (m_dwPendingCount.load(std::memory_order_relaxed) == 0 || m_Pending.empty())
        return MN_ERROR_NOT_FOUND;
    event = m_Pending.front();
    m_Pending.pop_front();
    const unsigned long rest = m_dwPendingCount.fetch_sub(1, std::memory_order_relaxed) - 1;
    if (left)
        *left = rest;
    return MN_OK;
}

MNResult CPSEventQueueBase::ProcessOneEvent(IMNEvent* event)
{
    if (!event)
        return MN_ERROR_INVALID_ARG;
    event->OnEventFire();
    event->OnDestorySelf();
    return MN_OK;
}

MNResult CPSEventQueueBase::ProcessEvents(const std::list<IMNEvent*>& events)
{
    for (IMNEvent* event : events)
        ProcessOneEvent(event);
    return MN_OK;
}

void CPSEventQueueBase::DestoryPendingEvents()
{
    while (!m_Pending.empty()) {
        std::list<IMNEvent*> events;
        events.swap(m_Pending);
        for (IMNEvent* event : events)
            event->OnDestorySelf();
    }
}

MNResult CPSEventQueueUsingMutex::PostEvent(IMNEvent* event, EPriority priority)
{
    return PostEventWithOldSize(event, priority, nullptr);
}

MNResult CPSEventQueueUsingMutex::PostEventWithOldSize(IMNEvent* event, EPriority, unsigned long* oldSize)
{
    bool stopped;
    {
        CMNMutexGuard guard(m_MutexQueue);
        if (oldSize)
            *oldSize = GetPendingEventsCount();
        if (!event)
            return MN_ERROR_INVALID_ARG;
        stopped = m_dwStopped.load() != 0;
        if (!stopped && Append(event))
            return MN_OK;
    }
    // Destroys outside the mutex.
    return stopped ? mantle::MNRefuseEvent(event) : Lose(event);
}

MNResult CPSEventQueueUsingMutex::PostPrepared(CPlace& place)
{
    return PostPreparedWithOldSize(place, nullptr);
}

MNResult CPSEventQueueUsingMutex::PostPreparedWithOldSize(CPlace& place, unsigned long* oldSize)
{
    {
        CMNMutexGuard guard(m_MutexQueue);
        if (oldSize)
            *oldSize = GetPendingEventsCount();
        if (m_dwStopped.load() == 0)
            return CPSEventQueueBase::PostPrepared(place);
    }
    return Refuse(place);  // destroys outside the mutex
}

void CPSEventQueueUsingMutex::DestoryPendingEvents()
{
    for (;;) {
        std::list<IMNEvent*> events;
        {
            CMNMutexGuard guard(m_MutexQueue);
            events.swap(m_Pending);
        }
        if (events.empty())
            return;
        for (IMNEvent* event : events)
            event->OnDestorySelf();
    }
}

void CPSEventQueueUsingMutex::RefuseEvents()
{
    CMNMutexGuard guard(m_MutexQueue);
    m_dwStopped.store(1);
}

void CPSEventQueueUsingMutex::CloseQueue()
{
    RefuseEvents();
    DestoryPendingEvents();
}

CPSEventQueueUsingMutex::~CPSEventQueueUsingMutex()
{
    CloseQueue();
}

}  // namespace uxport
