#include "tests/integration/support/CListener.h"

#include <gtest/gtest.h>

using namespace uxport;

CListener::~CListener()
{
    m_Network.Run([this] {
        Close();
        m_Peers.clear();
    });
}

MNResult CListener::Listen(const CMNInetAddr& address)
{
    if (!m_pAcceptor)
        m_pAcceptor = m_Network.CreateServer(m_dwType);
    return m_pAcceptor->StartListen(this, address, m_wNumber1, m_wNumber2);
}

void CListener::Close()
{
    IPSAcceptor* acceptor = m_pAcceptor;
    m_pAcceptor = nullptr;
    if (acceptor) {
        EXPECT_EQ(MN_OK, acceptor->StopListen(0));
        acceptor->ReleaseReference();
    }
}

MNResult CListener::OnConnectIndication(long result, IPSTransport* transport, IPSAcceptorConnectorId* id)
{
    EXPECT_EQ(0, result);
    EXPECT_FALSE(id->IsConnector());
    EXPECT_EQ(static_cast<IPSAcceptorConnectorId*>(m_pAcceptor), id);
    ++m_nIndications;
    if (m_bTake) {
        m_Peers.push_back(std::make_unique<CPeer>(m_Network));
        CPeer& peer = *m_Peers.back();
        peer.m_bEcho = m_bEcho;
        peer.m_bKeep = !m_bEcho;
        if (m_fOnPeer)
            m_fOnPeer(peer);
        peer.Take(transport, m_bOpen);
    }
    if (m_fAfter)
        m_fAfter();
    m_Network.Poke();
    return MN_OK;
}
