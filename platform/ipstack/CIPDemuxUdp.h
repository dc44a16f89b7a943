// The demultiplexer's half for UDP.
#ifndef IPSTACK_CIPDEMUXUDP_H
#define IPSTACK_CIPDEMUXUDP_H

#include "CIPFlow.h"
#include "lwip/err.h"

struct netif;
struct udp_pcb;

namespace ipstack
{

// Every call: the core lock is held.
class CIPDemuxUdp
{
public:
    // As CIPDemux::Start, Input, AddUdp and RemoveUdp.
    static void Start();
    static err_t Input(const CIPFlow& flow, pbuf* packet, netif* link) noexcept;
    static bool Add(udp_pcb* pcb) noexcept;
    static void Remove(udp_pcb* pcb) noexcept;
};

}  // namespace ipstack

#endif
