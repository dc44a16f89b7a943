#include "CChargenServer.h"

#include "CPattern.h"

using namespace uxport;

MNResult CChargenStream::OnConnectIndication(long, IPSTransport* transport, IPSAcceptorConnectorId*)
{
    const MNResult result = transport->OpenWithSink(this);
    return result == MN_OK ? OnSend(transport, nullptr) : result;
}

MNResult CChargenStream::OnSend(IPSTransport* transport, CPSTransportParameter*)
{
    for (MNResult result = MN_OK; result == MN_OK;) {
        if (!m_pRest) {
            m_pRest = std::make_unique<CMNMessageBlock>(s_dwPiece);
            chargen::Fill(m_pRest->GetWritePtr(), s_dwPiece, m_qwAt);
            m_pRest->AdvanceWritePtr(s_dwPiece);
            m_qwAt += s_dwPiece;
        }
        result = transport->SendData(*m_pRest, nullptr);
        if (result == MN_OK)
            m_pRest.reset();
    }
    return MN_OK;
}

MNResult CChargenStream::OnDisconnect(long, IPSTransport*)
{
    m_pTransport = nullptr;
    return MN_OK;
}

MNResult CChargenServer::Start(const CMNInetAddr& address)
{
    IPSConnectionManager* manager = IPSConnectionManager::Instance();
    MNResult result = manager->CreateConnectionServer(CONNECTION_TYPE_TCP, m_pTcp.ParaOut());
    if (result == MN_OK)
        result = m_pTcp->StartListen(this, address, 0, 0);
    if (result == MN_OK)
        result = manager->CreateConnectionServer(CONNECTION_TYPE_UDP, m_pUdp.ParaOut());
    return result == MN_OK ? m_pUdp->StartListen(this, address, 0, 0) : result;
}

void CChargenServer::Stop()
{
    m_pTcp = nullptr;
    m_pUdp = nullptr;
    m_Streams.clear();
}

MNResult CChargenServer::OnConnectIndication(long result, IPSTransport* transport, IPSAcceptorConnectorId* id)
{
    if (id == m_pUdp.Get())
        return transport->OpenWithSink(this);  // its table keeps it
    m_Streams.remove_if([](const CChargenStream& stream) { return stream.IsOver(); });
    return m_Streams.emplace_back(transport).OnConnectIndication(result, transport, id);
}

MNResult CChargenServer::OnReceive(CMNMessageBlock&, IPSTransport* transport, CPSTransportParameter*)
{
    const unsigned long length = m_Random() % (s_dwLongestAnswer + 1);
    CMNMessageBlock block(length);
    chargen::Fill(block.GetWritePtr(), length, 0);
    block.AdvanceWritePtr(length);
    transport->SendData(block, nullptr);
    return transport->Disconnect(0);  // a peer is forgotten with its answer
}
