#include "uxport/CPSTimerWrapperID.h"

#include "mantle/CMNThread.h"
#include "mantle/CMNThreadManager.h"

using mantle::CMNThread;
using mantle::CMNThreadManager;

namespace uxport
{

CPSTimerWrapperID::~CPSTimerWrapperID()
{
    Cancel();
}

MNResult CPSTimerWrapperID::Schedule(IPSTimerWrapperIDSink* sink, const CMNTimeValue& interval, unsigned int count)
{
    if (!m_pTimerQueue) {
        if (CMNThread* thread = CMNThreadManager::Instance()->GetThread(CMNThreadManager::TT_CURRENT))
            m_pTimerQueue = thread->GetTimerQueue();
        if (!m_pTimerQueue)
            return MN_ERROR_NULL_POINTER;
    }
    m_bScheduled = true;
    return m_pTimerQueue->ScheduleTimer(this, sink, interval, count);
}

MNResult CPSTimerWrapperID::Cancel()
{
    if (!m_bScheduled)
        return MN_OK;
    m_bScheduled = false;
    return m_pTimerQueue ? m_pTimerQueue->CancelTimer(this) : MN_ERROR_NULL_POINTER;
}

void CPSTimerWrapperID::OnTimeout(const CMNTimeValue&, void* arg)
{
    if (arg)
        static_cast<IPSTimerWrapperIDSink*>(arg)->OnTimer(this);
}

}  // namespace uxport
