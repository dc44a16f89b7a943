// Steps that the transports' options share.
#ifndef UXPORT_TRANSPORT_PSTRANSPORTOPTIONS_H
#define UXPORT_TRANSPORT_PSTRANSPORTOPTIONS_H

#include <cstdint>

#include "reactor/CPSReactorBase.h"
#include "socket/CPSSocketBase.h"
#include "uxport/PSDefines.h"

namespace uxport
{

inline MNResult PSSocketResult(int result)
{
    return result == -1 ? MN_ERROR_NETWORK_SOCKET_ERROR : MN_OK;
}

inline MNResult PSSetSocketOption(CPSSocketBase& socket, int level, int name, const void* value, std::size_t length)
{
    return PSSocketResult(socket.SetOption(level, name, value, static_cast<int>(length)));
}

// Into a 64-bit value.
inline MNResult PSGetSocketOption(CPSSocketBase& socket, int level, int name, void* value)
{
    int length = sizeof(std::uint64_t);
    return PSSocketResult(socket.GetOption(level, name, value, &length));
}

// Makes the transport forget its socket without closing it. The registration goes first, or the reactor would
// be left with a handler that it can't find by its handle any more. Thread: any.
inline void PSForgetSocket(IPSReactor* reactor, const IPSEventHandler* handler, CPSSocketBase& socket)
{
    CPSReactorBase::ForgetHandler(reactor, handler);
    socket.SetHandle(PS_INVALID_HANDLE);
}

}  // namespace uxport

#endif
