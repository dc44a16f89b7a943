#include "CMNEventQueueUser.h"

#include <algorithm>
#include <new>

#include "mantle/CMNEventThread.h"
#include "mantle/CMNThread.h"
#include "mantle/CMNWaiter.h"

namespace mantle
{

namespace
{

// Carries an event to the queue's thread and its result back. Lives on the sender's stack: nothing of it is
// touched once the sender has been woken.
class CEventSend : public IMNEvent
{
public:
    explicit CEventSend(IMNEvent* event) : m_pEvent(event) {}

    MNResult OnEventFire() override
    {
        m_Result = m_pEvent->OnEventFire();
        return m_Result;
    }
    void OnDestorySelf() override
    {
        m_pEvent->OnDestorySelf();
        m_Done.Signal();
    }
    MNResult WaitResult()
    {
        m_Done.Wait();
        return m_Result;
    }

private:
    IMNEvent* m_pEvent;
    MNResult m_Result = MN_ERROR_NOT_INITIALIZED;
    CMNEventThread m_Done{0, 0};
};

}  // namespace

CMNEventQueueUser::~CMNEventQueueUser()
{
    Close();
    DestroyPending();
}

bool CMNEventQueueUser::IsOwnThread() const
{
    return CMNThreadManager::IsEqualCurrentThread(m_Thread.GetThreadId());
}

bool CMNEventQueueUser::Push(CPlace& place)
{
    CMNWaiter* waiter = nullptr;
    {
        CMNMutexGuard guard(m_Mutex);
        if (m_bClosed.load())
            return false;
        if (m_Pending.empty())
            waiter = m_pWaiter;
        m_Pending.splice(m_Pending.end(), place);
        m_dwCount.fetch_add(1);
    }
    if (waiter)
        waiter->Signal();
    return true;
}

MNResult CMNEventQueueUser::PostEvent(IMNEvent* event, EPriority)
{
    if (!event)
        return MN_ERROR_INVALID_ARG;
    CPlace place;
    try {
        place.push_back(event);
    } catch (const std::bad_alloc&) {
        event->OnDestorySelf();
        return MN_ERROR_UNEXPECTED;
    }
    return PostPrepared(place);
}

MNResult CMNEventQueueUser::PostPrepared(CPlace& place)
{
    IMNEvent* const event = place.front();
    if (Push(place))
        return MN_OK;
    place.clear();
    return MNRefuseEvent(event);
}

MNResult CMNEventQueueUser::SendEvent(IMNEvent* event)
{
    if (!event)
        return MN_ERROR_INVALID_ARG;
    if (IsClosed())
        return MNRefuseEvent(event);
    if (IsOwnThread()) {
        const MNResult result = event->OnEventFire();
        event->OnDestorySelf();
        return result;
    }
    CEventSend send(event);
    CPlace place;
    try {
        place.push_back(&send);
    } catch (const std::bad_alloc&) {
        event->OnDestorySelf();
        return MN_ERROR_UNEXPECTED;
    }
    return Push(place) ? send.WaitResult() : MNRefuseEvent(event);
}

void CMNEventQueueUser::SetWaiter(CMNWaiter* waiter)
{
    CMNMutexGuard guard(m_Mutex);
    m_pWaiter = waiter;
}

unsigned long CMNEventQueueUser::Run(unsigned long maximum, const std::atomic<bool>& stop)
{
    {
        CMNMutexGuard guard(m_Mutex);
        m_Batch.splice(m_Batch.end(), m_Pending);
    }
    unsigned long left = std::min<unsigned long>(maximum, m_Batch.size());
    unsigned long ran = 0;
    for (; left != 0 && !m_Batch.empty() && !stop.load() && !IsClosed(); --left) {
        IMNEvent* event = m_Batch.front();
        m_Batch.pop_front();
        m_dwCount.fetch_sub(1);
        event->OnEventFire();
        event->OnDestorySelf();
        ++ran;
    }
    return ran;
}

void CMNEventQueueUser::Close()
{
    {
        CMNMutexGuard guard(m_Mutex);
        m_bClosed.store(true);
    }
    Wake();
}

void CMNEventQueueUser::Wake()
{
    CMNWaiter* waiter = nullptr;
    {
        CMNMutexGuard guard(m_Mutex);
        waiter = m_pWaiter;
    }
    if (waiter)
        waiter->Signal();
}

unsigned long CMNEventQueueUser::DestroyPending()
{
    unsigned long destroyed = 0;
    while (true) {
        CEvents events;
        if (IsOwnThread())
            events.swap(m_Batch);
        if (events.empty()) {
            CMNMutexGuard guard(m_Mutex);
            events.swap(m_Pending);
        }
        if (events.empty())
            return destroyed;
        m_dwCount.fetch_sub(events.size());
        destroyed += events.size();
        for (IMNEvent* event : events)
            event->OnDestorySelf();
    }
}

}  // namespace mantle
