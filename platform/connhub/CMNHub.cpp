#include "CMNHub.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>

#include "CMNUDPChannel.h"

namespace connhub
{

namespace
{

using CGuard = mantle::CMNMutexGuardT<mantle::CMNMutexThread>;

thread_local const CMNHub* t_pCurrent = nullptr;

// Between two tries of a channel for which the system takes no more: a fraction of what it holds has left by then.
constexpr std::uint64_t s_qwRetryMs = 1;

}  // namespace

CMNHub::~CMNHub()
{
    Destroy();
    if (m_nSpare >= 0) {
        ::close(m_nSpare);
    }
}

bool CMNHub::Init()
{
    m_nSpare = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (m_nSpare < 0 || uv_loop_init(&m_Loop) != 0) {
        return false;
    }
    m_bInitialised = true;
    m_Wake.data = this;
    m_Retry.data = this;
    uv_timer_init(&m_Loop, &m_Retry);
    return uv_async_init(&m_Loop, &m_Wake, [](uv_async_t* wake) { static_cast<CMNHub*>(wake->data)->OnWake(); }) == 0;
}

void CMNHub::Run()
{
    t_pCurrent = this;
    uv_run(&m_Loop, UV_RUN_DEFAULT);
    t_pCurrent = nullptr;
    CGuard guard(m_Mutex);
    m_bEnded = true;
}

void CMNHub::Stop() noexcept
{
    CGuard guard(m_Mutex);
    m_bStop = true;
    if (!m_bEnded) {
        uv_async_send(&m_Wake);
    }
}

bool CMNHub::IsCurrent() const noexcept
{
    return t_pCurrent == this;
}

bool CMNHub::Ask(CChannels CMNHub::*list, const std::shared_ptr<CMNUDPChannel>& channel)
{
    CGuard guard(m_Mutex);
    if (m_bEnded) {
        return false;
    }
    (this->*list).push_back(channel);
    uv_async_send(&m_Wake);
    return true;
}

bool CMNHub::AskStart(const std::shared_ptr<CMNUDPChannel>& channel)
{
    return Ask(&CMNHub::m_Starts, channel);
}

void CMNHub::AskFlush(const std::shared_ptr<CMNUDPChannel>& channel)
{
    Ask(&CMNHub::m_Flushes, channel);
}

void CMNHub::AskClose(const std::shared_ptr<CMNUDPChannel>& channel)
{
    Ask(&CMNHub::m_Closes, channel);
}

void CMNHub::OnWake()
{
    CChannels starts;
    CChannels flushes;
    CChannels closes;
    bool stop = false;
    {
        CGuard guard(m_Mutex);
        starts.swap(m_Starts);
        flushes.swap(m_Flushes);
        closes.swap(m_Closes);
        stop = m_bStop;
    }
    for (const auto& channel : starts) {
        channel->StartOnLoop();
    }
    for (const auto& channel : flushes) {
        channel->FlushOnLoop();
    }
    for (const auto& channel : closes) {
        channel->CloseOnLoop();
    }
    if (stop) {
        uv_stop(&m_Loop);
    }
}

void CMNHub::FlushNow()
{
    for (std::size_t index = 0; index < m_FlushSoon.size(); ++index) {
        const std::shared_ptr<CMNUDPChannel> channel = m_FlushSoon[index];
        channel->FlushOnLoop();
    }
    m_FlushSoon.clear();
}

void CMNHub::RetrySoon(const std::shared_ptr<CMNUDPChannel>& channel)
{
    m_RetrySoon.push_back(channel);
    if (uv_is_active(reinterpret_cast<uv_handle_t*>(&m_Retry)) == 0) {
        uv_timer_start(
            &m_Retry, [](uv_timer_t* timer) { static_cast<CMNHub*>(timer->data)->OnRetry(); }, s_qwRetryMs, 0);
    }
}

void CMNHub::OnRetry()
{
    CChannels channels;
    channels.swap(m_RetrySoon);
    for (const auto& channel : channels) {
        channel->RetryOnLoop();
    }
}

void CMNHub::Forget(const CMNUDPChannel* channel)
{
    m_Channels.erase(std::remove_if(m_Channels.begin(), m_Channels.end(),
                                    [channel](const auto& entry) { return entry.get() == channel; }),
                     m_Channels.end());
}

void CMNHub::CloseAll()
{
    CChannels starts;
    CChannels others;
    {
        CGuard guard(m_Mutex);
        m_bEnded = true;
        starts.swap(m_Starts);
        others.swap(m_Flushes);
        others.insert(others.end(), m_Closes.begin(), m_Closes.end());
        m_Closes.clear();
    }
    starts.insert(starts.end(), m_Channels.begin(), m_Channels.end());
    for (const auto& channel : starts) {
        channel->End();
    }
    m_FlushSoon.clear();
    m_RetrySoon.clear();
}

void CMNHub::Destroy()
{
    if (!m_bInitialised) {
        return;
    }
    m_bInitialised = false;
    CloseAll();
    uv_close(reinterpret_cast<uv_handle_t*>(&m_Retry), nullptr);
    if (m_Wake.loop) {
        uv_close(reinterpret_cast<uv_handle_t*>(&m_Wake), nullptr);
    }
    uv_run(&m_Loop, UV_RUN_DEFAULT);
    uv_loop_close(&m_Loop);
}

}  // namespace connhub
