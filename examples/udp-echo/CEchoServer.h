// The server of many peers.
#ifndef UDP_ECHO_CECHOSERVER_H
#define UDP_ECHO_CECHOSERVER_H

#include <cstddef>
#include <list>

#include "CExample.h"

class CEchoServer;

// One of them, until it has been silent for so long, or gives way to others.
class CEchoPeer : public uxport::IPSTransportSink, public mantle::CMNTimerWrapperIDSink
{
public:
    using MNResult = uxport::MNResult;
    using CList = std::list<CEchoPeer>;

    explicit CEchoPeer(CEchoServer& server) : m_Server(server) {}
    ~CEchoPeer() override;

    // `place`: its own in the server's list.
    MNResult Open(uxport::IPSTransport* transport, CList::iterator place);

    MNResult OnReceive(uxport::CMNMessageBlock& data, uxport::IPSTransport* transport,
                       uxport::CPSTransportParameter* param) override;
    MNResult OnSend(uxport::IPSTransport*, uxport::CPSTransportParameter*) override { return uxport::MN_OK; }
    MNResult OnDisconnect(long reason, uxport::IPSTransport* transport) override;
    void OnTimer(mantle::CMNTimerWrapperID* timer) override;

private:
    CEchoServer& m_Server;
    mantle::CMNAutoPtr<uxport::IPSTransport> m_pTransport;
    mantle::CMNTimerWrapperID m_Timer;
    CList::iterator m_Place;
};

// One bound socket; each peer has a transport of its own, which comes with its first datagram. UDP knows no end of a
// connection, and anybody can be many peers: whoever serves decides when to forget one and how many there may be.
// Thread: the network thread, so that nothing of theirs waits on its way to another.
class CEchoServer : public uxport::IPSAcceptorConnectorSink
{
public:
    // Units: peers, at least 1; seconds.
    CEchoServer(std::size_t mostPeers, long idleSeconds) : m_nMostPeers(mostPeers), m_lIdleSeconds(idleSeconds) {}

    uxport::MNResult Start(const uxport::CMNInetAddr& address);
    uxport::MNResult Stop();  // forgets them all

    // At the bound the peer that has been silent for longest gives way to the new one.
    uxport::MNResult OnConnectIndication(long result, uxport::IPSTransport* transport,
                                         uxport::IPSAcceptorConnectorId* id) override;

    // Of the peers.
    void OnHeard(CEchoPeer::CList::iterator peer) { m_Peers.splice(m_Peers.end(), m_Peers, peer); }
    void OnIdle(CEchoPeer::CList::iterator peer);
    void OnEnded(CEchoPeer::CList::iterator peer) { m_Peers.erase(peer); }
    long GetIdleSeconds() const { return m_lIdleSeconds; }

    // Behind Stop: how many there were at a time at most, and were forgotten before. Thread: any.
    std::size_t GetMost() const { return m_nMost; }
    unsigned long GetDisplaced() const { return m_dwDisplaced; }
    unsigned long GetIdle() const { return m_dwIdle; }

private:
    const std::size_t m_nMostPeers;
    const long m_lIdleSeconds;
    mantle::CMNAutoPtr<uxport::IPSAcceptor> m_pAcceptor;
    CEchoPeer::CList m_Peers;  // whoever was heard last is the last
    std::size_t m_nMost = 0;
    unsigned long m_dwDisplaced = 0;
    unsigned long m_dwIdle = 0;
};

#endif
