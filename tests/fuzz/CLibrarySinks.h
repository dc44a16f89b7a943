// The sinks of library_fuzz: each knows what may come to it.
#ifndef TESTS_FUZZ_CLIBRARYSINKS_H
#define TESTS_FUZZ_CLIBRARYSINKS_H

#include <cstdint>

#include "mantle/mantle.h"
#include "uxport/uxport.h"

class CLibraryRound;

// Of one listening acceptor, from StartListen to StopListen.
class CFuzzServerSink : public uxport::IPSAcceptorConnectorSink
{
public:
    explicit CFuzzServerSink(CLibraryRound& round) : m_Round(round) {}

    // Nothing may come from now on; or what comes is let go.
    void Silence() { m_bSilent = true; }
    void Ignore() { m_bIgnores = true; }

    uxport::MNResult OnConnectIndication(long result, uxport::IPSTransport* transport,
                                         uxport::IPSAcceptorConnectorId* id) override;

private:
    CLibraryRound& m_Round;
    bool m_bSilent = false;
    bool m_bIgnores = false;
};

// Of one attempt of a connector.
class CFuzzAttempt : public uxport::IPSAcceptorConnectorSink
{
public:
    explicit CFuzzAttempt(CLibraryRound& round) : m_Round(round) {}

    void Silence() { m_bSilent = true; }
    void Ignore() { m_bIgnores = true; }

    uxport::MNResult OnConnectIndication(long result, uxport::IPSTransport* transport,
                                         uxport::IPSAcceptorConnectorId* id) override;

private:
    CLibraryRound& m_Round;
    bool m_bSilent = false;
    bool m_bIgnores = false;
    int m_nOutcomes = 0;
};

// Of one end of a connection. The bytes of a stream tell their place in it.
class CFuzzEnd : public uxport::IPSTransportSink
{
public:
    CFuzzEnd(CLibraryRound& round, uxport::IPSTransport* transport);

    uxport::IPSTransport* Get() const { return m_pTransport.Get(); }
    bool IsStream() const { return m_bStream; }
    bool IsOpen() const { return m_bOpen; }
    bool IsEnded() const { return m_bEnded; }

    void Open();

    // Takes the connection and its place over from another sink.
    void Inherit(CFuzzEnd& other);
    void Disconnect();

    // Gives the connection up; without Disconnect something may still come, which is let go.
    void Release();

    static char ByteAt(std::uint64_t place) { return static_cast<char>(place * 37 + (place >> 8) * 11); }
    std::uint64_t m_qwSent = 0;

    uxport::MNResult OnReceive(uxport::CMNMessageBlock& data, uxport::IPSTransport* transport,
                               uxport::CPSTransportParameter* param) override;
    uxport::MNResult OnSend(uxport::IPSTransport* transport, uxport::CPSTransportParameter* param) override;
    uxport::MNResult OnDisconnect(long reason, uxport::IPSTransport* transport) override;

private:
    void Check(uxport::IPSTransport* transport) const;

    CLibraryRound& m_Round;
    mantle::CMNAutoPtr<uxport::IPSTransport> m_pTransport;
    bool m_bStream = false;
    bool m_bOpen = false;      // this is its sink
    bool m_bEnded = false;     // OnDisconnect has come, or Disconnect has returned
    bool m_bReleased = false;  // without Disconnect
    std::uint64_t m_qwReceived = 0;
};

#endif
