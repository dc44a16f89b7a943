// A link of lwIP's that keeps what is sent, for tests that hold the core lock.
#ifndef TESTS_UNIT_IPSTACK_CCAPTURELINK_H
#define TESTS_UNIT_IPSTACK_CCAPTURELINK_H

#include <memory>
#include <vector>

#include "PacketMaker.h"
#include "lwip/netif.h"
#include "platform/ipstack/CIPCore.h"

// Starts the stack and holds the core lock while it lives: nothing of the stack moves unless the test moves it.
class CCaptureLink
{
public:
    static constexpr unsigned int Mtu = 1400;

    CCaptureLink(const char* address, const char* address6);
    ~CCaptureLink();
    CCaptureLink(const CCaptureLink&) = delete;
    CCaptureLink& operator=(const CCaptureLink&) = delete;

    netif* Get() noexcept { return &m_Netif; }

    // Takes what was sent since the last call.
    std::vector<packetmaker::CPacket> Take();

    // Hands a packet to the filter and on to the stack. Returns: whether the filter let it pass.
    bool Input(const packetmaker::CPacket& packet);

    // Feeds the loopback queues until they are empty. Returns: how many packets there were.
    static unsigned int Pump();

private:
    static err_t OnInit(netif* link);
    static err_t OnOutput4(netif* link, pbuf* packet, const ip4_addr_t*);
    static err_t OnOutput6(netif* link, pbuf* packet, const ip6_addr_t*);
    void Keep(const pbuf* packet);

    std::unique_ptr<ipstack::CIPCoreGuard> m_pGuard;
    netif m_Netif{};
    std::vector<packetmaker::CPacket> m_Sent;
};

#endif
