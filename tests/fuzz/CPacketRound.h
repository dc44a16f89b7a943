// One input of packet_fuzz.
#ifndef TESTS_FUZZ_CPACKETROUND_H
#define TESTS_FUZZ_CPACKETROUND_H

#include <vector>

#include "CPacketForge.h"

// Live endpoints of both families behind a link, what comes in on it, what the program does meanwhile. Afterwards the
// endpoints still serve, and nothing is left behind.
class CPacketRound
{
public:
    CPacketRound(const std::uint8_t* data, std::size_t size);
    CPacketRound(const CPacketRound&) = delete;
    CPacketRound& operator=(const CPacketRound&) = delete;

    void Run();

private:
    static constexpr std::size_t s_nMostSockets = 24;
    static constexpr unsigned int s_dwMostOperations = 400;

    void Prepare();
    void Operate();
    void OperateSocket(unsigned int operation);
    void Option(int socket);
    int Open(int family, int type, int protocol, std::uint16_t port);
    void Call(bool six);
    void Accept(bool six);
    void Keep(int socket);
    int Pick();
    void CheckServing();
    void CheckTcp(bool six);
    void CheckUdp(bool six);

    CFuzzInput m_Input;
    CFuzzStack& m_Stack = CFuzzStack::Instance();
    CPacketForge m_Forge{m_Input, m_Stack};
    int m_nListeners[2] = {};  // by family
    int m_nUdp[2] = {};
    std::vector<int> m_Sockets;  // the others
};

#endif
