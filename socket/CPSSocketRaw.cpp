#include "socket/CPSSocketRaw.h"

#include "ipstack/ps_defines.h"

namespace uxport
{

int CPSSocketRaw::OpenRawSocket(unsigned short family, unsigned short protocol)
{
    return Open(family, PS_SOCK_RAW, protocol, 1);
}

int CPSSocketRaw::OpenRawSocket(unsigned short family, unsigned short protocol, const CMNInetAddr& local)
{
    const int result = Open(family, PS_SOCK_RAW, protocol, 0);
    return result == 0 ? Bind_i(local) : result;
}

int CPSSocketRaw::Close(long)
{
    return CPSSocketBase::Close();
}

long CPSSocketRaw::RecvFrom(char* buffer, unsigned long length, CMNInetAddr& from, int flags)
{
    return RecvFrom_i(buffer, length, from, flags);
}

long CPSSocketRaw::SendTo(const char* buffer, unsigned long length, const CMNInetAddr& to, int flags)
{
    return SendTo_i(buffer, length, to, flags);
}

}  // namespace uxport
