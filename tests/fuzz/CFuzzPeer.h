// The far side of a fuzzer's link.
#ifndef TESTS_FUZZ_CFUZZPEER_H
#define TESTS_FUZZ_CFUZZPEER_H

#include <cstdint>
#include <mutex>
#include <vector>

#include "ipstack/IIPStack.h"

// Follows what the stack sends, so that a forged segment can be near enough to be looked at. Thread: any.
class CFuzzPeer : public ipstack::IIPStackLowLevel
{
public:
    // A connection as the far side knows it.
    struct CFlow
    {
        bool m_bSix = false;
        std::uint16_t m_wPeerPort = 0;
        std::uint16_t m_wOwnPort = 0;
        std::uint32_t m_dwNext = 0;  // the peer's next byte, as the stack has acknowledged
        std::uint32_t m_dwAck = 0;   // behind the last byte that the stack has sent
        std::uint32_t m_dwLast = 0;  // the first byte of its last segment
        std::uint8_t m_bLastFlags = 0;
        unsigned int m_dwSynAcks = 0;
    };

    unsigned long IPStackLowLevelOutput(const char* data, unsigned long length, unsigned char flag) override;

    // No program writes headers of its own: what is sent must be packets from now on.
    void ExpectPackets() { m_bExpectsPackets = true; }

    void Forget();
    std::size_t GetCount();
    CFlow Get(std::size_t index);

    // The one with these ports, with numbers of 0 when nothing has been seen of it.
    CFlow Find(bool six, std::uint16_t peerPort, std::uint16_t ownPort);

    // The last packet that was sent.
    std::vector<std::uint8_t> GetLast();

private:
    void Follow(bool six, const std::uint8_t* tcp, std::size_t length);
    CFlow* Find_i(bool six, std::uint16_t peerPort, std::uint16_t ownPort);

    bool m_bExpectsPackets = false;
    std::mutex m_Mutex;
    std::vector<CFlow> m_Flows;
    std::vector<std::uint8_t> m_Last;
};

#endif
