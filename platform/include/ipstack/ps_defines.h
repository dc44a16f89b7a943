// Export macro, constants and records of the ipstack socket interface.
//
// Everything here has C linkage and C layout; the socket calls that use it are in ps_socket.h.
#ifndef IPSTACK_PS_DEFINES_H
#define IPSTACK_PS_DEFINES_H

#include <stdint.h>

#if defined(_WIN32)
#  if defined(IPSTACK_BUILDING)
#    define IPSTACK_API __declspec(dllexport)
#  else
#    define IPSTACK_API __declspec(dllimport)
#  endif
#else
#  define IPSTACK_API __attribute__((visibility("default")))
#endif

// Address families, socket types (numbers as on Linux).
#define PS_AF_INET 2
#define PS_AF_INET6 10
#define PS_SOCK_STREAM 1
#define PS_SOCK_DGRAM 2
#define PS_SOCK_RAW 3

// Flags of ps_recv and ps_recvfrom.
#define PS_MSG_PEEK 1

// ps_shutdown.
#define PS_SHUT_RD 0
#define PS_SHUT_WR 1

// ps_fcntl and ps_ioctl.
#define PS_F_GETFL 3
#define PS_F_SETFL 4
#define PS_O_NONBLOCK 1
#define PS_FIONREAD 0x541B

// Option levels and names; the meanings stand beside ps_setsockopt.
#define PS_SOL_SOCKET 0xFFF
#define PS_SOL_SOCKET_LINUX 1
#define PS_IPPROTO_IP 0
#define PS_IPPROTO_ICMP 1
#define PS_IPPROTO_TCP 6
#define PS_IPPROTO_UDP 17
#define PS_IPPROTO_IPV6 41
#define PS_IPPROTO_ICMPV6 58
#define PS_SO_REUSEADDR 4
#define PS_SO_KEEPALIVE 8
#define PS_SO_BROADCAST 0x20
#define PS_SO_LINGER 0x80
#define PS_SO_SNDBUF 0x1001
#define PS_SO_RCVBUF 0x1002
#define PS_SO_ERROR 0x1007
#define PS_SO_TYPE 0x1008
#define PS_SO_LINUX_REUSEADDR 2
#define PS_SO_LINUX_TYPE 3
#define PS_SO_LINUX_ERROR 4
#define PS_SO_LINUX_BROADCAST 6
#define PS_SO_LINUX_SNDBUF 7
#define PS_SO_LINUX_RCVBUF 8
#define PS_SO_LINUX_KEEPALIVE 9
#define PS_SO_LINUX_LINGER 13
#define PS_TCP_NODELAY 1
#define PS_TCP_KEEPIDLE 3
#define PS_TCP_KEEPINTVL 4
#define PS_TCP_KEEPCNT 5
#define PS_IP_TOS 1
#define PS_IP_TTL 2
#define PS_IP_HDRINCL 3
#define PS_IPV6_CHECKSUM 7

// Error numbers as get_pserrno() answers them (Linux's values, on every system).
#define PS_EBADF 9
#define PS_EAGAIN 11
#define PS_ENOMEM 12
#define PS_EINVAL 22
#define PS_EMFILE 24
#define PS_EPIPE 32
#define PS_EDESTADDRREQ 89
#define PS_EMSGSIZE 90
#define PS_ENOPROTOOPT 92
#define PS_EPROTONOSUPPORT 93
#define PS_EOPNOTSUPP 95
#define PS_EAFNOSUPPORT 97
#define PS_EADDRINUSE 98
#define PS_EADDRNOTAVAIL 99
#define PS_ENETDOWN 100
#define PS_ENETUNREACH 101
#define PS_ECONNABORTED 103
#define PS_ECONNRESET 104
#define PS_ENOBUFS 105
#define PS_EISCONN 106
#define PS_ENOTCONN 107
#define PS_ETIMEDOUT 110
#define PS_ECONNREFUSED 111
#define PS_EALREADY 114
#define PS_EINPROGRESS 115

// Event bits of ps_pollfd.
#define PS_POLLIN 1
#define PS_POLLOUT 2
#define PS_POLLERR 4
#define PS_POLLHUP 8

// Handles in one list of a ps_fdsets; pieces that one ps_writev takes.
#define PS_FD_SETSIZE 1024
#define PS_IOV_MAX 1024

#ifdef __cplusplus
extern "C" {
#endif

// A socket address of any family: the first byte is the record's length, the second the family.
struct ps_sockaddr
{
    uint8_t sa_len;
    uint8_t sa_family;
    char sa_data[26];
};

// IPv4 address; port and address in network byte order.
struct ps_sockaddr_in
{
    uint8_t sin_len;
    uint8_t sin_family;
    uint16_t sin_port;
    uint32_t sin_addr;
    char sin_zero[8];
};

// IPv6 address; port and address in network byte order.
struct ps_sockaddr_in6
{
    uint8_t sin6_len;
    uint8_t sin6_family;
    uint16_t sin6_port;
    uint32_t sin6_flowinfo;
    uint8_t sin6_addr[16];
    uint32_t sin6_scope_id;
};

// One entry of a ps_poll array.
struct ps_pollfd
{
    int fd;         // handle; a negative one is passed over
    short events;   // requested: PS_POLLIN, PS_POLLOUT
    short revents;  // returned: the above, PS_POLLERR, PS_POLLHUP
};

// One list of handles.
struct ps_fdlist
{
    unsigned int count;
    int handles[PS_FD_SETSIZE];
};

// The three lists that ps_select takes and answers.
struct ps_fdsets
{
    struct ps_fdlist read;
    struct ps_fdlist write;
    struct ps_fdlist except;
};

// Time-out of ps_select.
struct ps_timeval
{
    long tv_sec;
    long tv_usec;
};

// One piece of a gathered write.
struct ps_iovec
{
    void* iov_base;
    unsigned long iov_len;
};

#ifdef __cplusplus
}
#endif

#endif
