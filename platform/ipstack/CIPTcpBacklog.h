// A listener's side: half-open and unaccepted connections.
#ifndef IPSTACK_CIPTCPBACKLOG_H
#define IPSTACK_CIPTCPBACKLOG_H

#include <vector>

#include "CIPAddress.h"
#include "CIPTcpEnd.h"
#include "lwip/tcp.h"

namespace ipstack
{

class CIPSocketTcp;

// The backlog bounds the connections that nobody has accepted; lwIP counts only half-open ones, with 8 bits, and its count
// is kept at 0. While the accept queue is full no request is answered, and no half-open connection gets through, so that
// the peers try again. Half-open connections have a bound of their own, which requests with forged sources use up: the
// oldest then gives way to the newest.
//
// Every call: the core lock is held.
class CIPTcpBacklog
{
public:
    static constexpr int s_nMost = 1024;
    static constexpr unsigned int s_dwMostHalfOpen = 2048;

    // Before anything else.
    static void Start() { All(); }

    explicit CIPTcpBacklog(CIPSocketTcp& owner) : m_Owner(owner) {}
    ~CIPTcpBacklog();
    CIPTcpBacklog(const CIPTcpBacklog&) = delete;
    CIPTcpBacklog& operator=(const CIPTcpBacklog&) = delete;

    // Listens on an address that the owner has bound. Returns: 0 or an error number.
    int Open(const CIPAddress& address, int most);

    void SetMost(int most) noexcept { m_nMost = most; }

    // The oldest connection that nobody has accepted; null when there is none. Pop takes it out.
    CIPSocketTcp* Front() const noexcept { return m_pFirst; }
    void Pop() noexcept;
    bool IsEmpty() const noexcept { return m_pFirst == nullptr; }
    bool IsFull() const noexcept { return m_nReady >= m_nMost; }

    // The socket table was full, so that no accept could succeed, and has room again; or became full.
    static void OnTableRoom();
    static void OnTableFull();

private:
    void Append(CIPSocketTcp& socket) noexcept;
    static err_t OnAccept(void* arg, tcp_pcb* pcb, err_t error);
    static err_t OnPassiveOpen(u8_t id, tcp_pcb_listen* listener, tcp_pcb* pcb);
    static const tcp_ext_arg_callbacks s_Callbacks;

    CIPSocketTcp& m_Owner;
    tcp_pcb* m_pListener = nullptr;
    int m_nMost = 0;
    CIPTcpEnd::CList m_HalfOpen;
    CIPSocketTcp* m_pFirst = nullptr;  // what nobody has accepted, the oldest first
    CIPSocketTcp* m_pLast = nullptr;
    int m_nReady = 0;

    // All open ones; never destroyed.
    static std::vector<CIPTcpBacklog*>& All();
};

}  // namespace ipstack

#endif
