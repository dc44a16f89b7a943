// The channel's sending.
#include <algorithm>
#include <memory>
#include <vector>

#include "CMNHub.h"
#include "CMNUDPChannel.h"
#include "mantle/CMNBurst.h"

namespace connhub
{

namespace
{

using mantle::CMNInetAddr;
using mantle::MNResult;

// A datagram that comes sooner than this after another is one of many.
constexpr std::uint64_t s_qwBurstNs = 5000;

// As much as one segmented send takes: no sense in waiting for more.
constexpr std::size_t s_nFullSend = 60000;

// Channels that one burst nearly always does with.
constexpr std::size_t s_nChannelRoom = 4;

// Calls in a row before other channels have their turn.
constexpr int s_nSendRounds = 8;

// The channels in which the thread has queued in a burst; null when there are none. Never one of a thread that ends.
thread_local std::vector<std::shared_ptr<CMNUDPChannel>>* t_pChannels = nullptr;

thread_local mantle::CMNBurstWork t_Work([]() noexcept {
    const std::unique_ptr<std::vector<std::shared_ptr<CMNUDPChannel>>> channels(t_pChannels);
    t_pChannels = nullptr;
    for (const auto& channel : *channels) {
        channel->FlushOfBurst();
    }
});

// State: the calling thread is inside a burst. Returns: false when there is no memory to note it.
bool SendAtBurstEnd(CMNUDPChannel& channel) noexcept
{
    try {
        if (!t_pChannels) {
            auto channels = std::make_unique<std::vector<std::shared_ptr<CMNUDPChannel>>>();
            channels->reserve(s_nChannelRoom);
            t_pChannels = channels.release();
            mantle::CMNBurst::PutOff(t_Work);
        }
        for (const auto& known : *t_pChannels) {
            if (known.get() == &channel) {
                return true;
            }
        }
        t_pChannels->push_back(channel.shared_from_this());
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

}  // namespace

bool CMNUDPChannel::IsIdle() const
{
    return !m_bSending && !m_bFull && m_Waiting.IsEmpty() && m_nCountInSending == 0;
}

std::size_t CMNUDPChannel::GetQueuedBytes() const
{
    return m_Waiting.GetBytes() + m_nInSending;
}

MNResult CMNUDPChannel::SendTo(const char* data, unsigned long length, const CMNInetAddr& to)
{
    if ((!data && length != 0) || length > IMNUDPTransport::s_dwMaxDatagram || to.GetPort() == 0) {
        return mantle::MN_ERROR_INVALID_ARG;
    }
    return Send(data, length, to, true);
}

// `mayFlush`: in a burst whose datagrams leave no room for this one they are sent first.
MNResult CMNUDPChannel::Send(const char* data, unsigned long length, const CMNInetAddr& to, bool mayFlush)
{
    const bool onLoop = m_pHub->IsCurrent();
    const bool burst = !onLoop && mantle::CMNBurst::IsOpen();
    const std::uint64_t now = onLoop || burst ? 0 : uv_hrtime();
    bool alone = false;
    bool sendQueue = false;
    bool ask = false;
    bool atEnd = false;
    bool noRoom = false;
    {
        mantle::CMNMutexGuard guard(m_Mutex);
        if (m_eState != EState::OPEN) {
            return mantle::MN_ERROR_NOT_INITIALIZED;
        }
        if (to.GetType() != m_Socket.GetFamily()) {
            return mantle::MN_ERROR_INVALID_ARG;
        }
        if (!onLoop && IsIdle() && (burst ? length > m_nLimit : now - m_qwLastSend > s_qwBurstNs)) {
            alone = m_bSending = true;
        } else {
            const std::size_t queued = GetQueuedBytes();
            noRoom = queued + length > m_nLimit;
            if (noRoom && (!burst || !mayFlush)) {
                CMNUDPCounts::Add(m_Counts.m_qwDropped);
                return mantle::MN_ERROR_FAILURE;
            }
            if (!noRoom && !m_Waiting.Add(data, length, to)) {
                CMNUDPCounts::Add(m_Counts.m_qwNoMemory);
                return mantle::MN_ERROR_UNEXPECTED;
            }
            if (!noRoom) {
                m_qwLastSend = std::max(m_qwLastSend, now);
            }
            if (!noRoom && !m_bSending && !m_bFull) {
                sendQueue = queued + length >= s_nFullSend;
                ask = !sendQueue && !burst && !m_bFlushAsked;
                atEnd = !sendQueue && burst;
                m_bSending = sendQueue;
                m_bFlushAsked = m_bFlushAsked || ask;
            }
        }
    }
    if (alone) {
        return SendAlone(data, length, to);
    }
    if (noRoom) {
        FlushOfBurst();
        return Send(data, length, to, false);
    }
    if (sendQueue) {
        ask = SendQueue();
    }
    if (ask && onLoop) {
        m_pHub->FlushSoon(shared_from_this());
    } else if (atEnd) {
        if (!SendAtBurstEnd(*this)) {
            FlushOfBurst();
        }
    } else if (ask) {
        m_pHub->AskFlush(shared_from_this());
    }
    return mantle::MN_OK;
}

// State: this thread has set m_bSending and the queue was empty.
MNResult CMNUDPChannel::SendAlone(const char* data, unsigned long length, const CMNInetAddr& to)
{
    const bool full = m_Socket.SendOne(data, length, to, m_Counts) == CMNUDPSocket::EOutcome::FULL;
    bool ask = false;
    MNResult result = mantle::MN_OK;
    {
        mantle::CMNMutexGuard guard(m_Mutex);
        EndSend();
        if (full && length > m_nLimit) {
            CMNUDPCounts::Add(m_Counts.m_qwDropped);
            result = mantle::MN_ERROR_FAILURE;
        } else if (full && !m_Sending.Add(data, length, to)) {
            CMNUDPCounts::Add(m_Counts.m_qwNoMemory);
            result = mantle::MN_ERROR_UNEXPECTED;
        } else if (full) {
            // In front of what others have queued meanwhile.
            m_nInSending = length;
            m_nCountInSending = 1;
        }
        if ((!m_Waiting.IsEmpty() || m_nCountInSending != 0) && !m_bFlushAsked) {
            ask = m_bFlushAsked = true;
        }
    }
    if (ask) {
        m_pHub->AskFlush(shared_from_this());
    }
    return result;
}

// One round: what waits now. State: this thread has set m_bSending. Returns: whether the loop is to be asked for more.
bool CMNUDPChannel::SendQueue()
{
    {
        mantle::CMNMutexGuard guard(m_Mutex);
        if (m_Sending.IsEmpty()) {
            m_Sending.Swap(m_Waiting);
        }
        m_nInSending = m_Sending.GetBytes();
        m_nCountInSending = m_Sending.GetCount();
    }
    m_Socket.Send(m_Sending, m_Counts);
    mantle::CMNMutexGuard guard(m_Mutex);
    EndSend();
    m_nInSending = m_Sending.GetBytes();
    m_nCountInSending = m_Sending.GetCount();
    const bool ask = (!m_Waiting.IsEmpty() || m_nCountInSending != 0) && !m_bFlushAsked;
    m_bFlushAsked = m_bFlushAsked || ask;
    return ask;
}

// Close waits for it. State: this thread has set m_bSending.
void CMNUDPChannel::EndSend()
{
    m_bSending = false;
    m_qwLastSend = uv_hrtime();
    if (m_eState == EState::CLOSED) {
        m_NotSending.Signal();
    }
}

void CMNUDPChannel::FlushOfBurst()
{
    {
        mantle::CMNMutexGuard guard(m_Mutex);
        // Another thread that sends asks the loop when there is more; the loop comes back when the system was full.
        if (m_eState != EState::OPEN || m_bSending || m_bFull || (m_Waiting.IsEmpty() && m_nCountInSending == 0)) {
            return;
        }
        m_bSending = true;
    }
    if (SendQueue()) {
        m_pHub->AskFlush(shared_from_this());
    }
}

void CMNUDPChannel::FlushOnLoop()
{
    if (!Enter()) {
        return;
    }
    bool again = true;
    for (int round = 0; again && round < s_nSendRounds; ++round) {
        {
            mantle::CMNMutexGuard guard(m_Mutex);
            m_bFlushAsked = false;
            // Another thread that sends asks again when there is more.
            if (m_bSending || (m_Waiting.IsEmpty() && m_nCountInSending == 0)) {
                again = false;
                break;
            }
            m_bSending = true;
        }
        again = SendQueue();
        mantle::CMNMutexGuard guard(m_Mutex);
        if (m_nCountInSending != 0) {
            // The system takes no more for now.
            m_bFlushAsked = false;
            again = false;
            if (!m_bFull) {
                m_bFull = true;
                m_pHub->RetrySoon(shared_from_this());
            }
        }
    }
    Leave();
    if (again) {
        m_pHub->AskFlush(shared_from_this());
    }
}

void CMNUDPChannel::RetryOnLoop()
{
    {
        mantle::CMNMutexGuard guard(m_Mutex);
        m_bFull = false;
    }
    FlushOnLoop();
}

// What waits is offered to the system once more; what it does not take is lost. State: closed, nobody sends.
void CMNUDPChannel::SendLast()
{
    if (m_Socket.Send(m_Sending, m_Counts) == CMNUDPSocket::EOutcome::DONE) {
        m_Socket.Send(m_Waiting, m_Counts);
    }
    CMNUDPCounts::Add(m_Counts.m_qwDropped, m_Sending.GetCount() + m_Waiting.GetCount());
    m_Sending.Clear();
    m_Waiting.Clear();
    m_nInSending = 0;
    m_nCountInSending = 0;
}

}  // namespace connhub
