// Steps that the transports' options share.
#ifndef UXPORT_TRANSPORT_PSTRANSPORTOPTIONS_H
#define UXPORT_TRANSPORT_PSTRANSPORTOPTIONS_H

#include <cstdint>

#include "ipstack/ps_socket.h"
#include "reactor/CPSReactorBase.h"
#include "socket/CPSSocketBase.h"
#include "transport/CPSTransportBase.h"
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

// What every transport asks its socket in the same way. Returns: also MN_ERROR_INVALID_ARG for any other option.
inline MNResult PSGetCommonOption(CPSSocketBase& socket, unsigned long optionId, void* arg)
{
    switch (optionId) {
    case OPT_BYTES_TO_READ:
        return PSSocketResult(socket.Control(PS_FIONREAD, arg));
    case OPT_FD:
        *static_cast<std::int32_t*>(arg) = socket.GetHandle();
        return MN_OK;
    case OPT_LOCAL_ADDR:
        return PSSocketResult(socket.GetLocalAddr(*static_cast<CMNInetAddr*>(arg)));
    default:
        return MN_ERROR_INVALID_ARG;
    }
}

// The two options that every transport takes. Returns: also MN_ERROR_INVALID_ARG for null and any other option.
inline MNResult PSSetBufferOption(CPSSocketBase& socket, unsigned long optionId, const void* arg)
{
    if (!arg || (optionId != OPT_SEND_BUFFER && optionId != OPT_RECEIVE_BUFFER))
        return MN_ERROR_INVALID_ARG;
    const int name = optionId == OPT_SEND_BUFFER ? PS_SO_SNDBUF : PS_SO_RCVBUF;
    return PSSetSocketOption(socket, PS_SOL_SOCKET, name, arg, sizeof(std::uint64_t));
}

// The buffers that a transport opens its socket with; what the stack makes of it does not matter.
inline void PSTuneBuffers(CPSTransportBase& transport)
{
    std::uint64_t size = CPSTransportBase::s_nBufferSize;
    transport.SetOption(OPT_SEND_BUFFER, &size);
    transport.SetOption(OPT_RECEIVE_BUFFER, &size);
    ps_set_snd_rcv_buffer(transport.GetHandle(), CPSTransportBase::s_nBufferSize, CPSTransportBase::s_nBufferSize);
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
