#include "CSender.h"

#include <algorithm>
#include <string>

using namespace uxport;

namespace
{

MNResult Connect(unsigned long type, mantle::CMNAutoPtr<IPSConnector>& connector, IPSAcceptorConnectorSink* sink,
                 const CMNInetAddr& address)
{
    const MNResult result = IPSConnectionManager::Instance()->CreateConnectionClient(type, connector.ParaOut());
    return result == MN_OK ? connector->AsycConnect(sink, address, nullptr, nullptr, 0, 0) : result;
}

MNResult Send(IPSTransport& transport, unsigned long length)
{
    const std::string zeros(length, '0');
    CMNMessageBlock block(length);
    block.Write(zeros.data(), length);
    return transport.SendData(block, nullptr);
}

}  // namespace

MNResult CStreamSender::Start(const CMNInetAddr& address)
{
    return Connect(CONNECTION_TYPE_TCP, m_pConnector, this, address);
}

MNResult CStreamSender::OnConnectIndication(long result, IPSTransport* transport, IPSAcceptorConnectorId*)
{
    if (result != 0) {
        CExample::Stop();
        return MN_OK;
    }
    m_pTransport = transport;
    m_pTransport->OpenWithSink(this);
    return OnSend(transport, nullptr);
}

// The last piece may be a short one, which nothing follows: then there is nothing more to send either.
MNResult CStreamSender::OnSend(IPSTransport* transport, CPSTransportParameter*)
{
    const auto length = static_cast<unsigned long>(std::min<std::uint64_t>(m_qwLeft, s_dwPiece));
    m_qwLeft -= length;
    return length != 0 ? Send(*transport, length) : MN_OK;
}

MNResult CDatagramSender::Start(const CMNInetAddr& address)
{
    return Connect(CONNECTION_TYPE_UDP, m_pConnector, this, address);
}

MNResult CDatagramSender::OnConnectIndication(long result, IPSTransport* transport, IPSAcceptorConnectorId*)
{
    if (result != 0) {
        CExample::Stop();
        return MN_OK;
    }
    m_pTransport = transport;
    m_pTransport->OpenWithSink(this);
    return m_Timer.Schedule(this, CMNTimeValue(0, 1000));
}

void CDatagramSender::OnTimer(mantle::CMNTimerWrapperID*)
{
    for (int i = 0; i < s_nAtATime && m_qwLeft != 0; ++i, --m_qwLeft)
        Send(*m_pTransport, s_dwLength);
    if (m_qwLeft == 0)
        m_Timer.Cancel();
}
