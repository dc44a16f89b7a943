// One peer of the echo server.
#ifndef ECHO_SERVER_CECHOSESSION_H
#define ECHO_SERVER_CECHOSESSION_H

#include <deque>
#include <memory>

#include "CExample.h"

// Sends back what comes. Thread: the network thread, where the transport says itself what it can't take
// (MN_ERROR_PARTIAL_DATA). What waits because the peer does not read is bounded: one that goes on sending all the same
// is disconnected.
class CEchoSession : public CExampleSink
{
public:
    MNResult OnConnectIndication(long result, uxport::IPSTransport* transport,
                                 uxport::IPSAcceptorConnectorId* id) override;
    MNResult OnReceive(uxport::CMNMessageBlock& data, uxport::IPSTransport* transport,
                       uxport::CPSTransportParameter* param) override;
    MNResult OnSend(uxport::IPSTransport* transport, uxport::CPSTransportParameter* param) override;
    MNResult OnDisconnect(long reason, uxport::IPSTransport* transport) override;

    // Ends the connection: what the transport has taken still goes out. May be called again.
    void End();
    bool IsOver() const { return !m_pTransport; }

private:
    static constexpr unsigned long s_dwMostWaiting = 64 << 20;

    struct CDestroyChain
    {
        void operator()(uxport::CMNMessageBlock* chain) const { chain->DestroyChained(); }
    };

    mantle::CMNAutoPtr<uxport::IPSTransport> m_pTransport;
    std::deque<std::unique_ptr<uxport::CMNMessageBlock, CDestroyChain>> m_Waiting;
    unsigned long m_dwWaiting = 0;  // bytes
};

#endif
