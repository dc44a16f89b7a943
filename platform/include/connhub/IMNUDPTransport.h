// A UDP socket of the operating system.
#ifndef CONNHUB_IMNUDPTRANSPORT_H
#define CONNHUB_IMNUDPTRANSPORT_H

#include <cstdint>

#include "connhub/CHDefines.h"
#include "mantle/CMNReferenceControl.h"

namespace mantle
{
class CMNInetAddr;
}

namespace connhub
{

// What has happened on one transport so far. Datagrams, unless it says otherwise.
struct CMNUDPTransportCounters
{
    std::uint64_t m_qwReceived = 0;  // handed to the sink
    std::uint64_t m_qwReceivedBytes = 0;
    std::uint64_t m_qwReceiveCalls = 0;    // system calls that brought something
    std::uint64_t m_qwMergedReceives = 0;  // pieces in which the system handed several datagrams at once
    std::uint64_t m_qwSent = 0;            // taken by the system
    std::uint64_t m_qwSentBytes = 0;
    std::uint64_t m_qwSendCalls = 0;         // system calls that took something
    std::uint64_t m_qwSegmentedSends = 0;    // pieces in which the system took several datagrams at once
    std::uint64_t m_qwSegmentedRefused = 0;  // such pieces refused; their datagrams went out one by one
    std::uint64_t m_qwQueued = 0;            // waiting now
    std::uint64_t m_qwDropped = 0;           // not taken because the queue was full, or left in it at the end
    std::uint64_t m_qwFailed = 0;            // refused by the system
    std::uint64_t m_qwNoMemory = 0;          // lost, in either direction, as there was no memory
};

// Made by CMNConnectionManager and counted. The last release closes the socket; from its return on the address is free
// and no callback runs or starts. It waits for a running callback, unless it is made inside it: never make it under a
// lock that the sink takes. What is still queued is offered to the system once more.
class CONNHUB_API IMNUDPTransport : public mantle::IMNReferenceControl
{
public:
    // Most bytes of one datagram, and what may wait in the queue unless set.
    static constexpr unsigned long s_dwMaxDatagram = 65507;
    static constexpr unsigned long s_dwQueueLimit = 4ul << 20;

    // Binds to a local address and starts to receive. Port 0: one that the system chooses. Thread: any.
    // Returns: 0; MN_ERROR_ALREADY_INITIALIZED when it is open; MN_ERROR_FAILURE when the system refuses, for instance
    // because the address is in use or not one of this machine's, MN_ERROR_UNEXPECTED when there is no memory (it may
    // then be tried again); MN_ERROR_NOT_INITIALIZED when connhub has ended.
    virtual mantle::MNResult Open(const mantle::CMNInetAddr& local) = 0;

    // Sends one datagram, or queues it; those of a burst (mantle/CMNBurst.h) leave at its end, in few system calls.
    // Never waits. Thread: any; the order of one thread's calls is kept.
    // Owns: `data` is good during the call only. Returns: 0, which does not say that it will arrive;
    // MN_ERROR_INVALID_ARG for null data with a length, more than s_dwMaxDatagram bytes, port 0 or the other family;
    // MN_ERROR_NOT_INITIALIZED when it is not open; MN_ERROR_FAILURE when the queue is full, MN_ERROR_UNEXPECTED when
    // there is no memory for it: dropped and counted.
    virtual mantle::MNResult SendTo(const char* data, unsigned long length, const mantle::CMNInetAddr& to) = 0;

    // The address that it is bound to. Thread: any. Returns: 0; MN_ERROR_NOT_INITIALIZED when it is not open.
    virtual mantle::MNResult GetLocalAddress(mantle::CMNInetAddr& local) = 0;

    // Bytes of data that may wait in the queue; a datagram that finds less room is dropped. Thread: any.
    virtual void SetQueueLimit(unsigned long bytes) = 0;

    // Thread: any.
    virtual CMNUDPTransportCounters GetCounters() = 0;
};

}  // namespace connhub

#endif
