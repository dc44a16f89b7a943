#include "CIPFlow.h"

#include <cstring>

#include "lwip/ip.h"
#include "lwip/prot/tcp.h"
#include "mantle/CMNRandom.h"

namespace ipstack
{

namespace
{

constexpr u16_t FragmentMask4 = 0x3FFF;  // more fragments, offset
constexpr u16_t PortsLength = 4;
constexpr u16_t SequenceAt = 4;
constexpr u16_t FlagsAt = 13;
constexpr u16_t HeaderLength4 = 20;
constexpr u16_t HeaderLength6 = 40;

u16_t Load16(const u8_t* at) noexcept
{
    return static_cast<u16_t>(at[0] << 8 | at[1]);
}

u32_t Load32(const u8_t* at) noexcept
{
    return static_cast<u32_t>(Load16(at)) << 16 | Load16(at + 2);
}

}  // namespace

bool CIPFlow::Read(const pbuf* packet) noexcept
{
    const u8_t* data = static_cast<const u8_t*>(packet->payload);
    u16_t header = 0;
    if (packet->len >= HeaderLength4 && data[0] >> 4 == 4) {
        if ((Load16(data + 6) & FragmentMask4) != 0) {
            return false;
        }
        header = static_cast<u16_t>((data[0] & 0x0F) * 4);
        m_bProtocol = data[9];
        ip4_addr_t address;
        std::memcpy(&address.addr, data + 12, sizeof(address.addr));
        ip_addr_copy_from_ip4(m_Source, address);
        std::memcpy(&address.addr, data + 16, sizeof(address.addr));
        ip_addr_copy_from_ip4(m_Destination, address);
    } else if (packet->len >= HeaderLength6 && data[0] >> 4 == 6) {
        header = HeaderLength6;
        m_bProtocol = data[6];
        ip6_addr_t address{};
        std::memcpy(address.addr, data + 8, sizeof(address.addr));
        ip_addr_copy_from_ip6(m_Source, address);
        std::memcpy(address.addr, data + 24, sizeof(address.addr));
        ip_addr_copy_from_ip6(m_Destination, address);
    } else {
        return false;
    }
    if ((m_bProtocol != IP_PROTO_TCP && m_bProtocol != IP_PROTO_UDP) || header < HeaderLength4 ||
        packet->len < header + PortsLength) {
        return false;
    }
    m_wSourcePort = Load16(data + header);
    m_wDestinationPort = Load16(data + header + 2);
    if (m_bProtocol == IP_PROTO_TCP && packet->len >= header + TCP_HLEN) {
        m_bSynOnly = (data[header + FlagsAt] & (TCP_SYN | TCP_ACK | TCP_RST | TCP_FIN)) == TCP_SYN;
        m_dwSequence = Load32(data + header + SequenceAt);
    }
    return true;
}

CIPFlowMixer::CIPFlowMixer() noexcept
{
    mantle::CMNRandom::Fill(m_Secret, sizeof(m_Secret));
}

const CIPFlowMixer& CIPFlowMixer::Instance() noexcept
{
    static const CIPFlowMixer s_Mixer;
    return s_Mixer;
}

}  // namespace ipstack
