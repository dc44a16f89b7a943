#include "CPing.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>

#include "IcmpEcho.h"

using namespace uxport;

namespace
{

constexpr unsigned int IDENTIFIER = 0x7578;

CMNTimeValue Seconds(double seconds)
{
    return CMNTimeValue::FromUsec(std::llround(seconds * 1e6));
}

}  // namespace

MNResult CPing::Start()
{
    const MNResult result =
        IPSConnectionManager::Instance()->CreateConnectionClient(CONNECTION_TYPE_RAW, m_pConnector.ParaOut());
    if (result != MN_OK)
        return result;
    return m_pConnector->AsycConnect(this, CMNInetAddr(m_Options.m_strHost, 0), nullptr, nullptr,
                                     CMNInetAddr::s_wFamilyIpv4, icmp::PROTOCOL);
}

MNResult CPing::OnConnectIndication(long result, IPSTransport* transport, IPSAcceptorConnectorId*)
{
    if (result != 0) {
        CExample::Stop();
        return MN_OK;
    }
    m_pTransport = transport;
    m_pTransport->OpenWithSink(this);
    std::printf("PING %s: %d data bytes\n", m_Options.m_strHost.c_str(), m_Options.m_nSize);
    OnTimer(&m_Timer);
    return MN_OK;
}

void CPing::OnTimer(mantle::CMNTimerWrapperID*)
{
    if (IsLastSent()) {
        m_pTransport->Disconnect(0);
        CExample::Stop();
        return;
    }
    m_Requests.push_back({CMNTimeValue::GetMonotonic()});
    const auto request = icmp::MakeRequest(IDENTIFIER, static_cast<unsigned int>(m_Requests.size()),
                                           static_cast<std::size_t>(m_Options.m_nSize));
    CMNMessageBlock block(request.size());
    block.Write(request.data(), request.size());
    m_pTransport->SendData(block, nullptr);
    m_Timer.Schedule(this, Seconds(IsLastSent() ? m_Options.m_dWait : m_Options.m_dInterval), 1);
}

// A raw connection hears every ICMP message of its peer, meant for whomever.
MNResult CPing::OnReceive(CMNMessageBlock& data, IPSTransport*, CPSTransportParameter*)
{
    const auto reply = icmp::ReadReply(data.GetReadPtr(), data.GetLength());
    if (!reply || reply->m_dwIdentifier != IDENTIFIER || reply->m_dwSequence == 0 ||
        reply->m_dwSequence > m_Requests.size())
        return MN_OK;
    CRequest& request = m_Requests[reply->m_dwSequence - 1];
    const CMNTimeValue took = CMNTimeValue::GetMonotonic() - request.m_tvSent;
    const double milliseconds = static_cast<double>(took.GetTotalInUsec()) / 1000;
    std::printf("%zu bytes from %s: icmp_seq=%u ttl=%u time=%.3f ms%s\n", reply->m_nLength, m_Options.m_strHost.c_str(),
                reply->m_dwSequence, reply->m_dwTtl, milliseconds, request.m_bAnswered ? " (DUP!)" : "");
    if (!request.m_bAnswered)
        m_Times.push_back(milliseconds);
    request.m_bAnswered = true;
    if (m_Times.size() == static_cast<std::size_t>(m_Options.m_nCount))
        m_Timer.Schedule(this, CMNTimeValue::s_tvZero, 1);
    return MN_OK;
}

int CPing::Report() const
{
    const auto sent = static_cast<double>(m_Requests.size());
    const auto received = static_cast<double>(m_Times.size());
    std::printf("--- %s ping statistics ---\n%zu packets transmitted, %zu received, %.1f%% packet loss\n",
                m_Options.m_strHost.c_str(), m_Requests.size(), m_Times.size(),
                sent > 0 ? 100 * (sent - received) / sent : 0);
    if (m_Times.empty())
        return 1;
    const auto range = std::minmax_element(m_Times.begin(), m_Times.end());
    std::printf("rtt min/avg/max = %.3f/%.3f/%.3f ms\n", *range.first,
                std::accumulate(m_Times.begin(), m_Times.end(), 0.0) / received, *range.second);
    return 0;
}
