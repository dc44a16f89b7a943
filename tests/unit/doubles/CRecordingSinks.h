// Sinks that write what they are told into the record.
#ifndef TESTS_UNIT_DOUBLES_CRECORDINGSINKS_H
#define TESTS_UNIT_DOUBLES_CRECORDINGSINKS_H

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>

#include "mantle/CMNMessageBlock.h"
#include "tests/unit/scripted/CScriptedStack.h"
#include "uxport/IPSAcceptorConnectorId.h"
#include "uxport/IPSAcceptorConnectorSink.h"
#include "uxport/IPSTransport.h"
#include "uxport/IPSTransportSink.h"

// "OnReceive(abc)", "OnReceive(65535 bytes)", "OnSend", "OnDisconnect(10001)". The functions run behind the note.
class CRecordingTransportSink : public uxport::IPSTransportSink
{
public:
    uxport::MNResult OnReceive(uxport::CMNMessageBlock& data, uxport::IPSTransport* transport,
                               uxport::CPSTransportParameter* param) override
    {
        EXPECT_EQ(param, nullptr);
        const unsigned long length = data.GetChainedLength();
        std::string text(std::min(length, s_dwMaxText + 1), '\0');
        data.PeekChained(&text[0], text.size());
        Told("OnReceive(" + (length > s_dwMaxText ? std::to_string(length) + " bytes" : text) + ")", transport);
        if (m_AtReceive)
            m_AtReceive(data, transport);
        return m_dwAnswer;
    }

    uxport::MNResult OnSend(uxport::IPSTransport* transport, uxport::CPSTransportParameter* param) override
    {
        EXPECT_EQ(param, nullptr);
        Told("OnSend", transport);
        if (m_AtSend)
            m_AtSend(transport);
        return m_dwAnswer;
    }

    uxport::MNResult OnDisconnect(long reason, uxport::IPSTransport* transport) override
    {
        Told("OnDisconnect(" + std::to_string(reason) + ")", transport);
        if (m_AtDisconnect)
            m_AtDisconnect(transport);
        return m_dwAnswer;
    }

    std::function<void(uxport::CMNMessageBlock&, uxport::IPSTransport*)> m_AtReceive;
    std::function<void(uxport::IPSTransport*)> m_AtSend;
    std::function<void(uxport::IPSTransport*)> m_AtDisconnect;
    uxport::IPSTransport* m_pTransport = nullptr;  // of the last call
    uxport::MNResult m_dwAnswer = uxport::MN_OK;   // nobody looks at it
    std::string m_strName;                         // stands before the notes

private:
    static constexpr unsigned long s_dwMaxText = 40;

    void Told(const std::string& text, uxport::IPSTransport* transport)
    {
        m_pTransport = transport;
        CScriptedStack::Instance().Note(m_strName + text);
    }
};

// "OnConnectIndication(0,transport)", "OnConnectIndication(10001,null)".
class CRecordingConnectSink : public uxport::IPSAcceptorConnectorSink
{
public:
    uxport::MNResult OnConnectIndication(long result, uxport::IPSTransport* transport,
                                         uxport::IPSAcceptorConnectorId* id) override
    {
        ++m_nIndications;
        m_pTransport = transport;
        m_pId = id;
        CScriptedStack::Instance().Note(m_strName + "OnConnectIndication(" + std::to_string(result) + "," +
                                        (transport ? "transport" : "null") + ")");
        if (m_AtIndication)
            m_AtIndication(transport);
        return m_dwAnswer;
    }

    std::function<void(uxport::IPSTransport*)> m_AtIndication;
    int m_nIndications = 0;
    uxport::IPSTransport* m_pTransport = nullptr;  // of the last indication; valid only if kept
    uxport::IPSAcceptorConnectorId* m_pId = nullptr;
    uxport::MNResult m_dwAnswer = uxport::MN_OK;  // nobody looks at it
    std::string m_strName;                        // stands before the notes
};

#endif
