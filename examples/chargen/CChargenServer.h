// The server of both protocols, on the network thread.
#ifndef CHARGEN_CCHARGENSERVER_H
#define CHARGEN_CCHARGENSERVER_H

#include <cstdint>
#include <list>
#include <memory>
#include <random>

#include "CExample.h"

// A stream that goes on for as long as the peer reads. On the network thread the transport says itself what it can't
// take (MN_ERROR_PARTIAL_DATA) and when it can again (OnSend), so that nothing is queued.
class CChargenStream : public CExampleSink
{
public:
    explicit CChargenStream(uxport::IPSTransport* transport) : m_pTransport(transport) {}

    MNResult OnConnectIndication(long, uxport::IPSTransport*, uxport::IPSAcceptorConnectorId*) override;
    MNResult OnSend(uxport::IPSTransport* transport, uxport::CPSTransportParameter* param) override;
    MNResult OnDisconnect(long reason, uxport::IPSTransport* transport) override;

    bool IsOver() const { return !m_pTransport; }

private:
    static constexpr unsigned long s_dwPiece = 16384;

    mantle::CMNAutoPtr<uxport::IPSTransport> m_pTransport;
    std::unique_ptr<uxport::CMNMessageBlock> m_pRest;  // what was refused
    std::uint64_t m_qwAt = 0;
};

// Thread: the network thread, for everything.
class CChargenServer : public CExampleSink
{
public:
    MNResult Start(const uxport::CMNInetAddr& address);
    void Stop();

    MNResult OnConnectIndication(long result, uxport::IPSTransport* transport,
                                 uxport::IPSAcceptorConnectorId* id) override;

    // A datagram is answered with 0 to 512 characters.
    MNResult OnReceive(uxport::CMNMessageBlock& data, uxport::IPSTransport* transport,
                       uxport::CPSTransportParameter* param) override;

private:
    static constexpr unsigned int s_dwLongestAnswer = 512;

    mantle::CMNAutoPtr<uxport::IPSAcceptor> m_pTcp;
    mantle::CMNAutoPtr<uxport::IPSAcceptor> m_pUdp;
    std::list<CChargenStream> m_Streams;
    std::mt19937 m_Random{std::random_device{}()};
};

#endif
