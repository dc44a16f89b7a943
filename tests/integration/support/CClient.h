// A client of a test: a connector and, once connected, the end of the connection.
#ifndef TESTS_INTEGRATION_SUPPORT_CCLIENT_H
#define TESTS_INTEGRATION_SUPPORT_CCLIENT_H

#include <functional>
#include <vector>

#include "tests/integration/support/CPeer.h"

// Thread: the network thread; made and destroyed on any.
class CClient : public CPeer, public uxport::IPSAcceptorConnectorSink
{
public:
    explicit CClient(CNetwork& network) : CPeer(network) {}
    ~CClient() override;

    // `seconds`: the time-out, 0 for none; `local`: null for any.
    uxport::MNResult Connect(const uxport::CMNInetAddr& address, long seconds = 0,
                             uxport::CMNInetAddr* local = nullptr);

    // Gives the connector up.
    void ReleaseConnector();

    uxport::IPSConnector* GetConnector() const { return m_pConnector; }
    bool IsConnected() const { return GetTransport() != nullptr; }

    uxport::MNResult OnConnectIndication(long result, uxport::IPSTransport* transport,
                                         uxport::IPSAcceptorConnectorId* id) override;

    unsigned long m_dwType = uxport::CONNECTION_TYPE_TCP;
    unsigned short m_wNumber1 = 0;  // the protocol's, for AsycConnect
    unsigned short m_wNumber2 = 0;
    std::vector<long> m_Results;            // one for each indication
    bool m_bTake = true;                    // false: lets the transport go
    std::function<void(long)> m_fOnResult;  // at the end of the indication; may destroy the client

private:
    uxport::IPSConnector* m_pConnector = nullptr;  // one reference
};

#endif
