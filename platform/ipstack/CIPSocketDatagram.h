// What UDP and raw sockets have in common.
#ifndef IPSTACK_CIPSOCKETDATAGRAM_H
#define IPSTACK_CIPSOCKETDATAGRAM_H

#include <cstddef>

#include "CIPCounters.h"
#include "CIPSocket.h"
#include "lwip/pbuf.h"
#include "mantle/CMNMutexThread.h"

namespace ipstack
{

// A queue of received datagrams, bounded in bytes and in number, and the way to read them.
class CIPSocketDatagram : public CIPSocket
{
public:
    ~CIPSocketDatagram() override;

    void CloseLocked() override;
    long Receive(void* data, unsigned long length, bool peek, CIPAddress& from) override;
    long Shutdown(int direction) override;
    long GetPeer(CIPAddress& address) override;
    long GetWaiting() override;

protected:
    // `full` and `cut` count what does not fit into the queue and what a short read cuts off.
    CIPSocketDatagram(int family, int type, CIPCounters::EId full, CIPCounters::EId cut) noexcept
        : CIPSocket(family, type), m_eFull(full), m_eCut(cut)
    {
    }

    // Takes the socket's pcb out of lwIP. State: the core lock is held.
    virtual void RemovePcb() = 0;

    // Copies `length` bytes of the packet from `offset` on into the queue. State: the core lock is held.
    void Enqueue(const pbuf* packet, u16_t offset, u16_t length, const CIPAddress& from);

    // Gathers the pieces into one packet. Returns: 0 or an error number; PS_EMSGSIZE when they are more than `most`.
    static int Gather(const ps_iovec* pieces, unsigned long count, unsigned long most, pbuf_layer layer, pbuf*& packet);

    // The link and the source address for a packet to `to`, from the bound address or any. Returns: 0 or
    // PS_ENETUNREACH. State: the core lock is held.
    static int Route(const ip_addr_t& bound, const CIPAddress& to, netif*& link, ip_addr_t& source);

    // Where to: `to`, or the connected peer. Returns: 0 or an error number. State: the core lock is held.
    int ChooseDestination(const CIPAddress* to, CIPAddress& destination) const;

    std::uint32_t GetBitsLocked() override;
    long SetOwnOption(int level, int name, int value) override;
    long GetOwnOption(int level, int name, int& value) override;

    CIPAddress m_Local;         // core lock
    CIPAddress m_Peer;          // core lock
    bool m_bConnected = false;  // core lock
    bool m_bSendShut = false;   // core lock

private:
    struct CDatagram
    {
        CDatagram* m_pNext;
        CIPAddress m_From;
        std::size_t m_nLength;
        char* Data() noexcept { return reinterpret_cast<char*>(this + 1); }
    };

    // A datagram costs about this much beside its payload: the queue holds no more than limit / s_nShare of them.
    static constexpr std::size_t s_nShare = 64;

    void ClearQueue() MN_REQUIRES(m_QueueMutex);

    const CIPCounters::EId m_eFull;
    const CIPCounters::EId m_eCut;
    mutable mantle::CMNMutexThread m_QueueMutex;  // taken inside the core lock
    CDatagram* m_pFirst MN_GUARDED_BY(m_QueueMutex) = nullptr;
    CDatagram* m_pLast MN_GUARDED_BY(m_QueueMutex) = nullptr;
    std::size_t m_nBytes MN_GUARDED_BY(m_QueueMutex) = 0;
    std::size_t m_nCount MN_GUARDED_BY(m_QueueMutex) = 0;
    bool m_bReceiveShut MN_GUARDED_BY(m_QueueMutex) = false;
};

}  // namespace ipstack

#endif
