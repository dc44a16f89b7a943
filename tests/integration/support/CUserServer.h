// A server that the main thread owns: takes every peer that its acceptor indicates.
#ifndef TESTS_INTEGRATION_SUPPORT_CUSERSERVER_H
#define TESTS_INTEGRATION_SUPPORT_CUSERSERVER_H

#include <functional>
#include <memory>
#include <vector>

#include "tests/integration/support/CUserPeer.h"

// Thread: main.
class CUserServer : public uxport::IPSAcceptorConnectorSink
{
public:
    // `echo`: its peers send back what they receive and keep nothing.
    explicit CUserServer(CUserLoop& loop, bool echo = false) : m_Loop(loop), m_bEcho(echo) {}
    ~CUserServer() override;
    CUserServer(const CUserServer&) = delete;
    CUserServer& operator=(const CUserServer&) = delete;

    // The same acceptor each time.
    uxport::MNResult Listen(const uxport::CMNInetAddr& address);
    uxport::MNResult Stop() { return m_pAcceptor->StopListen(0); }

    // Gives the acceptor up without stopping it.
    void ReleaseAcceptor() { m_pAcceptor = nullptr; }

    uxport::IPSAcceptor* GetAcceptor() const { return m_pAcceptor.Get(); }
    CUserPeer& GetPeer(std::size_t index = 0) { return *m_Peers.at(index); }
    std::size_t GetCount() const { return m_Peers.size(); }

    uxport::MNResult OnConnectIndication(long result, uxport::IPSTransport* transport,
                                         uxport::IPSAcceptorConnectorId* id) override;

    // For the next acceptor; the numbers are the raw protocol's.
    unsigned long m_dwType = uxport::CONNECTION_TYPE_TCP;
    unsigned short m_wFamily = 0;
    unsigned short m_wProtocol = 0;

    bool m_bOpen = true;  // opens the transports it takes
    bool m_bTake = true;  // false: counts and lets the transport go
    int m_nIndications = 0;
    std::function<void(CUserPeer&)> m_fOnPeer;  // the transport is open

private:
    CUserLoop& m_Loop;
    const bool m_bEcho;
    mantle::CMNAutoPtr<uxport::IPSAcceptor> m_pAcceptor;
    std::vector<std::unique_ptr<CUserPeer>> m_Peers;
};

#endif
