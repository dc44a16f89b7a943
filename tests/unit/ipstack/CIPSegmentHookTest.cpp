#include "platform/ipstack/CIPSegmentHook.h"

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "lwip/priv/tcp_priv.h"

namespace
{

using ipstack::CIPCounters;
using ipstack::CIPSegmentHook;

using COptions = std::vector<std::uint8_t>;

void SetFlags(tcp_hdr& header, std::size_t length, unsigned int flags)
{
    header._hdrlen_rsvd_flags = lwip_htons(static_cast<u16_t>(length / 4 << 12 | flags));
}

// A connection and a segment for it as lwIP hands them to the hook: fields in host order, the payload bare.
class CIPSegmentHookTest : public testing::Test
{
protected:
    CIPSegmentHookTest()
    {
        m_Pcb.state = ESTABLISHED;
        m_Pcb.rcv_nxt = 1000;
        m_Pcb.rcv_wnd = 500;
        m_Pcb.lastack = 7000;
        m_Pcb.snd_nxt = 7001;
        m_Pcb.snd_wnd = 300;
        m_Pcb.snd_wnd_max = 300;
    }

    // The verdict on a segment with these flags, options and payload length, "accepted" when there is none. The
    // options as the hook left them are in m_Options.
    std::string Verdict(std::uint32_t sequence, unsigned int length, unsigned int flags, const COptions& options = {})
    {
        m_Header.assign(sizeof(tcp_hdr) + options.size(), 0);
        tcp_hdr* header = reinterpret_cast<tcp_hdr*>(m_Header.data());
        header->seqno = sequence;
        header->ackno = m_dwAck;
        header->wnd = m_wWindow;
        SetFlags(*header, m_Header.size(), flags);
        std::copy(options.begin(), options.end(), m_Header.begin() + sizeof(tcp_hdr));
        pbuf packet{};
        packet.tot_len = packet.len = static_cast<u16_t>(length);
        const CIPCounters::EId id =
            CIPSegmentHook::Check(&m_Pcb, header, static_cast<std::uint16_t>(options.size()),
                                  static_cast<std::uint16_t>(options.size() - m_dwSecondPart), &packet);
        m_Options.assign(m_Header.begin() + sizeof(tcp_hdr), m_Header.end());
        return id == CIPSegmentHook::Accepted ? "accepted" : CIPCounters::GetName(id);
    }

    tcp_pcb m_Pcb{};
    std::uint32_t m_dwAck = 7000;
    std::uint16_t m_wWindow = 300;
    std::size_t m_dwSecondPart = 0;
    std::vector<std::uint8_t> m_Header;
    COptions m_Options;
};

const COptions SynOptions{2, 4, 0x05, 0xB4, 3, 3, 7, 4, 2, 1, 1, 0};
const COptions SynOptionsCleared(11, 1);

TEST_F(CIPSegmentHookTest, AnyState_OptionOverTheHeader_Dropped)
{
    EXPECT_EQ("segment.bad_option", Verdict(1000, 0, TCP_ACK, {1, 1, 1, 8}));
    EXPECT_EQ("segment.bad_option", Verdict(1000, 0, TCP_ACK, {1, 1, 8, 3}));
    EXPECT_EQ("segment.bad_option", Verdict(1000, 0, TCP_ACK, {8, 0, 1, 1}));
    EXPECT_EQ("segment.bad_option", Verdict(1000, 0, TCP_ACK, {8, 1, 1, 1}));
    EXPECT_EQ("accepted", Verdict(1000, 0, TCP_ACK, {8, 4, 1, 1}));
    EXPECT_EQ("accepted", Verdict(1000, 0, TCP_ACK, {1, 1, 0, 9})) << "nothing counts behind the end";
}

TEST_F(CIPSegmentHookTest, AnyState_KnownOptionOfWrongLength_Dropped)
{
    EXPECT_EQ("segment.bad_option", Verdict(1000, 0, TCP_SYN, {2, 3, 5, 1}));
    EXPECT_EQ("segment.bad_option", Verdict(1000, 0, TCP_SYN, {3, 4, 5, 1}));
    EXPECT_EQ("segment.bad_option", Verdict(1000, 0, TCP_SYN, {4, 3, 5, 1}));
}

TEST_F(CIPSegmentHookTest, AnyState_OptionsInTwoBuffers_Dropped)
{
    m_dwSecondPart = 4;
    EXPECT_EQ("segment.bad_option", Verdict(1000, 0, TCP_ACK, {1, 1, 1, 1, 1, 1, 1, 1}));
}

TEST_F(CIPSegmentHookTest, Established_SynOptionsInAck_Erased)
{
    EXPECT_EQ("accepted", Verdict(1000, 0, TCP_ACK, SynOptions));
    EXPECT_EQ(SynOptionsCleared, COptions(m_Options.begin(), m_Options.begin() + 11));
}

TEST_F(CIPSegmentHookTest, Established_SackOption_Kept)
{
    const COptions sack{1, 1, 5, 10, 0, 0, 0, 1, 0, 0, 0, 2};
    EXPECT_EQ("accepted", Verdict(1000, 0, TCP_ACK, sack));
    EXPECT_EQ(sack, m_Options);
}

TEST_F(CIPSegmentHookTest, Listen_SynOptions_Kept)
{
    m_Pcb.state = LISTEN;
    EXPECT_EQ("accepted", Verdict(5, 0, TCP_SYN, SynOptions));
    EXPECT_EQ(SynOptions, m_Options);
}

TEST_F(CIPSegmentHookTest, SynSent_AnswerToOurSyn_OptionsKept)
{
    m_Pcb.state = SYN_SENT;
    m_dwAck = m_Pcb.lastack + 1;
    EXPECT_EQ("accepted", Verdict(5, 0, TCP_SYN | TCP_ACK, SynOptions));
    EXPECT_EQ(SynOptions, m_Options);
}

TEST_F(CIPSegmentHookTest, SynSent_OtherSegments_OptionsErased)
{
    m_Pcb.state = SYN_SENT;
    m_dwAck = m_Pcb.lastack + 2;
    EXPECT_EQ("accepted", Verdict(5, 0, TCP_SYN | TCP_ACK, SynOptions));
    EXPECT_EQ(SynOptionsCleared, COptions(m_Options.begin(), m_Options.begin() + 11));
    EXPECT_EQ("accepted", Verdict(5, 0, TCP_SYN, SynOptions));
    EXPECT_EQ(SynOptionsCleared, COptions(m_Options.begin(), m_Options.begin() + 11));
}

TEST_F(CIPSegmentHookTest, SynReceived_SecondSyn_OptionsErased)
{
    m_Pcb.state = SYN_RCVD;
    EXPECT_EQ("accepted", Verdict(999, 0, TCP_SYN, SynOptions));
    EXPECT_EQ(SynOptionsCleared, COptions(m_Options.begin(), m_Options.begin() + 11));
}

TEST_F(CIPSegmentHookTest, Listen_SmallMss_RaisedToLeast)
{
    m_Pcb.state = LISTEN;
    for (const unsigned int mss : {0U, 1U, 87U}) {
        EXPECT_EQ("accepted", Verdict(5, 0, TCP_SYN, {2, 4, 0, static_cast<std::uint8_t>(mss)}));
        EXPECT_EQ((COptions{2, 4, 0, CIPSegmentHook::LeastMss}), m_Options) << mss;
    }
    EXPECT_EQ("accepted", Verdict(5, 0, TCP_SYN, {2, 4, 0, 89}));
    EXPECT_EQ((COptions{2, 4, 0, 89}), m_Options);
}

TEST_F(CIPSegmentHookTest, AnyState_SynWithFinOrRst_Dropped)
{
    for (const tcp_state state : {LISTEN, SYN_SENT, SYN_RCVD, ESTABLISHED, TIME_WAIT}) {
        m_Pcb.state = state;
        EXPECT_EQ("segment.bad_flags", Verdict(1000, 0, TCP_SYN | TCP_FIN)) << state;
        EXPECT_EQ("segment.bad_flags", Verdict(1000, 0, TCP_SYN | TCP_RST)) << state;
        EXPECT_EQ("segment.bad_flags", Verdict(1000, 0, TCP_SYN | TCP_RST | TCP_ACK)) << state;
    }
}

TEST_F(CIPSegmentHookTest, SynReceived_SynAck_Dropped)
{
    m_Pcb.state = SYN_RCVD;
    EXPECT_EQ("segment.bad_flags", Verdict(999, 0, TCP_SYN | TCP_ACK));
}

TEST_F(CIPSegmentHookTest, Receiving_OutOfOrderPastTheWindow_Dropped)
{
    for (const tcp_state state : {SYN_RCVD, ESTABLISHED, FIN_WAIT_1, FIN_WAIT_2}) {
        m_Pcb.state = state;
        m_dwAck = 7001;
        EXPECT_EQ("accepted", Verdict(1001, 499, TCP_ACK)) << state;
        EXPECT_EQ("segment.beyond_window", Verdict(1001, 500, TCP_ACK)) << state;
        EXPECT_EQ("segment.beyond_window", Verdict(1001, 499, TCP_ACK | TCP_FIN)) << state;
        EXPECT_EQ("accepted", Verdict(1000, 600, TCP_ACK)) << "lwIP cuts what is next in order, state " << state;
    }
}

TEST_F(CIPSegmentHookTest, Receiving_SequenceWrapsAround_SameRule)
{
    m_Pcb.rcv_nxt = 0xFFFFFFF0U;
    EXPECT_EQ("accepted", Verdict(0xFFFFFFF8U, 492, TCP_ACK));
    EXPECT_EQ("segment.beyond_window", Verdict(0xFFFFFFF8U, 493, TCP_ACK));
}

TEST_F(CIPSegmentHookTest, SynReceived_LargeWindow_CountsAsThatOfTheHandshake)
{
    // The window shrinks to 65535 in the accept callback, before the segment that caused it is looked at.
    m_Pcb.state = SYN_RCVD;
    m_Pcb.rcv_wnd = TCP_WND;
    m_dwAck = 7001;
    EXPECT_EQ("accepted", Verdict(1000 + 65000, 535, TCP_ACK));
    EXPECT_EQ("segment.beyond_window", Verdict(1000 + 65000, 536, TCP_ACK));
}

TEST_F(CIPSegmentHookTest, FinInOutOfOrderQueue_DataBeyondIt_Dropped)
{
    tcp_hdr headers[2] = {};
    tcp_seg segments[2] = {};
    segments[0].next = &segments[1];
    segments[0].len = 10;
    segments[0].tcphdr = &headers[0];
    headers[0].seqno = 1010;
    segments[1].len = 20;
    segments[1].tcphdr = &headers[1];
    headers[1].seqno = 1100;
    SetFlags(headers[1], sizeof(tcp_hdr), TCP_ACK);
    m_Pcb.ooseq = segments;
    EXPECT_EQ("accepted", Verdict(1050, 200, TCP_ACK)) << "no FIN known yet";

    SetFlags(headers[1], sizeof(tcp_hdr), TCP_ACK | TCP_FIN);
    EXPECT_EQ("accepted", Verdict(1050, 70, TCP_ACK));
    EXPECT_EQ("segment.beyond_fin", Verdict(1050, 71, TCP_ACK));
    EXPECT_EQ("segment.beyond_fin", Verdict(1000, 200, TCP_ACK)) << "in order, but past the end";
    EXPECT_EQ("segment.beyond_fin", Verdict(1000, 50, TCP_ACK | TCP_FIN)) << "another end";
    EXPECT_EQ("accepted", Verdict(1100, 20, TCP_ACK | TCP_FIN)) << "the same end again";
    EXPECT_EQ("accepted", Verdict(1000, 0, TCP_ACK));
}

TEST_F(CIPSegmentHookTest, ZeroWindow_BareAckWithoutNews_DroppedAndNotedAsLife)
{
    m_Pcb.rcv_wnd = 0;
    m_Pcb.persist_probe = 5;
    m_Pcb.keep_cnt_sent = 3;
    m_Pcb.tmr = tcp_ticks - 100;
    EXPECT_EQ("segment.zero_window_ack", Verdict(1000, 0, TCP_ACK));
    EXPECT_EQ(0, m_Pcb.persist_probe);
    EXPECT_EQ(0, m_Pcb.keep_cnt_sent);
    EXPECT_EQ(tcp_ticks, m_Pcb.tmr);
}

TEST_F(CIPSegmentHookTest, ZeroWindow_AckWithNews_Accepted)
{
    m_Pcb.rcv_wnd = 0;
    m_wWindow = 301;
    EXPECT_EQ("accepted", Verdict(1000, 0, TCP_ACK)) << "another window";
    m_wWindow = 300;
    m_dwAck = 7001;
    EXPECT_EQ("accepted", Verdict(1000, 0, TCP_ACK)) << "another acknowledgement";
    m_dwAck = 7000;
    EXPECT_EQ("accepted", Verdict(1000, 1, TCP_ACK)) << "a window probe wants an answer";
    EXPECT_EQ("accepted", Verdict(1000, 0, TCP_ACK | TCP_FIN));
    EXPECT_EQ("accepted", Verdict(1000, 0, TCP_RST));
    EXPECT_EQ("accepted", Verdict(1000, 0, TCP_RST | TCP_ACK));
    tcp_seg inFlight{};
    m_Pcb.unacked = &inFlight;
    EXPECT_EQ("accepted", Verdict(1000, 0, TCP_ACK)) << "may be one of three duplicates";
    m_Pcb.unacked = nullptr;
    m_Pcb.rcv_wnd = 1;
    EXPECT_EQ("accepted", Verdict(1000, 0, TCP_ACK)) << "the window is open";
}

TEST_F(CIPSegmentHookTest, FilledWindow_BareAckWithoutNewsBehindIt_Dropped)
{
    EXPECT_EQ("segment.zero_window_ack", Verdict(1500, 0, TCP_ACK));
    m_dwAck = 7001;
    EXPECT_EQ("accepted", Verdict(1500, 0, TCP_ACK));
}

TEST_F(CIPSegmentHookTest, ZeroWindow_ScaledWindowUnchanged_Dropped)
{
    m_Pcb.rcv_wnd = 0;
    m_Pcb.flags = TF_WND_SCALE;
    m_Pcb.snd_scale = 4;
    m_Pcb.snd_wnd = 300U << 4;
    EXPECT_EQ("segment.zero_window_ack", Verdict(1000, 0, TCP_ACK));
    m_Pcb.snd_wnd = 300;
    EXPECT_EQ("accepted", Verdict(1000, 0, TCP_ACK));
}

TEST_F(CIPSegmentHookTest, NoWindowSeenYet_FirstSegment_FullSegmentsStayPossible)
{
    // A peer that opened with window 0 and then announced 100 bytes left a segment of the full size in the queue,
    // larger than half the largest window: lwIP's assertion when more was written.
    m_Pcb.mss = 1360;
    m_Pcb.snd_wnd_max = 1;
    EXPECT_EQ("accepted", Verdict(1000, 0, TCP_ACK));
    EXPECT_EQ(2U * 1360, m_Pcb.snd_wnd_max);
    m_Pcb.snd_wnd_max = 100;
    EXPECT_EQ("accepted", Verdict(1000, 0, TCP_ACK));
    EXPECT_EQ(100U, m_Pcb.snd_wnd_max);
    m_Pcb.state = SYN_RCVD;
    m_Pcb.snd_wnd_max = 0;
    m_dwAck = 7001;
    EXPECT_EQ("accepted", Verdict(1000, 0, TCP_ACK));
    EXPECT_EQ(0U, m_Pcb.snd_wnd_max);
}

TEST_F(CIPSegmentHookTest, ShutdownReceiver_BareAckAtZeroWindow_InactivityTimerRunsOn)
{
    m_Pcb.rcv_wnd = 0;
    m_Pcb.flags = TF_RXCLOSED;
    m_Pcb.tmr = tcp_ticks - 100;
    EXPECT_EQ("segment.zero_window_ack", Verdict(1000, 0, TCP_ACK));
    EXPECT_EQ(tcp_ticks - 100, m_Pcb.tmr);
}

}  // namespace
