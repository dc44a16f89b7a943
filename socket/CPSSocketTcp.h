// A TCP socket of the stack.
#ifndef UXPORT_SOCKET_CPSSOCKETTCP_H
#define UXPORT_SOCKET_CPSSOCKETTCP_H

#include "socket/CPSSocketBase.h"

namespace uxport
{

class CPSSocketTcp : public CPSSocketBase
{
public:
    ~CPSSocketTcp() override { Close(); }

    // IPv4 stream socket. Returns: 0; -1.
    int Open(int reuse);

    // The same, bound to `local`. Returns: 0; the stack's negative result, the socket is then closed.
    int Open(int reuse, const CMNInetAddr& local);

    int Close() { return CPSSocketBase::Close(); }

    // The reason is not used.
    int Close(long reason);

    int CloseWriter();
    int CloseReader();
};

}  // namespace uxport

#endif
