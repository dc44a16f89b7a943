#include "mantle/CMNEventThread.h"

#include <climits>

#include "mantle/CMNClock.h"
#include "mantle/CMNWaiter.h"

namespace mantle
{

struct CMNEventThread::CNode
{
    CMNWaiter* m_pWaiter;
    CNode* m_pNext = nullptr;
    CNode* m_pPrev = nullptr;
    bool m_bGranted = false;  // taken out of the list by a signal
};

CMNEventThread::CMNEventThread(int manualReset, int signalled, const char*)
    : m_bSignalled(signalled != 0), m_bManual(manualReset != 0)
{
}

CMNEventThread::~CMNEventThread() = default;

void CMNEventThread::Remove(CNode& node)
{
    (node.m_pPrev ? node.m_pPrev->m_pNext : m_pFirst) = node.m_pNext;
    (node.m_pNext ? node.m_pNext->m_pPrev : m_pLast) = node.m_pPrev;
}

MNResult CMNEventThread::Wait(const CMNTimeValue* timeout)
{
    CMNWaiter& waiter = CMNWaiter::Current();
    long long deadline = CMNWaiter::s_llForever;
    if (timeout) {
        const long long now = CMNClock::NowUs();
        const long long step = timeout->GetTotalInUsec();
        if (step < LLONG_MAX - now)
            deadline = step > 0 ? now + step : 0;
    }

    CNode node{&waiter};
    {
        CMNMutexGuard guard(m_Mutex);
        if (m_bSignalled) {
            m_bSignalled = m_bManual;
            return MN_OK;
        }
        node.m_pPrev = m_pLast;
        (m_pLast ? m_pLast->m_pNext : m_pFirst) = &node;
        m_pLast = &node;
    }
    while (true) {
        const std::uint32_t sequence = waiter.GetSequence();
        {
            CMNMutexGuard guard(m_Mutex);
            if (node.m_bGranted)
                return MN_OK;
        }
        if (!waiter.Wait(sequence, deadline)) {
            CMNMutexGuard guard(m_Mutex);
            if (node.m_bGranted)
                return MN_OK;
            Remove(node);
            return MN_ERROR_NOT_FOUND;
        }
    }
}

// The waiter returns as soon as it sees its grant, and may then destroy this object: the last thing that is
// touched of it is the mutex being given up.
MNResult CMNEventThread::Signal()
{
    CMNWaiter* waiter = nullptr;
    {
        CMNMutexGuard guard(m_Mutex);
        if (m_bManual || !m_pFirst)
            m_bSignalled = true;
        if (m_bManual) {
            for (CNode* node = m_pFirst; node; node = node->m_pNext) {
                node->m_bGranted = true;
                node->m_pWaiter->Signal();
            }
            m_pFirst = nullptr;
            m_pLast = nullptr;
        } else if (m_pFirst) {
            CNode& node = *m_pFirst;
            Remove(node);
            node.m_bGranted = true;
            waiter = node.m_pWaiter;
        }
    }
    if (waiter)
        waiter->Signal();
    return MN_OK;
}

MNResult CMNEventThread::Reset()
{
    CMNMutexGuard guard(m_Mutex);
    m_bSignalled = false;
    return MN_OK;
}

}  // namespace mantle
