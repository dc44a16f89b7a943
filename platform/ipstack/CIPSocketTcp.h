// A TCP socket.
#ifndef IPSTACK_CIPSOCKETTCP_H
#define IPSTACK_CIPSOCKETTCP_H

#include <cstdint>
#include <memory>

#include "CIPSocket.h"
#include "CIPStreamQueue.h"
#include "CIPTcpBacklog.h"
#include "CIPTcpEnd.h"
#include "mantle/CMNMutexThread.h"

namespace ipstack
{

// lwIP's pcb exists from connect or listen on, or from the peer's request. What the peer sends is taken from lwIP
// at once into a queue of the socket's own; the receive window stays closed for what is waiting there, so that the
// limit bounds it.
class CIPSocketTcp : public CIPSocket
{
public:
    explicit CIPSocketTcp(int family) noexcept;
    ~CIPSocketTcp() override;

    // The socket of a connection that `listener` has got. State: the core lock is held. Returns: null when there is no
    // memory; the connection is then left as it was.
    static CIPSocketTcp* MakeAccepted(CIPSocketTcp& listener, CIPTcpEnd& end);

    void CloseLocked() override;
    long Bind(const CIPAddress& address) override;
    long Connect(const CIPAddress& address) override;
    long Listen(int backlog) override;
    long Accept(CIPAddress& peer) override;
    long Send(const ps_iovec* pieces, unsigned long count, const CIPAddress* to) override;
    long Receive(void* data, unsigned long length, bool peek, CIPAddress& from) override;
    long Shutdown(int direction) override;
    long GetLocal(CIPAddress& address) override;
    long GetPeer(CIPAddress& address) override;
    long GetWaiting() override;

    // lwIP's news. State: the core lock is held, inside a callback.
    err_t OnReceived(tcp_pcb* pcb, pbuf* packet);
    void OnSent(tcp_pcb* pcb);
    void OnConnected(tcp_pcb* pcb);
    void OnFailed(err_t error, int abortReason);
    void OnEndFreed() noexcept { m_pEnd = nullptr; }

    // State: the core lock is held.
    void AbortUnaccepted() noexcept;
    CIPSocketTcp* m_pNextReady = nullptr;  // the next one that nobody has accepted; the backlog's
    using CIPSocket::Clear;
    using CIPSocket::RaiseLocked;

protected:
    std::uint32_t GetBitsLocked() override;
    long SetOwnOption(int level, int name, int value) override;
    long GetOwnOption(int level, int name, int& value) override;
    void OnSettingsLocked() override;

private:
    friend class CIPSocketTcpTest;

    enum EState
    {
        Idle,  // fresh or bound
        Connecting,
        Connected,  // also when either direction has ended
        Listening,
        Failed,
    };

    // Keep-alive, times in seconds.
    struct CKeepAlive
    {
        int m_nIdle;
        int m_nInterval;
        int m_nCount;
    };

    static constexpr std::size_t s_nWhole = 16;  // writes up to this are taken whole or not at all

    tcp_pcb* GetPcb() const noexcept { return m_pEnd ? m_pEnd->GetPcb() : nullptr; }

    // How a TCP call fails in this state: PS_EBADF when closed, the failure, or `otherwise`.
    int GetStateError(int otherwise) const noexcept;

    int StartConnect(const CIPAddress& address);
    void ApplySettings(tcp_pcb* pcb) const noexcept;

    // Sending. Write takes what there is room for of the pieces behind `skip` bytes.
    std::size_t GetRoom(const tcp_pcb* pcb) const noexcept;
    bool IsWritable(const tcp_pcb* pcb) const noexcept;
    void UpdateOut(const tcp_pcb* pcb);
    long Write(const ps_iovec* pieces, unsigned long count, unsigned long total, unsigned long skip);
    static bool WriteWhole(tcp_pcb* pcb, const char* data, u16_t length);

    // The receive window (CIPSocketTcpWindow.cpp). Sizes in bytes; the core lock is held.
    std::uint32_t GetWindow(const tcp_pcb* pcb) const noexcept;
    void StartWindow(tcp_pcb* pcb, bool accepted) noexcept;
    void ChangeWindow(tcp_pcb* pcb) noexcept;
    void Credit(tcp_pcb* pcb, bool announce) noexcept;

    // State: the core lock.
    EState m_eState = Idle;
    CIPTcpEnd* m_pEnd = nullptr;
    CIPPortTable::CHold m_Hold;
    CIPAddress m_Local;
    CIPAddress m_Peer;
    std::unique_ptr<CIPTcpBacklog> m_pBacklog;
    bool m_bSendShut = false;
    bool m_bNoDelay = false;
    CKeepAlive m_KeepAlive;
    std::uint32_t m_dwWindow = 0;    // what the peer may have sent and not been read, when settled
    std::uint32_t m_dwHeldBack = 0;  // credit that is not given, as the window was promised larger than it is to be

    // Read without the core lock.
    std::atomic<std::uint32_t> m_dwUncredited{0};           // read, and not yet given to the window
    std::atomic<std::uint32_t> m_dwCreditStep{UINT32_MAX};  // how much of it is worth a step

    mutable mantle::CMNMutexThread m_QueueMutex;  // taken inside the core lock
    CIPStreamQueue m_Queue MN_GUARDED_BY(m_QueueMutex);
    bool m_bOpen MN_GUARDED_BY(m_QueueMutex) = false;  // data may still come
    bool m_bReceiveShut MN_GUARDED_BY(m_QueueMutex) = false;
    std::atomic<int> m_nFailure{0};  // written under both locks
    std::atomic<bool> m_bConnecting{false};
};

}  // namespace ipstack

#endif
