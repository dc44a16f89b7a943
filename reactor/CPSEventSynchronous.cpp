#include "reactor/CPSEventSynchronous.h"

#include "reactor/CPSEventQueue.h"

namespace uxport
{

CPSEventSynchronous::CPSEventSynchronous(IMNEvent* event, CPSEventQueueBase* queue)
    : m_pEvent(event), m_pQueue(queue), m_Event(0, 0)
{
}

CPSEventSynchronous::~CPSEventSynchronous()
{
    if (IMNEvent* event = m_pEvent.load())
        event->OnDestorySelf();
    if (m_lDestroyed.load() == 0)
        m_Event.Signal();
}

MNResult CPSEventSynchronous::OnEventFire()
{
    if (m_lDestroyed.load() != 0)
        return MN_OK;
    IMNEvent* event = m_pEvent.load();
    const MNResult result = event ? event->OnEventFire() : MN_ERROR_NULL_POINTER;
    m_dwResult = result;
    m_bFired = true;
    m_Event.Signal();
    return result;
}

void CPSEventSynchronous::OnDestorySelf()
{
    // Whoever makes the second call may free the wrapper as soon as the flag is set, so everything that the
    // first call needs is taken before.
    const bool fired = m_bFired;
    IMNEvent* event = m_pEvent.exchange(nullptr);
    const bool second = m_lDestroyed.exchange(1) != 0;
    if (event)
        event->OnDestorySelf();
    if (second)
        delete this;
    else if (!fired)
        m_Event.Signal();  // the sender, still waiting, makes the second call
}

MNResult CPSEventSynchronous::WaitResultAndDeleteThis()
{
    if (const MNResult result = m_Event.Wait(nullptr); result != MN_OK)
        return result;
    const MNResult result = m_dwResult;
    if (m_bFired)
        m_pQueue->PostEvent(this, IMNEventQueue::EPRIORITY_NORMAL);  // a refusal destroys as a run does
    else
        OnDestorySelf();  // destroyed without having run: the queue may itself be going
    return result;
}

}  // namespace uxport
