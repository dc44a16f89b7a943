#include "CHttpSession.h"

#include <algorithm>

using namespace uxport;

CHttpSession::~CHttpSession()
{
    End();
}

MNResult CHttpSession::OnConnectIndication(long, IPSTransport* transport, IPSAcceptorConnectorId*)
{
    m_pTransport = transport;
    EndWithin(s_lIdleSeconds);
    return transport->OpenWithSink(this);
}

MNResult CHttpSession::OnReceive(CMNMessageBlock& data, IPSTransport*, CPSTransportParameter*)
{
    const char* at = data.GetReadPtr();
    std::size_t length = data.GetLength();
    // As much as may wait at a time, so that what can be answered at once makes room for what follows it.
    while (m_pTransport && length != 0) {
        const std::size_t room = s_nMostWaiting - (m_strWaiting.size() - m_nTaken);
        const std::size_t part = std::min(room, length);
        if (m_bLingers || m_nThrownAway != 0 || part == 0) {
            ThrowAway(length);
            break;
        }
        Keep(at, part);
        at += part;
        length -= part;
        Work();
    }
    return MN_OK;
}

MNResult CHttpSession::OnSend(IPSTransport*, CPSTransportParameter*)
{
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

void CHttpSession::Keep(const char* data, std::size_t length)
{
    m_strWaiting.erase(0, m_nTaken);
    m_nTaken = 0;
    m_strWaiting.append(data, length);
}

void CHttpSession::ThrowAway(std::size_t length)
{
    m_nThrownAway += length;
    if (m_nThrownAway > s_nMostThrownAway)
        End();
}

void CHttpSession::Work()
{
    while (m_pTransport && !m_bLingers) {
        if (m_pResponse ? !SendAnswer() : !ReadRequest())
            return;
    }
}

// Returns: whether there is an answer to send.
bool CHttpSession::ReadRequest()
{
    if (m_nTaken != m_strWaiting.size()) {
        if (!m_pRequest)
            m_pRequest = std::make_unique<CHttpRequest>();
        m_nTaken += m_pRequest->Take(m_strWaiting.data() + m_nTaken, m_strWaiting.size() - m_nTaken);
        if (m_pRequest->GetState() != CHttpRequest::EState::INCOMPLETE) {
            m_bOrderly = m_pRequest->GetState() == CHttpRequest::EState::COMPLETE;
            Answer(std::make_unique<CHttpResponse>(*m_pRequest, m_Folder));
            return true;
        }
    }
    if (m_nThrownAway == 0)
        return false;
    m_bOrderly = false;
    Answer(std::make_unique<CHttpResponse>(429));
    return true;
}

void CHttpSession::Answer(std::unique_ptr<CHttpResponse> response)
{
    m_pRequest.reset();
    m_pResponse = std::move(response);
    const std::string& head = m_pResponse->GetHead();
    m_pPiece = std::make_unique<CMNMessageBlock>(head.size() + NextPiece());
    m_pPiece->Write(head.data(), head.size());
    EndWithin(s_lStallSeconds);
}

// Returns: false when it has to go on at OnSend, or never.
bool CHttpSession::SendAnswer()
{
    while (m_pResponse->GetLeft() != 0 || m_pPiece) {
        if (!FillPiece() || !SendPiece())
            return false;
    }
    EndAnswer();
    return true;
}

unsigned long CHttpSession::NextPiece() const
{
    return static_cast<unsigned long>(std::min<std::uint64_t>(s_dwPiece, m_pResponse->GetLeft()));
}

bool CHttpSession::FillPiece()
{
    if (!m_pPiece)
        m_pPiece = std::make_unique<CMNMessageBlock>(NextPiece());
    if (m_pResponse->GetLeft() == 0 || m_pPiece->GetSpace() == 0)
        return true;
    const std::size_t length = m_pResponse->Read(m_pPiece->GetWritePtr(), m_pPiece->GetSpace());
    m_pPiece->AdvanceWritePtr(length);
    if (length == 0)
        End();  // what was promised can't be had
    return length != 0;
}

bool CHttpSession::SendPiece()
{
    const unsigned long before = m_pPiece->GetLength();
    const MNResult result = m_pTransport->SendData(*m_pPiece, nullptr);
    if (result == MN_OK) {
        m_pPiece.reset();
    } else if (result != MN_ERROR_PARTIAL_DATA) {
        End();
        return false;
    }
    if (!m_pPiece || m_pPiece->GetLength() < before)
        EndWithin(s_lStallSeconds);
    return !m_pPiece;
}

// Closing sends what the stack has taken. But where the client may still be sending, what comes behind the close would
// be answered by a reset, which can take the answer from it (RFC 9112, 9.6).
void CHttpSession::EndAnswer()
{
    ++m_dwAnswered;
    const bool last = m_pResponse->IsLast();
    m_pResponse.reset();
    if (!last)
        return EndWithin(s_lIdleSeconds);
    if (m_bOrderly && m_nTaken == m_strWaiting.size() && m_nThrownAway == 0)
        return End();
    m_bLingers = true;
    EndWithin(s_lLingerSeconds);
}

void CHttpSession::EndWithin(long seconds)
{
    m_Timer.Schedule(this, CMNTimeValue(seconds, 0), 1);
}

void CHttpSession::End()
{
    m_Timer.Cancel();
    if (m_pTransport)
        m_pTransport->Disconnect(0);
    m_pTransport = nullptr;
    m_pPiece.reset();
    m_pResponse.reset();
    m_pRequest.reset();
    m_strWaiting = std::string();
    m_nTaken = 0;
}
