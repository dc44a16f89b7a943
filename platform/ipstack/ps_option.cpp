#include "CIPError.h"
#include "CIPSocket.h"
#include "CIPSocketTable.h"
#include "ipstack/ps_socket.h"

using namespace ipstack;

namespace
{

// Calls `operation` on the handle's socket and answers for it.
template <class Operation>
int With(int handle, Operation operation)
{
    CIPSocketUse use(handle);
    return static_cast<int>(CIPError::Answer(use ? operation(*use.Get()) : -PS_EBADF));
}

}  // namespace

extern "C" {

int ps_setsockopt(int handle, int level, int name, const void* value, int length)
{
    return With(handle, [&](CIPSocket& socket) { return socket.SetOption(level, name, value, length); });
}

int ps_getsockopt(int handle, int level, int name, void* value, int* length)
{
    return With(handle, [&](CIPSocket& socket) { return socket.GetOption(level, name, value, length); });
}

int ps_fcntl(int handle, int command, int value)
{
    return With(handle, [&](CIPSocket& socket) -> long {
        if (command == PS_F_GETFL) {
            return socket.IsNonBlocking() ? PS_O_NONBLOCK : 0;
        }
        if (command != PS_F_SETFL || (value & ~PS_O_NONBLOCK) != 0) {
            return -PS_EINVAL;
        }
        socket.SetNonBlocking(value != 0);
        return 0;
    });
}

int ps_ioctl(int handle, int command, void* value)
{
    return With(handle, [&](CIPSocket& socket) -> long {
        if (command != PS_FIONREAD || !value) {
            return -PS_EINVAL;
        }
        *static_cast<int32_t*>(value) = static_cast<int32_t>(socket.GetWaiting());
        return 0;
    });
}

int ps_socket_nonblock(int handle)
{
    return ps_fcntl(handle, PS_F_SETFL, PS_O_NONBLOCK);
}

int ps_nodelay(int handle, int on)
{
    return ps_setsockopt(handle, PS_IPPROTO_TCP, PS_TCP_NODELAY, &on, sizeof(on));
}

int ps_set_snd_rcv_buffer(int handle, int send, int receive)
{
    return With(handle, [&](CIPSocket& socket) { return socket.SetLimits(send, receive); });
}

int ps_is_socket_errno(int handle)
{
    return With(handle, [](CIPSocket& socket) -> long { return socket.GetError(); });
}

}  // extern "C"
