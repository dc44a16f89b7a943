// One connection of a client.
#ifndef HTTPD_CHTTPSESSION_H
#define HTTPD_CHTTPSESSION_H

#include <memory>
#include <string>

#include "CExample.h"
#include "CFolder.h"
#include "CHttpRequest.h"
#include "CHttpResponse.h"

// Answers one request after the other. Thread: the network thread, where the transport says itself what it can't take
// (MN_ERROR_PARTIAL_DATA) and when it can again (OnSend): a file is read as room appears, and the next request is
// looked at when the stack has taken the whole answer to the one before. What a client sends meanwhile is bounded.
class CHttpSession : public CExampleSink, public mantle::CMNTimerWrapperIDSink
{
public:
    // A request has to be complete within so many seconds; an answer may take any time while the client reads on.
    static constexpr long s_lIdleSeconds = 30;
    static constexpr long s_lStallSeconds = 60;
    static constexpr long s_lLingerSeconds = 2;

    // Bytes of requests that wait for the answers to others. What does not fit is thrown away and, when the others
    // have been answered, told by 429 (RFC 6585, 4); whoever goes on all the same is disconnected.
    static constexpr std::size_t s_nMostWaiting = 65536;
    static constexpr std::size_t s_nMostThrownAway = 1 << 20;

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
    static constexpr unsigned long s_dwPiece = 16384;

    void Keep(const char* data, std::size_t length);
    void ThrowAway(std::size_t length);
    void Work();
    bool ReadRequest();
    void Answer(std::unique_ptr<CHttpResponse> response);
    bool SendAnswer();
    bool SendPiece();
    unsigned long NextPiece() const;
    bool FillPiece();
    void EndAnswer();
    void EndWithin(long seconds);
    void End();

    const CFolder& m_Folder;
    mantle::CMNAutoPtr<uxport::IPSTransport> m_pTransport;
    mantle::CMNTimerWrapperID m_Timer;
    std::string m_strWaiting;  // of requests to come, from m_nTaken on
    std::size_t m_nTaken = 0;
    std::size_t m_nThrownAway = 0;
    std::unique_ptr<CHttpRequest> m_pRequest;           // begun
    std::unique_ptr<CHttpResponse> m_pResponse;         // not wholly with the stack
    std::unique_ptr<uxport::CMNMessageBlock> m_pPiece;  // of it, what the transport has not taken
    bool m_bOrderly = true;                             // the client has sent nothing but what was answered
    bool m_bLingers = false;                            // the last answer is out; what still comes is thrown away
    unsigned long m_dwAnswered = 0;
};

#endif
