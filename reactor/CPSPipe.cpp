#include "reactor/CPSPipe.h"

#include "ipstack/ps_socket.h"
#include "mantle/CMNInetAddr.h"
#include "mantle/CMNMutexThread.h"
#include "socket/PSStackAddress.h"

namespace uxport
{

namespace
{

constexpr const char* PIPE_HOST = "127.0.0.1";
constexpr unsigned short PIPE_PORT = 5555;
constexpr int PIPE_BACKLOG = 5;

// Every pipe of the process goes through the same port, so that two opens at once could accept each other's end.
mantle::CMNMutexThread g_mutexOpen;

int CloseHandle(std::atomic<int>& handle)
{
    const int open = handle.exchange(PS_INVALID_HANDLE);
    return open == PS_INVALID_HANDLE ? 0 : ps_close(open);
}

}  // namespace

MNResult CPSPipe::Open()
{
    mantle::CMNMutexGuard guard(g_mutexOpen);
    const int listener = ps_socket(PS_AF_INET, PS_SOCK_STREAM, 0);
    if (listener < 0)
        return MN_ERROR_FAILURE;
    const MNResult result = Connect_i(listener);
    if (result != MN_OK)
        Close();
    return result;
}

MNResult CPSPipe::Connect_i(int listener)
{
    const CMNInetAddr local(PIPE_HOST, PIPE_PORT);
    if (ps_bind(listener, PSStackAddress(local), local.GetSize()) < 0)
        return MN_ERROR_FAILURE;
    if (ps_listen(listener, PIPE_BACKLOG) == -1)
        return MN_ERROR_FAILURE;

    const int writeEnd = ps_socket(PS_AF_INET, PS_SOCK_STREAM, 0);
    if (writeEnd < 0)
        return MN_ERROR_FAILURE;
    m_nWrite.store(writeEnd, std::memory_order_release);
    if (ps_connect(writeEnd, PSStackAddress(local), local.GetSize()) == -1)
        return MN_ERROR_FAILURE;

    CMNInetAddr own;
    int length = CMNInetAddr::GetInetAddrSize();
    if (ps_getsockname(writeEnd, PSStackAddress(own), &length) != 0)
        return MN_ERROR_FAILURE;
    const int readEnd = Accept_i(listener, own);
    if (readEnd < 0)
        return MN_ERROR_FAILURE;
    m_nRead.store(readEnd, std::memory_order_release);

    ps_nodelay(readEnd, 1);
    ps_nodelay(writeEnd, 1);
    ps_set_snd_rcv_buffer(readEnd, s_nBufferSize, s_nBufferSize);
    ps_set_snd_rcv_buffer(writeEnd, s_nBufferSize, s_nBufferSize);
    return MN_OK;
}

int CPSPipe::Accept_i(int listener, const CMNInetAddr& own)
{
    // Anybody in the process may have connected to the port; those before the own end are turned away.
    for (int tries = 0; tries <= PIPE_BACKLOG; ++tries) {
        CMNInetAddr peer;
        int length = peer.GetSize();
        const int handle = ps_accept(listener, PSStackAddress(peer), &length);
        if (handle < 0 || peer == own)
            return handle;
        ps_close(handle);
    }
    return PS_INVALID_HANDLE;
}

MNResult CPSPipe::Close()
{
    const int read = CloseHandle(m_nRead);
    const int write = CloseHandle(m_nWrite);
    return read != 0 || write != 0 ? MN_ERROR_FAILURE : MN_OK;
}

}  // namespace uxport
