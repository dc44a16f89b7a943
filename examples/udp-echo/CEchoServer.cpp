#include "CEchoServer.h"

#include <algorithm>

using namespace uxport;

CEchoPeer::~CEchoPeer()
{
    if (m_pTransport)
        m_pTransport->Disconnect(0);
}

MNResult CEchoPeer::Open(IPSTransport* transport, CList::iterator place)
{
    m_pTransport = transport;
    m_Place = place;
    m_Timer.Schedule(this, CMNTimeValue(m_Server.GetIdleSeconds(), 0), 1);
    return transport->OpenWithSink(this);
}

MNResult CEchoPeer::OnReceive(CMNMessageBlock& data, IPSTransport* transport, CPSTransportParameter*)
{
    m_Timer.Schedule(this, CMNTimeValue(m_Server.GetIdleSeconds(), 0), 1);
    m_Server.OnHeard(m_Place);
    return transport->SendData(data, nullptr);
}

// The last word of this object, which goes with it; so is the next one.
MNResult CEchoPeer::OnDisconnect(long, IPSTransport*)
{
    m_Server.OnEnded(m_Place);
    return MN_OK;
}

void CEchoPeer::OnTimer(mantle::CMNTimerWrapperID*)
{
    m_Server.OnIdle(m_Place);
}

MNResult CEchoServer::Start(const CMNInetAddr& address)
{
    const MNResult result =
        IPSConnectionManager::Instance()->CreateConnectionServer(CONNECTION_TYPE_UDP, m_pAcceptor.ParaOut());
    return result == MN_OK ? m_pAcceptor->StartListen(this, address, 0, 0) : result;
}

MNResult CEchoServer::Stop()
{
    m_Peers.clear();
    m_pAcceptor = nullptr;
    return MN_OK;
}

MNResult CEchoServer::OnConnectIndication(long, IPSTransport* transport, IPSAcceptorConnectorId*)
{
    if (m_Peers.size() == m_nMostPeers) {
        m_Peers.pop_front();
        ++m_dwDisplaced;
    }
    m_Peers.emplace_back(*this);
    m_nMost = std::max(m_nMost, m_Peers.size());
    return m_Peers.back().Open(transport, std::prev(m_Peers.end()));
}

void CEchoServer::OnIdle(CEchoPeer::CList::iterator peer)
{
    ++m_dwIdle;
    m_Peers.erase(peer);
}
