#include "ipstack/ps_socket.h"

#include <climits>
#include <new>

#include "CIPCounters.h"
#include "CIPError.h"
#include "CIPSocket.h"
#include "CIPSocketRaw.h"
#include "CIPSocketTable.h"
#include "CIPSocketTcp.h"
#include "CIPSocketUdp.h"

using namespace ipstack;

namespace
{

constexpr int s_nProtocolMost = 255;
constexpr int s_nFamilyNone = 0;

// Returns: the socket, or null with the error number.
CIPSocket* MakeSocket(int family, int type, int protocol, int& error)
{
    error = PS_ENOMEM;
    switch (type) {
    case PS_SOCK_STREAM:
        return new (std::nothrow) CIPSocketTcp(family);
    case PS_SOCK_DGRAM: {
        auto* socket = new (std::nothrow) CIPSocketUdp(family);
        if (!socket || socket->IsUsable()) {
            return socket;
        }
        delete socket;
        return nullptr;
    }
    default: {
        auto* socket = new (std::nothrow) CIPSocketRaw(family, static_cast<u8_t>(protocol));
        if (!socket || socket->IsUsable()) {
            return socket;
        }
        delete socket;
        return nullptr;
    }
    }
}

// Returns: 0 or an error number.
int CheckKind(int family, int type, int protocol)
{
    if (family != PS_AF_INET && family != PS_AF_INET6) {
        return PS_EAFNOSUPPORT;
    }
    switch (type) {
    case PS_SOCK_STREAM:
        return protocol == 0 || protocol == PS_IPPROTO_TCP ? 0 : PS_EPROTONOSUPPORT;
    case PS_SOCK_DGRAM:
        return protocol == 0 || protocol == PS_IPPROTO_UDP ? 0 : PS_EPROTONOSUPPORT;
    case PS_SOCK_RAW:
        return protocol > 0 && protocol <= s_nProtocolMost ? 0 : PS_EPROTONOSUPPORT;
    default:
        return PS_EINVAL;
    }
}

bool IsDisconnect(const ps_sockaddr* address, int length)
{
    constexpr int lead = 2;
    return address && length >= lead && address->sa_family == s_nFamilyNone;
}

// Calls `operation` on the handle's socket and answers for it.
template <class Operation>
long With(int handle, Operation operation)
{
    CIPSocketUse use(handle);
    try {
        return CIPError::Answer(use ? operation(*use.Get()) : -PS_EBADF);
    } catch (const std::bad_alloc&) {  // a thread's first wait
        CIPCounters::Add(CIPCounters::MemoryFailed);
        return CIPError::Fail(PS_ENOMEM);
    }
}

long SendPieces(int handle, const ps_iovec* pieces, unsigned long count, const ps_sockaddr* address, int length)
{
    return With(handle, [&](CIPSocket& socket) -> long {
        if (!address) {
            return socket.Send(pieces, count, nullptr);
        }
        CIPAddress to;
        if (const int error = to.Read(address, length)) {
            return -error;
        }
        return socket.Send(pieces, count, &to);
    });
}

}  // namespace

extern "C" {

int ps_socket(int family, int type, int protocol)
{
    if (!CIPCore::Instance().IsStarted()) {
        return CIPError::Fail(PS_ENETDOWN);
    }
    if (const int error = CheckKind(family, type, protocol)) {
        return CIPError::Fail(error);
    }
    CIPCoreGuard guard;
    if (CIPSocketTable::IsFull()) {
        return CIPError::Fail(PS_EMFILE);
    }
    int error = 0;
    CIPSocket* socket = MakeSocket(family, type, protocol, error);
    if (!socket) {
        CIPCounters::Add(CIPCounters::MemoryFailed);
        return CIPError::Fail(error);
    }
    const int handle = CIPSocketTable::Open(socket);
    if (handle == 0) {
        socket->CloseLocked();
        delete socket;
        return CIPError::Fail(PS_EMFILE);
    }
    socket->SetHandleLocked(handle);
    if (CIPSocketTable::IsFull()) {
        CIPTcpBacklog::OnTableFull();
    }
    return handle;
}

int ps_bind(int handle, const ps_sockaddr* address, int length)
{
    return static_cast<int>(With(handle, [&](CIPSocket& socket) -> long {
        CIPAddress local;
        const int error = local.Read(address, length);
        return error != 0 ? -error : socket.Bind(local);
    }));
}

int ps_listen(int handle, int backlog)
{
    return static_cast<int>(With(handle, [&](CIPSocket& socket) { return socket.Listen(backlog); }));
}

int ps_accept(int handle, ps_sockaddr* address, int* length)
{
    return static_cast<int>(With(handle, [&](CIPSocket& socket) {
        CIPAddress peer;
        const long result = socket.Accept(peer);
        if (result >= 0) {
            peer.Write(address, length);
        }
        return result;
    }));
}

int ps_connect(int handle, const ps_sockaddr* address, int length)
{
    return static_cast<int>(With(handle, [&](CIPSocket& socket) -> long {
        if (IsDisconnect(address, length)) {
            return socket.Disconnect();
        }
        CIPAddress peer;
        const int error = peer.Read(address, length);
        return error != 0 ? -error : socket.Connect(peer);
    }));
}

long ps_send(int handle, const void* data, unsigned long length, int flags)
{
    return ps_sendto(handle, data, length, flags, nullptr, 0);
}

long ps_sendto(int handle, const void* data, unsigned long length, int, const ps_sockaddr* address, int addressLength)
{
    const ps_iovec piece = {const_cast<void*>(data), length};
    return SendPieces(handle, &piece, 1, address, addressLength);
}

long ps_writev(int handle, const ps_iovec* pieces, unsigned long count)
{
    if ((!pieces && count != 0) || count > PS_IOV_MAX) {
        return With(handle, [](CIPSocket&) -> long { return -PS_EINVAL; });
    }
    return SendPieces(handle, pieces, count, nullptr, 0);
}

long ps_recv(int handle, void* data, unsigned long length, int flags)
{
    return ps_recvfrom(handle, data, length, flags, nullptr, nullptr);
}

long ps_recvfrom(int handle, void* data, unsigned long length, int flags, ps_sockaddr* address, int* addressLength)
{
    return With(handle, [&](CIPSocket& socket) -> long {
        if ((!data && length != 0) || length > LONG_MAX) {
            return -PS_EINVAL;
        }
        CIPAddress from;
        const long result = socket.Receive(data, length, (flags & PS_MSG_PEEK) != 0, from);
        if (result >= 0 && address) {
            from.Write(address, addressLength);
        }
        return result;
    });
}

int ps_close(int handle)
{
    return static_cast<int>(CIPError::Answer(CIPSocketCloser::Close(handle)));
}

int ps_shutdown(int handle, int direction)
{
    return static_cast<int>(With(handle, [&](CIPSocket& socket) { return socket.Shutdown(direction); }));
}

int ps_getsockname(int handle, ps_sockaddr* address, int* length)
{
    return static_cast<int>(With(handle, [&](CIPSocket& socket) -> long {
        if (!address || !length || *length < 0) {
            return -PS_EINVAL;
        }
        CIPAddress local;
        const long result = socket.GetLocal(local);
        if (result == 0) {
            local.Write(address, length);
        }
        return result;
    }));
}

int ps_getpeername(int handle, ps_sockaddr* address, int* length)
{
    return static_cast<int>(With(handle, [&](CIPSocket& socket) -> long {
        if (!address || !length || *length < 0) {
            return -PS_EINVAL;
        }
        CIPAddress peer;
        const long result = socket.GetPeer(peer);
        if (result == 0) {
            peer.Write(address, length);
        }
        return result;
    }));
}

int get_pserrno(void)
{
    return CIPError::Get();
}

}  // extern "C"
