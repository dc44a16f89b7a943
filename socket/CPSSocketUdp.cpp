#include "socket/CPSSocketUdp.h"

#include "ipstack/ps_defines.h"

namespace uxport
{

int CPSSocketUdp::Open(const CMNInetAddr& local)
{
    const int result = CPSSocketBase::Open(PS_AF_INET, PS_SOCK_DGRAM, 0, 0);
    return result == 0 ? Bind_i(local) : result;
}

long CPSSocketUdp::RecvFrom(char* buffer, unsigned long length, CMNInetAddr& from, int flags)
{
    return RecvFrom_i(buffer, length, from, flags);
}

long CPSSocketUdp::SendTo(const char* buffer, unsigned long length, const CMNInetAddr& to, int flags)
{
    return SendTo_i(buffer, length, to, flags);
}

long CPSSocketUdp::SendVTo(const iovec_ace*, unsigned long, const CMNInetAddr&)
{
    return -1;
}

}  // namespace uxport
