#include "CIPSocketRaw.h"

#include "CIPError.h"
#include "CIPIdentification.h"
#include "lwip/ip.h"

namespace ipstack
{

namespace
{

constexpr unsigned long s_dwMostPacket = 0xFFFF;
constexpr unsigned long s_dwMostPayload = s_dwMostPacket - IP_HLEN;

constexpr long s_nChecksumLength = 2;

// The protocol number that says that the sender always writes the header.
constexpr u8_t s_cProtocolRaw = 255;

}  // namespace

CIPSocketRaw::CIPSocketRaw(int family, u8_t protocol)
    : CIPSocketDatagram(family, PS_SOCK_RAW, CIPCounters::RawQueueFull, CIPCounters::RawCutBytes),
      m_pPcb(raw_new_ip_type(family == PS_AF_INET6 ? IPADDR_TYPE_V6 : IPADDR_TYPE_V4, protocol))
{
    m_Local = m_Peer = CIPAddress::Any(family);
    if (m_pPcb) {
        raw_recv(m_pPcb, OnPacket, this);
        if (protocol == s_cProtocolRaw && family == PS_AF_INET) {
            raw_set_flags(m_pPcb, RAW_FLAGS_HDRINCL);
        }
    }
}

void CIPSocketRaw::RemovePcb()
{
    raw_remove(m_pPcb);
    m_pPcb = nullptr;
}

long CIPSocketRaw::Bind(const CIPAddress& address)
{
    CIPAddress local = address;
    if (const int error = FitBindAddress(local)) {
        return -error;
    }
    local.m_wPort = 0;
    CIPCoreGuard guard;
    if (IsClosed()) {
        return -PS_EBADF;
    }
    if (!local.IsAny() && !CIPAddress::IsOwn(local.m_Ip)) {
        return -PS_EADDRNOTAVAIL;
    }
    m_Local = local;
    raw_bind(m_pPcb, &local.m_Ip);
    return 0;
}

long CIPSocketRaw::Connect(const CIPAddress& address)
{
    CIPAddress peer = address;
    if (const int error = FitDestination(peer)) {
        return -error;
    }
    peer.m_wPort = 0;
    CIPCoreGuard guard;
    if (IsClosed()) {
        return -PS_EBADF;
    }
    netif* link;
    ip_addr_t source;
    if (const int error = Route(m_Local.m_Ip, peer, link, source)) {
        return -error;
    }
    m_Peer = peer;
    m_bConnected = true;
    raw_connect(m_pPcb, &peer.m_Ip);
    return 0;
}

long CIPSocketRaw::Disconnect()
{
    CIPCoreGuard guard;
    if (IsClosed()) {
        return -PS_EBADF;
    }
    m_Peer = CIPAddress::Any(GetFamily());
    m_bConnected = false;
    raw_disconnect(m_pPcb);
    return 0;
}

long CIPSocketRaw::Send(const ps_iovec* pieces, unsigned long count, const CIPAddress* to)
{
    CIPCoreGuard guard;
    CIPAddress destination;
    if (const int error = ChooseDestination(to, destination)) {
        return -error;
    }
    netif* link;
    ip_addr_t source;
    int error = Route(m_Local.m_Ip, destination, link, source);
    const bool header = raw_is_flag_set(m_pPcb, RAW_FLAGS_HDRINCL);
    pbuf* packet = nullptr;
    if (error == 0) {
        error = header ? Gather(pieces, count, s_dwMostPacket, PBUF_LINK, packet)
                       : Gather(pieces, count, s_dwMostPayload, PBUF_IP, packet);
    }
    if (error != 0) {
        return -error;
    }
    const long length = packet->tot_len;
    if (m_pPcb->chksum_reqd && length < m_pPcb->chksum_offset + s_nChecksumLength) {
        pbuf_free(packet);
        return -PS_EINVAL;  // its place lies behind the payload
    }
    // The identification is the program's: in a header it has written, or in a fragment.
    const bool fragment = m_pPcb->protocol == IP6_NEXTH_FRAGMENT && length + IP6_HLEN <= link->mtu;
    const CIPIdentification::CKeep keep(header || (fragment && GetFamily() == PS_AF_INET6));
    const err_t sent = raw_sendto_if_src(m_pPcb, packet, &destination.m_Ip, link, &source);
    pbuf_free(packet);
    if (sent == ERR_OK) {
        return length;
    }
    return sent == ERR_MEM ? -PS_ENOBUFS : -CIPError::FromLwip(sent);
}

long CIPSocketRaw::GetLocal(CIPAddress& address)
{
    CIPCoreGuard guard;
    address = m_Local;
    return IsClosed() ? -PS_EBADF : 0;
}

void CIPSocketRaw::OnSettingsLocked()
{
    m_pPcb->so_options = m_cSocketOptions;
    m_pPcb->tos = m_cTos;
    m_pPcb->ttl = m_cTtl;
}

long CIPSocketRaw::SetOwnOption(int level, int name, int value)
{
    if (level == PS_IPPROTO_IP && name == PS_IP_HDRINCL && GetFamily() == PS_AF_INET) {
        if (value != 0) {
            raw_set_flags(m_pPcb, RAW_FLAGS_HDRINCL);
        } else {
            raw_clear_flags(m_pPcb, RAW_FLAGS_HDRINCL);
        }
        return 0;
    }
    if (level == PS_IPPROTO_IPV6 && name == PS_IPV6_CHECKSUM && GetFamily() == PS_AF_INET6) {
        // ICMPv6 has its checksum at 2 whatever is asked for (RFC 3542, section 3.1).
        if (m_pPcb->protocol == PS_IPPROTO_ICMPV6 || value > static_cast<int>(s_dwMostPacket) ||
            (value >= 0 && value % 2 != 0)) {
            return -PS_EINVAL;
        }
        m_pPcb->chksum_reqd = value >= 0;
        m_pPcb->chksum_offset = static_cast<u16_t>(value >= 0 ? value : 0);
        return 0;
    }
    return -PS_ENOPROTOOPT;
}

long CIPSocketRaw::GetOwnOption(int level, int name, int& value)
{
    if (level == PS_IPPROTO_IP && name == PS_IP_HDRINCL && GetFamily() == PS_AF_INET) {
        value = raw_is_flag_set(m_pPcb, RAW_FLAGS_HDRINCL) != 0;
        return 0;
    }
    if (level == PS_IPPROTO_IPV6 && name == PS_IPV6_CHECKSUM && GetFamily() == PS_AF_INET6) {
        value = m_pPcb->chksum_reqd ? m_pPcb->chksum_offset : -1;
        return 0;
    }
    return -PS_ENOPROTOOPT;
}

u8_t CIPSocketRaw::OnPacket(void* arg, raw_pcb*, pbuf* packet, const ip_addr_t* from)
{
    auto* socket = static_cast<CIPSocketRaw*>(arg);
    CIPAddress sender;
    ip_addr_copy(sender.m_Ip, *from);
    // lwIP shows the header with both; a raw IPv6 socket gets what is behind it.
    const u16_t header = ip_current_is_v6() ? ip_current_header_tot_len() : u16_t{0};
    if (header <= packet->tot_len) {
        socket->Enqueue(packet, header, static_cast<u16_t>(packet->tot_len - header), sender);
    }
    return 0;  // not eaten
}

}  // namespace ipstack
