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
    // `observer` may be null; it is told, last of all, when a schedule or a cancel changed the earliest deadline
    // (topic "TimerQueue", data the queue).
    explicit CMNTimerQueueOrderedList(IMNObserver* observer = nullptr);
    ~CMNTimerQueueOrderedList() override;

    MNResult ScheduleTimer(IMNTimerHandler* handler, void* arg, const CMNTimeValue& interval,
                           unsigned long count) override;
    MNResult CancelTimer(IMNTimerHandler* handler) override;

    // Fires exactly what is due now and was scheduled before this check began, in order, `maximum` at most.
    // `remaining` (may be null) receives the time to the next timer, zero when one is due, s_tvMax when none ever
    // is; it is left alone when nothing is pending. Touches nothing of a handler after its OnTimeout has been
    // entered. A timer with several expiries that was missed by more than its interval fires once and goes on
    // from now. The queue itself may be destroyed by a handler; the check then ends. Returns: the number of
    // timers fired.
    unsigned long CheckExpire(CMNTimeValue* remaining = nullptr, unsigned long maximum = ~0ul);

    std::size_t GetPendingTimersCount() const noexcept { return m_Handlers.size(); }

    // Forgets every timer; fires nothing.
    void Clear() noexcept;

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

    // Add makes a timer; false when there is no memory. Move gives one a new deadline and asks for none.
    bool Add(const CKey& key, const CNode& node);
    CTimers::iterator Move(CTimers::iterator timer, const CKey& key, const CNode& node);
    long long Earliest() const noexcept;
    void TellObserver(long long earliestBefore);

    CTimers m_Timers;
    std::unordered_map<IMNTimerHandler*, CTimers::iterator> m_Handlers;
    unsigned long long m_qwOrder = 0;
    IMNObserver* m_pObserver;
    bool* m_pDestroyed = nullptr;  // set while a check runs
};

}  // namespace mantle

#endif
