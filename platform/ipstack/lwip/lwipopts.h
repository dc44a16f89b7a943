/* The options that lwIP is built with here: raw API, one core lock of the socket layer's, no timers of its own. */
#ifndef UXPORT_LWIPOPTS_H
#define UXPORT_LWIPOPTS_H

/* No system layer: the socket layer's core lock guards everything, and it calls the timers itself. */
#define NO_SYS 1
#define LWIP_SOCKET 0
#define LWIP_NETCONN 0
#define SYS_LIGHTWEIGHT_PROT 0
#define LWIP_TIMERS 0

#ifdef __cplusplus
extern "C" {
#endif
/* Reports a caller that does not hold the core lock; defined beside the lock. */
void uxport_ipstack_assert_core_locked(void);
/* The checksum, not inverted (CIPChecksum). */
unsigned short uxport_ipstack_checksum(const void* data, int length);
#ifdef __cplusplus
}
#endif
#define LWIP_ASSERT_CORE_LOCKED() uxport_ipstack_assert_core_locked()
#define LWIP_CHKSUM(data, length) uxport_ipstack_checksum(data, length)

/* Memory: the C library's; the numbers of lwIP's pools bound nothing, the socket layer has limits of its own. */
#define MEM_LIBC_MALLOC 1
#define MEMP_MEM_MALLOC 1
#define MEM_ALIGNMENT 8

/* Point-to-point IP links only. */
#define LWIP_ARP 0
#define LWIP_ETHERNET 0
#define LWIP_DHCP 0
#define LWIP_AUTOIP 0
#define LWIP_IGMP 0
#define LWIP_DNS 0
#define PBUF_LINK_HLEN 0
#define PBUF_LINK_ENCAPSULATION_HLEN 0

#define LWIP_IPV4 1
#define LWIP_IPV6 1
#define LWIP_ICMP 1
#define LWIP_ICMP6 1
#define LWIP_RAW 1
#define LWIP_UDP 1
#define LWIP_TCP 1

/* IP. Nothing is forwarded. The reassembly limit counts the fragments of all datagrams together. */
#define IP_FORWARD 0
#define LWIP_IPV6_FORWARD 0
#define IP_FRAG 1
#define IP_REASSEMBLY 1
#define IP_REASS_MAX_PBUFS 512
#define IP_REASS_MAXAGE 15
#define IPV6_REASS_MAXAGE 15
#define IP_DEFAULT_TTL 64
#define IP_SOF_BROADCAST 1
#define IP_SOF_BROADCAST_RECV 1

#define LWIP_IPV6_FRAG 1
#define LWIP_IPV6_REASS 1
#define IPV6_FRAG_COPYHEADER 1 /* with 8-byte pointers the reassembly record does not fit into the headers */
#define LWIP_IPV6_MLD 0
#define LWIP_IPV6_AUTOCONFIG 0
#define LWIP_IPV6_SEND_ROUTER_SOLICIT 0
#define LWIP_IPV6_DUP_DETECT_ATTEMPTS 0
#define LWIP_IPV6_SCOPES 0
#define LWIP_ND6_ALLOW_RA_UPDATES 0
#define LWIP_ND6_TCP_REACHABILITY_HINTS 0
#define LWIP_ND6_QUEUEING 0

/* Loopback: a link's packets to the stack's own addresses queue on it until the socket layer drains them. */
#define LWIP_NETIF_LOOPBACK 1
#define LWIP_HAVE_LOOPIF 1
#define LWIP_LOOPBACK_MAX_PBUFS 0
#define LWIP_CHECKSUM_CTRL_PER_NETIF 1

/* TCP. The segment size is that of loopback; links use what their MTU allows. Scale 4 is the least that carries
   a window of 512 KiB. */
#define TCP_MSS 8000
#define LWIP_WND_SCALE 1
#define TCP_RCV_SCALE 4
#define TCP_WND 524288
#define TCP_SND_BUF 524288
#define TCP_SND_QUEUELEN 8192 /* 65535 bytes in writes of 16 are 4095 buffers */
#define TCP_SNDLOWAT 1
#define TCP_SNDQUEUELOWAT 1
#define MEMP_NUM_TCP_SEG 8192
#define TCP_OVERSIZE 1460
#define TCP_LISTEN_BACKLOG 1
#define LWIP_TCP_PCB_NUM_EXT_ARGS 2 /* 0: the demultiplexer, 1: the socket layer */
#define LWIP_TCP_SACK_OUT 1
#define TCP_QUEUE_OOSEQ 1
#define TCP_OOSEQ_MAX_PBUFS 512
#define LWIP_TCP_KEEPALIVE 1
#define LWIP_TCP_TIMESTAMPS 0
#define SO_REUSE 1
#define TCP_TMR_INTERVAL 50 /* ms; the retransmission timer's floor is three slow ticks of twice this */
#define TCP_MSL 30000
#define TCP_MAXRTX 12 /* at the floor 230 s without an answer to data (RFC 1122, 4.2.3.5: at least 100 s) */

/* Statistics: 32 bits, all layers. */
#define LWIP_STATS 1
#define LWIP_STATS_LARGE 1
#define MIB2_STATS 1
#define MEM_STATS 0
#define MEMP_STATS 1
#define SYS_STATS 0

/* Hooks. The route hook's macros must be seen here: lwIP's headers ask for them early. */
#define LWIP_HOOK_FILENAME "lwip_hooks.h"
#define LWIP_HOOK_TCP_ISN(localIp, localPort, remoteIp, remotePort) \
  uxport_ipstack_tcp_isn(localIp, localPort, remoteIp, remotePort)
#define LWIP_HOOK_TCP_INPACKET_PCB(pcb, header, optionLength, option1Length, option2, packet) \
  uxport_ipstack_tcp_inpacket(pcb, header, optionLength, option1Length, option2, packet)
#define LWIP_HOOK_IP4_ROUTE_SRC(source, destination) uxport_ipstack_ip4_route(source, destination)
#define LWIP_HOOK_IP6_ROUTE(source, destination) uxport_ipstack_ip6_route(source, destination)

#endif
