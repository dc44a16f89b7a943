#include "CMNTimerQueueUser.h"

#include "mantle/CMNEnsureSingleThread.h"
#include "mantle/CMNThread.h"

namespace mantle
{

MNResult CMNTimerQueueUser::ScheduleTimer(IMNTimerHandler* handler, void* arg, const CMNTimeValue& interval,
                                          unsigned long count)
{
    if (!handler || interval < CMNTimeValue::s_tvZero)
        return MN_ERROR_INVALID_ARG;
    const MNResult result = Check("CMNThreadUser::ScheduleTimer");
    return result != MN_OK ? result : m_Timers.ScheduleTimer(handler, arg, interval, count);
}

MNResult CMNTimerQueueUser::CancelTimer(IMNTimerHandler* handler)
{
    if (!handler)
        return MN_ERROR_INVALID_ARG;
    const MNResult result = Check("CMNThreadUser::CancelTimer");
    return result != MN_OK ? result : m_Timers.CancelTimer(handler);
}

MNResult CMNTimerQueueUser::Check(const char* place)
{
    if (m_bClosed.load())
        return MN_ERROR_NOT_INITIALIZED;
    CMNEnsureSingleThread bound;
    bound.SetToThread(m_Thread.GetThreadId());
    return bound.EnsureSingleThread(place) ? MN_OK : MN_ERROR_UNEXPECTED;
}

void CMNTimerQueueUser::Close() noexcept
{
    m_bClosed.store(true);
    m_Timers.Clear();
}

}  // namespace mantle
