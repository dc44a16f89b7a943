#include "acceptor/CPSAcceptorTcp.h"

#include <new>

#include "ipstack/ps_socket.h"
#include "mantle/CMNInetAddr.h"
#include "reactor/CPSReactorBase.h"
#include "reactor/CPSSelfHold.h"
#include "reactor/PSNoMemory.h"
#include "socket/PSStackAddress.h"
#include "transport/CPSTransportTcp.h"
#include "uxport/IPSAcceptorConnectorSink.h"

namespace uxport
{

CPSAcceptorTcp::~CPSAcceptorTcp()
{
    CPSAcceptorTcp::StopListen(0);
}

MNResult CPSAcceptorTcp::StartListen(IPSAcceptorConnectorSink* sink, const CMNInetAddr& localAddr, unsigned short,
                                     unsigned short)
{
    if (GetHandle() != PS_INVALID_HANDLE)
        return MN_ERROR_ALREADY_INITIALIZED;
    if (!sink)
        return MN_ERROR_INVALID_ARG;
    m_pSink = sink;
    if (Listen_i(localAddr) && CPSReactorBase::RegisterHandlerIfAlive(m_pReactor, this, ACCEPT_MASK) == MN_OK)
        return MN_OK;
    StopListen(static_cast<long>(MN_ERROR_FAILURE));
    return MN_ERROR_FAILURE;
}

bool CPSAcceptorTcp::Listen_i(const CMNInetAddr& localAddr)
{
    return m_Socket.Open(1) == 0 && ps_socket_nonblock(GetHandle()) != -1 &&
           ps_bind(GetHandle(), PSStackAddress(localAddr), localAddr.GetSize()) != -1 &&
           ps_listen(GetHandle(), s_nBacklog) != -1;
}

MNResult CPSAcceptorTcp::StopListen(long reason)
{
    if (GetHandle() != PS_INVALID_HANDLE) {
        CPSReactorBase::RemoveHandlerIfAlive(m_pReactor, this, ACCEPT_MASK);
        m_Socket.Close(reason);
    }
    m_pSink = nullptr;
    return MN_OK;
}

int CPSAcceptorTcp::OnInput(int)
{
    const CPSSelfHoldT<CPSAcceptorTcp> hold(*this);
    while (AcceptOne_i() && !hold.IsLast()) {
    }
    return 0;
}

bool CPSAcceptorTcp::AcceptOne_i()
{
    CMNInetAddr peer;
    int length = peer.GetSize();
    const int handle = ps_accept(GetHandle(), PSStackAddress(peer), &length);
    if (handle < 0)
        return false;
    auto* transport = new (std::nothrow) CPSTransportTcp(m_pReactor);
    if (!transport) {
        PSReportNoMemory("an accepted connection");
        ps_close(handle);
        return true;
    }
    transport->GetPeer().SetHandle(handle);
    if (transport->GetPeer().Enable(CPSIPCBase::s_nNonBlock) != 0) {
        delete transport;
        return false;
    }
    transport->AddReference();
    if (m_pSink)
        m_pSink->OnConnectIndication(0, transport, this);
    transport->ReleaseReference();
    return true;
}

}  // namespace uxport
