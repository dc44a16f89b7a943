#include "acceptor/CPSAcceptorRaw.h"

namespace uxport
{

CPSAcceptorRaw::~CPSAcceptorRaw()
{
    CPSAcceptorRaw::StopListen(0);
}

int CPSAcceptorRaw::Open_i(const CMNInetAddr&, unsigned short family, unsigned short protocol)
{
    return m_Socket.OpenRawSocket(family, protocol);
}

CPSTransportRaw* CPSAcceptorRaw::FindChild_i(const CMNInetAddr& peer)
{
    CPSTransportRaw* transport = m_Peers.FindTransport(peer, GetListenAddr_i());
    if (transport)
        transport->GetPeer().SetHandle(GetHandle());  // it may be from before a stop
    return transport;
}

bool CPSAcceptorRaw::AddChild_i(const CMNInetAddr& peer, CPSTransportRaw* transport)
{
    m_Peers.AddTransport(peer, GetListenAddr_i(), transport);
    return true;
}

void CPSAcceptorRaw::RemoveChild_i(const CMNInetAddr& peer)
{
    if (CPSTransportRaw* transport = m_Peers.FindTransport(peer, GetListenAddr_i()))
        transport->GetPeer().SetHandle(PS_INVALID_HANDLE);
    m_Peers.RemoveTransport(peer, GetListenAddr_i());
}

void CPSAcceptorRaw::OnStop_i()
{
    m_Peers.ForEach([](CPSTransportRaw& transport) { transport.GetPeer().SetHandle(PS_INVALID_HANDLE); });
}

}  // namespace uxport
