// The system's UDP socket, many datagrams a call.
#ifndef CONNHUB_CMNUDPSOCKET_H
#define CONNHUB_CMNUDPSOCKET_H

#include <atomic>
#include <cstdint>
#include <memory>

#include "CMNDatagramBatch.h"
#include "connhub/IMNUDPTransport.h"

namespace connhub
{

// The counters of a transport as they are kept.
struct CMNUDPCounts
{
    using CCount = std::atomic<std::uint64_t>;

    CCount m_qwReceived{0};
    CCount m_qwReceivedBytes{0};
    CCount m_qwReceiveCalls{0};
    CCount m_qwMergedReceives{0};
    CCount m_qwSent{0};
    CCount m_qwSentBytes{0};
    CCount m_qwSendCalls{0};
    CCount m_qwSegmentedSends{0};
    CCount m_qwSegmentedRefused{0};
    CCount m_qwDropped{0};
    CCount m_qwFailed{0};
    CCount m_qwNoMemory{0};

    static void Add(CCount& count, std::uint64_t step = 1) noexcept
    {
        count.fetch_add(step, std::memory_order_relaxed);
    }
};

// Room for what one call receives. Belongs to the thread that receives; one is enough for all sockets.
class CMNReceiveRoom
{
public:
    CMNReceiveRoom();
    ~CMNReceiveRoom();
    CMNReceiveRoom(const CMNReceiveRoom&) = delete;
    CMNReceiveRoom& operator=(const CMNReceiveRoom&) = delete;

    // One piece: datagrams of m_nEach bytes from one address, the last one may be shorter.
    struct CPiece
    {
        const char* m_pData;
        std::size_t m_nBytes;
        std::size_t m_nEach;  // not 0 unless the piece is empty
        mantle::CMNInetAddr m_From;
        bool m_bWhole;  // false: it did not fit, its end is missing
    };

    std::size_t GetCount() const noexcept { return m_nCount; }
    bool IsFull() const noexcept;
    CPiece GetPiece(std::size_t index) const;

private:
    friend class CMNUDPSocket;
    struct CSystem;

    std::unique_ptr<CSystem> m_pSystem;
    std::size_t m_nCount = 0;
};

// Sending and receiving never wait. Thread: one sends at a time, one receives at a time.
class CMNUDPSocket
{
public:
    enum class EOutcome
    {
        DONE,
        FULL  // the system takes no more for now
    };

    CMNUDPSocket() = default;
    ~CMNUDPSocket() { Close(); }
    CMNUDPSocket(const CMNUDPSocket&) = delete;
    CMNUDPSocket& operator=(const CMNUDPSocket&) = delete;

    // Returns: 0; MN_ERROR_FAILURE when the system refuses.
    mantle::MNResult Open(const mantle::CMNInetAddr& local);
    void Close() noexcept;

    // Frees the address but keeps the number, which then stands for `spare`, until Close. `poll` is the epoll set that
    // may be watching it.
    void FreeAddress(int spare, int poll) noexcept;

    bool IsOpen() const noexcept { return m_nHandle >= 0; }
    int GetHandle() const noexcept { return m_nHandle; }
    unsigned short GetFamily() const noexcept { return m_wFamily; }
    bool GetLocalAddress(mantle::CMNInetAddr& local) const;

    // Takes off the front of `batch` what the system takes; what it refuses is counted and taken off too.
    EOutcome Send(CMNDatagramBatch& batch, CMNUDPCounts& counts);

    // One datagram. FULL: not sent.
    EOutcome SendOne(const char* data, std::size_t length, const mantle::CMNInetAddr& to, CMNUDPCounts& counts);

    // Fills `room` with what waits. Returns: whether there was anything.
    bool Receive(CMNReceiveRoom& room, CMNUDPCounts& counts);

    // Whether runs go out as segmented sends; off for good once the system has refused one.
    bool IsSegmenting() const noexcept { return m_bSegmenting; }

private:
    int m_nHandle = -1;
    unsigned short m_wFamily = 0;
    bool m_bSegmenting = false;
};

}  // namespace connhub

#endif
