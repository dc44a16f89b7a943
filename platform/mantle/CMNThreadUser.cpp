#include "mantle/CMNThreadUser.h"

#include <climits>

#include "CMNEventQueueUser.h"
#include "CMNPendingDeleteList.h"
#include "CMNThreadLocal.h"
#include "CMNTimerQueueUser.h"
#include "mantle/CMNClock.h"
#include "mantle/CMNEventThread.h"
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
    unsigned int m_dwInLoop = 0;      // the own thread's: nested runs of callbacks
    CMNEventThread m_LoopLeft{1, 1};  // signalled while no callbacks run
};

// Marks, on the thread and for the others, that callbacks run.
class CMNThreadUser::CInLoop
{
public:
    explicit CInLoop(CImpl& impl) : m_Impl(impl)
    {
        ++CMNThreadLocal::Get().m_dwInLoop;
        if (m_Impl.m_dwInLoop++ == 0)
            m_Impl.m_LoopLeft.Reset();
    }
    ~CInLoop()
    {
        --CMNThreadLocal::Get().m_dwInLoop;
        if (--m_Impl.m_dwInLoop == 0)
            m_Impl.m_LoopLeft.Signal();
    }
    CInLoop(const CInLoop&) = delete;
    CInLoop& operator=(const CInLoop&) = delete;

private:
    CImpl& m_Impl;
};

CMNThreadUser::CMNThreadUser() : m_pImpl(std::make_unique<CImpl>(*this)) {}

CMNThreadUser::~CMNThreadUser()
{
    const bool self = CMNThreadManager::IsEqualCurrentThread(GetThreadId());
    if (IsRunning() && !self) {
        Stop();
        Join();
    }
    if (self) {
        DrainEvents();
        GetPendingDeletes().DeleteAll(&m_pImpl->m_Timers);
    } else {
        CloseQueue();
        m_pImpl->m_Timers.Close();
    }
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
        if (m_pImpl->m_dwInLoop != 0)
            return;
        if (m_pImpl->m_Timers.CheckExpire(nullptr, ULONG_MAX) == 0 && destroyed == 0)
            break;
    }
    m_pImpl->m_Timers.Close();
}

MNResult CMNThreadUser::WaitLoopLeft(const CMNTimeValue& bound)
{
    return m_pImpl->m_LoopLeft.Wait(&bound);
}

CMNThreadUser* CMNThreadUser::AdoptCurrentThread()
{
    CMNThreadManager* manager = CMNThreadManager::Instance();
    if (CMNThread* thread = CMNThreadLocal::Get().m_pThread)
        return manager->IsCleaningUp() ? nullptr : dynamic_cast<CMNThreadUser*>(thread);
    if (manager->IsCleaningUp())
        return nullptr;
    auto* thread = new CMNThreadUser;
    thread->CreateNotRun(CMNThreadLocal::IsMainThread() ? CMNThreadManager::TT_MAIN : manager->GetNewThreadType());
    return thread;
}

MNResult CMNThreadUser::RunEventLoop()
{
    if (!CMNThreadManager::IsEqualCurrentThread(GetThreadId()))
        return MN_ERROR_FAILURE;
    if (m_pImpl->m_dwInLoop != 0)
        return MN_ERROR_UNEXPECTED;
    const CInLoop inLoop(*m_pImpl);
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
    const CInLoop inLoop(*m_pImpl);
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
