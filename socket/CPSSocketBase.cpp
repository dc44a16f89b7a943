#include "socket/CPSSocketBase.h"

#include <cerrno>

#include "ipstack/ps_socket.h"
#include "mantle/CMNMessageBlock.h"
#include "socket/PSStackAddress.h"

namespace uxport
{

namespace
{

constexpr int FAMILY_LOCAL = 1;  // local (file-named) sockets know no address reuse

using FGetName = int (*)(int, ps_sockaddr*, int*);

int GetName(FGetName getName, int handle, CMNInetAddr& address)
{
    CPSAddressBuffer buffer(address);
    const int result = getName(handle, &buffer.m_Record, &buffer.m_nLength);
    if (result == 0)
        buffer.StoreTo(address);
    return result;
}

}  // namespace

int CPSSocketBase::Open(int family, int type, int protocol, int reuse)
{
    Close();
    SetHandle(ps_socket(family, type, protocol));
    if (GetHandle() == PS_INVALID_HANDLE) {
        const int saved = errno;
        Close();
        errno = saved;
        return -1;
    }
    if (family != FAMILY_LOCAL && reuse != 0) {
        const int on = 1;
        SetOption(PS_SOL_SOCKET_LINUX, PS_SO_LINUX_REUSEADDR, &on, sizeof on);
    }
    return 0;
}

int CPSSocketBase::Close()
{
    const int handle = GetHandle();
    if (handle == PS_INVALID_HANDLE)
        return 0;
    // Forgotten first: another thread that asks for an option meanwhile finds no socket rather than a closed one.
    SetHandle(PS_INVALID_HANDLE);
    return ps_close(handle);
}

int CPSSocketBase::SetOption(int level, int name, const void* value, int length) const
{
    return ps_setsockopt(GetHandle(), level, name, value, length);
}

int CPSSocketBase::GetOption(int level, int name, void* value, int* length) const
{
    return ps_getsockopt(GetHandle(), level, name, value, length);
}

long CPSSocketBase::Recv(char* buffer, unsigned long length, int flags)
{
    return ps_recv(GetHandle(), buffer, length, flags);
}

long CPSSocketBase::Send(const char* buffer, unsigned long length, int flags)
{
    return ps_send(GetHandle(), buffer, length, flags);
}

long CPSSocketBase::RecvV(iovec_ace*, unsigned long)
{
    return -1;
}

long CPSSocketBase::SendV(const iovec_ace* pieces, unsigned long count)
{
    if (count > PS_IOV_MAX)
        return -1;
    ps_iovec vector[PS_IOV_MAX];
    for (unsigned long i = 0; i < count; ++i)
        vector[i] = {pieces[i].iov_base, pieces[i].iov_len};
    return ps_writev(GetHandle(), vector, count);
}

int CPSSocketBase::GetLocalAddr(CMNInetAddr& address) const
{
    return GetName(ps_getsockname, GetHandle(), address);
}

int CPSSocketBase::GetRemoteAddr(CMNInetAddr& address) const
{
    return GetName(ps_getpeername, GetHandle(), address);
}

int CPSSocketBase::Bind_i(const CMNInetAddr& local)
{
    const int result = ps_bind(GetHandle(), PSStackAddress(local), local.GetSize());
    if (result < 0) {
        Close();
        return result;
    }
    return 0;
}

long CPSSocketBase::RecvFrom_i(char* buffer, unsigned long length, CMNInetAddr& from, int flags)
{
    CPSAddressBuffer source(from);
    const long result = ps_recvfrom(GetHandle(), buffer, length, flags, &source.m_Record, &source.m_nLength);
    if (result >= 0)
        source.StoreTo(from);
    return result;
}

long CPSSocketBase::SendTo_i(const char* buffer, unsigned long length, const CMNInetAddr& to, int flags)
{
    return ps_sendto(GetHandle(), buffer, length, flags, PSStackAddress(to), to.GetSize());
}

}  // namespace uxport
