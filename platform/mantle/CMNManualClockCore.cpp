#include "CMNManualClockCore.h"

#include <algorithm>
#include <chrono>
#include <climits>

#include "CMNThreadLocal.h"

namespace mantle
{

namespace
{

constexpr long long s_llUnset = LLONG_MIN;       // nobody has asked for the time yet
constexpr long long s_llManual = LLONG_MIN + 1;  // the hand-moved clock is in force
constexpr long long s_llFirstUs = 1000000;       // the time of the first look
constexpr long long s_llStartUs = 10000000;      // the hand-moved clock starts at a multiple of this

long long SteadyUs() noexcept
{
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

}  // namespace

std::atomic<long long> CMNManualClockCore::s_llOffset{s_llUnset};
std::atomic<long long> CMNManualClockCore::s_llNow{0};
std::atomic<bool> CMNManualClockCore::s_bManual{false};

CMNManualClockCore& CMNManualClockCore::Instance() noexcept
{
    static CMNManualClockCore* const s_pInstance = new CMNManualClockCore;
    return *s_pInstance;
}

long long CMNManualClockCore::NowUs() noexcept
{
    long long offset = s_llOffset.load(std::memory_order_relaxed);
    while (true) {
        if (offset > s_llManual)
            return SteadyUs() + offset;
        offset = s_llOffset.load(std::memory_order_acquire);
        if (offset == s_llManual)
            return s_llNow.load(std::memory_order_acquire);
        if (offset == s_llUnset) {
            long long unset = s_llUnset;
            s_llOffset.compare_exchange_strong(unset, s_llFirstUs - SteadyUs());
            offset = s_llOffset.load(std::memory_order_acquire);
        }
    }
}

bool CMNManualClockCore::Begin(bool autoAdvance)
{
    CMNMutexGuard guard(m_Mutex);
    if (s_bManual.load())
        return false;
    s_llNow.store((NowUs() / s_llStartUs + 1) * s_llStartUs);
    s_llOffset.store(s_llManual);
    s_bManual.store(true);
    m_bAutoAdvance = autoAdvance;
    m_qwSteps = 0;
    WakeAll();
    return true;
}

void CMNManualClockCore::End()
{
    CMNMutexGuard guard(m_Mutex);
    if (!s_bManual.load())
        return;
    s_llOffset.store(s_llNow.load() - SteadyUs());
    s_bManual.store(false);
    WakeAll();
}

void CMNManualClockCore::Advance(long long stepUs)
{
    CMNMutexGuard guard(m_Mutex);
    if (!s_bManual.load() || stepUs < 0)
        return;
    const long long now = s_llNow.load();
    s_llNow.store(stepUs < LLONG_MAX - now ? now + stepUs : LLONG_MAX - 1);
    WakeDue();
}

void CMNManualClockCore::SetAutoAdvance(bool on)
{
    CMNMutexGuard guard(m_Mutex);
    m_bAutoAdvance = on;
    if (on)
        MoveOn();
    else
        WakeDue();
}

unsigned long long CMNManualClockCore::GetSteps()
{
    CMNMutexGuard guard(m_Mutex);
    return m_qwSteps;
}

void CMNManualClockCore::AddParticipant()
{
    CMNMutexGuard guard(m_Mutex);
    ++m_dwParticipants;
}

void CMNManualClockCore::RemoveParticipant()
{
    CMNMutexGuard guard(m_Mutex);
    --m_dwParticipants;
    MoveOn();
}

void CMNManualClockCore::AddWaiter(CMNWaiter* waiter)
{
    CMNMutexGuard guard(m_Mutex);
    waiter->m_qwOrder = ++m_qwOrder;
    m_All.push_back(waiter);
}

void CMNManualClockCore::RenewWaiter(CMNWaiter* waiter)
{
    CMNMutexGuard guard(m_Mutex);
    waiter->m_qwOrder = ++m_qwOrder;
}

void CMNManualClockCore::RemoveWaiter(CMNWaiter* waiter)
{
    CMNMutexGuard guard(m_Mutex);
    m_All.erase(std::find(m_All.begin(), m_All.end(), waiter));
}

CMNWaiter::EOutcome CMNManualClockCore::Wait(CMNWaiter& waiter, std::uint32_t sequence, long long deadlineUs)
{
    const bool participant = CMNThreadLocal::Get().m_dwParticipant != 0;
    {
        CMNMutexGuard guard(m_Mutex);
        if (!s_bManual.load())
            return CMNWaiter::EOutcome::CLOCK_CHANGED;
        if (deadlineUs != CMNWaiter::s_llForever && deadlineUs <= s_llNow.load())
            return CMNWaiter::EOutcome::DEADLINE;
        waiter.m_bAsleep.store(true);
        waiter.m_dwExpected = sequence;
        waiter.m_llDeadline = deadlineUs;
        waiter.m_bDue.store(false);
        m_Waiting.push_back(&waiter);
        if (participant)
            ++m_dwParticipantsWaiting;
        MoveOn();
    }
    {
        std::unique_lock<std::mutex> lock(waiter.m_Mutex);
        while (waiter.m_dwSequence.load() == sequence && !waiter.m_bDue.load() && s_bManual.load())
            waiter.m_Condition.wait(lock);
    }
    waiter.m_bAsleep.store(false);
    CMNMutexGuard guard(m_Mutex);
    m_Waiting.erase(std::find(m_Waiting.begin(), m_Waiting.end(), &waiter));
    if (participant)
        --m_dwParticipantsWaiting;
    else
        MoveOn();
    if (waiter.m_dwSequence.load() != sequence)
        return CMNWaiter::EOutcome::SIGNALLED;
    return waiter.m_bDue.load() ? CMNWaiter::EOutcome::DEADLINE : CMNWaiter::EOutcome::CLOCK_CHANGED;
}

// Moves to the earliest deadline when everybody who counts waits and nobody is about to wake up.
void CMNManualClockCore::MoveOn()
{
    if (!s_bManual.load() || !m_bAutoAdvance || m_dwParticipantsWaiting < m_dwParticipants)
        return;
    CMNWaiter* first = nullptr;
    for (CMNWaiter* waiter : m_Waiting) {
        if (waiter->m_bDue.load() || waiter->m_dwSequence.load() != waiter->m_dwExpected)
            return;
        if (waiter->m_llDeadline == CMNWaiter::s_llForever)
            continue;
        if (!first || waiter->m_llDeadline < first->m_llDeadline ||
            (waiter->m_llDeadline == first->m_llDeadline && waiter->m_qwOrder < first->m_qwOrder))
            first = waiter;
    }
    if (!first)
        return;
    ++m_qwSteps;
    s_llNow.store(std::max(s_llNow.load(), first->m_llDeadline));
    Wake(*first, true);
}

void CMNManualClockCore::WakeDue()
{
    const long long now = s_llNow.load();
    for (CMNWaiter* waiter : m_Waiting) {
        if (waiter->m_llDeadline != CMNWaiter::s_llForever && waiter->m_llDeadline <= now)
            Wake(*waiter, true);
    }
}

void CMNManualClockCore::WakeAll()
{
    for (CMNWaiter* waiter : m_All)
        Wake(*waiter, false);
}

// The waiter's mutex lies between its last look and its sleep.
void CMNManualClockCore::Wake(CMNWaiter& waiter, bool due)
{
    std::lock_guard<std::mutex> lock(waiter.m_Mutex);
    if (due)
        waiter.m_bDue.store(true);
    waiter.m_Condition.notify_all();
}

}  // namespace mantle
