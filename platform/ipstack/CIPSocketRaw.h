// A raw IP socket.
#ifndef IPSTACK_CIPSOCKETRAW_H
#define IPSTACK_CIPSOCKETRAW_H

#include "CIPSocketDatagram.h"
#include "lwip/raw.h"

namespace ipstack
{

// Gets a copy of each packet of its protocol, IPv4 with its header and IPv6 without; the stack goes on with the
// packet as if nobody had seen it.
class CIPSocketRaw : public CIPSocketDatagram
{
public:
    // State: the core lock is held.
    CIPSocketRaw(int family, u8_t protocol);

    bool IsUsable() const noexcept { return m_pPcb != nullptr; }

    long Bind(const CIPAddress& address) override;
    long Connect(const CIPAddress& address) override;
    long Disconnect() override;
    long Send(const ps_iovec* pieces, unsigned long count, const CIPAddress* to) override;
    long GetLocal(CIPAddress& address) override;

protected:
    void RemovePcb() override;
    void OnSettingsLocked() override;
    long SetOwnOption(int level, int name, int value) override;
    long GetOwnOption(int level, int name, int& value) override;

private:
    static u8_t OnPacket(void* arg, raw_pcb* pcb, pbuf* packet, const ip_addr_t* from);

    raw_pcb* m_pPcb;  // core lock
};

}  // namespace ipstack

#endif
