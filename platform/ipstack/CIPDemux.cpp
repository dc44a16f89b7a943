#include "CIPDemux.h"

#include "CIPAnswerLimit.h"
#include "CIPCounters.h"
#include "CIPDemuxTcp.h"
#include "CIPDemuxUdp.h"
#include "CIPFlow.h"
#include "lwip/ip.h"

namespace ipstack
{

void CIPDemux::Start()
{
    CIPDemuxTcp::Start();
    CIPDemuxUdp::Start();
}

err_t CIPDemux::Input(pbuf* packet, netif* link) noexcept
{
    CIPFlow flow;
    if (!flow.Read(packet)) {
        const CIPAnswerLimit::CScope scope;
        CIPCounters::AddLocked(CIPCounters::DemuxFull);
        return ip_input(packet, link);
    }
    if (flow.m_bProtocol == IP_PROTO_TCP) {
        return CIPDemuxTcp::Input(flow, packet, link);
    }
    const CIPAnswerLimit::CScope scope;
    return CIPDemuxUdp::Input(flow, packet, link);
}

bool CIPDemux::AddTcp(tcp_pcb* pcb) noexcept
{
    return CIPDemuxTcp::Add(pcb);
}

std::size_t CIPDemux::GetTcpCount() noexcept
{
    return CIPDemuxTcp::GetCount();
}

bool CIPDemux::AddUdp(udp_pcb* pcb) noexcept
{
    return CIPDemuxUdp::Add(pcb);
}

void CIPDemux::RemoveUdp(udp_pcb* pcb) noexcept
{
    CIPDemuxUdp::Remove(pcb);
}

}  // namespace ipstack
