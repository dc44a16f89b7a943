#include "mantle/CMNClock.h"

#include <chrono>
#include <climits>

#include "CMNManualClockCore.h"
#include "CMNThreadLocal.h"
#include "mantle/CMNWaiter.h"
#include "mantle/IMNTraceManager.h"

namespace mantle
{

namespace
{

// The hand-moved clock's day: 2020-09-13 12:26:40 UTC, plus its time.
constexpr long long s_llManualDayUs = 1600000000000000LL;

}  // namespace

long long CMNClock::NowUs() noexcept
{
    return CMNManualClockCore::NowUs();
}

CMNTimeValue CMNClock::Now() noexcept
{
    return CMNTimeValue::FromUsec(NowUs());
}

CMNTimeValue CMNClock::TimeOfDay() noexcept
{
    if (IsManual())
        return CMNTimeValue::FromUsec(s_llManualDayUs + NowUs());
    return CMNTimeValue::FromUsec(
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::system_clock::now().time_since_epoch())
            .count());
}

bool CMNClock::IsManual() noexcept
{
    return CMNManualClockCore::IsManual();
}

void CMNClock::Sleep(const CMNTimeValue& step)
{
    const long long stepUs = step.GetTotalInUsec();
    const long long now = NowUs();
    const long long deadline = stepUs < LLONG_MAX - now ? now + stepUs : CMNWaiter::s_llForever;
    CMNWaiter& waiter = CMNWaiter::Current();
    while (waiter.Wait(waiter.GetSequence(), deadline)) {
    }
}

CMNClockParticipant::CMNClockParticipant()
{
    CMNThreadLocal& local = CMNThreadLocal::Get();
    if (local.m_dwParticipant++ == 0)
        CMNManualClockCore::Instance().AddParticipant();
    local.GiveBackAtEnd();
}

CMNClockParticipant::~CMNClockParticipant()
{
    CMNThreadLocal& local = CMNThreadLocal::Get();
    if (local.m_dwParticipant != 0 && --local.m_dwParticipant == 0)
        CMNManualClockCore::Instance().RemoveParticipant();
}

CMNManualClock::CMNManualClock(bool autoAdvance) : m_bInForce(CMNManualClockCore::Instance().Begin(autoAdvance))
{
    if (!m_bInForce)
        IMNTraceManager::Instance()->Trace(0, "a second hand-moved clock does nothing");
}

CMNManualClock::~CMNManualClock()
{
    if (m_bInForce)
        CMNManualClockCore::Instance().End();
}

void CMNManualClock::Advance(const CMNTimeValue& step)
{
    if (m_bInForce)
        CMNManualClockCore::Instance().Advance(step.GetTotalInUsec());
}

void CMNManualClock::SetAutoAdvance(bool on)
{
    if (m_bInForce)
        CMNManualClockCore::Instance().SetAutoAdvance(on);
}

unsigned long long CMNManualClock::GetSteps() const
{
    return m_bInForce ? CMNManualClockCore::Instance().GetSteps() : 0;
}

}  // namespace mantle
