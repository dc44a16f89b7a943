// The demultiplexer's half for TCP.
#ifndef IPSTACK_CIPDEMUXTCP_H
#define IPSTACK_CIPDEMUXTCP_H

#include <cstddef>

#include "CIPFlow.h"
#include "lwip/err.h"

struct netif;
struct tcp_pcb;

namespace ipstack
{

// Every call: the core lock is held.
class CIPDemuxTcp
{
public:
    // As CIPDemux::Start, Input and AddTcp.
    static void Start();
    static err_t Input(const CIPFlow& flow, pbuf* packet, netif* link) noexcept;
    static bool Add(tcp_pcb* pcb) noexcept;

    static std::size_t GetCount() noexcept;
};

}  // namespace ipstack

#endif
