#include "CIPSegmentCheck.h"

#include <algorithm>

#include "CIPAnswerLimit.h"
#include "CIPTcpBacklog.h"
#include "CIPTcpEnd.h"
#include "lwip/priv/tcp_priv.h"

namespace ipstack
{

namespace
{

// The window that a connection is left with once it is established: what it promised in the handshake. lwIP
// starts a passive one higher when window scaling is agreed.
constexpr std::uint32_t s_dwHandshakeWindow = 65535;

CIPTcpEnd* GetEnd(const tcp_pcb* pcb) noexcept
{
    return static_cast<CIPTcpEnd*>(tcp_ext_arg_get(pcb, CIPTcpEnd::s_cExtArg));
}

bool Allow(CIPAnswerLimit::EKind kind, const tcp_pcb* pcb) noexcept
{
    CIPTcpEnd* end = GetEnd(pcb);
    return CIPAnswerLimit::AllowConnection(kind, end ? &end->GetAnswerShare() : nullptr);
}

// "Send an acknowledgment, drop the segment": also the challenge of RFC 5961.
CIPCounters::EId Acknowledge(tcp_pcb* pcb, CIPCounters::EId reason) noexcept
{
    if (Allow(CIPAnswerLimit::Acknowledgement, pcb)) {
        tcp_send_empty_ack(pcb);
    }
    return reason;
}

CIPCounters::EId Reset(const tcp_pcb* pcb, const tcp_hdr* header, std::uint32_t length) noexcept
{
    if (Allow(CIPAnswerLimit::Reset, pcb)) {
        tcp_rst(pcb, header->ackno, header->seqno + length, &pcb->local_ip, &pcb->remote_ip, pcb->local_port,
                pcb->remote_port);
    }
    return CIPCounters::SegmentBadAck;
}

// RFC 9293, section 3.10.7.3. lwIP looks at the acknowledgement number alone.
CIPCounters::EId CheckSynSent(const tcp_pcb* pcb, const tcp_hdr* header, unsigned int flags,
                              std::uint32_t length) noexcept
{
    const bool reset = (flags & TCP_RST) != 0;
    if ((flags & TCP_ACK) == 0) {
        return reset ? CIPCounters::SegmentNoAck : CIPSegmentCheck::Accepted;
    }
    if (header->ackno != pcb->lastack + 1) {
        if (reset) {
            return CIPCounters::SegmentBadAck;
        }
        // The peer still has an old connection: lwIP resets that and repeats its request at once. It counts as a
        // repetition, and strangers must not use those up.
        if (pcb->nrtx != 0) {
            return Reset(pcb, header, length);
        }
        return Allow(CIPAnswerLimit::Reset, pcb) ? CIPSegmentCheck::Accepted : CIPCounters::SegmentBadAck;
    }
    return reset || (flags & TCP_SYN) != 0 ? CIPSegmentCheck::Accepted : CIPCounters::SegmentBadFlags;
}

// RFC 9293, section 3.10.7.4, TIME-WAIT, and RFC 1337: only the peer's end comes again.
CIPCounters::EId CheckTimeWait(tcp_pcb* pcb, const tcp_hdr* header, unsigned int flags, std::uint32_t length) noexcept
{
    if ((flags & TCP_RST) != 0) {
        return CIPSegmentCheck::Accepted;  // lwIP ignores it
    }
    if ((flags & TCP_SYN) != 0) {
        return Acknowledge(pcb, CIPCounters::SegmentSynInside);
    }
    if ((flags & TCP_ACK) == 0) {
        return CIPCounters::SegmentNoAck;
    }
    if (length == 0) {
        return CIPSegmentCheck::Accepted;  // lwIP ignores it
    }
    if ((flags & TCP_FIN) == 0 || header->seqno + length != pcb->rcv_nxt) {
        return Acknowledge(pcb, CIPCounters::SegmentUnacceptable);
    }
    // lwIP answers the peer's end once more.
    return Allow(CIPAnswerLimit::Acknowledgement, pcb) ? CIPSegmentCheck::Accepted : CIPCounters::SegmentUnacceptable;
}

// RFC 9293, section 3.10.7.4, the first check. A bare acknowledgement may also stand right behind the window, where a
// peer stands that has filled it; at the next byte all may pass, since an acknowledgement or the probe of a shut window
// may be in it.
bool IsAcceptable(const tcp_pcb* pcb, std::uint32_t start, std::uint32_t length) noexcept
{
    const std::uint32_t end = start + length;
    const std::uint32_t edge = pcb->rcv_nxt + CIPSegmentCheck::GetWindow(pcb);
    if (length == 0) {
        return TCP_SEQ_GEQ(start, pcb->rcv_nxt) && TCP_SEQ_LEQ(start, edge);
    }
    return start == pcb->rcv_nxt ||
           (TCP_SEQ_GT(start, pcb->rcv_nxt) ? TCP_SEQ_LT(start, edge) : TCP_SEQ_GT(end, pcb->rcv_nxt));
}

CIPCounters::EId CheckAck(tcp_pcb* pcb, const tcp_hdr* header, std::uint32_t length) noexcept
{
    if (pcb->state != SYN_RCVD) {
        // RFC 5961, section 5.2.
        return TCP_SEQ_GEQ(header->ackno, pcb->lastack - pcb->snd_wnd_max) && TCP_SEQ_LEQ(header->ackno, pcb->snd_nxt)
                   ? CIPSegmentCheck::Accepted
                   : Acknowledge(pcb, CIPCounters::SegmentBadAck);
    }
    if (!TCP_SEQ_GT(header->ackno, pcb->lastack) || !TCP_SEQ_LEQ(header->ackno, pcb->snd_nxt)) {
        return Reset(pcb, header, length);
    }
    // Nobody could accept it yet: it stays half open, and our answer to its request goes out again after a while.
    const CIPTcpEnd* end = GetEnd(pcb);
    return end && end->GetBacklog() && end->GetBacklog()->IsFull() ? CIPCounters::SegmentBacklog
                                                                   : CIPSegmentCheck::Accepted;
}

CIPCounters::EId CheckSynchronized(tcp_pcb* pcb, const tcp_hdr* header, unsigned int flags,
                                   std::uint32_t length) noexcept
{
    const bool reset = (flags & TCP_RST) != 0;
    if (!IsAcceptable(pcb, header->seqno, length)) {
        const bool repeated = pcb->state == SYN_RCVD && (flags & (TCP_SYN | TCP_ACK | TCP_RST)) == TCP_SYN &&
                              header->seqno + 1 == pcb->rcv_nxt;
        if (repeated && Allow(CIPAnswerLimit::Acknowledgement, pcb)) {
            return CIPSegmentCheck::Accepted;  // lwIP answers the request once more
        }
        return reset || repeated ? CIPCounters::SegmentUnacceptable
                                 : Acknowledge(pcb, CIPCounters::SegmentUnacceptable);
    }
    if (reset) {
        return header->seqno == pcb->rcv_nxt ? CIPSegmentCheck::Accepted
                                             : Acknowledge(pcb, CIPCounters::SegmentResetInside);
    }
    if ((flags & TCP_SYN) != 0) {
        return Acknowledge(pcb, CIPCounters::SegmentSynInside);
    }
    return (flags & TCP_ACK) == 0 ? CIPCounters::SegmentNoAck : CheckAck(pcb, header, length);
}

}  // namespace

CIPCounters::EId CIPSegmentCheck::Check(tcp_pcb* pcb, const tcp_hdr* header, std::uint32_t length) noexcept
{
    const unsigned int flags = TCPH_FLAGS(header);
    switch (pcb->state) {
    case SYN_SENT:
        return CheckSynSent(pcb, header, flags, length);
    case TIME_WAIT:
        return CheckTimeWait(pcb, header, flags, length);
    default:
        return CheckSynchronized(pcb, header, flags, length);
    }
}

bool CIPSegmentCheck::MayAnswer(tcp_pcb* pcb) noexcept
{
    return Allow(CIPAnswerLimit::Acknowledgement, pcb);
}

std::uint32_t CIPSegmentCheck::GetWindow(const tcp_pcb* pcb) noexcept
{
    return pcb->state == SYN_RCVD ? std::min<std::uint32_t>(pcb->rcv_wnd, s_dwHandshakeWindow) : pcb->rcv_wnd;
}

}  // namespace ipstack
