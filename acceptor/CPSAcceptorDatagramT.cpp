#include "acceptor/CPSAcceptorDatagramT.h"

#include <new>
#include <optional>

#include "acceptor/CPSAcceptorRaw.h"
#include "acceptor/CPSAcceptorUdp.h"
#include "mantle/CMNMessageBlock.h"
#include "reactor/CPSReactorBase.h"
#include "reactor/CPSSelfHold.h"
#include "transport/CPSTransportRaw.h"
#include "transport/CPSTransportUdp.h"
#include "transport/PSReceiveBlock.h"
#include "transport/PSTransportOptions.h"
#include "uxport/IPSAcceptorConnectorSink.h"
#include "uxport/IPSTransportSink.h"

namespace uxport
{

template <class Acceptor, class Transport, class Socket>
unsigned long CPSAcceptorDatagramT<Acceptor, Transport, Socket>::ReleaseReference()
{
    const unsigned long count = ReleaseReference_i();
    if (count != 0 && count == m_dwChildren) {
        StopListen(0);
        OnLeft_i();
    }
    return count;
}

template <class Acceptor, class Transport, class Socket>
void CPSAcceptorDatagramT<Acceptor, Transport, Socket>::AddChildReference()
{
    ++m_dwChildren;
    AddReference_i();
}

template <class Acceptor, class Transport, class Socket>
void CPSAcceptorDatagramT<Acceptor, Transport, Socket>::ReleaseChildReference()
{
    --m_dwChildren;
    ReleaseReference_i();
}

template <class Acceptor, class Transport, class Socket>
MNResult CPSAcceptorDatagramT<Acceptor, Transport, Socket>::StartListen(IPSAcceptorConnectorSink* sink,
                                                                        const CMNInetAddr& localAddr,
                                                                        unsigned short number1, unsigned short number2)
{
    if (GetHandle() != PS_INVALID_HANDLE)
        return MN_ERROR_ALREADY_INITIALIZED;
    if (!sink)
        return MN_ERROR_INVALID_ARG;
    m_pSink = sink;
    MNResult result = MN_ERROR_FAILURE;
    if (Open_i(localAddr, number1, number2) == 0) {
        std::uint64_t size = Transport::s_nBufferSize;
        PSSetBufferOption(m_Socket, OPT_SEND_BUFFER, &size);
        PSSetBufferOption(m_Socket, OPT_RECEIVE_BUFFER, &size);
        if (m_Socket.Enable(Socket::s_nNonBlock) == -1)
            return MN_ERROR_FAILURE;
        result = CPSReactorBase::RegisterHandlerIfAlive(m_pReactor, this, READ_MASK);
    }
    if (result != MN_OK) {
        StopListen(static_cast<long>(result));
        CleanUp_i();  // a stop does nothing before the start is complete
        return MN_ERROR_FAILURE;
    }
    m_ListenAddr = localAddr;
    return SetStartFlag();
}

template <class Acceptor, class Transport, class Socket>
MNResult CPSAcceptorDatagramT<Acceptor, Transport, Socket>::StopListen(long)
{
    EnsureStopFlagThread("CPSAcceptorDatagramT::StopListen");
    if (IsFlagStopped())
        return MN_OK;
    OnStop_i();
    CleanUp_i();
    return SetStopFlag();
}

template <class Acceptor, class Transport, class Socket>
void CPSAcceptorDatagramT<Acceptor, Transport, Socket>::CleanUp_i()
{
    if (GetHandle() != PS_INVALID_HANDLE) {
        CPSReactorBase::RemoveHandlerIfAlive(m_pReactor, this, READ_MASK);
        m_Socket.Close();
    }
    m_pSink = nullptr;
}

template <class Acceptor, class Transport, class Socket>
int CPSAcceptorDatagramT<Acceptor, Transport, Socket>::OnInput(int)
{
    const CPSSelfHoldT<CPSAcceptorDatagramT> hold(*this);
    const int handle = GetHandle();
    for (int receives = 0; receives < Transport::s_nMaxReceives; ++receives) {
        CMNInetAddr peer;
        std::optional<CMNMessageBlock> block;
        if (!PSMakeBlock(block, Transport::s_dwReceiveSize))
            return 0;  // the data stays where it is until the next turn
        const long received = m_Socket.RecvFrom(block->GetWritePtr(), block->GetSpace(), peer, 0);
        if (received <= 0)
            return static_cast<int>(received);
        block->AdvanceWritePtr(static_cast<unsigned long>(received));
        Deliver_i(peer, *block);
        if (GetHandle() != handle || hold.IsLast(m_dwChildren))
            return 0;
    }
    return 0;
}

template <class Acceptor, class Transport, class Socket>
void CPSAcceptorDatagramT<Acceptor, Transport, Socket>::Deliver_i(const CMNInetAddr& peer, CMNMessageBlock& block)
{
    mantle::CMNAutoPtr<Transport> transport(FindChild_i(peer));
    if (!transport) {
        transport = new (std::nothrow) Transport(m_pReactor, peer, static_cast<Acceptor*>(this));
        if (!transport)
            PSReportNoMemory("a new peer");
        if (!transport || !AddChildSafely_i(peer, transport.Get()))
            return;
        transport->GetPeer().SetHandle(GetHandle());
        if (m_pSink)
            m_pSink->OnConnectIndication(0, transport.Get(), this);
    }
    if (IPSTransportSink* sink = transport->GetSink())
        sink->OnReceive(block, transport.Get(), nullptr);
}

// Returns: false when there is no table any more or no memory for the peer, which is then as if it had not been heard.
template <class Acceptor, class Transport, class Socket>
bool CPSAcceptorDatagramT<Acceptor, Transport, Socket>::AddChildSafely_i(const CMNInetAddr& peer,
                                                                         Transport* transport) noexcept
{
    try {
        return AddChild_i(peer, transport);
    } catch (const std::bad_alloc&) {
        PSReportNoMemory("a new peer");
        return false;
    }
}

template <class Acceptor, class Transport, class Socket>
MNResult CPSAcceptorDatagramT<Acceptor, Transport, Socket>::RemoveTransport(const CMNInetAddr& peer, Transport*)
{
    EnsureStopFlagThread("CPSAcceptorDatagramT::RemoveTransport");
    if (!IsFlagStopped())
        RemoveChild_i(peer);
    return MN_OK;
}

template class CPSAcceptorDatagramT<CPSAcceptorUdp, CPSTransportUdp, CPSSocketUdp>;
template class CPSAcceptorDatagramT<CPSAcceptorRaw, CPSTransportRaw, CPSSocketRaw>;

}  // namespace uxport
