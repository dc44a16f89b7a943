#include "tests/integration/support/CForgedLink.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

using namespace ipstack;

namespace
{

constexpr char OWN[] = "10.9.0.1";
constexpr char OWN6[] = "fd09::1";
constexpr unsigned int FIRST_PEER = 0x0A0A0000;  // 10.10.0.0
constexpr std::size_t HEADER4 = 20;              // RFC 791, no options
constexpr std::size_t HEADER6 = 40;              // RFC 8200
constexpr std::size_t HEADER_UDP = 8;            // RFC 768
constexpr char UDP = 17;

packetmaker::CBytes Bytes(const std::string& text)
{
    return packetmaker::CBytes(text.begin(), text.end());
}

std::string Name(int family, const void* address)
{
    char text[INET6_ADDRSTRLEN];
    return inet_ntop(family, address, text, sizeof text);
}

}  // namespace

CForgedLink::CForgedLink()
{
    CIPStackConfig config;
    config.m_strAddress = OWN;
    config.m_strMask = "255.0.0.0";
    config.m_strAddress6 = OWN6;
    EXPECT_EQ(0UL, IIPStackManager::Instance()->CreateStack(config, this, m_pStack));
}

CForgedLink::~CForgedLink()
{
    EXPECT_EQ(0UL, IIPStackManager::Instance()->DestroyStack(m_pStack));
}

mantle::CMNInetAddr CForgedLink::OwnAddress()
{
    return mantle::CMNInetAddr(OWN, s_wPort);
}

std::string CForgedLink::PeerName(unsigned int peer)
{
    const std::uint32_t address = htonl(FIRST_PEER + peer);
    return Name(AF_INET, &address);
}

std::string CForgedLink::PeerName6(unsigned int peer)
{
    char text[INET6_ADDRSTRLEN];
    std::snprintf(text, sizeof text, "fd09::%x", peer + 2);
    return text;
}

packetmaker::CPacket CForgedLink::Udp(unsigned int peer, const std::string& text)
{
    const std::string name = PeerName(peer);
    const packetmaker::CHeader4 header{name.c_str(), OWN};
    return packetmaker::Make4(header, packetmaker::Udp4(header, s_wPeerPort, s_wPort, Bytes(text)));
}

packetmaker::CPacket CForgedLink::Raw(unsigned int peer, const std::string& text)
{
    const std::string name = PeerName(peer);
    return packetmaker::Make4({name.c_str(), OWN, s_bRawProtocol}, Bytes(text));
}

packetmaker::CPacket CForgedLink::Raw6(unsigned int peer, const std::string& text)
{
    const std::string name = PeerName6(peer);
    return packetmaker::Make6({name.c_str(), OWN6, s_bRawProtocol}, Bytes(text));
}

unsigned long CForgedLink::Input(const packetmaker::CPacket& packet)
{
    return m_pStack->Input(reinterpret_cast<const char*>(packet.data()), packet.size());
}

std::vector<std::string> CForgedLink::TakeOutput()
{
    std::vector<std::string> output;
    const std::lock_guard<std::mutex> lock(m_Mutex);
    output.swap(m_Output);
    return output;
}

unsigned long CForgedLink::IPStackLowLevelOutput(const char* data, unsigned long length, unsigned char)
{
    const bool v4 = data[0] >> 4 == 4;
    const char protocol = v4 ? data[9] : data[6];
    const std::size_t header = (v4 ? HEADER4 : HEADER6) + (protocol == UDP ? HEADER_UDP : 0);
    const std::string to = v4 ? Name(AF_INET, data + 16) : Name(AF_INET6, data + 24);
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Output.push_back(to + " " + std::string(data, length).substr(header));
    return 0;
}

std::uint64_t CForgedLink::Counter(const std::string& name)
{
    CIPStackCounter counters[256];
    const std::size_t count = IIPStackManager::Instance()->GetCounters(counters, std::size(counters));
    EXPECT_LE(count, std::size(counters));
    for (std::size_t i = 0; i < std::min(count, std::size(counters)); ++i) {
        if (name == counters[i].m_szName)
            return counters[i].m_qwValue;
    }
    ADD_FAILURE() << "no counter " << name;
    return 0;
}
