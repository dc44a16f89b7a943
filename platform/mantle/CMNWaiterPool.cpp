#include "CMNWaiterPool.h"

#include "CMNManualClockCore.h"
#include "mantle/CMNWaiter.h"

namespace mantle
{

CMNWaiterPool& CMNWaiterPool::Instance() noexcept
{
    static CMNWaiterPool* const s_pInstance = new CMNWaiterPool;
    return *s_pInstance;
}

CMNWaiter* CMNWaiterPool::Take()
{
    CMNWaiter* waiter = nullptr;
    {
        CMNMutexGuard guard(m_Mutex);
        if (!m_Free.empty()) {
            waiter = m_Free.back();
            m_Free.pop_back();
        }
    }
    if (waiter) {
        CMNManualClockCore::Instance().RenewWaiter(waiter);
        return waiter;
    }
    waiter = new CMNWaiter;
    CMNMutexGuard guard(m_Mutex);
    m_All.push_back(waiter);
    return waiter;
}

void CMNWaiterPool::Put(CMNWaiter* waiter)
{
    CMNMutexGuard guard(m_Mutex);
    m_Free.push_back(waiter);
}

}  // namespace mantle
