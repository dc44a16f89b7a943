#include "CMNHub.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>

#include "CMNUDPChannel.h"

namespace connhub
{

namespace
{

using CGuard = mantle::CMNMutexGuardT<mantle::CMNMutexThread>;

thread_local const CMNHub* t_pCurrent = nullptr;

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
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        return false;
    }
    ::close(ends[1]);
    m_nSpare = ends[0];
    if (uv_loop_init(&m_Loop) != 0) {
        return false;
    }
    m_bInitialised = true;
    m_Wake.data = this;
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
}

void CMNHub::Destroy()
{
    if (!m_bInitialised) {
        return;
    }
    m_bInitialised = false;
    CloseAll();
    if (m_Wake.loop) {
        uv_close(reinterpret_cast<uv_handle_t*>(&m_Wake), nullptr);
    }
    uv_run(&m_Loop, UV_RUN_DEFAULT);
    uv_loop_close(&m_Loop);
}

}  // namespace connhub
