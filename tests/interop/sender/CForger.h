// Packets of somebody who sees nothing of what others send.
#ifndef TESTS_INTEROP_SENDER_CFORGER_H
#define TESTS_INTEROP_SENDER_CFORGER_H

#include <cstdint>
#include <random>
#include <string>

#include "unit/ipstack/PacketMaker.h"

class CSenderPath;

// IPv4 or IPv6.
struct CForgedEnd
{
    std::string m_strAddress;
    std::uint16_t m_wPort = 0;
};

// The attacks on a TCP connection whose ends are known and whose sequence numbers are not, and on a listener. Each has
// its number of packets.
class CForger
{
public:
    CForger(CSenderPath& path, CForgedEnd from, CForgedEnd to, std::uint32_t seed);

    // Bare acknowledgements with window 0, in pairs whose numbers are just over half of all apart: one of the two looks
    // newer than whatever the peer has said.
    void ShutWindow(unsigned int pairs);
    // Such a pair to each port of `to`.
    void ShutWindowsOfAllPorts();

    // Over all sequence numbers, `step` apart. Data or an end without the ACK flag, or with it and with any number.
    void SendEverywhere(std::uint8_t flags, std::uint32_t step, std::size_t bytes);

    // Requests for connections from anywhere, half of them out of the subnet of `to`.
    void Request(unsigned int count);

private:
    void Send(const std::string& from, const packetmaker::CTcp& segment);
    std::string GetStray(bool near);

    CSenderPath& m_Path;
    CForgedEnd m_From;
    CForgedEnd m_To;
    std::mt19937 m_Random;
};

#endif
