// Makes packets as the bytes of a fuzzer say.
#ifndef TESTS_FUZZ_CPACKETFORGE_H
#define TESTS_FUZZ_CPACKETFORGE_H

#include "CFuzzInput.h"
#include "CFuzzStack.h"
#include "tests/unit/ipstack/PacketMaker.h"

// What it makes is near enough to a packet of the peer to be looked at: addresses, checksums and, for TCP, numbers near
// those of a connection are right unless the input wants them wrong.
class CPacketForge
{
public:
    // Where the stack listens, for TCP and UDP; and another protocol with a raw socket.
    static constexpr std::uint16_t s_wPort = 8000;
    static constexpr std::uint16_t s_wConnectedPort = 8200;  // of UDP, to s_wPeerPort
    static constexpr std::uint16_t s_wPeerPort = 4000;
    static constexpr std::uint8_t s_bProtocol = 89;

    CPacketForge(CFuzzInput& input, CFuzzStack& stack) : m_Input(input), m_Stack(stack) {}

    // Each sends one packet, or the fragments of one.
    void Junk();
    void Tcp();
    void Udp();
    void Icmp();
    void Other();
    void Fragment();

    // What an honest peer does: opens a connection, acknowledges all that came on all of them, answers the call of the
    // stack, sends some bytes.
    void Connect(bool six, std::uint16_t peerPort);
    void AcknowledgeAll();
    void SendBytes();

    // One segment of the connection with these ports.
    void Segment(const CFuzzPeer::CFlow& flow, std::uint8_t flags, const packetmaker::CBytes& data = {});

private:
    // A whole message with what goes around it.
    struct CMessage
    {
        bool m_bSix;
        std::uint8_t m_bProtocol;
        packetmaker::CBytes m_Bytes;
    };

    CFuzzPeer::CFlow PickFlow();
    std::uint32_t Offset();
    packetmaker::CBytes Options();
    packetmaker::CBytes Data();
    packetmaker::CBytes Make(const packetmaker::CTcp& tcp, bool six) const;
    packetmaker::CPacket Whole(const CMessage& message) const;
    void Send(CMessage message);
    void SendFragments(const CMessage& message);
    void Mutate(packetmaker::CPacket& packet);

    CFuzzInput& m_Input;
    CFuzzStack& m_Stack;
};

#endif
