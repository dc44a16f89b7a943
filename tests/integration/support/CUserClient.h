// A client that the main thread owns: a connector and, once connected, the end of the connection.
#ifndef TESTS_INTEGRATION_SUPPORT_CUSERCLIENT_H
#define TESTS_INTEGRATION_SUPPORT_CUSERCLIENT_H

#include <functional>
#include <vector>

#include "tests/integration/support/CUserPeer.h"

// Thread: main.
class CUserClient : public CUserPeer, public uxport::IPSAcceptorConnectorSink
{
public:
    explicit CUserClient(CUserLoop& loop) : CUserPeer(loop) {}
    ~CUserClient() override;

    // The same connector each time. `seconds`: the time-out, 0 for none. `sink`: null for this.
    uxport::MNResult Connect(const uxport::CMNInetAddr& address, long seconds = 0,
                             uxport::IPSAcceptorConnectorSink* sink = nullptr);
    uxport::MNResult Cancel() { return m_pConnector->CancelConnect(); }
    void ReleaseConnector() { m_pConnector = nullptr; }

    bool IsConnected() const { return GetTransport() != nullptr; }

    uxport::MNResult OnConnectIndication(long result, uxport::IPSTransport* transport,
                                         uxport::IPSAcceptorConnectorId* id) override;

    // For the next connector; the numbers are the raw protocol's.
    unsigned long m_dwType = uxport::CONNECTION_TYPE_TCP;
    unsigned short m_wFamily = 0;
    unsigned short m_wProtocol = 0;

    std::vector<long> m_Results;            // one for each indication
    bool m_bTake = true;                    // false: lets the transport go
    std::function<void(long)> m_fOnResult;  // at the end of the indication

private:
    mantle::CMNAutoPtr<uxport::IPSConnector> m_pConnector;
};

#endif
