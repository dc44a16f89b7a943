#include "CCaptureLink.h"

#include "lwip/ip.h"
#include "platform/ipstack/CIPDemux.h"
#include "platform/ipstack/CIPLinkTable.h"
#include "platform/ipstack/CIPPacketFilter.h"

using ipstack::CIPDemux;
using ipstack::CIPLinkTable;
using ipstack::CIPPacketFilter;

CCaptureLink::CCaptureLink(const char* address, const char* address6)
{
    ipstack::CIPCore::Instance().Start();
    m_pGuard = std::make_unique<ipstack::CIPCoreGuard>();
    ip4_addr_t own;
    ip4_addr_t mask;
    ip4_addr_t gateway;
    own.addr = packetmaker::Address4(address);
    mask.addr = packetmaker::Address4("255.255.255.0");
    ip4_addr_set_zero(&gateway);
    netif_add(&m_Netif, &own, &mask, &gateway, this, &OnInit, &ip_input);
    ip6_addr_t own6{};
    const auto bytes = packetmaker::Address6(address6);
    std::copy(bytes.begin(), bytes.end(), reinterpret_cast<std::uint8_t*>(own6.addr));
    netif_ip6_addr_set(&m_Netif, 0, &own6);
    netif_ip6_addr_set_state(&m_Netif, 0, IP6_ADDR_PREFERRED);
    netif_set_up(&m_Netif);
    CIPLinkTable::AddLink(&m_Netif);
}

CCaptureLink::~CCaptureLink()
{
    Pump();
    CIPLinkTable::RemoveLink(&m_Netif);
    netif_remove(&m_Netif);
}

err_t CCaptureLink::OnInit(netif* link)
{
    link->name[0] = 'c';
    link->name[1] = 'p';
    link->mtu = Mtu;
    link->output = &OnOutput4;
    link->output_ip6 = &OnOutput6;
    link->flags = NETIF_FLAG_LINK_UP;
    return ERR_OK;
}

err_t CCaptureLink::OnOutput4(netif* link, pbuf* packet, const ip4_addr_t*)
{
    static_cast<CCaptureLink*>(link->state)->Keep(packet);
    return ERR_OK;
}

err_t CCaptureLink::OnOutput6(netif* link, pbuf* packet, const ip6_addr_t*)
{
    static_cast<CCaptureLink*>(link->state)->Keep(packet);
    return ERR_OK;
}

void CCaptureLink::Keep(const pbuf* packet)
{
    packetmaker::CPacket bytes(packet->tot_len);
    pbuf_copy_partial(packet, bytes.data(), packet->tot_len, 0);
    m_Sent.push_back(std::move(bytes));
}

std::vector<packetmaker::CPacket> CCaptureLink::Take()
{
    std::vector<packetmaker::CPacket> sent;
    sent.swap(m_Sent);
    return sent;
}

bool CCaptureLink::Input(const packetmaker::CPacket& packet)
{
    pbuf* admitted = CIPPacketFilter::Admit(&m_Netif, packet.data(), packet.size());
    if (admitted == nullptr) {
        return false;
    }
    CIPDemux::Input(admitted, &m_Netif);
    return true;
}

unsigned int CCaptureLink::Pump()
{
    unsigned int count = 0;
    for (bool found = true; found;) {
        found = false;
        netif* link;
        NETIF_FOREACH(link) {
            while (pbuf* packet = link->loop_first) {
                link->loop_first = packet->next;
                if (link->loop_first == nullptr) {
                    link->loop_last = nullptr;
                }
                packet->next = nullptr;
                packet = CIPPacketFilter::AdmitLooped(packet);
                if (packet != nullptr) {
                    CIPDemux::Input(packet, link);
                }
                found = true;
                ++count;
            }
        }
    }
    return count;
}
