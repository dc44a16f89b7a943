#include "CSenderPath.h"

#include <arpa/inet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netpacket/packet.h>
#include <sys/socket.h>
#include <unistd.h>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace
{

// Packets that leave without a look at the clock.
constexpr std::uint64_t s_qwAtATime = 16;

// For as long the system is left alone when it has no room.
constexpr std::chrono::microseconds s_NoRoom(200);

int Require(int result, const std::string& what)
{
    if (result < 0)
        throw std::system_error(errno, std::generic_category(), what);
    return result;
}

}  // namespace

CSenderPath::CSenderPath(unsigned int packetsPerSecond, unsigned int seconds)
    : m_dwRate(packetsPerSecond), m_End(m_Start + std::chrono::seconds(seconds))
{
}

CSenderPath::~CSenderPath()
{
    if (m_nSocket >= 0)
        close(m_nSocket);
}

void CSenderPath::OpenDevice(const std::string& name)
{
    m_nDevice = static_cast<int>(if_nametoindex(name.c_str()));
    Require(m_nDevice != 0 ? 0 : -1, name);
    m_nSocket = Require(socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "a packet socket");
}

void CSenderPath::OpenUdp(const std::string& address, std::uint16_t port)
{
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    if (inet_pton(AF_INET, address.c_str(), &to.sin_addr) != 1)
        throw std::runtime_error(address + " is no IPv4 address");
    m_nSocket = Require(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "a UDP socket");
    Require(connect(m_nSocket, reinterpret_cast<const sockaddr*>(&to), sizeof to), address);
}

void CSenderPath::Send(const std::vector<std::uint8_t>& packet)
{
    sockaddr_ll to{};
    to.sll_family = AF_PACKET;
    to.sll_protocol = htons(packet[0] >> 4 == 6 ? ETHERTYPE_IPV6 : ETHERTYPE_IP);
    to.sll_ifindex = m_nDevice;
    const auto* address = m_nDevice != 0 ? reinterpret_cast<const sockaddr*>(&to) : nullptr;
    const socklen_t length = m_nDevice != 0 ? sizeof to : 0;
    WaitForTurn();
    while (sendto(m_nSocket, packet.data(), packet.size(), 0, address, length) < 0) {
        if (errno != ENOBUFS && errno != EINTR)
            Require(-1, "send");
        std::this_thread::sleep_for(s_NoRoom);
        WaitForTurn();
    }
    ++m_qwSent;
}

void CSenderPath::WaitForTurn() const
{
    if (m_qwSent % s_qwAtATime != 0)
        return;
    if (CClock::now() > m_End)
        throw std::runtime_error("the time is over");
    std::this_thread::sleep_until(m_Start + std::chrono::microseconds(m_qwSent * 1000000 / m_dwRate));
}
