#include "mantle/CMNReferenceControl.h"

#include "CMNPendingDeleteList.h"
#include "CMNThreadLocal.h"
#include "mantle/CMNThread.h"

namespace mantle
{

namespace
{

std::atomic<long> s_lLiveObjects{0};

}  // namespace

long CMNLiveObjects::Count() noexcept
{
    return s_lLiveObjects.load();
}

void CMNLiveObjects::Add(long step) noexcept
{
    s_lLiveObjects.fetch_add(step);
}

void MNReportReferenceUnderflow(const char* place)
{
    const unsigned long self = CMNThreadManager::GetThreadSelfId();
    CMNEnsureSingleThread::Report(CMNSingleThreadReport{place, self, self});
}

CMNPendingDelete::~CMNPendingDelete()
{
    ForgetDelete();
}

void CMNPendingDelete::ScheduleDelete(IMNTimerHandler* handler)
{
    const CMNThreadLocal& local = CMNThreadLocal::Get();
    CMNThread* thread = CMNThreadManager::Instance()->GetThread(CMNThreadManager::TT_CURRENT);
    IMNTimerQueue* timers = thread ? thread->GetTimerQueue() : nullptr;
    if (timers) {
        m_pHandler = handler;
        CMNPendingDeleteList& list = thread->GetPendingDeletes();
        list.Add(*this);
        list.Schedule(*this, *timers);
    } else if (local.m_bCleanUp) {
        CMNThreadManager::Instance()->GetCleanUpDeletes().Add(*this);
    }
}

void CMNPendingDelete::EnlistDelete()
{
    if (CMNThread* thread = CMNThreadManager::Instance()->GetThread(CMNThreadManager::TT_CURRENT))
        thread->GetPendingDeletes().Add(*this);
}

void CMNPendingDelete::ForgetDelete()
{
    if (m_pList)
        m_pList->Remove(*this);
}

}  // namespace mantle
