// A guest of the chat.
#ifndef CHAT_CCHATCLIENT_H
#define CHAT_CCHATCLIENT_H

#include <functional>
#include <string>

#include <mantle/mantle.h>
#include <uxport/uxport.h>

// Thread: the user thread that made it.
class CChatClient : public uxport::IPSAcceptorConnectorSink, public uxport::IPSTransportSink
{
public:
    using FLine = std::function<void(CChatClient& client, const std::string& line)>;
    using FEnded = std::function<void(CChatClient& client)>;

    // `line` for each line that is heard, `ended` when there is no connection or none any more. Neither may delete the
    // client.
    CChatClient(std::string name, FLine line, FEnded ended);
    ~CChatClient() override;

    uxport::MNResult Join(const uxport::CMNInetAddr& address);
    void Say(const std::string& line);
    const std::string& GetName() const { return m_strName; }

    bool m_bHeard = false;  // the script's

    uxport::MNResult OnConnectIndication(long result, uxport::IPSTransport* transport,
                                         uxport::IPSAcceptorConnectorId* id) override;
    uxport::MNResult OnReceive(uxport::CMNMessageBlock& data, uxport::IPSTransport* transport,
                               uxport::CPSTransportParameter* param) override;
    uxport::MNResult OnSend(uxport::IPSTransport* transport, uxport::CPSTransportParameter* param) override;
    uxport::MNResult OnDisconnect(long reason, uxport::IPSTransport* transport) override;

private:
    std::string m_strName;
    FLine m_fLine;
    FEnded m_fEnded;
    std::string m_strPart;  // of a line
    mantle::CMNAutoPtr<uxport::IPSConnector> m_pConnector;
    mantle::CMNAutoPtr<uxport::IPSTransport> m_pTransport;
};

#endif
