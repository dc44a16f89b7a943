#include "CMNPendingDeleteList.h"

namespace mantle
{

void CMNPendingDeleteList::Add(CMNPendingDelete& object)
{
    CMNMutexGuard guard(m_Mutex);
    object.m_pList = this;
    object.m_pNext = nullptr;
    object.m_pPrev = m_pLast;
    (m_pLast ? m_pLast->m_pNext : m_pFirst) = &object;
    m_pLast = &object;
}

void CMNPendingDeleteList::Schedule(CMNPendingDelete& object, IMNTimerQueue& timers)
{
    const auto schedule = [&timers](CMNPendingDelete& one) {
        return timers.ScheduleTimer(one.m_pHandler, nullptr, CMNTimeValue::s_tvZero, 1) != MN_ERROR_UNEXPECTED;
    };
    if (!schedule(object)) {
        object.m_bWithoutTimer = true;
        m_bWithoutTimers = true;
        return;
    }
    if (!m_bWithoutTimers)
        return;
    // There is memory again.
    m_bWithoutTimers = false;
    CMNMutexGuard guard(m_Mutex);
    for (CMNPendingDelete* one = m_pFirst; one && !m_bWithoutTimers; one = one->m_pNext) {
        if (one->m_bWithoutTimer) {
            m_bWithoutTimers = !schedule(*one);
            one->m_bWithoutTimer = m_bWithoutTimers;
        }
    }
}

void CMNPendingDeleteList::Remove(CMNPendingDelete& object)
{
    CMNMutexGuard guard(m_Mutex);
    Remove_i(object);
}

void CMNPendingDeleteList::Remove_i(CMNPendingDelete& object)
{
    (object.m_pPrev ? object.m_pPrev->m_pNext : m_pFirst) = object.m_pNext;
    (object.m_pNext ? object.m_pNext->m_pPrev : m_pLast) = object.m_pPrev;
    object.m_pList = nullptr;
}

unsigned long CMNPendingDeleteList::DeleteAll(IMNTimerQueue* timers)
{
    unsigned long deleted = 0;
    while (true) {
        CMNPendingDelete* object = nullptr;
        {
            CMNMutexGuard guard(m_Mutex);
            object = m_pFirst;
            if (!object)
                return deleted;
            Remove_i(*object);
        }
        if (timers && object->m_pHandler)
            timers->CancelTimer(object->m_pHandler);
        object->DeletePending();
        ++deleted;
    }
}

}  // namespace mantle
