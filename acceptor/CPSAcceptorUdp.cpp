#include "acceptor/CPSAcceptorUdp.h"

#include "acceptor/CPSUdpTransportHashMap.h"
#include "transport/CPSTransportUdp.h"

namespace uxport
{

namespace
{

CPSUdpTransportHashMap* Transports()
{
    return CPSUdpTransportHashMap::s_pUdpTransports;
}

}  // namespace

CPSAcceptorUdp::CPSAcceptorUdp(IPSReactor* reactor) : CPSAcceptorDatagramT(reactor)
{
    CPSUdpTransportHashMap::Create_s();
}

CPSAcceptorUdp::~CPSAcceptorUdp()
{
    CPSAcceptorUdp::StopListen(0);
}

int CPSAcceptorUdp::Open_i(const CMNInetAddr& localAddr, unsigned short, unsigned short)
{
    return m_Socket.Open(localAddr);
}

CPSTransportUdp* CPSAcceptorUdp::FindChild_i(const CMNInetAddr& peer)
{
    return Transports() ? Transports()->Find(Key_i(peer)) : nullptr;
}

bool CPSAcceptorUdp::AddChild_i(const CMNInetAddr& peer, CPSTransportUdp* transport)
{
    if (!Transports())
        return false;
    Transports()->Add(Key_i(peer), transport);
    return true;
}

void CPSAcceptorUdp::RemoveChild_i(const CMNInetAddr& peer)
{
    if (Transports())
        Transports()->Remove(Key_i(peer));
}

void CPSAcceptorUdp::OnStop_i()
{
    if (Transports())
        Transports()->RemoveAllOf(GetListenAddr_i());
}

}  // namespace uxport
