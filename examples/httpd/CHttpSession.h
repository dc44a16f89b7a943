// One connection of a client.
#ifndef HTTPD_CHTTPSESSION_H
#define HTTPD_CHTTPSESSION_H

#include <functional>
#include <memory>
#include <string>

#include "CExample.h"
#include "CFolder.h"
#include "CHttpRequest.h"
#include "CHttpResponse.h"

// Answers one request after the other, the next when the one before has been answered. Thread: main.
class CHttpSession : public CExampleSink, public mantle::CMNTimerWrapperIDSink
{
public:
    explicit CHttpSession(const CFolder& folder) : m_Folder(folder) {}
    ~CHttpSession() override;

    MNResult OnConnectIndication(long result, uxport::IPSTransport* transport,
                                 uxport::IPSAcceptorConnectorId* id) override;
    MNResult OnReceive(uxport::CMNMessageBlock& data, uxport::IPSTransport* transport,
                       uxport::CPSTransportParameter* param) override;
    MNResult OnSend(uxport::IPSTransport* transport, uxport::CPSTransportParameter* param) override;
    MNResult OnDisconnect(long reason, uxport::IPSTransport* transport) override;
    void OnTimer(mantle::CMNTimerWrapperID* timer) override;

    bool IsOver() const { return !m_pTransport; }
    unsigned long GetAnswered() const { return m_dwAnswered; }

private:
    static constexpr long s_lIdleSeconds = 30;
    static constexpr long s_lLingerSeconds = 2;
    static constexpr std::size_t s_nMostWaiting = 65536;

    // More than the socket's send buffer: what is sent in one piece of this size is refused in part at first, so that
    // OnSend follows when all of it has gone to the stack.
    static constexpr std::size_t s_nPiece = 262144;

    void Work();
    void SendPieces();
    void Send(const char* data, std::size_t length);
    void End();

    const CFolder& m_Folder;
    mantle::CMNAutoPtr<uxport::IPSTransport> m_pTransport;
    mantle::CMNTimerWrapperID m_Timer;
    std::string m_strWaiting;  // of requests to come
    std::unique_ptr<CHttpRequest> m_pRequest;
    std::unique_ptr<CHttpResponse> m_pResponse;
    bool m_bWaitsForOnSend = false;
    bool m_bLingers = false;  // the last answer is out; the client closes
    unsigned long m_dwAnswered = 0;
};

#endif
