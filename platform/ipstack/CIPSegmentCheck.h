// Whether a TCP segment belongs to its connection.
#ifndef IPSTACK_CIPSEGMENTCHECK_H
#define IPSTACK_CIPSEGMENTCHECK_H

#include <cstdint>

#include "CIPCounters.h"

struct tcp_hdr;
struct tcp_pcb;

namespace ipstack
{

// The checks of RFC 9293, section 3.10.7, that come before a segment has any effect, as RFC 5961 sharpens them. lwIP
// takes windows, data and ends from segments that fail them, and answers without a limit.
//
// Every call: the core lock is held, lwIP is in tcp_input.
class CIPSegmentCheck
{
public:
    // The verdict on a segment that may pass.
    static constexpr CIPCounters::EId Accepted = CIPCounters::Count;

    // Looks at a segment for a connection (no listener), whose header fields are in host order, and gives the answer
    // that an unacceptable one gets, within the limits. Units: `length` in sequence numbers, SYN and FIN among them.
    // Returns: Accepted, or the counter that names the reason to drop it.
    static CIPCounters::EId Check(tcp_pcb* pcb, const tcp_hdr* header, std::uint32_t length) noexcept;

    // Whether the connection may give one of the answers that a stranger can draw; counts it.
    static bool MayAnswer(tcp_pcb* pcb) noexcept;

    // The receive window, in bytes. Until the handshake is done it is what the handshake promises.
    static std::uint32_t GetWindow(const tcp_pcb* pcb) noexcept;
};

}  // namespace ipstack

#endif
