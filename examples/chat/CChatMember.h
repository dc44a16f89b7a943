// One connection of the chat server.
#ifndef CHAT_CCHATMEMBER_H
#define CHAT_CCHATMEMBER_H

#include <mantle/mantle.h>
#include <uxport/uxport.h>

#include "CChatServer.h"

// Thread: the owner.
class CChatMember : public uxport::IPSTransportSink
{
public:
    CChatMember(CChatServer& server, unsigned long number, uxport::IPSTransport* transport)
        : m_Server(server), m_dwNumber(number), m_pTransport(transport)
    {
        transport->OpenWithSink(this);
    }
    ~CChatMember() override { m_pTransport->Disconnect(uxport::MN_OK); }

    uxport::IPSTransport* GetTransport() const { return m_pTransport.Get(); }

    uxport::MNResult OnReceive(uxport::CMNMessageBlock& data, uxport::IPSTransport*,
                               uxport::CPSTransportParameter*) override
    {
        m_Server.OnText(m_dwNumber, data);
        return uxport::MN_OK;
    }
    uxport::MNResult OnSend(uxport::IPSTransport*, uxport::CPSTransportParameter*) override { return uxport::MN_OK; }
    uxport::MNResult OnDisconnect(long, uxport::IPSTransport*) override
    {
        m_Server.OnLeft(m_dwNumber);  // deletes this object
        return uxport::MN_OK;
    }

private:
    CChatServer& m_Server;
    unsigned long m_dwNumber;
    mantle::CMNAutoPtr<uxport::IPSTransport> m_pTransport;
};

#endif
