#include "transport/CPSTransportTcp.h"

#include "ipstack/ps_socket.h"
#include "mantle/CMNMessageBlock.h"
#include "reactor/CPSReactorBase.h"
#include "transport/PSTransportOptions.h"
#include "uxport/IPSTransportSink.h"

namespace uxport
{

CPSTransportTcp::~CPSTransportTcp()
{
    CPSTransportTcp::Close_t(0);
}

MNResult CPSTransportTcp::Open_t()
{
    PSTuneBuffers(*this);
    ps_nodelay(GetHandle(), 1);
    if (ps_socket_nonblock(GetHandle()) == -1)
        return MN_ERROR_FAILURE;
    m_Socket.GetLocalAddr(m_LocalAddr);
    m_Socket.GetRemoteAddr(m_PeerAddr);
    const MNResult result = CPSReactorBase::RegisterHandlerIfAlive(m_pReactor, this, READ_MASK);
    return result == MN_ERROR_FOUND ? MN_OK : result;
}

MNResult CPSTransportTcp::Close_t(long reason)
{
    m_Timer.Cancel();
    if (GetHandle() != PS_INVALID_HANDLE) {
        CPSReactorBase::RemoveHandlerIfAlive(m_pReactor, this, ALL_EVENTS_MASK);
        m_Socket.Close(reason);
    }
    return MN_OK;
}

long CPSTransportTcp::Write_i(CMNMessageBlock& data)
{
    iovec_ace pieces[PS_IOV_MAX];
    const unsigned long count = data.FillIov(pieces, PS_IOV_MAX);
    if (count == 0)
        return 0;
    const long written = m_Socket.SendV(pieces, count);
    if (written > 0)
        data.AdvanceChainedReadPtr(static_cast<unsigned long>(written));
    return written;
}

MNResult CPSTransportTcp::SendData(CMNMessageBlock& data, CPSTransportParameter* param)
{
    if (data.GetChainedLength() == 0)
        return MN_OK;
    if (param)
        param->SentLength = 0;
    if (GetHandle() == PS_INVALID_HANDLE)
        return MN_ERROR_NOT_INITIALIZED;
    const long written = Write_i(data);
    if (written == -1)
        return MN_ERROR_NETWORK_SOCKET_ERROR;
    if (written > 0) {
        if (param)
            param->SentLength = static_cast<std::uint64_t>(written);
        if (data.GetChainedLength() == 0)
            return MN_OK;
    }
    m_lOwesOnSend.store(1);
    CPSReactorBase::RegisterHandlerIfAlive(m_pReactor, this, READ_MASK | WRITE_MASK);
    return MN_ERROR_PARTIAL_DATA;
}

MNResult CPSTransportTcp::SendInternal(CMNMessageBlock& data)
{
    return Write_i(data) == -1 ? MN_ERROR_NETWORK_SOCKET_ERROR : MN_OK;
}

int CPSTransportTcp::OnOutput(int)
{
    CPSReactorBase::RegisterHandlerIfAlive(m_pReactor, this, READ_MASK);
    if (m_lOwesOnSend.exchange(0) == 1 && m_pSink)
        m_pSink->OnSend(this, nullptr);
    return 0;
}

void CPSTransportTcp::OnTimer(mantle::CMNTimerWrapperID*) {}

MNResult CPSTransportTcp::SetOption(unsigned long optionId, void* arg)
{
    if (!arg)
        return MN_ERROR_INVALID_ARG;
    switch (optionId) {
    case OPT_FD:
        if (*static_cast<std::int32_t*>(arg) != PS_INVALID_HANDLE)
            return MN_ERROR_INVALID_ARG;
        PSForgetSocket(m_pReactor, this, m_Socket);
        return MN_OK;
    case OPT_KEEPALIVE:
        return SetKeepAlive_i(*static_cast<std::uint64_t*>(arg));
    default:
        return PSSetBufferOption(m_Socket, optionId, arg);
    }
}

MNResult CPSTransportTcp::SetKeepAlive_i(std::uint64_t seconds)
{
    const std::int32_t on = seconds != 0 ? 1 : 0;
    const MNResult result = PSSetSocketOption(m_Socket, PS_SOL_SOCKET, PS_SO_KEEPALIVE, &on, sizeof on);
    if (result != MN_OK || seconds == 0)
        return result;
    return PSSetSocketOption(m_Socket, PS_IPPROTO_TCP, PS_TCP_KEEPIDLE, &seconds, sizeof seconds);
}

MNResult CPSTransportTcp::GetOption(unsigned long optionId, void* arg)
{
    if (!arg)
        return MN_ERROR_INVALID_ARG;
    switch (optionId) {
    case OPT_PEER_ADDR:
        return PSSocketResult(m_Socket.GetRemoteAddr(*static_cast<CMNInetAddr*>(arg)));
    case OPT_ALIVE:
        return GetAlive_i(*static_cast<std::int32_t*>(arg));
    case OPT_TYPE:
        *static_cast<std::uint64_t*>(arg) = CONNECTION_TYPE_TCP;
        return MN_OK;
    case OPT_SEND_BUFFER:
        return PSGetSocketOption(m_Socket, PS_SOL_SOCKET, PS_SO_SNDBUF, arg);
    case OPT_RECEIVE_BUFFER:
        return PSGetSocketOption(m_Socket, PS_SOL_SOCKET, PS_SO_RCVBUF, arg);
    default:
        return PSGetCommonOption(m_Socket, optionId, arg);
    }
}

MNResult CPSTransportTcp::GetAlive_i(std::int32_t& alive)
{
    alive = 0;
    if (GetHandle() == PS_INVALID_HANDLE)
        return MN_ERROR_NOT_INITIALIZED;
    char byte = 0;
    const long received = m_Socket.Recv(&byte, sizeof byte, PS_MSG_PEEK);
    if (received > 0 || (received < 0 && get_pserrno() == PS_EINPROGRESS))
        alive = 1;
    return MN_OK;
}

}  // namespace uxport
