#include "CFileSession.h"

#include <algorithm>
#include <utility>

#include "CFileProtocol.h"

using namespace uxport;

CFileSession::CFileSession(const std::string& path, std::uint64_t corruptAt, FEnded ended)
    : m_File(path, std::ios::binary | std::ios::ate), m_qwCorruptAt(corruptAt), m_fEnded(std::move(ended))
{
    if (m_File) {
        m_qwLength = static_cast<std::uint64_t>(m_File.tellg());
        m_File.seekg(0);
    }
}

CFileSession::~CFileSession()
{
    if (m_pTransport)
        m_pTransport->Disconnect(MN_OK);
}

MNResult CFileSession::Start(IPSTransport* transport)
{
    m_pTransport = transport;
    if (const MNResult result = transport->OpenWithSink(this); result != MN_OK)
        return result;
    SendLength();
    SendOn();
    return MN_OK;
}

MNResult CFileSession::OnReceive(CMNMessageBlock& data, IPSTransport*, CPSTransportParameter*)
{
    m_qwAnsweredSteps += data.GetChainedLength();
    if (m_qwAnsweredSteps < std::max<std::uint64_t>(CFileProtocol::CountSteps(m_qwLength), 1))
        SendOn();
    else
        End();  // the client has it all, and nothing is lost by disconnecting
    return MN_OK;
}

MNResult CFileSession::OnSend(IPSTransport*, CPSTransportParameter*)
{
    return MN_OK;
}

MNResult CFileSession::OnDisconnect(long, IPSTransport*)
{
    End();
    return MN_OK;
}

void CFileSession::SendLength()
{
    CMNMessageBlock block(CFileProtocol::s_nLengthSize);
    for (int shift = 56; shift >= 0; shift -= 8) {
        const char byte = static_cast<char>(m_qwLength >> shift & 0xFF);
        block.Write(&byte, sizeof byte);
    }
    m_pTransport->SendData(block, nullptr);
}

void CFileSession::SendOn()
{
    const std::uint64_t limit = m_qwAnsweredSteps * CFileProtocol::s_qwStep + CFileProtocol::s_qwWindow;
    while (m_qwSent < std::min(limit, m_qwLength)) {
        if (!SendNext())
            return End();
    }
}

bool CFileSession::SendNext()
{
    const std::uint64_t wanted = std::min<std::uint64_t>(CFileProtocol::s_nSendSize, m_qwLength - m_qwSent);
    CMNMessageBlock block(wanted);
    m_File.read(block.GetWritePtr(), static_cast<std::streamsize>(wanted));
    if (m_File.gcount() != static_cast<std::streamsize>(wanted))
        return false;
    if (m_qwCorruptAt >= m_qwSent && m_qwCorruptAt - m_qwSent < wanted) {
        char& byte = block.GetWritePtr()[m_qwCorruptAt - m_qwSent];
        byte = static_cast<char>(~byte);
    }
    block.AdvanceWritePtr(wanted);
    m_qwSent += wanted;
    return m_pTransport->SendData(block, nullptr) == MN_OK;
}

void CFileSession::End()
{
    m_pTransport->Disconnect(MN_OK);
    m_pTransport = nullptr;
    m_fEnded(this);
}
