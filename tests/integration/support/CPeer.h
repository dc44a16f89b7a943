// One end of a connection: counts what happens to it, keeps what it can't send yet.
#ifndef TESTS_INTEGRATION_SUPPORT_CPEER_H
#define TESTS_INTEGRATION_SUPPORT_CPEER_H

#include <cstdint>
#include <functional>
#include <string>

#include "tests/integration/support/CNetwork.h"

// Thread: the network thread; made and destroyed on any. The functions of a test, where set, are called at the end of
// the callback of their name and may destroy the peer.
class CPeer : public uxport::IPSTransportSink
{
public:
    explicit CPeer(CNetwork& network) : m_Network(network) {}
    ~CPeer() override;
    CPeer(const CPeer&) = delete;
    CPeer& operator=(const CPeer&) = delete;

    // Keeps the transport; opens it with this sink unless told otherwise.
    void Take(uxport::IPSTransport* transport, bool open = true);

    // Sends all of it, with patience.
    void Send(const std::string& text);
    void Send(uxport::CMNMessageBlock& data);
    bool IsSending() const { return m_pPending != nullptr; }

    // Disconnects and gives the transport up.
    void Drop();

    // The same by a reset.
    void Reset();

    uxport::IPSTransport* GetTransport() const { return m_pTransport.Get(); }

    uxport::MNResult OnReceive(uxport::CMNMessageBlock& data, uxport::IPSTransport* transport,
                               uxport::CPSTransportParameter* param) override;
    uxport::MNResult OnSend(uxport::IPSTransport* transport, uxport::CPSTransportParameter* param) override;
    uxport::MNResult OnDisconnect(long reason, uxport::IPSTransport* transport) override;

    bool m_bEcho = false;  // sends back what arrives
    bool m_bKeep = true;   // keeps what arrives in m_strReceived
    std::string m_strReceived;
    std::uint64_t m_qwReceived = 0;
    int m_nRefused = 0;  // sends that were answered 10013
    int m_nOnSend = 0;
    int m_nOnDisconnect = 0;
    long m_lReason = 0;
    std::function<void(uxport::CMNMessageBlock&)> m_fOnReceive;
    std::function<void()> m_fOnSend;
    std::function<void()> m_fOnDisconnect;

protected:
    CNetwork& m_Network;

private:
    void SendPending();
    void ForgetPending();

    mantle::CMNAutoPtr<uxport::IPSTransport> m_pTransport;
    uxport::CMNMessageBlock* m_pPending = nullptr;  // a chain, owned
};

#endif
