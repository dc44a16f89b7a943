// One link.
#ifndef IPSTACK_CIPLINK_H
#define IPSTACK_CIPLINK_H

#include <atomic>

#include "CIPCounters.h"
#include "ipstack/IIPStack.h"
#include "ipstack/IIPStackManager.h"
#include "lwip/netif.h"
#include "mantle/CMNMutexThread.h"

namespace ipstack
{

// A network interface of lwIP's over a user's low level. What lwIP emits waits as flat copies in a queue; the
// thread that gives the core lock up sends it, unless another thread is sending for this link already, so that
// the order holds and the low level may call the stack at once.
class CIPLink : public IIPStack
{
public:
    // Packets that wait to be sent, at most; lwIP is told when there are more.
    static constexpr unsigned int s_dwQueueLimit = 4096;

    explicit CIPLink(IIPStackLowLevel& lowLevel) : m_LowLevel(lowLevel) {}
    ~CIPLink() override;

    // Brings the link up. State: the core lock is held. Returns: 0; MN_ERROR_INVALID_ARG for a setting that is none or
    // an address that another link has; MN_ERROR_FAILURE when lwIP takes no more links.
    unsigned long Open(const CIPStackConfig& config);

    // Takes the link down: its TCP connections end, no packet goes in or out from then on. State: the core lock
    // is held.
    void Close();

    // Drops what waits to be sent. State: closed and idle.
    void FreeQueue();

    // Waits until no thread sends for the link or is about to. Thread: any but one inside its output, the core lock not
    // held. Input need not be waited for: it works under the core lock and finds the link closed.
    void WaitUntilIdle() const;

    unsigned long Input(const char* data, unsigned long length) override;

    // Between these a thread has packets for the link, and it is not freed. BeginUse: state: not taken down yet, or the
    // caller may call Input all the same. Thread: any.
    void BeginUse() noexcept { m_dwUses.fetch_add(1); }
    void EndUse() noexcept { m_dwUses.fetch_sub(1); }
    bool IsUsed() const noexcept { return m_dwUses.load() != 0; }

    // Takes in a copy that CIPPacketFilter made. State: the core lock is held.
    void TakeIn(pbuf* packet) noexcept;

    // Sends what waits. Thread: any, the core lock not held; pairs with CIPCore::AddOutput.
    void SendQueued();

    netif* GetNetif() noexcept { return &m_Netif; }

private:
    static err_t OnInit(netif* link);
    static err_t OnOutput4(netif* link, pbuf* packet, const ip4_addr_t* destination);
    static err_t OnOutput6(netif* link, pbuf* packet, const ip6_addr_t* destination);
    err_t Enqueue(pbuf* packet);
    unsigned int SendSome(unsigned int most);
    bool IsClosed() const noexcept;
    void Deliver(pbuf* packet) noexcept;
    void AbortConnections();

    IIPStackLowLevel& m_LowLevel;
    netif m_Netif{};
    u16_t m_wMtu = 0;
    bool m_bOpen = false;                     // the core lock
    bool m_bListed = false;                   // the core lock: in the core's list of links with output
    std::atomic<unsigned int> m_dwInside{0};  // threads that send for the link, or are going to
    std::atomic<unsigned int> m_dwUses{0};

    mutable mantle::CMNMutexThread m_Mutex;
    pbuf* m_pFirst MN_GUARDED_BY(m_Mutex) = nullptr;
    pbuf* m_pLast MN_GUARDED_BY(m_Mutex) = nullptr;
    unsigned int m_dwQueued MN_GUARDED_BY(m_Mutex) = 0;
    bool m_bSending MN_GUARDED_BY(m_Mutex) = false;

    friend class CIPCore;
};

}  // namespace ipstack

#endif
