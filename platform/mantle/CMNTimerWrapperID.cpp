#include "mantle/CMNTimerWrapperID.h"

#include "mantle/CMNThread.h"

namespace mantle
{

CMNTimerWrapperID::~CMNTimerWrapperID()
{
    Cancel();
}

MNResult CMNTimerWrapperID::Schedule(CMNTimerWrapperIDSink* sink, const CMNTimeValue& interval, unsigned int count)
{
    if (!m_pTimerQueue) {
        CMNThread* thread = CMNThreadManager::Instance()->GetThread(CMNThreadManager::TT_CURRENT);
        m_pTimerQueue = thread ? thread->GetTimerQueue() : nullptr;
    }
    if (!m_pTimerQueue)
        return MN_ERROR_NULL_POINTER;
    m_bScheduled = true;
    return m_pTimerQueue->ScheduleTimer(this, sink, interval, count);
}

MNResult CMNTimerWrapperID::Cancel()
{
    if (!m_bScheduled)
        return MN_OK;
    m_bScheduled = false;
    if (!m_pTimerQueue)
        return MN_ERROR_NULL_POINTER;
    return m_pTimerQueue->CancelTimer(this);
}

void CMNTimerWrapperID::OnTimeout(const CMNTimeValue&, void* arg)
{
    if (arg)
        static_cast<CMNTimerWrapperIDSink*>(arg)->OnTimer(this);
}

}  // namespace mantle
