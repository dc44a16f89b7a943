// What the sockets of all protocols share.
#ifndef UXPORT_SOCKET_CPSSOCKETBASE_H
#define UXPORT_SOCKET_CPSSOCKETBASE_H

#include "socket/CPSIPCBase.h"

struct iovec_ace;

namespace uxport
{

class CPSSocketBase : public CPSIPCBase
{
public:
    CPSSocketBase() = default;
    virtual ~CPSSocketBase() { Close(); }

    // Opens a socket, closing the one held. `reuse` not 0 asks for address reuse, whose refusal is ignored.
    // Returns: 0; -1, the system's errno is then what it was.
    int Open(int family, int type, int protocol, int reuse);

    // Returns: 0 when closed already; else what the stack answered. The handle is -1 afterwards in any case.
    int Close();

    int SetOption(int level, int name, const void* value, int length) const;
    int GetOption(int level, int name, void* value, int* length) const;

    long Recv(char* buffer, unsigned long length, int flags);
    long Send(const char* buffer, unsigned long length, int flags);

    // Not offered: -1.
    long RecvV(iovec_ace* pieces, unsigned long count);

    // One gathered write of up to 1024 pieces; more: -1, nothing is sent.
    long SendV(const iovec_ace* pieces, unsigned long count);

    // Returns: 0, also for an address of an unknown family, which leaves `address` alone; else what the stack
    // answered.
    int GetLocalAddr(CMNInetAddr& address) const;
    int GetRemoteAddr(CMNInetAddr& address) const;

protected:
    // Binds to `local`; closes and returns the stack's result when that fails. Returns: 0 when bound.
    int Bind_i(const CMNInetAddr& local);

    // For the datagram protocols. RecvFrom sets `from` when its family is known.
    long RecvFrom_i(char* buffer, unsigned long length, CMNInetAddr& from, int flags);
    long SendTo_i(const char* buffer, unsigned long length, const CMNInetAddr& to, int flags);
};

}  // namespace uxport

#endif
