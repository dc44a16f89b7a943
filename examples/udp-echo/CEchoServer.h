// The server of many peers.
#ifndef UDP_ECHO_CECHOSERVER_H
#define UDP_ECHO_CECHOSERVER_H

#include <cstddef>
#include <list>

#include "CExample.h"

// One bound socket; each peer has a transport of its own, which comes with its first datagram.
class CEchoServer : public CExampleSink
{
public:
    MNResult Start(const uxport::CMNInetAddr& address)
    {
        const MNResult result = uxport::IPSConnectionManager::Instance()->CreateConnectionServer(
            uxport::CONNECTION_TYPE_UDP, m_pAcceptor.ParaOut());
        return result == uxport::MN_OK ? m_pAcceptor->StartListen(this, address, 0, 0) : result;
    }

    MNResult OnConnectIndication(long, uxport::IPSTransport* transport, uxport::IPSAcceptorConnectorId*) override
    {
        m_Peers.emplace_back(transport);
        return transport->OpenWithSink(this);
    }

    MNResult OnReceive(uxport::CMNMessageBlock& data, uxport::IPSTransport* transport,
                       uxport::CPSTransportParameter*) override
    {
        return transport->SendData(data, nullptr);
    }

    // UDP knows no end of a connection: whoever serves decides when to forget a peer. Returns: how many there were.
    std::size_t ForgetPeers()
    {
        const std::size_t count = m_Peers.size();
        for (const auto& peer : m_Peers)
            peer->Disconnect(0);
        m_Peers.clear();
        m_pAcceptor->StopListen(0);
        return count;
    }

private:
    mantle::CMNAutoPtr<uxport::IPSAcceptor> m_pAcceptor;
    std::list<mantle::CMNAutoPtr<uxport::IPSTransport>> m_Peers;
};

#endif
