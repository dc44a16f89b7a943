// Looks at a TCP segment before its connection or listener does.
#ifndef IPSTACK_CIPSEGMENTHOOK_H
#define IPSTACK_CIPSEGMENTHOOK_H

#include <cstdint>

#include "CIPCounters.h"

struct pbuf;
struct tcp_hdr;
struct tcp_pcb;

namespace ipstack
{

// Keeps segments away from lwIP that do not belong to their connection (CIPSegmentCheck), or would trip its assertions,
// corrupt a stream or start an endless exchange.
class CIPSegmentHook
{
public:
    // The verdict on a segment that may pass.
    static constexpr CIPCounters::EId Accepted = CIPCounters::Count;

    // A smaller maximum segment size than this is lifted to it: a segment must have room for data behind the
    // longest header.
    static constexpr std::uint16_t LeastMss = 88;

    // Looks at a segment for `pcb` (a listener's cast), whose header fields are in host order and whose payload
    // alone is in `packet`; changes options in place. State: the core lock is held, lwIP is in tcp_input.
    // Returns: Accepted, or the counter that names the reason to drop it.
    static CIPCounters::EId Check(tcp_pcb* pcb, tcp_hdr* header, std::uint16_t optionLength,
                                  std::uint16_t firstOptionLength, const pbuf* packet) noexcept;
};

}  // namespace ipstack

#endif
