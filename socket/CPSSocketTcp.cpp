#include "socket/CPSSocketTcp.h"

#include "ipstack/ps_socket.h"

namespace uxport
{

int CPSSocketTcp::Open(int reuse)
{
    return CPSSocketBase::Open(PS_AF_INET, PS_SOCK_STREAM, 0, reuse);
}

int CPSSocketTcp::Open(int reuse, const CMNInetAddr& local)
{
    const int result = Open(reuse);
    return result == 0 ? Bind_i(local) : result;
}

int CPSSocketTcp::Close(long)
{
    return CPSSocketBase::Close();
}

int CPSSocketTcp::CloseWriter()
{
    return ps_shutdown(GetHandle(), PS_SHUT_WR);
}

int CPSSocketTcp::CloseReader()
{
    return ps_shutdown(GetHandle(), PS_SHUT_RD);
}

}  // namespace uxport
