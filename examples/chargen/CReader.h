// Who reads the characters, on main.
#ifndef CHARGEN_CREADER_H
#define CHARGEN_CREADER_H

#include <cstdint>
#include <cstring>
#include <functional>
#include <utility>

#include "CExample.h"
#include "CPattern.h"

// Over TCP reads `wanted` characters and disconnects; over UDP asks `wanted` times and takes the answers. Checks them.
class CReader : public CExampleSink, public mantle::CMNTimerWrapperIDSink
{
public:
    CReader(unsigned long type, std::uint64_t wanted, std::function<void()> atEnd)
        : m_dwType(type), m_qwWanted(wanted), m_AtEnd(std::move(atEnd))
    {
    }

    MNResult Start(const uxport::CMNInetAddr& server)
    {
        const MNResult result =
            uxport::IPSConnectionManager::Instance()->CreateConnectionClient(m_dwType, m_pConnector.ParaOut());
        return result == uxport::MN_OK ? m_pConnector->AsycConnect(this, server, nullptr, nullptr, 0, 0) : result;
    }

    MNResult OnConnectIndication(long result, uxport::IPSTransport* transport, uxport::IPSAcceptorConnectorId*) override
    {
        if (result != 0 || m_qwWanted == 0)
            return End();
        m_pTransport = transport;
        m_pTransport->OpenWithSink(this);
        return m_dwType == uxport::CONNECTION_TYPE_UDP ? Ask() : uxport::MN_OK;
    }

    MNResult OnReceive(uxport::CMNMessageBlock& data, uxport::IPSTransport*, uxport::CPSTransportParameter*) override
    {
        const bool stream = m_dwType == uxport::CONNECTION_TYPE_TCP;
        m_bRight = m_bRight && chargen::Matches(data.GetReadPtr(), data.GetLength(), stream ? m_qwRead : 0);
        m_qwRead += stream ? data.GetLength() : 1;
        if (m_qwRead >= m_qwWanted)
            return End();
        return stream ? uxport::MN_OK : Ask();
    }

    MNResult OnDisconnect(long, uxport::IPSTransport*) override { return End(); }

    // An empty answer is not delivered, a lost one does not come: asks again.
    void OnTimer(mantle::CMNTimerWrapperID*) override { Ask(); }

    std::uint64_t GetRead() const { return m_qwRead; }  // characters, or answers
    bool IsRight() const { return m_bRight && m_qwRead >= m_qwWanted; }

private:
    MNResult Ask()
    {
        uxport::CMNMessageBlock block(1);
        block.Write("?", 1);
        m_Timer.Schedule(this, uxport::CMNTimeValue(0, 100000), 1);
        return m_pTransport->SendData(block, nullptr);
    }

    MNResult End()
    {
        m_Timer.Cancel();
        if (m_pTransport)
            m_pTransport->Disconnect(0);
        m_AtEnd();
        return uxport::MN_OK;
    }

    unsigned long m_dwType;
    std::uint64_t m_qwWanted;
    std::function<void()> m_AtEnd;
    std::uint64_t m_qwRead = 0;
    bool m_bRight = true;
    mantle::CMNTimerWrapperID m_Timer;
    mantle::CMNAutoPtr<uxport::IPSConnector> m_pConnector;
    mantle::CMNAutoPtr<uxport::IPSTransport> m_pTransport;
};

#endif
