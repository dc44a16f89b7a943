// A UDP socket of the stack.
#ifndef UXPORT_SOCKET_CPSSOCKETUDP_H
#define UXPORT_SOCKET_CPSSOCKETUDP_H

#include "socket/CPSSocketBase.h"

namespace uxport
{

class CPSSocketUdp : public CPSSocketBase
{
public:
    ~CPSSocketUdp() override { Close(); }

    // IPv4 datagram socket bound to `local`. Returns: 0; -1, the socket is then closed.
    int Open(const CMNInetAddr& local);

    // Receives one datagram and where it came from.
    long RecvFrom(char* buffer, unsigned long length, CMNInetAddr& from, int flags);
    long SendTo(const char* buffer, unsigned long length, const CMNInetAddr& to, int flags);

    // Not offered: -1.
    long SendVTo(const iovec_ace* pieces, unsigned long count, const CMNInetAddr& to);
};

}  // namespace uxport

#endif
