#include "CMNHub.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <new>
#include <utility>

#include "CMNUDPChannel.h"

namespace connhub
{

namespace
{

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
    mantle::CMNMutexGuard guard(m_Mutex);
    m_bEnded = true;
}

void CMNHub::Stop() noexcept
{
    mantle::CMNMutexGuard guard(m_Mutex);
    m_bStop = true;
    if (!m_bEnded) {
        uv_async_send(&m_Wake);
    }
}

bool CMNHub::IsCurrent() const noexcept
{
    return t_pCurrent == this;
}

void CMNHub::Add(CChannels& list, const std::shared_ptr<CMNUDPChannel>& channel, bool& all) noexcept
{
    try {
        list.push_back(channel);
    } catch (const std::bad_alloc&) {
        all = true;
    }
}

// The operation may have its channel forgotten.
template <class Operation>
void CMNHub::ForAll(Operation operation)
{
    for (auto at = m_Channels.begin(); at != m_Channels.end();) {
        const std::shared_ptr<CMNUDPChannel> channel = *at++;
        operation(*channel);
    }
}

mantle::MNResult CMNHub::AskStart(const std::shared_ptr<CMNUDPChannel>& channel)
{
    mantle::CMNMutexGuard guard(m_Mutex);
    if (m_bEnded) {
        return mantle::MN_ERROR_NOT_INITIALIZED;
    }
    try {
        m_Starts.push_back(channel);
    } catch (const std::bad_alloc&) {
        return mantle::MN_ERROR_UNEXPECTED;
    }
    uv_async_send(&m_Wake);
    return mantle::MN_OK;
}

void CMNHub::AskFlush(const std::shared_ptr<CMNUDPChannel>& channel) noexcept
{
    mantle::CMNMutexGuard guard(m_Mutex);
    if (!m_bEnded) {
        Add(m_Flushes, channel, m_bFlushAll);
        uv_async_send(&m_Wake);
    }
}

void CMNHub::AskClose(const std::shared_ptr<CMNUDPChannel>& channel) noexcept
{
    mantle::CMNMutexGuard guard(m_Mutex);
    if (!m_bEnded) {
        Add(m_Closes, channel, m_bCloseAll);
        uv_async_send(&m_Wake);
    }
}

void CMNHub::OnWake()
{
    CKept starts;
    CChannels flushes;
    CChannels closes;
    bool flushAll = false;
    bool closeAll = false;
    bool stop = false;
    {
        mantle::CMNMutexGuard guard(m_Mutex);
        starts.swap(m_Starts);
        flushes.swap(m_Flushes);
        closes.swap(m_Closes);
        std::swap(flushAll, m_bFlushAll);
        std::swap(closeAll, m_bCloseAll);
        stop = m_bStop;
    }
    while (!starts.empty()) {
        const std::shared_ptr<CMNUDPChannel> channel = starts.front();
        m_Channels.splice(m_Channels.end(), starts, starts.begin());
        if (!channel->StartOnLoop()) {
            Forget(channel.get());
        }
    }
    for (const auto& channel : flushes) {
        channel->FlushOnLoop();
    }
    if (flushAll) {
        ForAll([](CMNUDPChannel& channel) { channel.FlushOnLoop(); });
    }
    for (const auto& channel : closes) {
        channel->CloseOnLoop();
    }
    if (closeAll) {
        ForAll([](CMNUDPChannel& channel) {
            if (channel.IsClosed()) {
                channel.CloseOnLoop();
            }
        });
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
    if (std::exchange(m_bFlushAllSoon, false)) {
        ForAll([](CMNUDPChannel& channel) { channel.FlushOnLoop(); });
    }
}

void CMNHub::RetrySoon(const std::shared_ptr<CMNUDPChannel>& channel) noexcept
{
    Add(m_RetrySoon, channel, m_bRetryAll);
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
    if (std::exchange(m_bRetryAll, false)) {
        ForAll([](CMNUDPChannel& channel) { channel.RetryOnLoop(); });
    }
}

void CMNHub::Forget(const CMNUDPChannel* channel)
{
    m_Channels.remove_if([channel](const auto& entry) { return entry.get() == channel; });
}

void CMNHub::CloseAll()
{
    CKept starts;
    CChannels others[2];  // which must not die under the mutex
    {
        mantle::CMNMutexGuard guard(m_Mutex);
        m_bEnded = true;
        starts.swap(m_Starts);
        others[0].swap(m_Flushes);
        others[1].swap(m_Closes);
    }
    m_Channels.splice(m_Channels.end(), starts);
    ForAll([](CMNUDPChannel& channel) { channel.End(); });
    m_Channels.clear();
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
