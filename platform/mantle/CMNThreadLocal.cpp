#include "CMNThreadLocal.h"

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

// The main thread's end is the process's, and the clean-up's affair.
bool IsMainThread() noexcept
{
#if defined(__linux__)
    return ::syscall(SYS_gettid) == ::getpid();
#else
    return false;
#endif
}

}  // namespace

// Runs when the thread ends, or calls exit.
class CMNThreadEnd
{
public:
    bool m_bArmed = false;

    ~CMNThreadEnd()
    {
        CMNThreadLocal& local = t_Local;
        if (local.m_pThread && local.m_pThread->IsAdopted() && local.m_dwInLoop == 0 && !IsMainThread())
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

void CMNThreadLocal::GiveBackAtEnd() noexcept
{
    if (!m_bEnded)
        t_End.m_bArmed = true;
}

}  // namespace mantle
