// A client that says its lines one after the other.
#ifndef UDP_ECHO_CECHOCLIENT_H
#define UDP_ECHO_CECHOCLIENT_H

#include <functional>
#include <string>

#include "CExample.h"

// The next line goes out when the one before has come back, or after a second without it.
class CEchoClient : public CExampleSink, public mantle::CMNTimerWrapperIDSink
{
public:
    CEchoClient(int number, int lines, std::function<void()> atEnd);

    MNResult Start(const uxport::CMNInetAddr& server);
    int GetAnswered() const { return m_nAnswered; }

    MNResult OnConnectIndication(long result, uxport::IPSTransport* transport,
                                 uxport::IPSAcceptorConnectorId* id) override;
    MNResult OnReceive(uxport::CMNMessageBlock& data, uxport::IPSTransport* transport,
                       uxport::CPSTransportParameter* param) override;
    MNResult OnDisconnect(long reason, uxport::IPSTransport* transport) override;
    void OnTimer(mantle::CMNTimerWrapperID* timer) override;

private:
    MNResult Say();
    MNResult End();

    int m_nNumber;
    int m_nLines;
    std::function<void()> m_AtEnd;
    int m_nSaid = 0;
    int m_nAnswered = 0;
    std::string m_strLine;
    mantle::CMNTimerWrapperID m_Timer;
    mantle::CMNAutoPtr<uxport::IPSConnector> m_pConnector;
    mantle::CMNAutoPtr<uxport::IPSTransport> m_pTransport;
};

#endif
