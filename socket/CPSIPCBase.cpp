#include "socket/CPSIPCBase.h"

#include "ipstack/ps_socket.h"

namespace uxport
{

int CPSIPCBase::Enable(int value)
{
    if (value != s_nNonBlock)
        return -1;
    return ps_socket_nonblock(GetHandle()) == -1 ? -1 : 0;
}

int CPSIPCBase::Disable(int value)
{
    if (value != s_nNonBlock)
        return -1;
    const int flags = ps_fcntl(GetHandle(), PS_F_GETFL, 0);
    if (flags == -1)
        return -1;
    return ps_fcntl(GetHandle(), PS_F_SETFL, flags & ~PS_O_NONBLOCK) == -1 ? -1 : 0;
}

int CPSIPCBase::Control(int command, void* arg)
{
    return ps_ioctl(GetHandle(), command, arg);
}

}  // namespace uxport
