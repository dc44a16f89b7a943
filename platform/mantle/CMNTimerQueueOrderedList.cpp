#include "mantle/CMNTimerQueueOrderedList.h"

#include <climits>
#include <new>

#include "mantle/CMNClock.h"

namespace mantle
{

namespace
{

constexpr long long s_llNever = LLONG_MAX;

long long After(long long nowUs, const CMNTimeValue& interval) noexcept
{
    const long long step = interval.GetTotalInUsec();
    return step < s_llNever - nowUs ? nowUs + step : s_llNever;
}

}  // namespace

CMNTimerQueueOrderedList::CMNTimerQueueOrderedList(IMNObserver* observer) : m_pObserver(observer) {}

CMNTimerQueueOrderedList::~CMNTimerQueueOrderedList()
{
    if (m_pDestroyed)
        *m_pDestroyed = true;
}

MNResult CMNTimerQueueOrderedList::ScheduleTimer(IMNTimerHandler* handler, void* arg, const CMNTimeValue& interval,
                                                 unsigned long count)
{
    if (!handler || interval < CMNTimeValue::s_tvZero)
        return MN_ERROR_INVALID_ARG;
    const long long earliest = Earliest();
    const CKey key(After(CMNClock::NowUs(), interval), m_qwOrder);
    const CNode node{handler, arg, interval, count};
    const auto found = m_Handlers.find(handler);
    if (found != m_Handlers.end()) {
        found->second = Move(found->second, key, node);
    } else if (!Add(key, node)) {
        return MN_ERROR_UNEXPECTED;
    }
    ++m_qwOrder;
    TellObserver(earliest);
    return MN_OK;
}

bool CMNTimerQueueOrderedList::Add(const CKey& key, const CNode& node)
{
    CTimers::iterator timer = m_Timers.end();
    try {
        timer = m_Timers.emplace(key, node).first;
        m_Handlers.emplace(node.m_pHandler, timer);
        return true;
    } catch (const std::bad_alloc&) {
        if (timer != m_Timers.end())
            m_Timers.erase(timer);
        return false;
    }
}

CMNTimerQueueOrderedList::CTimers::iterator CMNTimerQueueOrderedList::Move(CTimers::iterator timer, const CKey& key,
                                                                           const CNode& node)
{
    auto place = m_Timers.extract(timer);
    place.key() = key;
    place.mapped() = node;
    return m_Timers.insert(std::move(place)).position;
}

MNResult CMNTimerQueueOrderedList::CancelTimer(IMNTimerHandler* handler)
{
    if (!handler)
        return MN_ERROR_INVALID_ARG;
    const auto found = m_Handlers.find(handler);
    if (found == m_Handlers.end())
        return MN_OK;
    const long long earliest = Earliest();
    m_Timers.erase(found->second);
    m_Handlers.erase(found);
    TellObserver(earliest);
    return MN_OK;
}

// What is scheduled during the check has a deadline of now or later and a higher order than everything before:
// once such a timer is first, nothing older is due.
unsigned long CMNTimerQueueOrderedList::CheckExpire(CMNTimeValue* remaining, unsigned long maximum)
{
    const long long now = CMNClock::NowUs();
    const CMNTimeValue tvNow = CMNTimeValue::FromUsec(now);
    const unsigned long long end = m_qwOrder;
    bool* const outer = m_pDestroyed;
    bool destroyed = false;
    unsigned long fired = 0;
    m_pDestroyed = &destroyed;
    while (fired < maximum && !m_Timers.empty()) {
        const auto first = m_Timers.begin();
        if (first->first.first > now || first->first.second >= end)
            break;
        CNode node = first->second;
        const long long deadline = first->first.first;
        if (node.m_dwCount == 1) {
            m_Timers.erase(first);
            m_Handlers.erase(node.m_pHandler);
        } else {
            if (node.m_dwCount != 0)
                --node.m_dwCount;
            long long next = After(deadline, node.m_tvInterval);
            if (next < now)
                next = After(now, node.m_tvInterval);
            m_Handlers.find(node.m_pHandler)->second = Move(first, CKey(next, m_qwOrder++), node);
        }
        ++fired;
        node.m_pHandler->OnTimeout(tvNow, node.m_pArg);
        if (destroyed) {
            if (outer)
                *outer = true;
            return fired;
        }
    }
    m_pDestroyed = outer;
    if (remaining && !m_Timers.empty()) {
        const long long earliest = Earliest();
        const long long left = earliest - CMNClock::NowUs();
        *remaining = earliest == s_llNever ? CMNTimeValue::s_tvMax : CMNTimeValue::FromUsec(left > 0 ? left : 0);
    }
    return fired;
}

void CMNTimerQueueOrderedList::Clear() noexcept
{
    m_Timers.clear();
    m_Handlers.clear();
}

long long CMNTimerQueueOrderedList::Earliest() const noexcept
{
    return m_Timers.empty() ? s_llNever : m_Timers.begin()->first.first;
}

void CMNTimerQueueOrderedList::TellObserver(long long earliestBefore)
{
    if (m_pObserver && Earliest() != earliestBefore)
        m_pObserver->OnObserve("TimerQueue", this);
}

}  // namespace mantle
