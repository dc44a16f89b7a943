#include "CChatClient.h"

#include <utility>

using namespace uxport;

namespace
{

constexpr long CONNECT_SECONDS = 10;

}  // namespace

CChatClient::CChatClient(std::string name, FLine line, FEnded ended)
    : m_strName(std::move(name)), m_fLine(std::move(line)), m_fEnded(std::move(ended))
{
}

CChatClient::~CChatClient()
{
    if (m_pConnector)
        m_pConnector->CancelConnect();
    if (m_pTransport)
        m_pTransport->Disconnect(MN_OK);
}

MNResult CChatClient::Join(const CMNInetAddr& address)
{
    const MNResult result =
        IPSConnectionManager::Instance()->CreateConnectionClient(CONNECTION_TYPE_TCP, m_pConnector.ParaOut());
    if (result != MN_OK)
        return result;
    CMNTimeValue timeout(CONNECT_SECONDS, 0);
    return m_pConnector->AsycConnect(this, address, &timeout, nullptr, 0, 0);
}

void CChatClient::Say(const std::string& line)
{
    const std::string text = line + '\n';
    CMNMessageBlock block(text.size());
    block.Write(text.data(), text.size());
    if (m_pTransport)
        m_pTransport->SendData(block, nullptr);
}

MNResult CChatClient::OnConnectIndication(long result, IPSTransport* transport, IPSAcceptorConnectorId*)
{
    if (result != 0) {
        m_fEnded(*this);
        return MN_OK;
    }
    m_pTransport = transport;
    transport->OpenWithSink(this);
    Say(m_strName);
    return MN_OK;
}

MNResult CChatClient::OnReceive(CMNMessageBlock& data, IPSTransport*, CPSTransportParameter*)
{
    std::string text(data.GetChainedLength(), '\0');
    data.PeekChained(text.data(), text.size());
    for (const char c : text) {
        if (c != '\n')
            m_strPart += c;
        else
            m_fLine(*this, std::exchange(m_strPart, {}));
    }
    return MN_OK;
}

MNResult CChatClient::OnSend(IPSTransport*, CPSTransportParameter*)
{
    return MN_OK;
}

MNResult CChatClient::OnDisconnect(long, IPSTransport*)
{
    m_pTransport = nullptr;
    m_fEnded(*this);
    return MN_OK;
}
