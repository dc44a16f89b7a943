#include "CMNThreadLocal.h"

#include <pthread.h>
#include <unistd.h>
#if defined(__linux__)
#  include <sys/syscall.h>
#endif

#include "CMNManualClockCore.h"
#include "CMNWaiterPool.h"
#include "mantle/CMNThread.h"

namespace mantle
{

namespace
{

thread_local CMNThreadLocal t_Local{};

}  // namespace

// Runs when the thread ends, or calls exit. The main thread's end is the process's, and the clean-up's affair.
class CMNThreadEnd
{
public:
    bool m_bArmed = false;

    ~CMNThreadEnd()
    {
        CMNThreadLocal& local = t_Local;
        if (local.m_pThread && local.m_pThread->IsAdopted() && local.m_dwInLoop == 0 && !CMNThreadLocal::IsMainThread())
            local.m_pThread->EndAdopted();
        local.m_bEnded = true;
        local.m_Buffers.Flush();
        if (local.m_dwParticipant != 0) {
            local.m_dwParticipant = 0;
            CMNManualClockCore::Instance().RemoveParticipant();
        }
        if (CMNWaiter* waiter = local.m_pWaiter) {
            local.m_pWaiter = nullptr;
            CMNWaiterPool::Instance().Put(waiter);
        }
    }
};

namespace
{

thread_local CMNThreadEnd t_End;

}  // namespace

CMNThreadLocal& CMNThreadLocal::Get() noexcept
{
    return t_Local;
}

bool CMNThreadLocal::IsMainThread() noexcept
{
#if defined(__linux__)
    return ::syscall(SYS_gettid) == ::getpid();
#else
    return ::pthread_main_np() != 0;
#endif
}

void CMNThreadLocal::GiveBackAtEnd() noexcept
{
    if (!m_bEnded)
        t_End.m_bArmed = true;
}

}  // namespace mantle
