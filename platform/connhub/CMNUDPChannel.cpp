#include "CMNUDPChannel.h"

#include <algorithm>
#include <new>
#include <optional>
#include <utility>

#include "CMNHub.h"
#include "connhub/IMNUDPTransportSink.h"
#include "mantle/CMNBurst.h"
#include "mantle/CMNMessageBlock.h"

namespace connhub
{

namespace
{

using mantle::CMNInetAddr;
using mantle::MNResult;

// Calls in a row before other channels have their turn.
constexpr int s_nReceiveRounds = 8;

// Datagrams after which a burst ends, or a piece later.
constexpr std::size_t s_nBurst = 32;

}  // namespace

CMNUDPChannel::CMNUDPChannel(std::shared_ptr<CMNHub> hub, IMNUDPTransportSink& sink)
    : m_pHub(std::move(hub)), m_Sink(sink)
{
}

CMNUDPChannel::~CMNUDPChannel() = default;

MNResult CMNUDPChannel::Open(const CMNInetAddr& local)
{
    mantle::CMNMutexGuard guard(m_Mutex);
    if (m_eState != EState::MADE) {
        return m_eState == EState::OPEN ? mantle::MN_ERROR_ALREADY_INITIALIZED : mantle::MN_ERROR_NOT_INITIALIZED;
    }
    const MNResult result = m_Socket.Open(local);
    if (result != mantle::MN_OK) {
        return result;
    }
    const MNResult asked = m_pHub->AskStart(shared_from_this());
    if (asked != mantle::MN_OK) {
        m_Socket.Close();
        return asked;
    }
    m_eState = EState::OPEN;
    return mantle::MN_OK;
}

MNResult CMNUDPChannel::GetLocalAddress(CMNInetAddr& local)
{
    mantle::CMNMutexGuard guard(m_Mutex);
    return m_eState == EState::OPEN && m_Socket.GetLocalAddress(local) ? mantle::MN_OK
                                                                       : mantle::MN_ERROR_NOT_INITIALIZED;
}

void CMNUDPChannel::SetQueueLimit(unsigned long bytes)
{
    mantle::CMNMutexGuard guard(m_Mutex);
    m_nLimit = bytes;
}

CMNUDPTransportCounters CMNUDPChannel::GetCounters()
{
    const auto get = [](const CMNUDPCounts::CCount& count) { return count.load(std::memory_order_relaxed); };
    CMNUDPTransportCounters counters;
    counters.m_qwReceived = get(m_Counts.m_qwReceived);
    counters.m_qwReceivedBytes = get(m_Counts.m_qwReceivedBytes);
    counters.m_qwReceiveCalls = get(m_Counts.m_qwReceiveCalls);
    counters.m_qwMergedReceives = get(m_Counts.m_qwMergedReceives);
    counters.m_qwSent = get(m_Counts.m_qwSent);
    counters.m_qwSentBytes = get(m_Counts.m_qwSentBytes);
    counters.m_qwSendCalls = get(m_Counts.m_qwSendCalls);
    counters.m_qwSegmentedSends = get(m_Counts.m_qwSegmentedSends);
    counters.m_qwSegmentedRefused = get(m_Counts.m_qwSegmentedRefused);
    counters.m_qwDropped = get(m_Counts.m_qwDropped);
    counters.m_qwFailed = get(m_Counts.m_qwFailed);
    counters.m_qwNoMemory = get(m_Counts.m_qwNoMemory);
    mantle::CMNMutexGuard guard(m_Mutex);
    counters.m_qwQueued = m_Waiting.GetCount() + m_nCountInSending;
    return counters;
}

// The loop's turn for this channel; calls nest. Returns: false when it has been closed.
bool CMNUDPChannel::Enter()
{
    mantle::CMNMutexGuard guard(m_Mutex);
    if (m_eState != EState::OPEN) {
        return false;
    }
    ++m_dwBusy;
    return true;
}

void CMNUDPChannel::Leave()
{
    mantle::CMNMutexGuard guard(m_Mutex);
    if (--m_dwBusy == 0 && m_eState == EState::CLOSED) {
        m_NotBusy.Signal();
    }
}

// Returns: whether the loop watches it.
bool CMNUDPChannel::StartOnLoop()
{
    if (!Enter()) {
        return false;
    }
    if (uv_poll_init(m_pHub->GetLoop(), &m_Poll, m_Socket.GetHandle()) == 0) {
        m_Poll.data = this;
        m_bWatched = true;
        m_pUntilClosed = shared_from_this();
        Watch();
    }
    Leave();
    return m_bWatched;
}

bool CMNUDPChannel::IsClosed()
{
    mantle::CMNMutexGuard guard(m_Mutex);
    return m_eState == EState::CLOSED;
}

void CMNUDPChannel::Watch()
{
    uv_poll_start(&m_Poll, UV_READABLE,
                  [](uv_poll_t* poll, int status, int) { static_cast<CMNUDPChannel*>(poll->data)->OnReady(status); });
}

void CMNUDPChannel::OnReady(int status)
{
    const std::shared_ptr<CMNUDPChannel> self = shared_from_this();
    if (Enter()) {
        ReceiveOnLoop();
        // An error of the socket, which the receiving has taken away, has ended the watch.
        if (status < 0 && m_bWatched) {
            Watch();
        }
        Leave();
    }
    m_pHub->FlushNow();
}

// A sink may release the transport: the channel is then closed, and what is left is not delivered.
void CMNUDPChannel::ReceiveOnLoop()
{
    CMNReceiveRoom& room = m_pHub->GetRoom();
    for (int round = 0; round < s_nReceiveRounds && m_Socket.Receive(room, m_Counts); ++round) {
        for (std::size_t index = 0; index < room.GetCount();) {
            if (!DeliverBurst(room, index)) {
                return;
            }
            m_pHub->FlushNow();
        }
        if (!room.IsFull()) {
            break;
        }
    }
}

// Hands over what begins at the piece `index`, and moves that on. Returns: false when the channel has been closed.
bool CMNUDPChannel::DeliverBurst(const CMNReceiveRoom& room, std::size_t& index)
{
    mantle::CMNBurst burst;
    for (std::size_t count = 0; count < s_nBurst && index < room.GetCount(); ++index) {
        const CMNReceiveRoom::CPiece piece = room.GetPiece(index);
        if (!piece.m_bWhole) {
            CMNUDPCounts::Add(m_Counts.m_qwFailed);
            continue;
        }
        if (piece.m_nBytes > piece.m_nEach) {
            CMNUDPCounts::Add(m_Counts.m_qwMergedReceives);
        }
        std::size_t at = 0;
        do {
            const std::size_t length = std::min(piece.m_nEach, piece.m_nBytes - at);
            if (!Deliver(piece.m_pData + at, length, piece.m_From)) {
                return false;
            }
            at += length;
            ++count;
        } while (at < piece.m_nBytes);
    }
    return true;
}

// Returns: false when the channel has been closed.
bool CMNUDPChannel::Deliver(const char* data, std::size_t length, const CMNInetAddr& from)
{
    CMNUDPCounts::Add(m_Counts.m_qwReceived);
    CMNUDPCounts::Add(m_Counts.m_qwReceivedBytes, length);
    std::optional<mantle::CMNMessageBlock> block;
    try {
        block.emplace(length, data, mantle::CMNMessageBlock::DONT_DELETE, length);
    } catch (const std::bad_alloc&) {
        CMNUDPCounts::Add(m_Counts.m_qwNoMemory);
    }
    if (block) {
        m_Sink.OnReceive(*block, from);
    }
    mantle::CMNMutexGuard guard(m_Mutex);
    return m_eState == EState::OPEN;
}

// Ends it for callbacks and sends, and waits for those under way: the loop's as well when `forLoop`. Returns: whether it
// was open.
bool CMNUDPChannel::Close(bool forLoop)
{
    bool open = false;
    bool busy = false;
    bool sending = false;
    {
        mantle::CMNMutexGuard guard(m_Mutex);
        open = m_eState == EState::OPEN;
        busy = m_dwBusy != 0 && forLoop;
        sending = m_bSending;
        m_eState = EState::CLOSED;
    }
    if (busy) {
        m_NotBusy.Wait();
    }
    if (sending) {
        m_NotSending.Wait();
    }
    return open;
}

void CMNUDPChannel::Detach()
{
    const bool onLoop = m_pHub->IsCurrent();
    if (!Close(!onLoop)) {
        return;
    }
    {
        mantle::CMNMutexGuard guard(m_Mutex);
        if (m_Socket.IsOpen()) {
            SendLast();
            if (!onLoop) {
                m_Socket.FreeAddress(m_pHub->GetSpare(), m_pHub->GetPoll());
            }
        }
    }
    if (onLoop) {
        CloseOnLoop();
    } else {
        m_pHub->AskClose(shared_from_this());
    }
}

void CMNUDPChannel::CloseOnLoop()
{
    if (m_bWatched) {
        m_bWatched = false;
        m_pHub->Forget(this);
        uv_close(reinterpret_cast<uv_handle_t*>(&m_Poll),
                 [](uv_handle_t* handle) { static_cast<CMNUDPChannel*>(handle->data)->m_pUntilClosed.reset(); });
    }
    mantle::CMNMutexGuard guard(m_Mutex);
    m_Socket.Close();
}

void CMNUDPChannel::End()
{
    if (Close(false)) {
        mantle::CMNMutexGuard guard(m_Mutex);
        if (m_Socket.IsOpen()) {
            SendLast();
        }
    }
    CloseOnLoop();
}

}  // namespace connhub
