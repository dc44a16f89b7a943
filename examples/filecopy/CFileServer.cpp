#include "CFileServer.h"

using namespace uxport;

CFileServer::CFileServer(const std::string& path, std::uint64_t corruptAt)
    : m_File(path, std::ios::binary), m_qwCorruptAt(corruptAt)
{
}

CFileServer::~CFileServer()
{
    if (m_pTransport)
        m_pTransport->Disconnect(MN_OK);
    if (m_pAcceptor)
        m_pAcceptor->StopListen(MN_OK);
}

MNResult CFileServer::Start(const CMNInetAddr& address)
{
    const MNResult result =
        IPSConnectionManager::Instance()->CreateConnectionServer(CONNECTION_TYPE_TCP, m_pAcceptor.ParaOut());
    return result == MN_OK ? m_pAcceptor->StartListen(this, address, 0, 0) : result;
}

MNResult CFileServer::OnConnectIndication(long, IPSTransport* transport, IPSAcceptorConnectorId*)
{
    m_pAcceptor->StopListen(MN_OK);
    m_pTransport = transport;
    if (const MNResult result = transport->OpenWithSink(this); result != MN_OK)
        return result;
    SendOn();
    return MN_OK;
}

MNResult CFileServer::OnReceive(CMNMessageBlock&, IPSTransport*, CPSTransportParameter*)
{
    return MN_OK;
}

MNResult CFileServer::OnSend(IPSTransport*, CPSTransportParameter*)
{
    SendOn();
    return MN_OK;
}

MNResult CFileServer::OnDisconnect(long, IPSTransport*)
{
    m_pTransport = nullptr;
    return MN_OK;
}

bool CFileServer::ReadBlock()
{
    m_pBlock = std::make_unique<CMNMessageBlock>(s_nSendSize);
    m_File.read(m_pBlock->GetWritePtr(), static_cast<std::streamsize>(s_nSendSize));
    const auto length = static_cast<std::uint64_t>(m_File.gcount());
    if (m_qwCorruptAt >= m_qwRead && m_qwCorruptAt - m_qwRead < length) {
        char& byte = m_pBlock->GetWritePtr()[m_qwCorruptAt - m_qwRead];
        byte = static_cast<char>(~byte);
    }
    m_pBlock->AdvanceWritePtr(length);
    m_qwRead += length;
    return length != 0;
}

void CFileServer::SendOn()
{
    while (m_pBlock || ReadBlock()) {
        const MNResult result = m_pTransport->SendData(*m_pBlock, nullptr);
        if (result == MN_ERROR_PARTIAL_DATA) {
            ++m_qwRefusals;
            return;  // the rest stays in the block until OnSend
        }
        if (result != MN_OK)
            break;
        m_pBlock.reset();
    }
    // Orderly: what was taken still goes out.
    m_pTransport->Disconnect(MN_OK);
    m_pTransport = nullptr;
}
