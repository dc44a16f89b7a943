// The timer queue of a loop.
#ifndef MANTLE_CMNTIMERQUEUEORDEREDLIST_H
#define MANTLE_CMNTIMERQUEUEORDEREDLIST_H

#include <cstddef>
#include <map>
#include <unordered_map>
#include <utility>

#include "mantle/IMNObserver.h"
#include "mantle/IMNTimerQueue.h"

namespace mantle
{

// Ordered by deadline, equal deadlines in the order of scheduling; schedule and cancel cost O(log n).
// Thread: one thread uses a queue. Dropping it fires nothing.
class MANTLE_API CMNTimerQueueOrderedList : public IMNTimerQueue
{
public:
    // `observer` may be null; it is told when the earliest deadline changed (topic "TimerQueue").
    explicit CMNTimerQueueOrderedList(IMNObserver* observer = nullptr);
    ~CMNTimerQueueOrderedList() override;

    MNResult ScheduleTimer(IMNTimerHandler* handler, void* arg, const CMNTimeValue& interval,
                           unsigned long count) override;
    MNResult CancelTimer(IMNTimerHandler* handler) override;

    // Fires exactly what is due now and was scheduled before this check began, in order. `remaining` (may be
    // null) receives the time to the next timer, zero when one is due; it is left alone when nothing is
    // pending. Touches nothing of a handler after its OnTimeout has been entered. The queue itself may be
    // destroyed by a handler; the check then ends. Returns: the number of timers fired.
    unsigned long CheckExpire(CMNTimeValue* remaining = nullptr);

    std::size_t GetPendingTimersCount() const noexcept { return m_Handlers.size(); }

private:
    struct CNode
    {
        IMNTimerHandler* m_pHandler;
        void* m_pArg;
        CMNTimeValue m_tvInterval;
        unsigned long m_dwCount;  // expiries left, 0 without limit
    };
    using CKey = std::pair<long long, unsigned long long>;  // deadline in microseconds, order of scheduling
    using CTimers = std::map<CKey, CNode>;

    CTimers m_Timers;
    std::unordered_map<IMNTimerHandler*, CTimers::iterator> m_Handlers;
    unsigned long long m_qwOrder = 0;
    IMNObserver* m_pObserver;
    bool* m_pDestroyed = nullptr;  // set while a check runs
};

}  // namespace mantle

#endif
