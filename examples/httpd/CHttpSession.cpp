#include "CHttpSession.h"

using namespace uxport;

CHttpSession::~CHttpSession()
{
    End();
}

MNResult CHttpSession::OnConnectIndication(long, IPSTransport* transport, IPSAcceptorConnectorId*)
{
    m_pTransport = transport;
    m_Timer.Schedule(this, CMNTimeValue(s_lIdleSeconds, 0), 1);
    return transport->OpenWithSink(this);
}

MNResult CHttpSession::OnReceive(CMNMessageBlock& data, IPSTransport*, CPSTransportParameter*)
{
    if (m_bLingers)
        return MN_OK;
    m_strWaiting.append(data.GetReadPtr(), data.GetLength());
    Work();
    // Pipelined requests are waited for, but not without end.
    if (m_strWaiting.size() > s_nMostWaiting)
        End();
    return MN_OK;
}

MNResult CHttpSession::OnSend(IPSTransport*, CPSTransportParameter*)
{
    m_bWaitsForOnSend = false;
    Work();
    return MN_OK;
}

MNResult CHttpSession::OnDisconnect(long, IPSTransport*)
{
    End();
    return MN_OK;
}

void CHttpSession::OnTimer(mantle::CMNTimerWrapperID*)
{
    End();
}

void CHttpSession::Work()
{
    while (m_pTransport && !m_bWaitsForOnSend && !m_bLingers) {
        if (m_pResponse) {
            SendPieces();
            continue;
        }
        if (m_strWaiting.empty())
            return;
        if (!m_pRequest)
            m_pRequest = std::make_unique<CHttpRequest>();
        m_strWaiting.erase(0, m_pRequest->Take(m_strWaiting.data(), m_strWaiting.size()));
        if (m_pRequest->GetState() == CHttpRequest::EState::INCOMPLETE)
            continue;
        m_pResponse = std::make_unique<CHttpResponse>(*m_pRequest, m_Folder);
        m_pRequest.reset();
        Send(m_pResponse->GetHead().data(), m_pResponse->GetHead().size());
    }
}

void CHttpSession::SendPieces()
{
    m_Timer.Schedule(this, CMNTimeValue(s_lIdleSeconds, 0), 1);
    if (m_pResponse->GetLeft() != 0) {
        CMNMessageBlock block(s_nPiece);
        const std::size_t length = m_pResponse->Read(block.GetWritePtr(), s_nPiece);
        if (length == 0)
            return End();  // what was promised can't be had
        block.AdvanceWritePtr(length);
        m_pTransport->SendData(block, nullptr);
        m_bWaitsForOnSend = length == s_nPiece;
        return;
    }
    ++m_dwAnswered;
    m_bLingers = m_pResponse->IsLast();
    m_pResponse.reset();
    // Disconnecting would drop what has not gone to the stack yet: the client, which has the length, closes.
    if (m_bLingers)
        m_Timer.Schedule(this, CMNTimeValue(s_lLingerSeconds, 0), 1);
}

void CHttpSession::Send(const char* data, std::size_t length)
{
    CMNMessageBlock block(length);
    block.Write(data, length);
    m_pTransport->SendData(block, nullptr);
}

void CHttpSession::End()
{
    m_Timer.Cancel();
    if (m_pTransport)
        m_pTransport->Disconnect(0);
    m_pTransport = nullptr;
    m_pResponse.reset();
    m_pRequest.reset();
    m_strWaiting.clear();
}
