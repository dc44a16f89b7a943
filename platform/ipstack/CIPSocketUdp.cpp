#include "CIPSocketUdp.h"

#include "CIPDemux.h"
#include "CIPError.h"
#include "lwip/inet_chksum.h"
#include "lwip/ip.h"
#include "lwip/prot/udp.h"

namespace ipstack
{

namespace
{

// The most that a datagram carries: 65535 less the IPv4 and the UDP header.
constexpr unsigned long s_dwMost = 0xFFFF - IP_HLEN - UDP_HLEN;

}  // namespace

CIPSocketUdp::CIPSocketUdp(int family)
    : CIPSocketDatagram(family, PS_SOCK_DGRAM, CIPCounters::UdpQueueFull, CIPCounters::UdpCutBytes),
      m_pPcb(udp_new_ip_type(family == PS_AF_INET6 ? IPADDR_TYPE_V6 : IPADDR_TYPE_V4))
{
    m_Local = m_Peer = CIPAddress::Any(family);
    if (m_pPcb) {
        udp_recv(m_pPcb, OnDatagram, this);
    }
}

void CIPSocketUdp::RemovePcb()
{
    CIPDemux::RemoveUdp(m_pPcb);
    udp_remove(m_pPcb);
    m_pPcb = nullptr;
    m_Hold.Release();
}

int CIPSocketUdp::BindLocked(const CIPAddress& address)
{
    if (const int error = m_Hold.Bind(CIPPortTable::Udp, address, false)) {
        return error;
    }
    m_Local = m_Hold.GetAddress();
    ip_addr_copy(m_pPcb->local_ip, m_Local.m_Ip);
    m_pPcb->local_port = m_Local.m_wPort;
    if (!CIPDemux::AddUdp(m_pPcb)) {
        m_Local = CIPAddress::Any(GetFamily());
        ip_addr_copy(m_pPcb->local_ip, m_Local.m_Ip);
        m_pPcb->local_port = 0;
        m_Hold.Release();
        return PS_ENOMEM;
    }
    m_pPcb->next = udp_pcbs;
    udp_pcbs = m_pPcb;
    return 0;
}

int CIPSocketUdp::EnsureBound()
{
    return m_Hold.IsHeld() ? 0 : BindLocked(CIPAddress::Any(GetFamily()));
}

long CIPSocketUdp::Bind(const CIPAddress& address)
{
    CIPAddress local = address;
    if (const int error = FitBindAddress(local)) {
        return -error;
    }
    CIPCoreGuard guard;
    if (IsClosed()) {
        return -PS_EBADF;
    }
    if (m_Hold.IsHeld()) {
        return -PS_EINVAL;
    }
    if (!local.IsAny() && !CIPAddress::IsOwn(local.m_Ip)) {
        return -PS_EADDRNOTAVAIL;
    }
    return -BindLocked(local);
}

long CIPSocketUdp::Connect(const CIPAddress& address)
{
    CIPAddress peer = address;
    if (const int error = FitDestination(peer)) {
        return -error;
    }
    if (peer.m_wPort == 0) {
        return -PS_EADDRNOTAVAIL;
    }
    CIPCoreGuard guard;
    if (IsClosed()) {
        return -PS_EBADF;
    }
    netif* link;
    ip_addr_t source;
    if (const int error = Route(m_Local.m_Ip, peer, link, source)) {
        return -error;
    }
    if (const int error = EnsureBound()) {
        return -error;
    }
    const bool wasConnected = m_bConnected;
    SetPeer(peer, true);
    if (!CIPDemux::AddUdp(m_pPcb)) {
        SetPeer(m_Peer, wasConnected);
        return -PS_ENOMEM;
    }
    m_Peer = peer;
    m_bConnected = true;
    return 0;
}

void CIPSocketUdp::SetPeer(const CIPAddress& peer, bool connected) noexcept
{
    ip_addr_copy(m_pPcb->remote_ip, peer.m_Ip);
    m_pPcb->remote_port = peer.m_wPort;
    m_pPcb->flags =
        static_cast<u8_t>(connected ? m_pPcb->flags | UDP_FLAGS_CONNECTED : m_pPcb->flags & ~UDP_FLAGS_CONNECTED);
}

long CIPSocketUdp::Disconnect()
{
    CIPCoreGuard guard;
    if (IsClosed()) {
        return -PS_EBADF;
    }
    SetPeer(CIPAddress::Any(GetFamily()), false);
    if (m_Hold.IsHeld() && !CIPDemux::AddUdp(m_pPcb)) {
        SetPeer(m_Peer, m_bConnected);
        return -PS_ENOMEM;
    }
    m_Peer = CIPAddress::Any(GetFamily());
    m_bConnected = false;
    return 0;
}

long CIPSocketUdp::Send(const ps_iovec* pieces, unsigned long count, const CIPAddress* to)
{
    CIPCoreGuard guard;
    CIPAddress destination;
    if (const int error = ChooseDestination(to, destination)) {
        return -error;
    }
    if (destination.m_wPort == 0) {
        return -PS_EINVAL;
    }
    netif* link;
    ip_addr_t source;
    int error = Route(m_Local.m_Ip, destination, link, source);
    if (error == 0) {
        error = EnsureBound();
    }
    pbuf* packet = nullptr;
    if (error == 0) {
        error = Gather(pieces, count, s_dwMost, PBUF_TRANSPORT, packet);
    }
    if (error != 0) {
        return -error;
    }
    const long length = packet->tot_len;
    const err_t sent = udp_sendto_if_src(m_pPcb, packet, &destination.m_Ip, destination.m_wPort, link, &source);
    pbuf_free(packet);
    if (sent == ERR_OK) {
        return length;
    }
    return sent == ERR_MEM ? -PS_ENOBUFS : -CIPError::FromLwip(sent);
}

long CIPSocketUdp::GetLocal(CIPAddress& address)
{
    CIPCoreGuard guard;
    if (IsClosed()) {
        return -PS_EBADF;
    }
    address = m_Local;
    if (m_bConnected && address.IsAny()) {
        netif* link;
        ip_addr_t source;
        if (Route(m_Local.m_Ip, m_Peer, link, source) == 0) {
            ip_addr_copy(address.m_Ip, source);
        }
    }
    return 0;
}

void CIPSocketUdp::OnSettingsLocked()
{
    m_pPcb->so_options = m_cSocketOptions;
    m_pPcb->tos = m_cTos;
    m_pPcb->ttl = m_cTtl;
}

void CIPSocketUdp::OnDatagram(void* arg, udp_pcb*, pbuf* packet, const ip_addr_t* from, u16_t port)
{
    auto* socket = static_cast<CIPSocketUdp*>(arg);
    // lwIP takes neither the header's length field nor a missing checksum seriously.
    const auto* header = reinterpret_cast<const udp_hdr*>(static_cast<const char*>(packet->payload) - UDP_HLEN);
    const u16_t said = lwip_ntohs(header->len);
    if (said < UDP_HLEN || said - UDP_HLEN > packet->tot_len) {
        CIPCounters::Add(CIPCounters::UdpBadLength);
    } else if (ip_current_is_v6() && header->chksum == 0 &&
               (ip_current_input_netif()->chksum_flags & NETIF_CHECKSUM_CHECK_UDP) != 0) {
        CIPCounters::Add(CIPCounters::UdpNoChecksum);
    } else {
        CIPAddress sender;
        ip_addr_copy(sender.m_Ip, *from);
        sender.m_wPort = port;
        socket->Enqueue(packet, 0, static_cast<u16_t>(said - UDP_HLEN), sender);
    }
    pbuf_free(packet);
}

}  // namespace ipstack
