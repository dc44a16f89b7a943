// A raw IP socket of the stack.
#ifndef UXPORT_SOCKET_CPSSOCKETRAW_H
#define UXPORT_SOCKET_CPSSOCKETRAW_H

#include "socket/CPSSocketBase.h"

namespace uxport
{

class CPSSocketRaw : public CPSSocketBase
{
public:
    ~CPSSocketRaw() override { Close(); }

    // A socket of family 2 or 10 for one IP protocol; not bound, address reuse asked for. Returns: 0; -1.
    int OpenRawSocket(unsigned short family, unsigned short protocol);

    // The same without reuse, bound to `local`. Returns: 0; the stack's negative result, the socket is then closed.
    int OpenRawSocket(unsigned short family, unsigned short protocol, const CMNInetAddr& local);

    int Close() { return CPSSocketBase::Close(); }

    // The reason is not used.
    int Close(long reason);

    // Receives one packet and its source.
    long RecvFrom(char* buffer, unsigned long length, CMNInetAddr& from, int flags);
    long SendTo(const char* buffer, unsigned long length, const CMNInetAddr& to, int flags);
};

}  // namespace uxport

#endif
