// The working half of a UDP transport.
#ifndef CONNHUB_CMNUDPCHANNEL_H
#define CONNHUB_CMNUDPCHANNEL_H

#include <uv.h>

#include <memory>

#include "CMNDatagramBatch.h"
#include "CMNUDPSocket.h"
#include "connhub/IMNUDPTransport.h"
#include "mantle/CMNEventThread.h"
#include "mantle/CMNMutexThread.h"

namespace connhub
{

class CMNHub;
class IMNUDPTransportSink;

// Shared by the transport and the loop, so that the one may go before the other.
//
// Sending. Whoever finds the way free sends: a datagram that comes alone leaves at once, in its caller's thread; one
// that follows another closely joins the queue, which the loop sends in few calls, or the caller itself once there is a
// full segmented send in it. The datagrams of a burst (mantle/CMNBurst.h) queue, and the caller sends them at its end.
// On the background thread everything is queued and leaves when the loop has handled what one receive brought. Only one
// thread sends at a time and nobody waits for it but the last release: the others queue.
//
// Receiving. While the loop works for the channel it is busy; Detach waits for that, and frees the address at once,
// while the loop's own bookkeeping for the descriptor goes on under the same number until the loop gets to it. For that
// the loop watches a descriptor in one way from its start to its end: it could not change its watch of a number that
// stands for something else by then.
class CMNUDPChannel : public std::enable_shared_from_this<CMNUDPChannel>
{
public:
    CMNUDPChannel(std::shared_ptr<CMNHub> hub, IMNUDPTransportSink& sink);
    ~CMNUDPChannel();
    CMNUDPChannel(const CMNUDPChannel&) = delete;
    CMNUDPChannel& operator=(const CMNUDPChannel&) = delete;

    // Of the transport. Thread: any.
    mantle::MNResult Open(const mantle::CMNInetAddr& local);
    mantle::MNResult SendTo(const char* data, unsigned long length, const mantle::CMNInetAddr& to);
    mantle::MNResult GetLocalAddress(mantle::CMNInetAddr& local);
    void SetQueueLimit(unsigned long bytes);
    CMNUDPTransportCounters GetCounters();

    // Ends it: the last release. From its return on no callback runs or starts, unless it is made inside one.
    void Detach();

    // What its thread has queued in a burst. Thread: any.
    void FlushOfBurst();

    // Of the loop. Thread: the background thread.
    bool StartOnLoop();
    void FlushOnLoop();
    void RetryOnLoop();
    void CloseOnLoop();
    bool IsClosed();

    // As CloseOnLoop, of a loop that no thread runs any more.
    void End();

private:
    enum class EState
    {
        MADE,
        OPEN,
        CLOSED
    };

    void Watch();
    void OnReady(int status);
    bool Enter();
    void Leave();
    void ReceiveOnLoop();
    bool DeliverBurst(const CMNReceiveRoom& room, std::size_t& index);
    bool Deliver(const char* data, std::size_t length, const mantle::CMNInetAddr& from);
    bool IsIdle() const MN_REQUIRES(m_Mutex);
    std::size_t GetQueuedBytes() const MN_REQUIRES(m_Mutex);
    mantle::MNResult Send(const char* data, unsigned long length, const mantle::CMNInetAddr& to, bool mayFlush);
    mantle::MNResult SendAlone(const char* data, unsigned long length, const mantle::CMNInetAddr& to);
    bool SendQueue();
    void EndSend() MN_REQUIRES(m_Mutex);
    bool Close(bool forLoop);
    void SendLast() MN_REQUIRES(m_Mutex);

    const std::shared_ptr<CMNHub> m_pHub;
    IMNUDPTransportSink& m_Sink;
    CMNUDPSocket m_Socket;
    CMNUDPCounts m_Counts;

    // The loop's.
    uv_poll_t m_Poll{};
    bool m_bWatched = false;
    std::shared_ptr<CMNUDPChannel> m_pUntilClosed;  // while libuv has the handle

    mantle::CMNMutexThread m_Mutex;
    mantle::CMNEventThread m_NotBusy{1, 0};
    mantle::CMNEventThread m_NotSending{1, 0};
    EState m_eState MN_GUARDED_BY(m_Mutex) = EState::MADE;
    unsigned int m_dwBusy MN_GUARDED_BY(m_Mutex) = 0;   // the loop works for this channel, so many calls deep
    bool m_bSending MN_GUARDED_BY(m_Mutex) = false;     // a thread is in a send; m_Sending is its
    bool m_bFull MN_GUARDED_BY(m_Mutex) = false;        // the loop tries again in a moment
    bool m_bFlushAsked MN_GUARDED_BY(m_Mutex) = false;  // of the loop
    std::size_t m_nLimit MN_GUARDED_BY(m_Mutex) = IMNUDPTransport::s_dwQueueLimit;
    std::size_t m_nInSending MN_GUARDED_BY(m_Mutex) = 0;  // bytes in m_Sending when the send began
    std::size_t m_nCountInSending MN_GUARDED_BY(m_Mutex) = 0;
    std::uint64_t m_qwLastSend MN_GUARDED_BY(m_Mutex) = 0;
    CMNDatagramBatch m_Waiting MN_GUARDED_BY(m_Mutex);
    CMNDatagramBatch m_Sending;  // of the thread that set m_bSending, else guarded by the mutex
};

}  // namespace connhub

#endif
