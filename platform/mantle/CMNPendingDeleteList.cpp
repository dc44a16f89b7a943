#include "CMNPendingDeleteList.h"

namespace mantle
{

void CMNPendingDeleteList::Add(CMNPendingDelete& object)
{
    CMNMutexGuardT<CMNMutexThread> guard(m_Mutex);
    object.m_pList = this;
    object.m_pNext = nullptr;
    object.m_pPrev = m_pLast;
    (m_pLast ? m_pLast->m_pNext : m_pFirst) = &object;
    m_pLast = &object;
}

void CMNPendingDeleteList::Remove(CMNPendingDelete& object)
{
    CMNMutexGuardT<CMNMutexThread> guard(m_Mutex);
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
            CMNMutexGuardT<CMNMutexThread> guard(m_Mutex);
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
