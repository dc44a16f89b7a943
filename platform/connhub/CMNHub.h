// The loop that all transports share.
#ifndef CONNHUB_CMNHUB_H
#define CONNHUB_CMNHUB_H

#include <uv.h>

#include <list>
#include <memory>
#include <vector>

#include "CMNUDPSocket.h"
#include "mantle/CMNMutexThread.h"

namespace connhub
{

class CMNUDPChannel;

// libuv's loop and what other threads ask of it. The background thread runs it; before that thread starts and after it
// has been joined, the loop belongs to whoever made the hub.
class CMNHub : public std::enable_shared_from_this<CMNHub>
{
public:
    CMNHub() = default;
    ~CMNHub();
    CMNHub(const CMNHub&) = delete;
    CMNHub& operator=(const CMNHub&) = delete;

    // Returns: false when the system has no descriptors left.
    bool Init();

    // Runs the loop until Stop. Thread: the background thread.
    void Run();

    // Thread: any.
    void Stop() noexcept;

    // Whether the calling thread is the one that runs the loop.
    bool IsCurrent() const noexcept;

    // Ends every channel and gives the loop back. State: the background thread has been joined or never started.
    void Destroy();

    // What the loop is to do with a channel; where there is no memory to note which, it looks at every one. Thread:
    // any. AskStart returns 0; MN_ERROR_NOT_INITIALIZED when the hub has ended; MN_ERROR_UNEXPECTED when there is no
    // memory.
    mantle::MNResult AskStart(const std::shared_ptr<CMNUDPChannel>& channel);
    void AskFlush(const std::shared_ptr<CMNUDPChannel>& channel) noexcept;
    void AskClose(const std::shared_ptr<CMNUDPChannel>& channel) noexcept;

    // Has the channel flushed before the loop waits again or handles another piece. Thread: the background thread.
    void FlushSoon(const std::shared_ptr<CMNUDPChannel>& channel) noexcept
    {
        Add(m_FlushSoon, channel, m_bFlushAllSoon);
    }
    void FlushNow();

    // Has the channel tried again in a moment, when the system takes no more. Thread: the background thread.
    void RetrySoon(const std::shared_ptr<CMNUDPChannel>& channel) noexcept;

    uv_loop_t* GetLoop() noexcept { return &m_Loop; }
    CMNReceiveRoom& GetRoom() noexcept { return m_Room; }

    // What the loop waits in. Thread: any.
    int GetPoll() const noexcept { return uv_backend_fd(&m_Loop); }

    // A descriptor that nobody reads or watches.
    int GetSpare() const noexcept { return m_nSpare; }

    // The loop's thread. A channel that the loop no longer holds open.
    void Forget(const CMNUDPChannel* channel);

private:
    using CChannels = std::vector<std::shared_ptr<CMNUDPChannel>>;
    using CKept = std::list<std::shared_ptr<CMNUDPChannel>>;

    // `all` is set where there is no memory.
    static void Add(CChannels& list, const std::shared_ptr<CMNUDPChannel>& channel, bool& all) noexcept;
    template <class Operation>
    void ForAll(Operation operation);
    void OnWake();
    void OnRetry();
    void CloseAll();

    uv_loop_t m_Loop{};
    uv_async_t m_Wake{};
    uv_timer_t m_Retry{};
    bool m_bInitialised = false;
    int m_nSpare = -1;
    CMNReceiveRoom m_Room;
    CKept m_Channels;  // what the loop holds open
    CChannels m_FlushSoon;
    CChannels m_RetrySoon;
    bool m_bFlushAllSoon = false;
    bool m_bRetryAll = false;

    mantle::CMNMutexThread m_Mutex;
    CKept m_Starts MN_GUARDED_BY(m_Mutex);  // each with its place in m_Channels
    CChannels m_Flushes MN_GUARDED_BY(m_Mutex);
    CChannels m_Closes MN_GUARDED_BY(m_Mutex);
    bool m_bFlushAll MN_GUARDED_BY(m_Mutex) = false;
    bool m_bCloseAll MN_GUARDED_BY(m_Mutex) = false;
    bool m_bStop MN_GUARDED_BY(m_Mutex) = false;
    bool m_bEnded MN_GUARDED_BY(m_Mutex) = false;
};

}  // namespace connhub

#endif
