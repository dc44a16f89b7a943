// One attempt of a client: connects, asks, takes the answer.
#ifndef TESTS_MEMORY_CFETCH_H
#define TESTS_MEMORY_CFETCH_H

#include "tests/memory/CServer.h"

// Thread: its home's.
class CFetch : public uxport::IPSAcceptorConnectorSink, public uxport::IPSTransportSink
{
public:
    CFetch(CHome& home, const CWay& way) : m_Home(home), m_Way(way) {}
    ~CFetch() override;

    void Start();

    // Sends the request of a datagram again.
    void AskAgain();

    bool IsDone() const { return m_bDone; }
    bool IsOver() const { return m_bDone || m_bFailed; }

    // Ends everything and checks what was told.
    void Finish();

    uxport::MNResult OnConnectIndication(long result, uxport::IPSTransport* transport,
                                         uxport::IPSAcceptorConnectorId* id) override;
    uxport::MNResult OnReceive(uxport::CMNMessageBlock& data, uxport::IPSTransport* transport,
                               uxport::CPSTransportParameter* param) override;
    uxport::MNResult OnSend(uxport::IPSTransport* transport, uxport::CPSTransportParameter* param) override;
    uxport::MNResult OnDisconnect(long reason, uxport::IPSTransport* transport) override;

private:
    void Ask();
    void Fail();

    CHome& m_Home;
    const CWay& m_Way;
    mantle::CMNAutoPtr<uxport::IPSConnector> m_pConnector;
    mantle::CMNAutoPtr<uxport::IPSTransport> m_pTransport;
    bool m_bAsked = false;  // AsycConnect answered 0
    bool m_bDone = false;
    bool m_bFailed = false;
    int m_nIndications = 0;
    int m_nDisconnects = 0;
    std::size_t m_nReceived = 0;
};

#endif
