#include "CIPIdentification.h"

#include <cstring>

#include "CIPFlow.h"
#include "CIPRandom.h"
#include "lwip/prot/ip4.h"
#include "lwip/prot/ip6.h"

namespace ipstack
{

namespace
{

constexpr std::size_t s_nSequences4 = 2048;
constexpr std::size_t s_nSequences6 = 256;
constexpr unsigned int s_dwBits4 = 16;  // RFC 791
constexpr unsigned int s_dwBits6 = 32;  // RFC 8200, section 4.5

// Places in the headers.
constexpr std::size_t s_nId4 = 4;
constexpr std::size_t s_nOffset4 = 6;
constexpr std::size_t s_nChecksum4 = 10;
constexpr std::size_t s_nAddresses4 = 12;
constexpr std::size_t s_nAddresses6 = 8;
constexpr std::size_t s_nNext6 = 6;
constexpr std::size_t s_nOffset6 = IP6_HLEN + 2;
constexpr std::size_t s_nId6 = IP6_HLEN + 4;

// The datagram whose fragments are leaving: lwIP's identification and ours.
template <std::size_t ADDRESSES>
struct CFragmented
{
    std::uint8_t m_Addresses[ADDRESSES];  // both
    std::uint32_t m_dwOriginal;
    std::uint32_t m_dwGiven;

    void Note(const std::uint8_t* addresses, std::uint32_t original, std::uint32_t given) noexcept
    {
        std::memcpy(m_Addresses, addresses, ADDRESSES);
        m_dwOriginal = original;
        m_dwGiven = given;
    }
    bool Is(const std::uint8_t* addresses, std::uint32_t original) const noexcept
    {
        return original == m_dwOriginal && std::memcmp(addresses, m_Addresses, ADDRESSES) == 0;
    }
};

CIPIdentification::CSequence s_Sequences4[s_nSequences4];
CIPIdentification::CSequence s_Sequences6[s_nSequences6];
CFragmented<2 * sizeof(std::uint32_t)> s_Fragmented4;
CFragmented<2 * sizeof(ip6_addr_p_t)> s_Fragmented6;

std::uint32_t Load16(const std::uint8_t* at) noexcept
{
    return static_cast<std::uint32_t>(at[0]) << 8 | at[1];
}

void Store16(std::uint8_t* at, std::uint32_t value) noexcept
{
    at[0] = static_cast<std::uint8_t>(value >> 8 & 0xFF);
    at[1] = static_cast<std::uint8_t>(value & 0xFF);
}

std::uint64_t LoadWord(const std::uint8_t* at) noexcept
{
    std::uint64_t word;
    std::memcpy(&word, at, sizeof(word));
    return word;
}

constexpr std::uint32_t Mask(unsigned int bits) noexcept
{
    return static_cast<std::uint32_t>((std::uint64_t{1} << bits) - 1);
}

// A permutation of the numbers of `bits` bits: a Feistel network of four rounds on two parts of at most 16 bits.
std::uint32_t Permute(std::uint32_t number, unsigned int bits, std::uint64_t key) noexcept
{
    constexpr std::uint32_t spread = 0x9E3779B1;  // odd, its bits without order
    const auto mix = [&key](std::uint32_t part) {
        const std::uint32_t mixed = (part ^ static_cast<std::uint32_t>(key & 0xFFFF)) * spread;
        key >>= 16;
        return mixed >> 16;
    };
    const unsigned int lowBits = bits / 2;
    std::uint32_t low = number & Mask(lowBits);
    std::uint32_t high = number >> lowBits;
    for (int round = 0; round < 2; ++round) {
        high ^= mix(low) & Mask(bits - lowBits);
        low ^= mix(high) & Mask(lowBits);
    }
    return high << lowBits | low;
}

void Write4(std::uint8_t* packet) noexcept
{
    const std::uint8_t* const addresses = packet + s_nAddresses4;
    const std::uint32_t original = Load16(packet + s_nId4);
    const std::uint32_t fragment = Load16(packet + s_nOffset4);
    std::uint32_t given = original;
    if ((fragment & IP_OFFMASK) == 0) {
        const std::uint64_t bucket = CIPFlowMixer::Instance().Word(LoadWord(addresses)) % s_nSequences4;
        given = s_Sequences4[bucket].Next(s_dwBits4);
        if ((fragment & IP_MF) != 0) {
            s_Fragmented4.Note(addresses, original, given);
        }
    } else if (s_Fragmented4.Is(addresses, original)) {
        given = s_Fragmented4.m_dwGiven;
    }
    Store16(packet + s_nId4, given);
    // RFC 1624, section 3, equation 3.
    std::uint32_t sum = (~Load16(packet + s_nChecksum4) & 0xFFFF) + (~original & 0xFFFF) + given;
    sum = (sum & 0xFFFF) + (sum >> 16);
    sum = (sum & 0xFFFF) + (sum >> 16);
    Store16(packet + s_nChecksum4, ~sum);
}

void Write6(std::uint8_t* packet) noexcept
{
    const std::uint8_t* const addresses = packet + s_nAddresses6;
    std::uint32_t original;
    std::memcpy(&original, packet + s_nId6, sizeof(original));
    std::uint32_t given = original;
    if ((Load16(packet + s_nOffset6) & IP6_FRAG_OFFSET_MASK) == 0) {
        const CIPFlowMixer& mixer = CIPFlowMixer::Instance();
        std::uint64_t hash = 0;
        for (std::size_t at = 0; at < 2 * sizeof(ip6_addr_p_t); at += sizeof(hash)) {
            hash = mixer.Word(hash ^ LoadWord(addresses + at));
        }
        given = s_Sequences6[hash % s_nSequences6].Next(s_dwBits6);
        s_Fragmented6.Note(addresses, original, given);
    } else if (s_Fragmented6.Is(addresses, original)) {
        given = s_Fragmented6.m_dwGiven;
    }
    std::memcpy(packet + s_nId6, &given, sizeof(given));
}

}  // namespace

bool CIPIdentification::s_bKept = false;

std::uint32_t CIPIdentification::CSequence::Next(unsigned int bits) noexcept
{
    const unsigned int inner = bits - 1;
    if (m_qwKey == 0) {
        m_dwDrawn = CIPRandom::Get32();
    }
    const std::uint32_t place = m_dwDrawn & Mask(inner);
    if (place == 0 || m_qwKey == 0) {
        m_qwKey = static_cast<std::uint64_t>(CIPRandom::Get32()) << 32 | CIPRandom::Get32() | 1;
    }
    const std::uint32_t half = m_dwDrawn >> inner & 1;
    ++m_dwDrawn;
    return half << inner | Permute(place, inner, m_qwKey);
}

void CIPIdentification::Write(std::uint8_t* packet, std::size_t length) noexcept
{
    if (s_bKept) {
        return;
    }
    if (length >= IP_HLEN && packet[0] >> 4 == 4) {
        Write4(packet);
    } else if (length >= IP6_HLEN + IP6_FRAG_HLEN && packet[0] >> 4 == 6 && packet[s_nNext6] == IP6_NEXTH_FRAGMENT) {
        Write6(packet);
    }
}

}  // namespace ipstack
