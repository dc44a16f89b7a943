#include "mantle/CMNThreadUser.h"

#include <climits>

#include "CMNEventQueueUser.h"
#include "CMNPendingDeleteList.h"
#include "CMNThreadLocal.h"
#include "CMNTimerQueueUser.h"
#include "mantle/CMNClock.h"
#include "mantle/CMNWaiter.h"

namespace mantle
{

namespace
{

// Checks for due timers while a queue is closed: one that schedules itself with no delay must not hold up the end.
constexpr int s_nDrainRounds = 1000;

// When to wake up for a timer that has `remaining` to go.
long long Deadline(const CMNTimeValue& remaining)
{
    const long long left = remaining.GetTotalInUsec();
    const long long now = CMNClock::NowUs();
    return left < LLONG_MAX - now ? now + left : CMNWaiter::s_llForever;
}

}  // namespace

class CMNThreadUser::CImpl
{
public:
    explicit CImpl(CMNThread& thread) : m_Events(thread), m_Timers(thread) {}

    CMNEventQueueUser m_Events;
    CMNTimerQueueUser m_Timers;
    std::atomic<bool> m_bStop{false};
    std::atomic<bool> m_bInLoop{false};
};

namespace
{

// Marks, on the thread and for the others, that callbacks run.
class CInLoop
{
public:
    explicit CInLoop(std::atomic<bool>& inLoop) : m_bInLoop(inLoop), m_bBefore(inLoop.exchange(true))
    {
        ++CMNThreadLocal::Get().m_dwInLoop;
    }
    ~CInLoop()
    {
        --CMNThreadLocal::Get().m_dwInLoop;
        m_bInLoop.store(m_bBefore);
    }
    CInLoop(const CInLoop&) = delete;
    CInLoop& operator=(const CInLoop&) = delete;

private:
    std::atomic<bool>& m_bInLoop;
    const bool m_bBefore;
};

}  // namespace

CMNThreadUser::CMNThreadUser() : m_pImpl(std::make_unique<CImpl>(*this)) {}

CMNThreadUser::~CMNThreadUser()
{
    const bool self = CMNThreadManager::IsEqualCurrentThread(GetThreadId());
    if (IsRunning() && !self) {
        Stop();
        Join();
    }
    DrainEvents();
    if (self)
        GetPendingDeletes().DeleteAll(&m_pImpl->m_Timers);
}

MNResult CMNThreadUser::Stop(CMNTimeValue* timeout)
{
    m_pImpl->m_bStop.store(true);
    m_pImpl->m_Events.Wake();
    return timeout ? JoinFor(*timeout) : MN_OK;
}

void CMNThreadUser::OnThreadRun()
{
    RunEventLoop();
    DrainEvents();
}

IMNEventQueue* CMNThreadUser::GetEventQueue()
{
    return &m_pImpl->m_Events;
}

IMNTimerQueue* CMNThreadUser::GetTimerQueue()
{
    return &m_pImpl->m_Timers;
}

void CMNThreadUser::RefuseEvents()
{
    m_pImpl->m_Events.Close();
}

// From inside a callback only events are destroyed: what a timer would delete may be in use below.
void CMNThreadUser::DrainEvents()
{
    m_pImpl->m_Events.Close();
    for (int round = 0; round < s_nDrainRounds; ++round) {
        const unsigned long destroyed = m_pImpl->m_Events.DestroyPending();
        if (IsInLoop())
            return;
        if (m_pImpl->m_Timers.CheckExpire(nullptr, ULONG_MAX) == 0 && destroyed == 0)
            break;
    }
    m_pImpl->m_Timers.Close();
}

bool CMNThreadUser::IsInLoop()
{
    return m_pImpl->m_bInLoop.load();
}

CMNThreadUser* CMNThreadUser::AdoptCurrentThread()
{
    CMNThreadManager* manager = CMNThreadManager::Instance();
    if (CMNThread* thread = CMNThreadLocal::Get().m_pThread)
        return manager->IsCleaningUp() ? nullptr : dynamic_cast<CMNThreadUser*>(thread);
    if (manager->IsCleaningUp())
        return nullptr;
    auto* thread = new CMNThreadUser;
    const bool first = !manager->GetThread(CMNThreadManager::TT_MAIN);
    thread->CreateNotRun(first ? CMNThreadManager::TT_MAIN : manager->GetNewThreadType());
    return thread;
}

MNResult CMNThreadUser::RunEventLoop()
{
    if (!CMNThreadManager::IsEqualCurrentThread(GetThreadId()))
        return MN_ERROR_FAILURE;
    if (IsInLoop())
        return MN_ERROR_UNEXPECTED;
    const CInLoop inLoop(m_pImpl->m_bInLoop);
    std::atomic<bool>& stop = m_pImpl->m_bStop;
    CMNEventQueueUser& events = m_pImpl->m_Events;
    CMNWaiter& waiter = CMNWaiter::Current();
    events.SetWaiter(&waiter);
    while (!stop.load()) {
        const std::uint32_t sequence = waiter.GetSequence();
        CMNTimeValue remaining = CMNTimeValue::s_tvMax;
        m_pImpl->m_Timers.CheckExpire(&remaining, ULONG_MAX);
        unsigned long done = events.Run(ULONG_MAX, stop);
        if (events.IsClosed())
            done += events.DestroyPending();
        if (done == 0 && !stop.load())
            waiter.Wait(sequence, Deadline(remaining));
    }
    stop.store(false);
    return MN_OK;
}

unsigned long CMNThreadUser::RunPending(unsigned long maximum)
{
    if (!CMNThreadManager::IsEqualCurrentThread(GetThreadId()))
        return 0;
    const CInLoop inLoop(m_pImpl->m_bInLoop);
    const std::atomic<bool> stop{false};
    const unsigned long ran = m_pImpl->m_Events.Run(maximum, stop);
    return ran + m_pImpl->m_Timers.CheckExpire(nullptr, maximum - ran);
}

void CMNThreadUser::CloseQueue()
{
    m_pImpl->m_Events.Close();
    m_pImpl->m_Events.DestroyPending();
}

}  // namespace mantle
