#include "CIPDemux.h"

#include "CIPCounters.h"
#include "CIPDemuxTcp.h"
#include "CIPDemuxUdp.h"
#include "CIPFlow.h"
#include "lwip/ip.h"

namespace ipstack
{

err_t CIPDemux::Input(pbuf* packet, netif* link) noexcept
{
    CIPFlow flow;
    if (!flow.Read(packet)) {
        CIPCounters::AddLocked(CIPCounters::DemuxFull);
        return ip_input(packet, link);
    }
    return flow.m_bProtocol == IP_PROTO_TCP ? CIPDemuxTcp::Input(flow, packet, link)
                                            : CIPDemuxUdp::Input(flow, packet, link);
}

bool CIPDemux::AddTcp(tcp_pcb* pcb) noexcept
{
    return CIPDemuxTcp::Add(pcb);
}

std::size_t CIPDemux::GetTcpCount() noexcept
{
    return CIPDemuxTcp::GetCount();
}

void CIPDemux::AddUdp(udp_pcb* pcb) noexcept
{
    CIPDemuxUdp::Add(pcb);
}

void CIPDemux::RemoveUdp(udp_pcb* pcb) noexcept
{
    CIPDemuxUdp::Remove(pcb);
}

}  // namespace ipstack
