// One connection of lwIP's and whom it belongs to.
#ifndef IPSTACK_CIPTCPEND_H
#define IPSTACK_CIPTCPEND_H

#include <cstddef>
#include <vector>

#include "CIPAnswerLimit.h"
#include "CIPPortTable.h"
#include "lwip/tcp.h"

namespace ipstack
{

class CIPSocketTcp;
class CIPTcpBacklog;

// Every tcp_pcb but a listening one has one of these, as the argument of its callbacks and as its ext-arg 1, from
// its making until lwIP frees it, which lwIP does not always tell by a callback. It belongs to a socket, or to a
// listener while it is half open, or to nobody once its socket has been closed: then it is an orphan, which still
// sends what the socket had accepted, for s_dwOrphanTicks without progress at most.
//
// Every call: the core lock is held.
class CIPTcpEnd
{
public:
    static constexpr u8_t s_cExtArg = 1;
    static constexpr unsigned int s_dwMostOrphans = 4096;
    static constexpr unsigned int s_dwMostTimeWait = 4096;
    static constexpr u32_t s_dwOrphanSeconds = 60;

    // Makes a connection's end for a new pcb: the socket's, or a half-open one of a listener's.
    CIPTcpEnd(tcp_pcb* pcb, CIPSocketTcp* socket, CIPTcpBacklog* backlog);

    // Before anything else.
    static void Start() { Unsent(); }

    // Ends in the order in which they were appended.
    struct CList
    {
        CIPTcpEnd* m_pFirst = nullptr;  // the least recent one
        CIPTcpEnd* m_pLast = nullptr;
        unsigned int m_dwCount = 0;

        void Append(CIPTcpEnd& end) noexcept;
        void Remove(CIPTcpEnd& end) noexcept;
    };

    // Null when lwIP has freed it.
    tcp_pcb* GetPcb() const noexcept { return m_pPcb; }
    CIPTcpBacklog* GetBacklog() const noexcept { return m_pBacklog; }
    CIPAnswerLimit::CShare& GetAnswerShare() noexcept { return m_AnswerShare; }

    // A half-open end becomes an accepted socket's, with the callbacks that go with it.
    void Adopt(CIPSocketTcp* socket) noexcept;

    // A half-open end leaves its listener's list. Without a listener lwIP resets it when its last step comes.
    void DropBacklog() noexcept;

    // A half-open end makes room: it is ended without a word, with the dead, unless its last step comes first.
    void GiveWay() noexcept;

    // The socket lets go. Orphan: what was accepted for sending still goes, then the connection ends; `hold` is
    // kept until lwIP has freed the pcb. Abort: reset at once.
    void Orphan(CIPPortTable::CHold&& hold) noexcept;
    void Abort() noexcept;

    // While one lives, connections that lwIP ends fail for this reason.
    class CIPAbortReason
    {
    public:
        explicit CIPAbortReason(int error) noexcept { s_nAbortReason = error; }
        ~CIPAbortReason() { s_nAbortReason = 0; }
        CIPAbortReason(const CIPAbortReason&) = delete;
        CIPAbortReason& operator=(const CIPAbortReason&) = delete;
    };

    // Ends orphans without progress and connections in TIME_WAIT that are not needed or too many.
    static void OnSlowTick();

    // Ends the sending direction behind what waits to be sent. The end gets a segment of its own: lwIP would mark the
    // last segment of data with it, and when its persist timer cuts that segment in two, both parts keep the mark.
    static void SendFin(tcp_pcb* pcb) noexcept;

    // Notes that data waits to be sent, after each try to send: connections whose peer is this stack too get their
    // window probes from OnSlowTick. lwIP's own probes would carry a byte, or a piece of a segment that was cut for
    // the window's rest, so that a small write might arrive in two parts.
    void NoteUnsent() noexcept;

    // Begins the retransmission timer with the round trip of the handshake, inside the callback that tells of its end.
    // lwIP would begin with 3 s and take as the first measurement the time until the first data is acknowledged, which
    // counts the silence before it.
    static void StartTimer(tcp_pcb* pcb) noexcept;

    // Whether both ends are one address of this stack, or loopback: nothing is lost or late between them.
    static bool IsInside(const tcp_pcb* pcb) noexcept;

    // Ends connections in TIME_WAIT whose peer is this stack: nothing of theirs can still be on its way, except
    // on a wire between two links.
    static void ReapTimeWait();

    // Ends half-open ones that gave way, and deletes the ends whose pcb lwIP has freed. Not inside a callback.
    static void FreeDead() noexcept
    {
        if (s_pDead || s_GivenWay.m_pFirst) {
            FreeDeadOnes();
        }
    }

    static unsigned int GetOrphanCount() noexcept { return s_Orphans.m_dwCount; }

private:
    ~CIPTcpEnd() = default;

    static err_t OnReceived(void* arg, tcp_pcb* pcb, pbuf* packet, err_t error);
    static err_t OnSent(void* arg, tcp_pcb* pcb, u16_t length);
    static err_t OnConnected(void* arg, tcp_pcb* pcb, err_t error);
    static void OnError(void* arg, err_t error);
    static void OnDestroyed(u8_t id, void* data);
    static void FreeDeadOnes() noexcept;
    static const tcp_ext_arg_callbacks s_Callbacks;

    bool IsOrphan() const noexcept { return m_pList == &s_Orphans; }
    static void ProbeWindows();
    void ForgetUnsent() noexcept;
    err_t Discard(tcp_pcb* pcb, pbuf* packet) noexcept;
    void AbortOrphan() noexcept;

    tcp_pcb* m_pPcb;
    CIPSocketTcp* m_pSocket;
    CIPTcpBacklog* m_pBacklog;
    CIPPortTable::CHold m_Hold;        // an orphan's
    CList* m_pList = nullptr;          // orphans, a listener's half-open ones, or those that gave way
    CIPTcpEnd* m_pPrevious = nullptr;  // in that list
    CIPTcpEnd* m_pNext = nullptr;      // in that list, then in the list of the dead
    CIPAnswerLimit::CShare m_AnswerShare;
    u32_t m_dwProgress = 0;           // an orphan's last progress, in slow ticks
    bool m_bPeerOwn = false;          // the peer is this stack too
    u8_t m_cProbes = 0;               // sent without the window having opened
    u16_t m_wProbeTicks = 0;          // since the last of them, or since the window closed
    std::size_t m_nUnsent = s_nNone;  // place in the list of those with unsent data

    static constexpr std::size_t s_nNone = ~std::size_t{0};

    static std::vector<CIPTcpEnd*>& Unsent();
    static CList s_Orphans;
    static CList s_GivenWay;
    static CIPTcpEnd* s_pDead;
    static int s_nAbortReason;
};

}  // namespace ipstack

#endif
