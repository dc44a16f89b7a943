#include "transport/CPSTransportDatagramT.h"

#include "acceptor/CPSAcceptorRaw.h"
#include "acceptor/CPSAcceptorUdp.h"
#include "ipstack/ps_socket.h"
#include "mantle/CMNMessageBlock.h"
#include "transport/CPSTransportRaw.h"
#include "transport/CPSTransportUdp.h"
#include "transport/PSTransportOptions.h"
#include "uxport/IPSTransportSink.h"

namespace uxport
{

template <class Transport, class Acceptor, class Socket>
CPSTransportDatagramT<Transport, Acceptor, Socket>::CPSTransportDatagramT(IPSReactor* reactor, const CMNInetAddr& peer,
                                                                          Acceptor* acceptor)
    : CPSTransportBase(reactor), m_pAcceptor(acceptor), m_PeerAddr(peer)
{
    if (m_pAcceptor)
        m_pAcceptor->AddChildReference();
}

template <class Transport, class Acceptor, class Socket>
CPSTransportDatagramT<Transport, Acceptor, Socket>::~CPSTransportDatagramT()
{
    if (m_pAcceptor)
        m_pAcceptor->ReleaseChildReference();
}

template <class Transport, class Acceptor, class Socket>
MNResult CPSTransportDatagramT<Transport, Acceptor, Socket>::Open_t()
{
    if (m_pAcceptor)
        return MN_OK;
    PSTuneBuffers(*this);
    if (m_Socket.Enable(Socket::s_nNonBlock) == -1)
        return MN_ERROR_FAILURE;
    const MNResult result = CPSReactorBase::RegisterHandlerIfAlive(m_pReactor, this, READ_MASK);
    return result == MN_ERROR_FOUND ? MN_OK : result;
}

template <class Transport, class Acceptor, class Socket>
MNResult CPSTransportDatagramT<Transport, Acceptor, Socket>::Close_t(long)
{
    if (GetHandle() == PS_INVALID_HANDLE)
        return MN_OK;
    if (m_pAcceptor) {
        m_pAcceptor->RemoveTransport(m_PeerAddr, static_cast<Transport*>(this));
        m_Socket.SetHandle(PS_INVALID_HANDLE);
    } else {
        CPSReactorBase::RemoveHandlerIfAlive(m_pReactor, this, ALL_EVENTS_MASK);
        m_Socket.Close();
    }
    return MN_OK;
}

template <class Transport, class Acceptor, class Socket>
MNResult CPSTransportDatagramT<Transport, Acceptor, Socket>::SendData(CMNMessageBlock& data,
                                                                      CPSTransportParameter* param)
{
    if (param)
        param->SentLength = 0;
    if (GetHandle() == PS_INVALID_HANDLE)
        return MN_ERROR_NOT_INITIALIZED;
    if (param)
        param->SentLength = data.GetChainedLength();
    return SendInternal(data);
}

template <class Transport, class Acceptor, class Socket>
MNResult CPSTransportDatagramT<Transport, Acceptor, Socket>::SendInternal(CMNMessageBlock& data)
{
    const char* bytes = data.GetReadPtr();
    const unsigned long length = data.GetLength();
    const long sent = m_pAcceptor ? m_Socket.SendTo(bytes, length, m_PeerAddr, 0) : m_Socket.Send(bytes, length, 0);
    if (sent < 0)
        return MN_ERROR_FAILURE;
    data.AdvanceChainedReadPtr(static_cast<unsigned long>(sent));
    return MN_OK;
}

template <class Transport, class Acceptor, class Socket>
int CPSTransportDatagramT<Transport, Acceptor, Socket>::OnOutput(int)
{
    if (m_pSink)
        m_pSink->OnSend(this, nullptr);
    return 0;
}

template <class Transport, class Acceptor, class Socket>
MNResult CPSTransportDatagramT<Transport, Acceptor, Socket>::SetOption(unsigned long optionId, void* arg)
{
    return PSSetBufferOption(m_Socket, optionId, arg);
}

template <class Transport, class Acceptor, class Socket>
MNResult CPSTransportDatagramT<Transport, Acceptor, Socket>::GetOption(unsigned long optionId, void* arg)
{
    if (!arg)
        return MN_ERROR_INVALID_ARG;
    switch (optionId) {
    case OPT_PEER_ADDR:
        *static_cast<CMNInetAddr*>(arg) = m_PeerAddr;
        return MN_OK;
    case OPT_ALIVE: {
        const bool open = GetHandle() != PS_INVALID_HANDLE;
        *static_cast<std::int32_t*>(arg) = open ? 1 : 0;
        return open ? MN_OK : MN_ERROR_NOT_INITIALIZED;
    }
    case OPT_TYPE:
        *static_cast<std::uint64_t*>(arg) = CONNECTION_TYPE_UDP;
        return MN_OK;
    // These two are asked for in the numbering of Linux and crossed: each answers what the socket has for the other.
    case OPT_SEND_BUFFER:
        return PSGetSocketOption(m_Socket, PS_SOL_SOCKET_LINUX, PS_SO_LINUX_RCVBUF, arg);
    case OPT_RECEIVE_BUFFER:
        return PSGetSocketOption(m_Socket, PS_SOL_SOCKET_LINUX, PS_SO_LINUX_SNDBUF, arg);
    default:
        return PSGetCommonOption(m_Socket, optionId, arg);
    }
}

template class CPSTransportDatagramT<CPSTransportUdp, CPSAcceptorUdp, CPSSocketUdp>;
template class CPSTransportDatagramT<CPSTransportRaw, CPSAcceptorRaw, CPSSocketRaw>;

}  // namespace uxport
