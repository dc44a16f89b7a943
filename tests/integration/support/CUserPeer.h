// One end of a connection that a user thread owns: counts what happens to it.
#ifndef TESTS_INTEGRATION_SUPPORT_CUSERPEER_H
#define TESTS_INTEGRATION_SUPPORT_CUSERPEER_H

#include <cstdint>
#include <functional>
#include <string>

#include "tests/integration/support/CUserLoop.h"

// Thread: main. The functions of a test, where set, are called at the end of the callback of their name.
class CUserPeer : public uxport::IPSTransportSink
{
public:
    explicit CUserPeer(CUserLoop& loop) : m_Loop(loop) {}
    ~CUserPeer() override { Drop(); }
    CUserPeer(const CUserPeer&) = delete;
    CUserPeer& operator=(const CUserPeer&) = delete;

    // Keeps the transport; opens it with this sink unless told otherwise.
    void Take(uxport::IPSTransport* transport, bool open = true);

    void Send(const std::string& text);

    // Disconnects and gives the transport up.
    void Drop();

    // Gives the transport up and says nothing.
    void Release() { m_pTransport = nullptr; }

    uxport::IPSTransport* GetTransport() const { return m_pTransport.Get(); }

    // How many callbacks there were.
    int GetCallbacks() const { return m_nOnReceive + m_nOnSend + m_nOnDisconnect; }

    uxport::MNResult OnReceive(uxport::CMNMessageBlock& data, uxport::IPSTransport* transport,
                               uxport::CPSTransportParameter* param) override;
    uxport::MNResult OnSend(uxport::IPSTransport* transport, uxport::CPSTransportParameter* param) override;
    uxport::MNResult OnDisconnect(long reason, uxport::IPSTransport* transport) override;

    bool m_bEcho = false;  // sends back what arrives
    bool m_bKeep = true;   // keeps what arrives in m_strReceived
    std::string m_strReceived;
    std::uint64_t m_qwReceived = 0;
    int m_nOnReceive = 0;
    int m_nOnSend = 0;
    int m_nOnDisconnect = 0;
    long m_lReason = 0;
    std::function<void(uxport::CMNMessageBlock&)> m_fOnReceive;
    std::function<void()> m_fOnSend;
    std::function<void()> m_fOnDisconnect;

protected:
    CUserLoop& m_Loop;

private:
    void Check(uxport::IPSTransport* transport) const;

    mantle::CMNAutoPtr<uxport::IPSTransport> m_pTransport;
};

#endif
