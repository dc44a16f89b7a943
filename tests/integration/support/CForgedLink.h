// A link whose far side is the test: packets from any address that the test likes.
#ifndef TESTS_INTEGRATION_SUPPORT_CFORGEDLINK_H
#define TESTS_INTEGRATION_SUPPORT_CFORGEDLINK_H

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "ipstack/ipstack.h"
#include "mantle/CMNInetAddr.h"
#include "unit/ipstack/PacketMaker.h"

// The stack's own address on it is 10.9.0.1 (fd09::1); everybody else in 10/8 is beyond it. The stack must have been
// started. Thread: any.
class CForgedLink : public ipstack::IIPStackLowLevel
{
public:
    static constexpr std::uint8_t s_bRawProtocol = 89;
    static constexpr std::uint16_t s_wPort = 7053;      // of the datagrams that go in
    static constexpr std::uint16_t s_wPeerPort = 4000;  // and where they come from

    CForgedLink();
    ~CForgedLink() override;
    CForgedLink(const CForgedLink&) = delete;
    CForgedLink& operator=(const CForgedLink&) = delete;

    static mantle::CMNInetAddr OwnAddress();
    static mantle::CMNInetAddr OwnAddress6() { return mantle::CMNInetAddr("fd09::1", 0); }

    // The address of peer number so and so: "10.10.0.0" and up, "fd09::2" and up.
    static std::string PeerName(unsigned int peer);
    static std::string PeerName6(unsigned int peer);

    // A whole packet with `text` from a peer to the own address, as a UDP datagram or as one of s_bRawProtocol.
    static packetmaker::CPacket Udp(unsigned int peer, const std::string& text);
    static packetmaker::CPacket Raw(unsigned int peer, const std::string& text);
    static packetmaker::CPacket Raw6(unsigned int peer, const std::string& text);

    // Returns: what the stack answers.
    unsigned long Input(const packetmaker::CPacket& packet);

    // What the stack has emitted since the last time, each as its destination's name and, behind a space, what is behind
    // the IP and UDP headers: "10.10.0.0 hello".
    std::vector<std::string> TakeOutput();

    unsigned long IPStackLowLevelOutput(const char* data, unsigned long length, unsigned char flag) override;

    // One counter of the stack.
    static std::uint64_t Counter(const std::string& name);

private:
    ipstack::IIPStack* m_pStack = nullptr;
    std::mutex m_Mutex;
    std::vector<std::string> m_Output;
};

#endif
