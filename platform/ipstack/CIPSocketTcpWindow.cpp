// The receive window of TCP sockets.
#include <algorithm>

#include "CIPSocketTcp.h"
#include "lwip/priv/tcp_priv.h"

namespace ipstack
{

namespace
{

constexpr std::uint32_t s_dwPromised = 0xFFFF;  // by the handshake, whose window has 16 bits

}  // namespace

std::uint32_t CIPSocketTcp::GetWindow(const tcp_pcb* pcb) const noexcept
{
    const auto limit = static_cast<std::uint32_t>(m_nReceiveLimit.load());
    // With less than two segments of window lwIP's sender waits for its persist timer.
    const std::uint32_t window = std::max<std::uint32_t>(limit, 2u * pcb->mss);
    return std::min<std::uint32_t>(window, TCP_WND_MAX(pcb));
}

void CIPSocketTcp::StartWindow(tcp_pcb* pcb, bool accepted) noexcept
{
    m_dwWindow = GetWindow(pcb);
    const std::uint32_t start = std::max(m_dwWindow, s_dwPromised);
    pcb->rcv_wnd = pcb->rcv_ann_wnd = start;
    if (accepted) {
        pcb->rcv_ann_right_edge = pcb->rcv_nxt + s_dwPromised;  // what the answer to the request has announced
    }
    m_dwHeldBack = start - m_dwWindow;
    m_dwCreditStep.store(std::min<std::uint32_t>(m_dwWindow / 2, 2u * pcb->mss));
}

void CIPSocketTcp::ChangeWindow(tcp_pcb* pcb) noexcept
{
    const std::uint32_t window = GetWindow(pcb);
    if (window < m_dwWindow) {
        m_dwHeldBack += m_dwWindow - window;  // what was promised stays promised
    } else if (window > m_dwWindow) {
        m_dwUncredited.fetch_add(window - m_dwWindow);
    }
    m_dwWindow = window;
    m_dwCreditStep.store(std::min<std::uint32_t>(window / 2, 2u * pcb->mss));
    Credit(pcb, true);
}

void CIPSocketTcp::Credit(tcp_pcb* pcb, bool announce) noexcept
{
    std::uint32_t amount = m_dwUncredited.exchange(0);
    const std::uint32_t held = std::min(amount, m_dwHeldBack);
    m_dwHeldBack -= held;
    amount -= held;
    pcb->rcv_wnd = std::min<tcpwnd_size_t>(pcb->rcv_wnd + amount, TCP_WND_MAX(pcb));
    if (!announce) {
        tcp_update_rcv_ann_wnd(pcb);
        return;
    }
    if (pcb->state != ESTABLISHED && pcb->state != FIN_WAIT_1 && pcb->state != FIN_WAIT_2) {
        return;  // nothing more comes
    }
    const u32_t growth = pcb->rcv_nxt + pcb->rcv_wnd - pcb->rcv_ann_right_edge;
    if (growth >= m_dwCreditStep.load(std::memory_order_relaxed) && growth <= TCP_WND) {
        pcb->rcv_ann_wnd = pcb->rcv_wnd;
        tcp_ack_now(pcb);
        tcp_output(pcb);
    }
}

}  // namespace ipstack
