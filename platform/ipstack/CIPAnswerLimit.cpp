#include "CIPAnswerLimit.h"

#include "CIPCounters.h"
#include "CIPFlow.h"
#include "CIPRandom.h"
#include "lwip/icmp.h"
#include "lwip/icmp6.h"
#include "lwip/ip.h"
#include "lwip/prot/tcp.h"
#include "mantle/CMNClock.h"

namespace ipstack
{

namespace
{

constexpr long long s_llUsecPerSec = 1000000;

// Peers share a cell when their keyed hashes do.
constexpr std::size_t s_nCells = 1024;

// What is sent over all within a second.
struct CTotal
{
    std::uint32_t m_dwSecond = 0;
    std::uint32_t m_dwCount = 0;
    std::uint32_t m_dwMost = 0;
};

CTotal s_Totals[CIPAnswerLimit::Kinds];
CIPAnswerLimit::CShare s_Cells[CIPAnswerLimit::Kinds][s_nCells];

struct CKindCounters
{
    CIPCounters::EId m_Sent;
    CIPCounters::EId m_Withheld;
};

constexpr CKindCounters s_Counters[CIPAnswerLimit::Kinds] = {
    {CIPCounters::AnswerAck, CIPCounters::AnswerAckWithheld},
    {CIPCounters::AnswerReset, CIPCounters::AnswerResetWithheld},
    {CIPCounters::AnswerIcmpError, CIPCounters::AnswerIcmpErrorWithheld},
    {CIPCounters::AnswerEcho, CIPCounters::AnswerEchoWithheld},
};

// The second that it is, never 0.
std::uint32_t GetSecond() noexcept
{
    return static_cast<std::uint32_t>(mantle::CMNClock::NowUs() / s_llUsecPerSec) | 0x80000000U;
}

bool TakeEach(CIPAnswerLimit::CShare& share, std::uint32_t second, std::uint32_t most) noexcept
{
    if (share.m_dwSecond != second) {
        share.m_dwSecond = second;
        share.m_dwCount = 0;
    }
    if (share.m_dwCount >= most) {
        return false;
    }
    ++share.m_dwCount;
    return true;
}

bool TakeInAll(CIPAnswerLimit::EKind kind, std::uint32_t second) noexcept
{
    CTotal& total = s_Totals[kind];
    if (total.m_dwSecond != second) {
        const std::uint32_t most = CIPAnswerLimit::GetMost(kind).m_dwInAll;
        total.m_dwSecond = second;
        total.m_dwCount = 0;
        total.m_dwMost = most - most / 4 + CIPRandom::GetBelow(most / 2);
    }
    if (total.m_dwCount >= total.m_dwMost) {
        return false;
    }
    ++total.m_dwCount;
    return true;
}

bool Count(CIPAnswerLimit::EKind kind, bool allowed) noexcept
{
    CIPCounters::AddLocked(allowed ? s_Counters[kind].m_Sent : s_Counters[kind].m_Withheld);
    return allowed;
}

// Which of the limited answers a packet is; Kinds when none.
CIPAnswerLimit::EKind GetKind4(const u8_t* message, std::size_t length) noexcept
{
    switch (length != 0 ? message[0] : ICMP_ECHO) {
    case ICMP_ER:
        return CIPAnswerLimit::EchoReply;
    case ICMP_DUR:
    case ICMP_TE:
    case ICMP_PP:
        return CIPAnswerLimit::IcmpError;
    default:
        return CIPAnswerLimit::Kinds;
    }
}

CIPAnswerLimit::EKind GetKind6(const u8_t* message, std::size_t length) noexcept
{
    constexpr u8_t errorMost = 127;  // RFC 4443, section 2.1
    if (length == 0) {
        return CIPAnswerLimit::Kinds;
    }
    if (message[0] == ICMP6_TYPE_EREP) {
        return CIPAnswerLimit::EchoReply;
    }
    return message[0] <= errorMost ? CIPAnswerLimit::IcmpError : CIPAnswerLimit::Kinds;
}

CIPAnswerLimit::EKind GetKindTcp(const u8_t* segment, std::size_t length) noexcept
{
    return length >= TCP_HLEN && (TCPH_FLAGS(reinterpret_cast<const tcp_hdr*>(segment)) & TCP_RST) != 0
               ? CIPAnswerLimit::Reset
               : CIPAnswerLimit::Kinds;
}

// The same of a whole packet, and whom it goes to. lwIP keeps the headers of what it emits in the first buffer.
CIPAnswerLimit::EKind Classify(const pbuf* packet, ip_addr_t& peer) noexcept
{
    const auto* data = static_cast<const u8_t*>(packet->payload);
    if (packet->len >= IP6_HLEN && data[0] >> 4 == 6) {
        const auto* header = static_cast<const ip6_hdr*>(packet->payload);
        ip_addr_copy_from_ip6_packed(peer, header->dest);
        const std::size_t length = packet->len - std::size_t{IP6_HLEN};
        switch (IP6H_NEXTH(header)) {
        case IP6_NEXTH_ICMP6:
            return GetKind6(data + IP6_HLEN, length);
        case IP6_NEXTH_TCP:
            return GetKindTcp(data + IP6_HLEN, length);
        default:
            return CIPAnswerLimit::Kinds;
        }
    }
    const auto* header = static_cast<const ip_hdr*>(packet->payload);
    if (packet->len < IP_HLEN || packet->len < IPH_HL_BYTES(header)) {
        return CIPAnswerLimit::Kinds;
    }
    ip_addr_copy_from_ip4(peer, header->dest);
    const std::size_t length = packet->len - std::size_t{IPH_HL_BYTES(header)};
    switch (IPH_PROTO(header)) {
    case IP_PROTO_ICMP:
        return GetKind4(data + IPH_HL_BYTES(header), length);
    case IP_PROTO_TCP:
        return GetKindTcp(data + IPH_HL_BYTES(header), length);
    default:
        return CIPAnswerLimit::Kinds;
    }
}

}  // namespace

CIPAnswerLimit::CMost CIPAnswerLimit::s_Most[Kinds] = {s_Acknowledgements, s_Resets, s_IcmpErrors, s_EchoReplies};
bool CIPAnswerLimit::s_bArmed = false;

bool CIPAnswerLimit::AllowConnection(EKind kind, CShare* share) noexcept
{
    const std::uint32_t second = GetSecond();
    const std::uint32_t most = s_Most[Acknowledgement].m_dwEach;
    return Count(kind, (share == nullptr || TakeEach(*share, second, most)) && TakeInAll(kind, second));
}

bool CIPAnswerLimit::AllowPeer(EKind kind, const ip_addr_t& peer) noexcept
{
    const std::uint32_t second = GetSecond();
    CShare& share = s_Cells[kind][CIPFlowMixer::Instance().Address(kind, peer) % s_nCells];
    return Count(kind, TakeEach(share, second, s_Most[kind].m_dwEach) && TakeInAll(kind, second));
}

bool CIPAnswerLimit::MayLeave(const pbuf* packet) noexcept
{
    ip_addr_t peer;
    const EKind kind = Classify(packet, peer);
    return kind == Kinds || AllowPeer(kind, peer);
}

}  // namespace ipstack
