// A server of a test: takes every peer that its acceptor indicates.
#ifndef TESTS_INTEGRATION_SUPPORT_CLISTENER_H
#define TESTS_INTEGRATION_SUPPORT_CLISTENER_H

#include <functional>
#include <memory>
#include <vector>

#include "tests/integration/support/CPeer.h"

// Thread: the network thread; made and destroyed on any.
class CListener : public uxport::IPSAcceptorConnectorSink
{
public:
    // `echo`: its peers send back what they receive and keep nothing.
    explicit CListener(CNetwork& network, bool echo = false) : m_Network(network), m_bEcho(echo) {}
    ~CListener() override;
    CListener(const CListener&) = delete;
    CListener& operator=(const CListener&) = delete;

    uxport::MNResult Listen(const uxport::CMNInetAddr& address);

    // Stops and gives the acceptor up; the peers stay.
    void Close();

    uxport::IPSAcceptor* GetAcceptor() const { return m_pAcceptor; }
    CPeer& GetPeer(std::size_t index = 0) { return *m_Peers.at(index); }
    std::size_t GetCount() const { return m_Peers.size(); }

    uxport::MNResult OnConnectIndication(long result, uxport::IPSTransport* transport,
                                         uxport::IPSAcceptorConnectorId* id) override;

    unsigned long m_dwType = uxport::CONNECTION_TYPE_TCP;
    unsigned short m_wNumber1 = 0;  // the protocol's, for StartListen
    unsigned short m_wNumber2 = 0;
    bool m_bOpen = true;  // opens the transports it takes
    bool m_bTake = true;  // false: counts and lets the transport go
    int m_nIndications = 0;
    std::function<void(CPeer&)> m_fOnPeer;  // before the transport is opened
    std::function<void()> m_fAfter;         // at the end of the indication

private:
    CNetwork& m_Network;
    const bool m_bEcho;
    uxport::IPSAcceptor* m_pAcceptor = nullptr;  // one reference
    std::vector<std::unique_ptr<CPeer>> m_Peers;
};

#endif
