/* What lwIP calls of ours while it works; all under the core lock. */
#ifndef UXPORT_LWIP_HOOKS_H
#define UXPORT_LWIP_HOOKS_H

#include "lwip/arch.h"
#include "lwip/err.h"
#include "lwip/ip_addr.h"

#ifdef __cplusplus
extern "C" {
#endif

struct netif;
struct pbuf;
struct tcp_hdr;
struct tcp_pcb;

/* Initial sequence number of a connection (CIPIsn). */
u32_t uxport_ipstack_tcp_isn(const ip_addr_t* localIp, u16_t localPort, const ip_addr_t* remoteIp, u16_t remotePort);

/* Looks at a segment before its connection or listener does; anything but ERR_OK drops it (CIPSegmentHook). */
err_t uxport_ipstack_tcp_inpacket(struct tcp_pcb* pcb, struct tcp_hdr* header, u16_t optionLength, u16_t option1Length,
                                  u8_t* option2, struct pbuf* packet);

/* The link that a packet leaves by; null leaves the choice to lwIP (CIPLinkTable). */
struct netif* uxport_ipstack_ip4_route(const ip4_addr_t* source, const ip4_addr_t* destination);
struct netif* uxport_ipstack_ip6_route(const ip6_addr_t* source, const ip6_addr_t* destination);

#ifdef __cplusplus
}
#endif

#endif
