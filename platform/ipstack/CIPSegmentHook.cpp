#include "CIPSegmentHook.h"

#include <algorithm>

#include "CIPSegmentCheck.h"
#include "lwip/priv/tcp_priv.h"
#include "lwip_hooks.h"

namespace ipstack
{

namespace
{

// What may happen to the options that lwIP obeys.
enum class EOptions
{
    Obey,  // the segment that opens the connection
    Clear  // any other: lwIP would obey them all the same
};

EOptions GetOptionPolicy(const tcp_pcb* pcb, const tcp_hdr* header, unsigned int flags) noexcept
{
    if ((flags & TCP_SYN) == 0) {
        return EOptions::Clear;
    }
    switch (pcb->state) {
    case LISTEN:
        return EOptions::Obey;
    case SYN_SENT:
        // Only the answer to our SYN.
        return (flags & TCP_ACK) != 0 && header->ackno == pcb->lastack + 1 ? EOptions::Obey : EOptions::Clear;
    default:
        return EOptions::Clear;
    }
}

void Erase(std::uint8_t* option, std::size_t length) noexcept
{
    std::fill(option, option + length, static_cast<std::uint8_t>(LWIP_TCP_OPT_NOP));
    CIPCounters::Add(CIPCounters::SegmentOptionCleared);
}

void RaiseMss(std::uint8_t* value) noexcept
{
    const unsigned int mss = static_cast<unsigned int>(value[0]) << 8 | value[1];
    if (mss < CIPSegmentHook::LeastMss) {
        value[0] = static_cast<std::uint8_t>(CIPSegmentHook::LeastMss >> 8);
        value[1] = static_cast<std::uint8_t>(CIPSegmentHook::LeastMss & 0xFF);
        CIPCounters::Add(CIPCounters::SegmentMssRaised);
    }
}

// The length that a known option must have; 0 for others.
std::size_t GetFixedLength(std::uint8_t kind) noexcept
{
    switch (kind) {
    case LWIP_TCP_OPT_MSS:
        return LWIP_TCP_OPT_LEN_MSS;
    case LWIP_TCP_OPT_WS:
        return LWIP_TCP_OPT_LEN_WS;
    case LWIP_TCP_OPT_SACK_PERM:
        return LWIP_TCP_OPT_LEN_SACK_PERM;
    default:
        return 0;
    }
}

// Walks the options. Returns: false when one does not fit into the header or has a wrong length.
bool CheckOptions(std::uint8_t* options, std::size_t length, EOptions policy) noexcept
{
    for (std::size_t at = 0; at < length;) {
        const std::uint8_t kind = options[at];
        if (kind == LWIP_TCP_OPT_EOL) {
            return true;
        }
        if (kind == LWIP_TCP_OPT_NOP) {
            ++at;
            continue;
        }
        if (at + 2 > length) {
            return false;
        }
        const std::size_t size = options[at + 1];
        const std::size_t fixed = GetFixedLength(kind);
        if (size < 2 || at + size > length || (fixed != 0 && size != fixed)) {
            return false;
        }
        if (fixed != 0 && policy == EOptions::Clear) {
            Erase(options + at, size);
        } else if (kind == LWIP_TCP_OPT_MSS) {
            RaiseMss(options + at + 2);
        }
        at += size;
    }
    return true;
}

// Whether the peer's data are still taken in.
bool TakesData(const tcp_pcb* pcb) noexcept
{
    return pcb->state == SYN_RCVD || pcb->state == ESTABLISHED || pcb->state == FIN_WAIT_1 || pcb->state == FIN_WAIT_2;
}

// A segment ahead of the next byte that ends beyond the window; lwIP cuts it in some places only, and its window
// would go below zero.
bool IsBeyondWindow(const tcp_pcb* pcb, std::uint32_t start, std::uint32_t end) noexcept
{
    return TCP_SEQ_GT(start, pcb->rcv_nxt) && TCP_SEQ_GT(end, pcb->rcv_nxt + CIPSegmentCheck::GetWindow(pcb));
}

// Data behind a FIN that came out of order, or a second FIN at another place.
bool IsBeyondFin(const tcp_pcb* pcb, std::uint32_t dataEnd, bool fin) noexcept
{
    const tcp_seg* last = pcb->ooseq;
    if (last == nullptr) {
        return false;
    }
    while (last->next != nullptr) {
        last = last->next;
    }
    if ((TCPH_FLAGS(last->tcphdr) & TCP_FIN) == 0) {
        return false;
    }
    const std::uint32_t finAt = last->tcphdr->seqno + last->len;
    return TCP_SEQ_GT(dataEnd, finAt) || (fin && dataEnd != finAt);
}

// A bare acknowledgement without news from right behind our window, which is shut or has been filled. lwIP answers it
// with another one; when the peer stands there too, that goes on for ever.
bool IsIdleAtWindowEdge(const tcp_pcb* pcb, const tcp_hdr* header) noexcept
{
    return pcb->state >= ESTABLISHED && header->seqno == pcb->rcv_nxt + pcb->rcv_wnd && header->ackno == pcb->lastack &&
           static_cast<tcpwnd_size_t>(SND_WND_SCALE(pcb, header->wnd)) == pcb->snd_wnd;
}

// lwIP cuts segments to half the largest window it has seen, but to the full size while that is none. A first small
// window would leave segments behind that are larger than it then believes possible.
void KeepSegmentSize(tcp_pcb* pcb) noexcept
{
    if (pcb->snd_wnd_max < 2 && pcb->state >= ESTABLISHED) {
        pcb->snd_wnd_max = 2U * pcb->mss;
    }
}

// What nearly every segment is: nothing but data or an acknowledgement, next in order, of what is in flight. It needs no
// further look at its numbers.
bool IsExpected(const tcp_pcb* pcb, const tcp_hdr* header, unsigned int flags) noexcept
{
    return pcb->state >= ESTABLISHED && pcb->state != TIME_WAIT && (flags & (TCP_SYN | TCP_RST | TCP_ACK)) == TCP_ACK &&
           header->seqno == pcb->rcv_nxt && header->ackno - pcb->lastack <= pcb->snd_nxt - pcb->lastack;
}

// The peer lives: what a segment that lwIP takes in does to the timers.
void NoteLife(tcp_pcb* pcb) noexcept
{
    if ((pcb->flags & TF_RXCLOSED) == 0) {
        pcb->tmr = tcp_ticks;
    }
    pcb->keep_cnt_sent = 0;
    pcb->persist_probe = 0;
}

}  // namespace

CIPCounters::EId CIPSegmentHook::Check(tcp_pcb* pcb, tcp_hdr* header, std::uint16_t optionLength,
                                       std::uint16_t firstOptionLength, const pbuf* packet) noexcept
{
    const unsigned int flags = TCPH_FLAGS(header);
    const bool syn = (flags & TCP_SYN) != 0;
    const bool fin = (flags & TCP_FIN) != 0;

    // Options cut in two come from fragments made for the purpose.
    if (firstOptionLength < optionLength || !CheckOptions(reinterpret_cast<std::uint8_t*>(header) + TCP_HLEN,
                                                          optionLength, GetOptionPolicy(pcb, header, flags))) {
        return CIPCounters::SegmentBadOption;
    }
    if (syn && (flags & (TCP_FIN | TCP_RST)) != 0) {
        return CIPCounters::SegmentBadFlags;
    }
    if (pcb->state == LISTEN) {
        return Accepted;
    }
    if (syn && (flags & TCP_ACK) != 0 && pcb->state == SYN_RCVD) {
        return CIPCounters::SegmentBadFlags;
    }
    const std::uint32_t length = packet->tot_len + (syn ? 1U : 0U) + (fin ? 1U : 0U);
    if (!IsExpected(pcb, header, flags)) {
        const CIPCounters::EId verdict = CIPSegmentCheck::Check(pcb, header, length);
        if (verdict != Accepted || pcb->state == TIME_WAIT) {
            return verdict;
        }
    }

    KeepSegmentSize(pcb);
    const std::uint32_t dataEnd = header->seqno + packet->tot_len;
    if (length > 0 && TakesData(pcb)) {
        if (IsBeyondWindow(pcb, header->seqno, header->seqno + length)) {
            return CIPCounters::SegmentBeyondWindow;
        }
        if (IsBeyondFin(pcb, dataEnd, fin)) {
            return CIPCounters::SegmentBeyondFin;
        }
    }
    // While data are in flight it may be one of three duplicates.
    if (length == 0 && (flags & (TCP_ACK | TCP_RST)) == TCP_ACK && IsIdleAtWindowEdge(pcb, header) &&
        (!pcb->unacked || !CIPSegmentCheck::MayAnswer(pcb))) {
        NoteLife(pcb);
        return CIPCounters::SegmentZeroWindowAck;
    }
    return Accepted;
}

}  // namespace ipstack

extern "C" err_t uxport_ipstack_tcp_inpacket(tcp_pcb* pcb, tcp_hdr* header, u16_t optionLength, u16_t option1Length,
                                             u8_t*, pbuf* packet)
{
    using ipstack::CIPSegmentHook;
    const ipstack::CIPCounters::EId verdict = CIPSegmentHook::Check(pcb, header, optionLength, option1Length, packet);
    if (verdict == CIPSegmentHook::Accepted) {
        return ERR_OK;
    }
    ipstack::CIPCounters::Add(verdict);
    return ERR_VAL;
}
