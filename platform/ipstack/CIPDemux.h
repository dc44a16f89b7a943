// Finds a packet's connection by hash and shows lwIP a list of that one.
#ifndef IPSTACK_CIPDEMUX_H
#define IPSTACK_CIPDEMUX_H

#include <cstddef>

#include "lwip/err.h"

struct netif;
struct pbuf;
struct tcp_pcb;
struct udp_pcb;

namespace ipstack
{

// lwIP walks its lists of connections for each packet. Here each packet's owner is looked up first, and for the
// time of the packet's input lwIP's list holds it alone; timers always see the whole lists. It rests on callbacks
// that touch no connection but their own.
//
// Every call: the core lock is held.
class CIPDemux
{
public:
    // Makes the tables. Before anything else.
    static void Start();

    // Hands a packet to lwIP, whatever it is; owns it from then on. Never from inside a callback of lwIP's.
    static err_t Input(pbuf* packet, netif* link) noexcept;

    // Takes in a connection right after tcp_connect; those that a listener makes are found by themselves, and all
    // leave by themselves when lwIP frees them. Without it no answer reaches the connection. Uses ext-arg 0.
    // Returns: false when there is no memory; the connection must be aborted then.
    static bool AddTcp(tcp_pcb* pcb) noexcept;

    // Takes in a datagram socket that has a local port, or takes note of its new addresses: after each bind,
    // connect and disconnect. Returns: false when there is no memory; it is then filed as before.
    static bool AddUdp(udp_pcb* pcb) noexcept;

    // Before udp_remove. Unknown ones are ignored.
    static void RemoveUdp(udp_pcb* pcb) noexcept;

    // Connections in the table.
    static std::size_t GetTcpCount() noexcept;
};

}  // namespace ipstack

#endif
