#include "mantle/CMNWaiter.h"

#include <chrono>

#include "CMNManualClockCore.h"
#include "CMNThreadLocal.h"
#include "CMNWaiterPool.h"
#include "mantle/CMNBurst.h"

namespace mantle
{

namespace
{

// One sleep at most: keeps the conversion to the system's time away from its limits.
constexpr long long s_llLongestSleepUs = 3600000000LL;

}  // namespace

CMNWaiter::CMNWaiter()
{
    CMNManualClockCore::Instance().AddWaiter(this);
}

CMNWaiter::~CMNWaiter()
{
    CMNManualClockCore::Instance().RemoveWaiter(this);
}

bool CMNWaiter::Wait(std::uint32_t sequence, long long deadlineUs)
{
    CMNBurst::Finish();  // it may be what the sleeper waits for
    while (m_dwSequence.load() == sequence) {
        const EOutcome outcome = CMNManualClockCore::IsManual()
                                     ? CMNManualClockCore::Instance().Wait(*this, sequence, deadlineUs)
                                     : WaitReal(sequence, deadlineUs);
        if (outcome != EOutcome::CLOCK_CHANGED)
            return outcome == EOutcome::SIGNALLED;
    }
    return true;
}

CMNWaiter::EOutcome CMNWaiter::WaitReal(std::uint32_t sequence, long long deadlineUs)
{
    EOutcome outcome = EOutcome::SIGNALLED;
    std::unique_lock<std::mutex> lock(m_Mutex);
    m_bAsleep.store(true);
    while (m_dwSequence.load() == sequence) {
        if (CMNManualClockCore::IsManual()) {
            outcome = EOutcome::CLOCK_CHANGED;
            break;
        }
        if (deadlineUs == s_llForever) {
            m_Condition.wait(lock);
            continue;
        }
        long long left = deadlineUs - CMNManualClockCore::NowUs();
        if (left <= 0) {
            outcome = EOutcome::DEADLINE;
            break;
        }
        if (left > s_llLongestSleepUs)
            left = s_llLongestSleepUs;
        m_Condition.wait_until(lock, std::chrono::steady_clock::now() + std::chrono::microseconds(left));
    }
    m_bAsleep.store(false);
    return outcome;
}

void CMNWaiter::Signal() noexcept
{
    m_dwSequence.fetch_add(1);
    if (!m_bAsleep.load())
        return;
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
    }
    m_Condition.notify_one();
}

CMNWaiter& CMNWaiter::Current()
{
    CMNThreadLocal& local = CMNThreadLocal::Get();
    if (!local.m_pWaiter) {
        local.m_pWaiter = CMNWaiterPool::Instance().Take();
        local.GiveBackAtEnd();
    }
    return *local.m_pWaiter;
}

}  // namespace mantle
