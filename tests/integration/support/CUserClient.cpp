#include "tests/integration/support/CUserClient.h"

#include <gtest/gtest.h>

using namespace uxport;

CUserClient::~CUserClient()
{
    if (m_pConnector)
        m_pConnector->CancelConnect();
}

MNResult CUserClient::Connect(const CMNInetAddr& address, long seconds, IPSAcceptorConnectorSink* sink)
{
    if (!m_pConnector) {
        EXPECT_EQ(MN_OK, IPSConnectionManager::Instance()->CreateConnectionClient(m_dwType, m_pConnector.ParaOut()));
    }
    CMNTimeValue timeout(seconds, 0);
    return m_pConnector->AsycConnect(sink ? sink : this, address, seconds != 0 ? &timeout : nullptr, nullptr, m_wFamily,
                                     m_wProtocol);
}

MNResult CUserClient::OnConnectIndication(long result, IPSTransport* transport, IPSAcceptorConnectorId* id)
{
    EXPECT_TRUE(id->IsConnector());
    EXPECT_EQ(static_cast<IPSAcceptorConnectorId*>(m_pConnector.Get()), id);
    EXPECT_EQ(result == 0, transport != nullptr);
    EXPECT_TRUE(mantle::CMNThreadManager::IsEqualCurrentThread(m_Loop.GetThread().GetThreadId()));
    m_Results.push_back(result);
    if (transport && m_bTake)
        Take(transport);
    if (m_fOnResult)
        m_fOnResult(result);
    m_Loop.Poke();
    return MN_OK;
}
