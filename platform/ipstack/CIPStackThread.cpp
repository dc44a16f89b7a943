#include "CIPStackThread.h"

#include <algorithm>

#include "CIPCore.h"
#include "CIPLink.h"
#include "mantle/CMNClock.h"

namespace ipstack
{

void CIPStackThread::Start()
{
    std::unique_lock<std::mutex> guard(m_Mutex);
    m_Thread = std::thread([this] { Run(); });
    // The waiter must be known before the first deadline appears.
    m_SourceIdle.wait(guard, [this] { return m_pWaiter.load() != nullptr; });
}

void CIPStackThread::Stop()
{
    m_bStop.store(true);
    Wake();
    std::thread thread;
    {
        std::lock_guard<std::mutex> guard(m_Mutex);
        thread.swap(m_Thread);
    }
    if (!thread.joinable()) {
        return;
    }
    if (thread.get_id() == std::this_thread::get_id()) {
        thread.detach();
    } else {
        thread.join();
    }
}

void CIPStackThread::Wake() noexcept
{
    if (mantle::CMNWaiter* waiter = m_pWaiter.load()) {
        waiter->Signal();
    }
}

void CIPStackThread::AddSource(CIPTimerSource* source)
{
    {
        std::lock_guard<std::mutex> guard(m_Mutex);
        m_Sources.push_back(source);
    }
    Wake();
}

void CIPStackThread::RemoveSource(CIPTimerSource* source)
{
    std::unique_lock<std::mutex> guard(m_Mutex);
    m_Sources.erase(std::remove(m_Sources.begin(), m_Sources.end(), source), m_Sources.end());
    if (m_Thread.get_id() != std::this_thread::get_id()) {
        m_SourceIdle.wait(guard, [&] { return m_pRunning != source; });
    }
}

CIPTimerSource* CIPStackThread::FindEarliest(long long& deadline)
{
    std::lock_guard<std::mutex> guard(m_Mutex);
    CIPTimerSource* earliest = nullptr;
    for (CIPTimerSource* source : m_Sources) {
        const long long due = source->NextDeadlineUs();
        if (due < deadline) {
            deadline = due;
            earliest = source;
        }
    }
    return earliest;
}

void CIPStackThread::RunSource(CIPTimerSource* source, long long now)
{
    {
        std::lock_guard<std::mutex> guard(m_Mutex);
        if (std::find(m_Sources.begin(), m_Sources.end(), source) == m_Sources.end()) {
            return;
        }
        m_pRunning = source;
    }
    source->Run(now);
    {
        std::lock_guard<std::mutex> guard(m_Mutex);
        m_pRunning = nullptr;
    }
    m_SourceIdle.notify_all();
}

void CIPStackThread::Run()
{
    mantle::CMNWaiter& waiter = mantle::CMNWaiter::Current();
    const mantle::CMNClockParticipant participant;
    {
        std::lock_guard<std::mutex> guard(m_Mutex);
        m_pWaiter.store(&waiter);
    }
    m_SourceIdle.notify_all();

    while (!m_bStop.load()) {
        const std::uint32_t sequence = waiter.GetSequence();
        const long long now = mantle::CMNClock::NowUs();
        bool drain;
        long long coreDeadline;
        CIPShortList<CIPLink> outputs;
        {
            CIPCoreGuard guard;
            m_Core.m_bOnlyTimers = true;
            drain = m_Core.m_bDrainLeft;
            m_Core.m_bDrainLeft = false;
            coreDeadline = m_Core.NextDeadline();
            m_Core.m_LeftOutputs.MoveTo(outputs);
        }
        outputs.ForEach([](CIPLink& link) { link.SendQueued(); });
        long long deadline = coreDeadline;
        CIPTimerSource* source = FindEarliest(deadline);
        if (deadline <= now) {
            if (source) {
                RunSource(source, now);
            } else {
                CIPCoreGuard guard;
                m_Core.StepTimer(now);
            }
            continue;
        }
        if (drain) {
            continue;
        }
        if (!m_bStop.load()) {
            waiter.Wait(sequence, deadline == CIPTimerSource::NoDeadline ? mantle::CMNWaiter::s_llForever : deadline);
        }
    }
    m_pWaiter.store(nullptr);
}

}  // namespace ipstack
