// Requests, replies and what they amount to.
#ifndef PING_CPING_H
#define PING_CPING_H

#include <string>
#include <vector>

#include "CExample.h"

struct CPingOptions
{
    std::string m_strHost = "127.0.0.1";
    int m_nCount = 4;
    double m_dInterval = 1;  // seconds between two requests
    double m_dWait = 1;      // seconds for the last reply
    int m_nSize = 56;        // data bytes
};

// Ends main's loop when the last reply has come or has been waited for.
class CPing : public CExampleSink, public mantle::CMNTimerWrapperIDSink
{
public:
    explicit CPing(const CPingOptions& options) : m_Options(options) {}

    MNResult Start();
    MNResult OnConnectIndication(long result, uxport::IPSTransport* transport,
                                 uxport::IPSAcceptorConnectorId* id) override;
    MNResult OnReceive(uxport::CMNMessageBlock& data, uxport::IPSTransport* transport,
                       uxport::CPSTransportParameter* param) override;

    // Time for the next request, or for the end.
    void OnTimer(mantle::CMNTimerWrapperID* timer) override;

    // Writes the statistics. Returns: the exit status, 1 when nothing was answered.
    int Report() const;

private:
    bool IsLastSent() const { return m_Requests.size() == static_cast<std::size_t>(m_Options.m_nCount); }

    struct CRequest
    {
        uxport::CMNTimeValue m_tvSent;
        bool m_bAnswered = false;
    };

    const CPingOptions m_Options;
    mantle::CMNTimerWrapperID m_Timer;
    mantle::CMNAutoPtr<uxport::IPSConnector> m_pConnector;
    mantle::CMNAutoPtr<uxport::IPSTransport> m_pTransport;
    std::vector<CRequest> m_Requests;  // the sequence number is the place, from 1
    std::vector<double> m_Times;       // milliseconds, of the first reply to each
};

#endif
