// The socket calls of the user-space IP stack.
//
// Thread: any thread may call any of these at any time. Units: lengths in bytes, addresses in network
// byte order. Returns: -1 on failure with the cause in get_pserrno(), which a successful call leaves alone.
// Sockets are born blocking, accepted ones too.
#ifndef IPSTACK_PS_SOCKET_H
#define IPSTACK_PS_SOCKET_H

#include "ipstack/ps_defines.h"

#ifdef __cplusplus
extern "C" {
#endif

// Makes a socket. Returns: a handle (1 and up); PS_EMFILE, PS_EAFNOSUPPORT, PS_EPROTONOSUPPORT, PS_EINVAL.
// A closed handle's number does not come back for at least 2^15 further sockets.
IPSTACK_API int ps_socket(int family, int type, int protocol);

// Gives the socket its local address. Returns: 0; PS_EADDRINUSE, PS_EADDRNOTAVAIL, PS_EINVAL.
// 127.0.0.1 port 5555 may be bound again while an older listener holds it; the newest listener gets the
// new connections.
IPSTACK_API int ps_bind(int handle, const struct ps_sockaddr* address, int length);

// Listens; at most `backlog` (1 to 1024) connections wait for ps_accept.
IPSTACK_API int ps_listen(int handle, int backlog);

// Takes the oldest waiting connection. `address` and `length` may be null; `length` says the room on entry
// and the record's length on return. Returns: a handle; PS_EAGAIN when nothing waits (non-blocking).
IPSTACK_API int ps_accept(int handle, struct ps_sockaddr* address, int* length);

// Connects. A non-blocking TCP socket returns 0 while the connection is being made; the outcome is reported
// as output (made) or error (failed) by ps_poll. Datagram and raw sockets complete at once.
IPSTACK_API int ps_connect(int handle, const struct ps_sockaddr* address, int length);

// Sends. Non-blocking TCP: the count taken, 0 when there is no room. 16 bytes or fewer are taken whole or
// not at all. Datagram and raw sockets take the whole or return -1. No flag is defined; pass 0.
IPSTACK_API long ps_send(int handle, const void* data, unsigned long length, int flags);
IPSTACK_API long ps_sendto(int handle, const void* data, unsigned long length, int flags,
                           const struct ps_sockaddr* address, int addressLength);

// Writes up to PS_IOV_MAX pieces as one send; more: PS_EINVAL.
IPSTACK_API long ps_writev(int handle, const struct ps_iovec* pieces, unsigned long count);

// Receives. Non-blocking: 0 when nothing waits, -1 only when the socket has failed or the peer has closed
// and everything it sent has been read. PS_MSG_PEEK leaves the data; with nothing waiting on an open socket
// it returns -1 with PS_EINPROGRESS, on a closed one 0.
IPSTACK_API long ps_recv(int handle, void* data, unsigned long length, int flags);
IPSTACK_API long ps_recvfrom(int handle, void* data, unsigned long length, int flags, struct ps_sockaddr* address,
                             int* addressLength);

// Waits until an entry is ready. Returns: the number of entries with a returned event, 0 on time-out, -1 only
// for a null array with a count. `timeout` in milliseconds, negative for ever, 0 for a look.
IPSTACK_API int ps_poll(struct ps_pollfd* entries, unsigned int count, int timeout);

// The same readiness on lists: `in` is asked, `out` (may be the same record) receives the ready handles.
// A null `timeout` waits for ever. `highest` is not used. Returns: the number of handles in `out`.
IPSTACK_API int ps_select(int highest, const struct ps_fdsets* in, struct ps_fdsets* out,
                          const struct ps_timeval* timeout);

// Closes; a call of another thread that waits on the handle ends. What was accepted for sending still goes
// out before the connection ends.
IPSTACK_API int ps_close(int handle);

// Ends one direction: PS_SHUT_RD or PS_SHUT_WR.
IPSTACK_API int ps_shutdown(int handle, int direction);

// Addresses of the socket; `length` says the room on entry and the record's length on return.
IPSTACK_API int ps_getsockname(int handle, struct ps_sockaddr* address, int* length);
IPSTACK_API int ps_getpeername(int handle, struct ps_sockaddr* address, int* length);

// Options; values of 4 and 8 bytes are taken and answered in the caller's length.
//   level 0xFFF: 8 keep-alive, 0x1001 / 0x1002 send / receive buffer, 4 reuse, 0x20 broadcast, 0x80 linger,
//                0x1007 error (cleared by reading), 0x1008 type
//   level 1: 2 reuse, 7 / 8 send / receive buffer, 9 keep-alive, 6 broadcast, 13 linger, 4 error, 3 type
//   level 6 (TCP): 1 no delay, 3 / 4 / 5 keep-alive idle s / interval s / count
//   level 0 (IP): 1 TOS, 2 TTL, 3 the sender writes the IP header (raw sockets)
//   level 41 (IPv6): 7 checksum offset (raw sockets)
// Returns: 0; PS_ENOPROTOOPT for an unknown name, PS_EINVAL for a bad length or value.
IPSTACK_API int ps_setsockopt(int handle, int level, int name, const void* value, int length);
IPSTACK_API int ps_getsockopt(int handle, int level, int name, void* value, int* length);

// PS_F_GETFL and PS_F_SETFL; bit PS_O_NONBLOCK.
IPSTACK_API int ps_fcntl(int handle, int command, int value);

// PS_FIONREAD: bytes waiting (the next datagram's size on datagram and raw sockets) into a 32-bit int.
IPSTACK_API int ps_ioctl(int handle, int command, void* value);

// Switches the socket to non-blocking mode.
IPSTACK_API int ps_socket_nonblock(int handle);

// TCP: 1 sends small segments at once, 0 gathers them.
IPSTACK_API int ps_nodelay(int handle, int on);

// Limits of what the socket may hold each way, in bytes, up to 512 KiB.
IPSTACK_API int ps_set_snd_rcv_buffer(int handle, int send, int receive);

// The error that a failed socket carries, 0 when none; reading does not clear it. -1: no such socket.
IPSTACK_API int ps_is_socket_errno(int handle);

// The cause of the calling thread's last failed call.
IPSTACK_API int get_pserrno(void);

#ifdef __cplusplus
}
#endif

#endif
