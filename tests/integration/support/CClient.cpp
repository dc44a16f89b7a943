#include "tests/integration/support/CClient.h"

#include <gtest/gtest.h>

using namespace uxport;

CClient::~CClient()
{
    m_Network.Run([this] {
        if (m_pConnector)
            m_pConnector->CancelConnect();
        ReleaseConnector();
    });
}

MNResult CClient::Connect(const CMNInetAddr& address, long seconds, CMNInetAddr* local)
{
    if (!m_pConnector)
        m_pConnector = m_Network.CreateClient(m_dwType);
    CMNTimeValue timeout(seconds, 0);
    return m_pConnector->AsycConnect(this, address, seconds != 0 ? &timeout : nullptr, local, m_wNumber1, m_wNumber2);
}

void CClient::ReleaseConnector()
{
    IPSConnector* connector = m_pConnector;
    m_pConnector = nullptr;
    if (connector)
        connector->ReleaseReference();
}

MNResult CClient::OnConnectIndication(long result, IPSTransport* transport, IPSAcceptorConnectorId* id)
{
    EXPECT_TRUE(id->IsConnector());
    EXPECT_EQ(result == 0, transport != nullptr);
    m_Results.push_back(result);
    if (transport && m_bTake)
        Take(transport);
    CNetwork& network = m_Network;
    if (m_fOnResult) {
        const auto function = m_fOnResult;
        function(result);
    }
    network.Poke();
    return MN_OK;
}
