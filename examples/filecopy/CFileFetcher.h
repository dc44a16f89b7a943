// The fetching half: connects, counts and digests what arrives.
#ifndef FILECOPY_CFILEFETCHER_H
#define FILECOPY_CFILEFETCHER_H

#include <cstdint>
#include <functional>
#include <string>

#include <mantle/mantle.h>
#include <uxport/uxport.h>

#include "CSha256.h"

// Thread: the user thread that made it; all its callbacks come there.
class CFileFetcher : public uxport::IPSAcceptorConnectorSink,
                     public uxport::IPSTransportSink,
                     public uxport::IPSTimerWrapperIDSink
{
public:
    // What became of the fetch.
    struct COutcome
    {
        std::string m_strError;  // empty: all of it has arrived
        std::string m_strSha256;
        std::uint64_t m_qwBytes = 0;
        long long m_llMicroseconds = 0;  // from the connect to the last byte
    };
    using FProgress = std::function<void(std::uint64_t bytes)>;
    using FDone = std::function<void()>;

    // `progress` is called from time to time, `done` once, after which the outcome stays.
    CFileFetcher(FProgress progress, FDone done);
    ~CFileFetcher() override;

    uxport::MNResult Start(const uxport::CMNInetAddr& address);
    const COutcome& GetOutcome() const { return m_Outcome; }

    uxport::MNResult OnConnectIndication(long result, uxport::IPSTransport* transport,
                                         uxport::IPSAcceptorConnectorId* id) override;
    uxport::MNResult OnReceive(uxport::CMNMessageBlock& data, uxport::IPSTransport* transport,
                               uxport::CPSTransportParameter* param) override;
    uxport::MNResult OnSend(uxport::IPSTransport* transport, uxport::CPSTransportParameter* param) override;
    uxport::MNResult OnDisconnect(long reason, uxport::IPSTransport* transport) override;
    void OnTimer(uxport::CPSTimerWrapperID* timer) override;

private:
    void Take(const char* data, std::size_t length);
    bool HasAll() const;
    void Answer();
    void Finish(const char* error);

    FProgress m_fProgress;
    FDone m_fDone;
    CSha256 m_Sha256;
    COutcome m_Outcome;
    std::uint64_t m_qwLength = 0;    // as the server says
    std::size_t m_nLengthBytes = 0;  // of which so many bytes have arrived
    std::uint64_t m_qwAnswers = 0;
    long long m_llStart = 0;
    std::uint64_t m_qwAtLastTimer = 0;
    int m_nIdleTimers = 0;
    mantle::CMNAutoPtr<uxport::IPSConnector> m_pConnector;
    mantle::CMNAutoPtr<uxport::IPSTransport> m_pTransport;
    uxport::CPSTimerWrapperID m_Timer;
};

#endif
