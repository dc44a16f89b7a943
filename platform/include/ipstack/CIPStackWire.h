// A wire in memory between two addresses of the one stack.
#ifndef IPSTACK_CIPSTACKWIRE_H
#define IPSTACK_CIPSTACKWIRE_H

#include <cstdint>
#include <memory>
#include <string>

#include "ipstack/IIPStackManager.h"

namespace ipstack
{

// What the wire does to packets; the same seed and the same packets give the same run.
struct CIPStackWireSettings
{
    std::uint64_t m_qwSeed = 1;
    unsigned int m_dwLossPerMille = 0;
    unsigned int m_dwDuplicatePerMille = 0;
    unsigned int m_dwReorderPerMille = 0;  // share of packets held back by m_dwReorderDelayUs
    unsigned int m_dwDelayUs = 0;          // every packet, by the one clock
    unsigned int m_dwReorderDelayUs = 2000;
    unsigned int m_dwQueuePackets = 4096;  // packets on the way in one direction; more are lost and counted
};

// Joins two links of the stack: what one emits the other receives. Destroy it before nothing else uses its
// addresses; the destructor takes both links down.
class IPSTACK_API CIPStackWire
{
public:
    CIPStackWire();
    ~CIPStackWire();
    CIPStackWire(const CIPStackWire&) = delete;
    CIPStackWire& operator=(const CIPStackWire&) = delete;

    // Makes both links. Returns: 0 or what CreateStack returned; MN_ERROR_ALREADY_INITIALIZED when it is open.
    unsigned long Open(const CIPStackConfig& endA, const CIPStackConfig& endB, const CIPStackWireSettings& settings);

    // Changes what happens to packets from now on. Thread: any.
    void SetSettings(const CIPStackWireSettings& settings);

    // Packets lost by intent or for want of room, doubled, held back.
    std::uint64_t GetLost() const;
    std::uint64_t GetDuplicated() const;
    std::uint64_t GetReordered() const;

    void Close();

private:
    class CImpl;
    std::unique_ptr<CImpl> m_pImpl;
};

}  // namespace ipstack

#endif
