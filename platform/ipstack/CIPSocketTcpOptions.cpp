// What is set on a TCP socket, and what of it reaches the connection.
#include <algorithm>

#include "CIPSocketTcp.h"
#include "CIPTcpEnd.h"
#include "lwip/priv/tcp_priv.h"

namespace ipstack
{

namespace
{

constexpr int s_nMsecPerSec = 1000;
constexpr int s_nKeepAliveMost = 4000000;  // seconds; lwIP counts milliseconds in 32 bits
constexpr int s_nProbesMost = 255;

}  // namespace

void CIPSocketTcp::ApplySettings(tcp_pcb* pcb) const noexcept
{
    pcb->so_options = static_cast<u8_t>((pcb->so_options & ~SOF_KEEPALIVE) | (m_cSocketOptions & SOF_KEEPALIVE));
    pcb->tos = m_cTos;
    pcb->ttl = m_cTtl;
    pcb->keep_idle = static_cast<u32_t>(m_KeepAlive.m_nIdle) * s_nMsecPerSec;
    pcb->keep_intvl = static_cast<u32_t>(m_KeepAlive.m_nInterval) * s_nMsecPerSec;
    pcb->keep_cnt = static_cast<u32_t>(m_KeepAlive.m_nCount);
    // Inside the stack small segments cost little, and a delayed acknowledgement would hold the next one up.
    if (m_bNoDelay || CIPTcpEnd::IsInside(pcb)) {
        tcp_nagle_disable(pcb);
    } else {
        tcp_nagle_enable(pcb);
    }
}

long CIPSocketTcp::SetOwnOption(int level, int name, int value)
{
    if (level != PS_IPPROTO_TCP) {
        return -PS_ENOPROTOOPT;
    }
    switch (name) {
    case PS_TCP_NODELAY:
        m_bNoDelay = value != 0;
        return 0;
    case PS_TCP_KEEPIDLE:
    case PS_TCP_KEEPINTVL:
        if (value < 1) {
            return -PS_EINVAL;
        }
        (name == PS_TCP_KEEPIDLE ? m_KeepAlive.m_nIdle : m_KeepAlive.m_nInterval) = std::min(value, s_nKeepAliveMost);
        return 0;
    case PS_TCP_KEEPCNT:
        if (value < 1 || value > s_nProbesMost) {
            return -PS_EINVAL;
        }
        m_KeepAlive.m_nCount = value;
        return 0;
    default:
        return -PS_ENOPROTOOPT;
    }
}

long CIPSocketTcp::GetOwnOption(int level, int name, int& value)
{
    if (level != PS_IPPROTO_TCP) {
        return -PS_ENOPROTOOPT;
    }
    switch (name) {
    case PS_TCP_NODELAY:
        value = m_bNoDelay;
        return 0;
    case PS_TCP_KEEPIDLE:
        value = m_KeepAlive.m_nIdle;
        return 0;
    case PS_TCP_KEEPINTVL:
        value = m_KeepAlive.m_nInterval;
        return 0;
    case PS_TCP_KEEPCNT:
        value = m_KeepAlive.m_nCount;
        return 0;
    default:
        return -PS_ENOPROTOOPT;
    }
}

void CIPSocketTcp::OnSettingsLocked()
{
    tcp_pcb* pcb = GetPcb();
    if (!pcb) {
        return;
    }
    ApplySettings(pcb);
    if (m_eState == Connected) {
        ChangeWindow(pcb);
        if (m_bNoDelay) {
            tcp_output(pcb);  // what was held back may go now
        }
        if (!m_bSendShut) {
            UpdateOut(pcb);
        }
    }
}

}  // namespace ipstack
