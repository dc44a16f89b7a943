#include "tests/integration/support/CUserServer.h"

#include <gtest/gtest.h>

using namespace uxport;

CUserServer::~CUserServer()
{
    if (m_pAcceptor) {
        EXPECT_EQ(MN_OK, m_pAcceptor->StopListen(0));
    }
}

MNResult CUserServer::Listen(const CMNInetAddr& address)
{
    if (!m_pAcceptor) {
        EXPECT_EQ(MN_OK, IPSConnectionManager::Instance()->CreateConnectionServer(m_dwType, m_pAcceptor.ParaOut()));
    }
    return m_pAcceptor->StartListen(this, address, m_wFamily, m_wProtocol);
}

MNResult CUserServer::OnConnectIndication(long result, IPSTransport* transport, IPSAcceptorConnectorId* id)
{
    EXPECT_EQ(0, result);
    EXPECT_FALSE(id->IsConnector());
    EXPECT_EQ(static_cast<IPSAcceptorConnectorId*>(m_pAcceptor.Get()), id);
    EXPECT_TRUE(mantle::CMNThreadManager::IsEqualCurrentThread(m_Loop.GetThread().GetThreadId()));
    ++m_nIndications;
    if (m_bTake) {
        m_Peers.push_back(std::make_unique<CUserPeer>(m_Loop));
        CUserPeer& peer = *m_Peers.back();
        peer.m_bEcho = m_bEcho;
        peer.m_bKeep = !m_bEcho;
        peer.Take(transport, m_bOpen);
        if (m_fOnPeer)
            m_fOnPeer(peer);
    }
    m_Loop.Poke();
    return MN_OK;
}
