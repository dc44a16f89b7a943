#include "CIPPacketFilter.h"

#include <algorithm>
#include <cstring>

#include "CIPLinkTable.h"
#include "lwip/pbuf.h"

namespace ipstack
{

namespace
{

using EVerdict = CIPCounters::EId;

constexpr EVerdict Accepted = CIPPacketFilter::Accepted;

// Spare bytes behind a packet's end.
constexpr std::size_t SlackLength = 16;
constexpr std::size_t MaxPbufLength = 0xFFFF;

constexpr std::size_t HeaderLength4 = 20;
constexpr std::size_t HeaderLength6 = 40;

// RFC 791: offset field of the IPv4 header.
constexpr unsigned int MoreFragments4 = 0x2000;
constexpr unsigned int OffsetMask4 = 0x1FFF;

// RFC 8200, section 4: next header values and the fragment header.
constexpr std::uint8_t NextHopByHop = 0;
constexpr std::uint8_t NextRouting = 43;
constexpr std::uint8_t NextFragment = 44;
constexpr std::uint8_t NextIcmp6 = 58;
constexpr std::uint8_t NextDestination = 60;
constexpr std::size_t ExtensionUnit = 8;
constexpr unsigned int MoreFragments6 = 0x1;
constexpr unsigned int OffsetMask6 = 0xFFF8;
constexpr std::uint8_t OptionPad1 = 0;

// RFC 4861 and RFC 4443: what concerns neighbours, which a point-to-point link has none of.
constexpr std::uint8_t IcmpPacketTooBig = 2;
constexpr std::uint8_t IcmpNeighbourFirst = 133;
constexpr std::uint8_t IcmpNeighbourLast = 137;

unsigned int Load16(const std::uint8_t* at) noexcept
{
    return static_cast<unsigned int>(at[0]) << 8 | at[1];
}

// Addresses in network order, as they stand in the packet.
std::uint32_t LoadAddress4(const std::uint8_t* at) noexcept
{
    std::uint32_t address;
    std::memcpy(&address, at, sizeof(address));
    return address;
}

CIPAddress6 LoadAddress6(const std::uint8_t* at) noexcept
{
    CIPAddress6 address;
    std::memcpy(address.data(), at, address.size());
    return address;
}

bool IsLoopback6(const CIPAddress6& address) noexcept
{
    return address[15] == 1 && std::all_of(address.begin(), address.end() - 1, [](std::uint8_t b) { return b == 0; });
}

bool IsUnspecified6(const CIPAddress6& address) noexcept
{
    return std::all_of(address.begin(), address.end(), [](std::uint8_t b) { return b == 0; });
}

// ::ffff:0:0/96, and lwIP refuses it.
bool IsMapped6(const CIPAddress6& address) noexcept
{
    return address[10] == 0xFF && address[11] == 0xFF &&
           std::all_of(address.begin(), address.begin() + 10, [](std::uint8_t b) { return b == 0; });
}

// A fragment: `end` is where its payload ends in the datagram.
EVerdict CheckFragment(bool more, std::size_t offset, std::size_t payload, std::size_t limit) noexcept
{
    if (payload == 0) {
        return CIPCounters::FilterFragmentEmpty;
    }
    if (more && payload % 8 != 0) {
        return CIPCounters::FilterFragmentOdd;
    }
    if (offset + payload > limit) {
        return CIPCounters::FilterFragmentTooLong;
    }
    return Accepted;
}

EVerdict CheckAddresses4(const std::uint8_t* data, const CIPLinkFacts& facts) noexcept
{
    const std::uint8_t* source = data + 12;
    const std::uint8_t* destination = data + 16;
    const std::uint32_t sourceWord = LoadAddress4(source);
    const std::uint32_t destinationWord = LoadAddress4(destination);
    if (source[0] == 127 || destination[0] == 127) {
        return CIPCounters::FilterLoopbackAddress;
    }
    // 224/4 and 240/4, 255.255.255.255 among them, are nobody's address; nor is 0.0.0.0.
    if (source[0] >= 224 || sourceWord == 0) {
        return CIPCounters::FilterBadSource;
    }
    if (facts.m_pOwn->Has4(sourceWord)) {
        if (sourceWord != facts.m_dwPartner4 || sourceWord == destinationWord) {
            return CIPCounters::FilterOwnSource;
        }
    } else if (sourceWord == facts.m_dwNetwork4 || sourceWord == facts.m_dwBroadcast4) {
        return CIPCounters::FilterBadSource;
    }
    if ((destination[0] & 0xF0) == 0xE0) {
        return CIPCounters::FilterMulticast;
    }
    if (destinationWord != 0xFFFFFFFFU && !facts.m_pOwn->Has4(destinationWord)) {
        return CIPCounters::FilterNotOurs;
    }
    return Accepted;
}

std::size_t GetHeaderLength4(const std::uint8_t* data) noexcept
{
    return static_cast<std::size_t>(data[0] & 0x0F) * 4;
}

EVerdict CheckLengths4(const std::uint8_t* data, std::size_t length) noexcept
{
    if (length < HeaderLength4) {
        return CIPCounters::FilterTooShort;
    }
    const std::size_t header = GetHeaderLength4(data);
    const std::size_t total = Load16(data + 2);
    if (header < HeaderLength4) {
        return CIPCounters::FilterHeaderLength;
    }
    return total < header || total > length ? CIPCounters::FilterTotalLength : Accepted;
}

EVerdict CheckFragment4(const std::uint8_t* data) noexcept
{
    const unsigned int fragment = Load16(data + 6);
    if ((fragment & (MoreFragments4 | OffsetMask4)) == 0) {
        return Accepted;
    }
    return CheckFragment((fragment & MoreFragments4) != 0, static_cast<std::size_t>(fragment & OffsetMask4) * 8,
                         Load16(data + 2) - GetHeaderLength4(data), CIPPacketFilter::MaxReassembled4);
}

// `facts`: null for what this stack has sent to itself, whose addresses may be any.
EVerdict Check4(const std::uint8_t* data, std::size_t length, const CIPLinkFacts* facts) noexcept
{
    EVerdict verdict = CheckLengths4(data, length);
    if (verdict == Accepted && facts != nullptr) {
        verdict = CheckAddresses4(data, *facts);
    }
    return verdict != Accepted ? verdict : CheckFragment4(data);
}

EVerdict CheckAddresses6(const std::uint8_t* data, const CIPLinkFacts& facts) noexcept
{
    const CIPAddress6 source = LoadAddress6(data + 8);
    const CIPAddress6 destination = LoadAddress6(data + 24);
    if (IsLoopback6(source) || IsLoopback6(destination)) {
        return CIPCounters::FilterLoopbackAddress;
    }
    if (source[0] == 0xFF || IsUnspecified6(source) || IsMapped6(source)) {
        return CIPCounters::FilterBadSource;
    }
    const bool partner = facts.m_bPartner6 && source == facts.m_Partner6;
    if (facts.m_pOwn->Has6(source) && (!partner || source == destination)) {
        return CIPCounters::FilterOwnSource;
    }
    if (destination[0] == 0xFF) {
        return CIPCounters::FilterMulticast;
    }
    return facts.m_pOwn->Has6(destination) ? Accepted : CIPCounters::FilterNotOurs;
}

// Options of a hop-by-hop or destination header: lwIP walks them without looking at the header's end.
bool AreOptionsInside(const std::uint8_t* header, std::size_t length) noexcept
{
    std::size_t at = 2;
    while (at < length) {
        if (header[at] == OptionPad1) {
            ++at;
            continue;
        }
        if (at + 2 > length || at + 2 + header[at + 1] > length) {
            return false;
        }
        at += 2 + static_cast<std::size_t>(header[at + 1]);
    }
    return true;
}

bool IsNeighbourMessage(const std::uint8_t* message, std::size_t length) noexcept
{
    return length > 0 &&
           (message[0] == IcmpPacketTooBig || (message[0] >= IcmpNeighbourFirst && message[0] <= IcmpNeighbourLast));
}

// The headers between the IPv6 header and the payload.
EVerdict CheckExtensions6(const std::uint8_t* data, std::size_t end) noexcept
{
    std::uint8_t next = data[6];
    std::size_t at = HeaderLength6;
    bool fragmentSeen = false;
    bool laterFragment = false;
    for (unsigned int count = 0;; ++count) {
        if (next != NextHopByHop && next != NextRouting && next != NextFragment && next != NextDestination) {
            break;
        }
        if (fragmentSeen) {
            return CIPCounters::FilterFragmentNested;
        }
        if (count == CIPPacketFilter::MaxExtensionHeaders) {
            return CIPCounters::FilterExtensionCount;
        }
        if (next == NextHopByHop && count != 0) {
            return CIPCounters::FilterHopByHop;
        }
        if (at + ExtensionUnit > end) {
            return CIPCounters::FilterExtensionLength;
        }
        if (next == NextFragment) {
            const unsigned int field = Load16(data + at + 2);
            fragmentSeen = true;
            laterFragment = (field & OffsetMask6) != 0;
            const EVerdict verdict = CheckFragment((field & MoreFragments6) != 0, field & OffsetMask6,
                                                   end - at - ExtensionUnit, CIPPacketFilter::MaxReassembled6);
            if (verdict != Accepted) {
                return verdict;
            }
            next = data[at];
            at += ExtensionUnit;
            continue;
        }
        const std::size_t length = ExtensionUnit * (1 + static_cast<std::size_t>(data[at + 1]));
        if (at + length > end || (next != NextRouting && !AreOptionsInside(data + at, length))) {
            return CIPCounters::FilterExtensionLength;
        }
        next = data[at];
        at += length;
    }
    if (next == NextIcmp6 && !laterFragment && IsNeighbourMessage(data + at, end - at)) {
        return CIPCounters::FilterNeighbour;
    }
    return Accepted;
}

EVerdict Check6(const std::uint8_t* data, std::size_t length, const CIPLinkFacts* facts) noexcept
{
    if (length < HeaderLength6) {
        return CIPCounters::FilterTooShort;
    }
    const std::size_t end = HeaderLength6 + Load16(data + 4);
    if (end > length) {
        return CIPCounters::FilterTotalLength;
    }
    const EVerdict addresses = facts == nullptr ? Accepted : CheckAddresses6(data, *facts);
    return addresses != Accepted ? addresses : CheckExtensions6(data, end);
}

EVerdict CheckVersion(const std::uint8_t* data, std::size_t length, const CIPLinkFacts* facts) noexcept
{
    switch (data[0] >> 4) {
    case 4:
        return Check4(data, length, facts);
    case 6:
        return Check6(data, length, facts);
    default:
        return CIPCounters::FilterVersion;
    }
}

// Counts a packet that came in, and the reason when it may not pass.
bool Examine(netif* link, const void* data, std::size_t length) noexcept
{
    CIPCounters::AddLocked(CIPCounters::LinkIn);
    CIPCounters::AddLocked(CIPCounters::LinkInBytes, length);
    const EVerdict verdict =
        CIPPacketFilter::Check(static_cast<const std::uint8_t*>(data), length, CIPLinkTable::GetFacts(link));
    if (verdict != Accepted) {
        CIPCounters::Add(verdict);
    }
    return verdict == Accepted;
}

}  // namespace

bool CIPOwnAddresses::Has4(std::uint32_t address) const noexcept
{
    return std::binary_search(m_Addresses4.begin(), m_Addresses4.end(), address);
}

bool CIPOwnAddresses::Has6(const CIPAddress6& address) const noexcept
{
    return std::binary_search(m_Addresses6.begin(), m_Addresses6.end(), address);
}

CIPCounters::EId CIPPacketFilter::Check(const std::uint8_t* data, std::size_t length,
                                        const CIPLinkFacts& facts) noexcept
{
    if (length == 0) {
        return CIPCounters::FilterTooShort;
    }
    if (length > facts.m_dwMtu) {
        return CIPCounters::FilterTooLong;
    }
    return CheckVersion(data, length, &facts);
}

CIPCounters::EId CIPPacketFilter::CheckLooped(const std::uint8_t* data, std::size_t length) noexcept
{
    return length == 0 ? CIPCounters::FilterTooShort : CheckVersion(data, length, nullptr);
}

pbuf* CIPPacketFilter::Copy(const void* data, std::size_t length) noexcept
{
    if (length > MaxPbufLength) {
        return nullptr;
    }
    pbuf* packet = pbuf_alloc(PBUF_RAW, static_cast<u16_t>(std::min(length + SlackLength, MaxPbufLength)), PBUF_RAM);
    if (packet == nullptr) {
        return nullptr;
    }
    std::memcpy(packet->payload, data, length);
    std::memset(static_cast<std::uint8_t*>(packet->payload) + length, 0, packet->len - length);
    // pbuf_realloc would give the spare bytes back to the heap.
    packet->len = packet->tot_len = static_cast<u16_t>(length);
    return packet;
}

pbuf* CIPPacketFilter::Admit(netif* link, const void* data, std::size_t length) noexcept
{
    if (!Examine(link, data, length)) {
        return nullptr;
    }
    pbuf* packet = Copy(data, length);
    CIPCounters::Add(packet == nullptr ? CIPCounters::FilterNoMemory : CIPCounters::LinkDelivered);
    return packet;
}

pbuf* CIPPacketFilter::Admit(netif* link, pbuf* packet) noexcept
{
    if (!Examine(link, packet->payload, packet->len)) {
        pbuf_free(packet);
        return nullptr;
    }
    CIPCounters::Add(CIPCounters::LinkDelivered);
    return packet;
}

pbuf* CIPPacketFilter::AdmitLooped(pbuf* packet) noexcept
{
    const auto* data = static_cast<const std::uint8_t*>(packet->payload);
    pbuf* copy = nullptr;
    if (CheckLooped(data, packet->len) != Accepted) {
        CIPCounters::AddLocked(CIPCounters::LoopMalformed);
    } else {
        copy = Copy(data, packet->len);
        if (copy == nullptr) {
            CIPCounters::AddLocked(CIPCounters::LoopNoMemory);
        }
    }
    pbuf_free(packet);
    return copy;
}

}  // namespace ipstack
