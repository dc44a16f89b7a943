#include "CEchoClient.h"

#include <utility>

using namespace uxport;

CEchoClient::CEchoClient(int number, int lines, std::function<void()> atEnd)
    : m_nNumber(number), m_nLines(lines), m_AtEnd(std::move(atEnd))
{
}

MNResult CEchoClient::Start(const CMNInetAddr& server)
{
    const MNResult result =
        IPSConnectionManager::Instance()->CreateConnectionClient(CONNECTION_TYPE_UDP, m_pConnector.ParaOut());
    return result == MN_OK ? m_pConnector->AsycConnect(this, server, nullptr, nullptr, 0, 0) : result;
}

MNResult CEchoClient::OnConnectIndication(long result, IPSTransport* transport, IPSAcceptorConnectorId*)
{
    if (result != 0)
        return End();
    m_pTransport = transport;
    m_pTransport->OpenWithSink(this);
    return Say();
}

MNResult CEchoClient::OnReceive(CMNMessageBlock& data, IPSTransport*, CPSTransportParameter*)
{
    if (std::string(data.GetReadPtr(), data.GetLength()) != m_strLine)
        return MN_OK;  // the echo of a line that was given up
    ++m_nAnswered;
    return Say();
}

MNResult CEchoClient::OnDisconnect(long, IPSTransport*)
{
    return End();
}

void CEchoClient::OnTimer(mantle::CMNTimerWrapperID*)
{
    Say();
}

MNResult CEchoClient::Say()
{
    if (m_nSaid == m_nLines)
        return End();
    m_strLine = "peer " + std::to_string(m_nNumber) + ", line " + std::to_string(++m_nSaid);
    CMNMessageBlock block(m_strLine.size());
    block.Write(m_strLine.data(), m_strLine.size());
    m_Timer.Schedule(this, CMNTimeValue(1, 0), 1);
    return m_pTransport->SendData(block, nullptr);
}

MNResult CEchoClient::End()
{
    m_Timer.Cancel();
    if (m_pTransport)
        m_pTransport->Disconnect(0);
    m_AtEnd();
    return MN_OK;
}
