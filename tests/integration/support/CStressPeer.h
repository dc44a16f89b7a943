// One end of a connection in the stress test.
#ifndef TESTS_INTEGRATION_SUPPORT_CSTRESSPEER_H
#define TESTS_INTEGRATION_SUPPORT_CSTRESSPEER_H

#include <cstdint>
#include <functional>
#include <memory>

#include "mantle/mantle.h"
#include "uxport/uxport.h"

// The client's end sends a stream that its key determines, the server's end sends back what it gets; both check every
// byte. Says so when anything is delivered that must not be. Thread: the owner's.
class CStressPeer : public uxport::IPSTransportSink
{
public:
    static constexpr std::uint64_t s_qwMaxUnanswered = 64 * 1024;

    enum class ESend
    {
        OWNER,    // posted by the owner
        OTHER,    // posted by another user thread
        NETWORK,  // in place on the network thread
    };

    // `ended` is called at the end of OnDisconnect; it must not delete the peer.
    CStressPeer(unsigned long ownerThread, bool client, std::uint8_t key, std::function<void()> ended);
    ~CStressPeer() override = default;

    void Open(uxport::IPSTransport* transport);

    // The client's end: the next `length` bytes, unless too many are unanswered or another thread is sending.
    // `other`: the user thread for ESend::OTHER.
    void Send(std::uint64_t length, ESend how, mantle::CMNThread& owner, mantle::CMNThread& other);

    // Nothing may be delivered behind this.
    void Disconnect();

    // Without Disconnect: something may still be delivered.
    void Release() { m_pTransport = nullptr; }

    bool IsOpen() const { return m_pTransport.Get() != nullptr; }

    uxport::MNResult OnReceive(uxport::CMNMessageBlock& data, uxport::IPSTransport* transport,
                               uxport::CPSTransportParameter* param) override;
    uxport::MNResult OnSend(uxport::IPSTransport* transport, uxport::CPSTransportParameter* param) override;
    uxport::MNResult OnDisconnect(long reason, uxport::IPSTransport* transport) override;

private:
    void Check() const;

    const unsigned long m_dwOwner;
    const bool m_bClient;
    std::uint8_t m_byKey;
    std::function<void()> m_fEnded;
    std::uint64_t m_qwSent = 0;
    std::uint64_t m_qwReceived = 0;
    bool m_bSilent = false;
    std::shared_ptr<bool> m_pLent = std::make_shared<bool>(false);  // to another thread, which sends; the owner's
    mantle::CMNAutoPtr<uxport::IPSTransport> m_pTransport;
};

#endif
