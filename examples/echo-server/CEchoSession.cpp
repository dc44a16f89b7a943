#include "CEchoSession.h"

using namespace uxport;

MNResult CEchoSession::OnConnectIndication(long, IPSTransport* transport, IPSAcceptorConnectorId*)
{
    m_pTransport = transport;
    return transport->OpenWithSink(this);
}

MNResult CEchoSession::OnReceive(CMNMessageBlock& data, IPSTransport* transport, CPSTransportParameter*)
{
    if (m_Waiting.empty() && transport->SendData(data, nullptr) == MN_OK)
        return MN_OK;
    m_dwWaiting += data.GetChainedLength();
    m_Waiting.emplace_back(data.DuplicateChained());
    if (m_dwWaiting > s_dwMostWaiting)
        End();
    return MN_OK;
}

MNResult CEchoSession::OnSend(IPSTransport* transport, CPSTransportParameter*)
{
    while (!m_Waiting.empty()) {
        CMNMessageBlock& block = *m_Waiting.front();
        const unsigned long before = block.GetChainedLength();
        const MNResult result = transport->SendData(block, nullptr);
        m_dwWaiting -= before - block.GetChainedLength();
        if (result != MN_OK)
            break;
        m_Waiting.pop_front();
    }
    return MN_OK;
}

MNResult CEchoSession::OnDisconnect(long, IPSTransport*)
{
    End();
    return MN_OK;
}

void CEchoSession::End()
{
    if (m_pTransport)
        m_pTransport->Disconnect(0);
    m_pTransport = nullptr;
    m_Waiting.clear();
    m_dwWaiting = 0;
}
