#include "CFileSession.h"

#include <algorithm>
#include <utility>

#include "CFileProtocol.h"

using namespace uxport;

CFileSession::CFileSession(const CFileList& list, std::uint64_t corruptAt, unsigned int seconds, FEnded ended)
    : m_List(list), m_Reader(list, corruptAt), m_dwSeconds(seconds), m_fEnded(std::move(ended))
{
}

CFileSession::~CFileSession()
{
    if (m_pTransport)
        m_pTransport->Disconnect(MN_OK);
}

MNResult CFileSession::OnConnectIndication(long, IPSTransport* transport, IPSAcceptorConnectorId*)
{
    m_pTransport = transport;
    CMNInetAddr client;
    transport->GetPeerAddr(client);
    m_strClient = client.ToString();
    if (const MNResult result = transport->OpenWithSink(this); result != MN_OK) {
        End("cannot be opened");
        return result;
    }
    unsigned long buffer = CFileProtocol::s_dwBuffer;
    transport->SetOption(OPT_SEND_BUFFER, &buffer);
    m_Silence.Watch(
        m_dwSeconds, [this] { End("is silent, given up"); }, [] {});
    SendList(m_List.Encode());
    SendOn();
    return MN_OK;
}

MNResult CFileSession::OnReceive(CMNMessageBlock& data, IPSTransport*, CPSTransportParameter*)
{
    m_Silence.Heard();
    m_qwAnsweredSteps += data.GetChainedLength();
    if (m_qwAnsweredSteps < CFileProtocol::CountSteps(m_qwLength))
        SendOn();
    else
        End("has everything");  // nothing is lost by disconnecting
    return MN_OK;
}

MNResult CFileSession::OnDisconnect(long, IPSTransport*)
{
    End("has gone");
    return MN_OK;
}

void CFileSession::SendList(const std::string& list)
{
    m_qwHead = CFileProtocol::s_nLengthSize + list.size();
    m_qwLength = m_qwHead + m_List.GetBytes();
    CMNMessageBlock block(m_qwHead);
    for (int shift = 56; shift >= 0; shift -= 8) {
        const char byte = static_cast<char>(list.size() >> shift & 0xFF);
        block.Write(&byte, sizeof byte);
    }
    block.Write(list.data(), list.size());
    m_pTransport->SendData(block, nullptr);
}

void CFileSession::SendOn()
{
    const std::uint64_t limit = m_qwAnsweredSteps * CFileProtocol::s_qwStep + CFileProtocol::s_qwWindow;
    for (;;) {
        const std::uint64_t sent = m_qwHead + m_Reader.GetRead();
        if (sent >= std::min(limit, m_qwLength))
            return;
        if (!SendNext(m_qwLength - sent))
            return End("is left, a file has changed");
    }
}

bool CFileSession::SendNext(std::uint64_t left)
{
    const std::uint64_t wanted = std::min<std::uint64_t>(CFileProtocol::s_nSendSize, left);
    CMNMessageBlock block(wanted);
    if (m_Reader.Read(block.GetWritePtr(), wanted) != wanted)
        return false;
    block.AdvanceWritePtr(wanted);
    return m_pTransport->SendData(block, nullptr) == MN_OK;
}

void CFileSession::End(const std::string& how)
{
    m_Silence.End();
    m_pTransport->Disconnect(MN_OK);
    m_pTransport = nullptr;
    m_fEnded(this, how);
}
