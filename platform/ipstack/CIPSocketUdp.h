// A UDP socket.
#ifndef IPSTACK_CIPSOCKETUDP_H
#define IPSTACK_CIPSOCKETUDP_H

#include "CIPSocketDatagram.h"
#include "lwip/udp.h"

namespace ipstack
{

class CIPSocketUdp : public CIPSocketDatagram
{
public:
    // State: the core lock is held.
    explicit CIPSocketUdp(int family);

    bool IsUsable() const noexcept { return m_pPcb != nullptr; }

    long Bind(const CIPAddress& address) override;
    long Connect(const CIPAddress& address) override;
    long Disconnect() override;
    long Send(const ps_iovec* pieces, unsigned long count, const CIPAddress* to) override;
    long GetLocal(CIPAddress& address) override;

protected:
    void RemovePcb() override;
    void OnSettingsLocked() override;

private:
    void SetPeer(const CIPAddress& peer, bool connected) noexcept;
    static void OnDatagram(void* arg, udp_pcb* pcb, pbuf* packet, const ip_addr_t* from, u16_t port);

    // State: the core lock is held. Returns: 0 or an error number.
    int BindLocked(const CIPAddress& address);
    int EnsureBound();

    udp_pcb* m_pPcb;             // core lock
    CIPPortTable::CHold m_Hold;  // core lock
};

}  // namespace ipstack

#endif
