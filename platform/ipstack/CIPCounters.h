// The stack's counters.
#ifndef IPSTACK_CIPCOUNTERS_H
#define IPSTACK_CIPCOUNTERS_H

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "ipstack/IIPStackManager.h"

namespace ipstack
{

// Each counter: its identifier and its name. The filter's rows are the reasons why a link's packet was dropped
// before the stack saw it: link.in = link.delivered + the sum of filter.*. What the stack sends to itself is no link's:
// loop.* are the reasons why such a packet was dropped. memory.failed: allocations of this layer that failed, each at
// the cost of a packet, a connection or a call; lwIP counts its own (lwip.*.memerr).
#define UXPORT_IPSTACK_COUNTERS(X)                         \
  X(LinkIn, "link.in")                                     \
  X(LinkInBytes, "link.in_bytes")                          \
  X(LinkDelivered, "link.delivered")                       \
  X(LinkOut, "link.out")                                   \
  X(LinkOutBytes, "link.out_bytes")                        \
  X(LinkOutputFull, "link.output_full")                    \
  X(FilterTooShort, "filter.too_short")                    \
  X(FilterTooLong, "filter.longer_than_mtu")               \
  X(FilterVersion, "filter.version")                       \
  X(FilterHeaderLength, "filter.header_length")            \
  X(FilterTotalLength, "filter.total_length")              \
  X(FilterLoopbackAddress, "filter.loopback_address")      \
  X(FilterOwnSource, "filter.own_source")                  \
  X(FilterBadSource, "filter.source_not_unicast")          \
  X(FilterNotOurs, "filter.not_ours")                      \
  X(FilterMulticast, "filter.multicast")                   \
  X(FilterFragmentEmpty, "filter.fragment_empty")          \
  X(FilterFragmentTooLong, "filter.fragment_too_long")     \
  X(FilterFragmentOdd, "filter.fragment_odd_length")       \
  X(FilterFragmentNested, "filter.fragment_nested")        \
  X(FilterHopByHop, "filter.hop_by_hop_not_first")         \
  X(FilterExtensionLength, "filter.extension_length")      \
  X(FilterExtensionCount, "filter.extension_count")        \
  X(FilterNeighbour, "filter.neighbour_discovery")         \
  X(FilterNoMemory, "filter.no_memory")                    \
  X(FilterLinkClosing, "filter.link_closing")              \
  X(LoopMalformed, "loop.malformed")                       \
  X(LoopNoMemory, "loop.no_memory")                        \
  X(SegmentBadOption, "segment.bad_option")                \
  X(SegmentBadFlags, "segment.bad_flags")                  \
  X(SegmentBeyondWindow, "segment.beyond_window")          \
  X(SegmentBeyondFin, "segment.beyond_fin")                \
  X(SegmentZeroWindowAck, "segment.zero_window_ack")       \
  X(SegmentOptionCleared, "segment.option_cleared")        \
  X(SegmentMssRaised, "segment.mss_raised")                \
  X(SegmentBacklog, "segment.backlog_full")                \
  X(SegmentNoRoute, "segment.no_way_back")                 \
  X(SegmentNoAck, "segment.no_ack")                        \
  X(SegmentBadAck, "segment.bad_ack")                      \
  X(SegmentUnacceptable, "segment.unacceptable")           \
  X(SegmentResetInside, "segment.reset_in_window")         \
  X(SegmentSynInside, "segment.syn_in_connection")         \
  X(AnswerAck, "answer.ack")                               \
  X(AnswerAckWithheld, "answer.ack_withheld")              \
  X(AnswerReset, "answer.reset")                           \
  X(AnswerResetWithheld, "answer.reset_withheld")          \
  X(AnswerIcmpError, "answer.icmp_error")                  \
  X(AnswerIcmpErrorWithheld, "answer.icmp_error_withheld") \
  X(AnswerEcho, "answer.echo_reply")                       \
  X(AnswerEchoWithheld, "answer.echo_reply_withheld")      \
  X(DemuxTcpHit, "demux.tcp_hit")                          \
  X(DemuxTcpMiss, "demux.tcp_miss")                        \
  X(DemuxUdpHit, "demux.udp_hit")                          \
  X(DemuxFull, "demux.full_list")                          \
  X(DrainLimit, "drain.limit")                             \
  X(AssertionFailed, "stack.assertion")                    \
  X(CoreLockMissing, "stack.core_lock_missing")            \
  X(IcmpOfBroadcast, "icmp.of_broadcast")                  \
  X(TcpUnreadDiscarded, "tcp.unread_discarded_bytes")      \
  X(TcpUnsentDiscarded, "tcp.unsent_discarded_bytes")      \
  X(TcpOrphanAborted, "tcp.orphan_aborted")                \
  X(TcpHalfOpenDropped, "tcp.half_open_dropped")           \
  X(TcpTimeWaitDropped, "tcp.time_wait_dropped")           \
  X(UdpQueueFull, "udp.queue_full")                        \
  X(UdpBadLength, "udp.bad_length")                        \
  X(UdpNoChecksum, "udp.no_checksum")                      \
  X(UdpCutBytes, "udp.cut_bytes")                          \
  X(RawQueueFull, "raw.queue_full")                        \
  X(RawCutBytes, "raw.cut_bytes")                          \
  X(WireLost, "wire.lost")                                 \
  X(WireQueueFull, "wire.queue_full")                      \
  X(WireDuplicated, "wire.duplicated")                     \
  X(WireReordered, "wire.reordered")                       \
  X(TunIn, "tun.in")                                       \
  X(TunOut, "tun.out")                                     \
  X(TunOutputFailed, "tun.output_failed")                  \
  X(CaptureFailed, "capture.failed")                       \
  X(MemoryFailed, "memory.failed")

// 64-bit counters that any thread may raise and read.
class CIPCounters
{
public:
    enum EId : unsigned int
    {
#define UXPORT_IPSTACK_COUNTER_ID(id, name) id,
        UXPORT_IPSTACK_COUNTERS(UXPORT_IPSTACK_COUNTER_ID)
#undef UXPORT_IPSTACK_COUNTER_ID
            Count
    };

    static void Add(EId id, std::uint64_t amount = 1) noexcept
    {
        s_Values[id].fetch_add(amount, std::memory_order_relaxed);
    }
    // The same, cheaper, for counters that nobody raises without the core lock.
    static void AddLocked(EId id, std::uint64_t amount = 1) noexcept
    {
        s_Values[id].store(s_Values[id].load(std::memory_order_relaxed) + amount, std::memory_order_relaxed);
    }
    static std::uint64_t Get(EId id) noexcept
    {
        return s_Values[id].load(std::memory_order_relaxed);
    }

    static const char* GetName(EId id) noexcept;

    // Writes up to `room` counters, lwIP's own behind these, and returns how many there are. State: the core lock
    // is held.
    static std::size_t Snapshot(CIPStackCounter* counters, std::size_t room) noexcept;

private:
    static std::atomic<std::uint64_t> s_Values[Count];
};

}  // namespace ipstack

#endif
