#include "platform/ipstack/CIPSegmentCheck.h"

#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "SocketSupport.h"
#include "lwip/priv/tcp_priv.h"
#include "platform/ipstack/CIPCore.h"

namespace
{

using ipstack::CIPCounters;
using ipstack::CIPSegmentCheck;

// RFC 9293's variables under their names there: RCV.NXT 1000, RCV.WND 500, SND.UNA 7000, SND.NXT 7100, the largest window
// 300. There is no way to the peer, so that answers are counted and go nowhere.
class CIPSegmentCheckTest : public testing::Test
{
protected:
    CIPSegmentCheckTest()
    {
        socketsupport::Start();
        m_pGuard = std::make_unique<ipstack::CIPCoreGuard>();
        m_Pcb.state = ESTABLISHED;
        m_Pcb.rcv_nxt = 1000;
        m_Pcb.rcv_wnd = 500;
        m_Pcb.lastack = 7000;
        m_Pcb.snd_nxt = 7100;
        m_Pcb.snd_wnd_max = 300;
    }

    // The verdict, and behind it "+ack" or "+reset" when the segment has been answered.
    std::string Verdict(std::uint32_t sequence, std::uint32_t length, unsigned int flags, std::uint32_t ack = 7000)
    {
        tcp_hdr header{};
        header.seqno = sequence;
        header.ackno = ack;
        header._hdrlen_rsvd_flags = lwip_htons(static_cast<u16_t>(5 << 12 | flags));
        const std::uint64_t acks = CIPCounters::Get(CIPCounters::AnswerAck);
        const std::uint64_t resets = CIPCounters::Get(CIPCounters::AnswerReset);
        const CIPCounters::EId id = CIPSegmentCheck::Check(&m_Pcb, &header, length);
        std::string verdict = id == CIPSegmentCheck::Accepted ? "accepted" : CIPCounters::GetName(id);
        verdict += CIPCounters::Get(CIPCounters::AnswerAck) != acks ? "+ack" : "";
        return verdict + (CIPCounters::Get(CIPCounters::AnswerReset) != resets ? "+reset" : "");
    }

    std::unique_ptr<ipstack::CIPCoreGuard> m_pGuard;
    tcp_pcb m_Pcb{};
};

// RFC 9293, section 3.10.7.4, the table of the first check.

TEST_F(CIPSegmentCheckTest, NoLengthOpenWindow_SequenceInsideOrRightBehind_Accepted)
{
    EXPECT_EQ("segment.unacceptable+ack", Verdict(999, 0, TCP_ACK));
    EXPECT_EQ("accepted", Verdict(1000, 0, TCP_ACK));
    EXPECT_EQ("accepted", Verdict(1499, 0, TCP_ACK));
    EXPECT_EQ("accepted", Verdict(1500, 0, TCP_ACK)) << "where a peer stands that has filled the window";
    EXPECT_EQ("segment.unacceptable+ack", Verdict(1501, 0, TCP_ACK));
    EXPECT_EQ("segment.unacceptable+ack", Verdict(1000 + 0x80000000U, 0, TCP_ACK));
}

TEST_F(CIPSegmentCheckTest, NoLengthShutWindow_NextSequenceOnly_Accepted)
{
    m_Pcb.rcv_wnd = 0;
    EXPECT_EQ("segment.unacceptable+ack", Verdict(999, 0, TCP_ACK));
    EXPECT_EQ("accepted", Verdict(1000, 0, TCP_ACK));
    EXPECT_EQ("segment.unacceptable+ack", Verdict(1001, 0, TCP_ACK));
}

TEST_F(CIPSegmentCheckTest, DataShutWindow_ProbeOnly_Accepted)
{
    m_Pcb.rcv_wnd = 0;
    EXPECT_EQ("accepted", Verdict(1000, 1, TCP_ACK));
    EXPECT_EQ("segment.unacceptable+ack", Verdict(999, 1, TCP_ACK));
    EXPECT_EQ("segment.unacceptable+ack", Verdict(1001, 1, TCP_ACK));
}

TEST_F(CIPSegmentCheckTest, DataOpenWindow_AnyOfItInside_Accepted)
{
    EXPECT_EQ("segment.unacceptable+ack", Verdict(900, 100, TCP_ACK));
    EXPECT_EQ("accepted", Verdict(900, 101, TCP_ACK));
    EXPECT_EQ("accepted", Verdict(1499, 100, TCP_ACK));
    EXPECT_EQ("segment.unacceptable+ack", Verdict(1500, 1, TCP_ACK));
    EXPECT_EQ("segment.unacceptable+ack", Verdict(999, 1, TCP_ACK | TCP_FIN));
}

TEST_F(CIPSegmentCheckTest, NumbersWrapAround_SameRule)
{
    m_Pcb.rcv_nxt = 0xFFFFFF00U;
    m_Pcb.lastack = 0xFFFFFFF0U;
    m_Pcb.snd_nxt = 0x10;
    EXPECT_EQ("accepted", Verdict(0xFFFFFF00U, 300, TCP_ACK, 0x10));
    EXPECT_EQ("accepted", Verdict(0xF4U, 0, TCP_ACK, 0xFFFFFFF0U));
    EXPECT_EQ("segment.unacceptable+ack", Verdict(0xF5U, 0, TCP_ACK, 0xFFFFFFF0U));
    EXPECT_EQ("segment.bad_ack+ack", Verdict(0xFFFFFF00U, 0, TCP_ACK, 0x11));
}

// RFC 5961, section 3.2.
TEST_F(CIPSegmentCheckTest, Reset_ExactElsewhereOutside_TakenChallengedDropped)
{
    EXPECT_EQ("accepted", Verdict(1000, 0, TCP_RST, 0));
    EXPECT_EQ("segment.reset_in_window+ack", Verdict(1001, 0, TCP_RST, 0));
    EXPECT_EQ("segment.reset_in_window+ack", Verdict(1500, 0, TCP_RST | TCP_ACK));
    EXPECT_EQ("segment.unacceptable", Verdict(999, 0, TCP_RST, 0));
    EXPECT_EQ("segment.unacceptable", Verdict(1501, 0, TCP_RST, 0));
}

// RFC 5961, section 4.2.
TEST_F(CIPSegmentCheckTest, Syn_AnySequence_Challenged)
{
    EXPECT_EQ("segment.syn_in_connection+ack", Verdict(1000, 1, TCP_SYN, 0));
    EXPECT_EQ("segment.syn_in_connection+ack", Verdict(1400, 1, TCP_SYN | TCP_ACK));
    EXPECT_EQ("segment.unacceptable+ack", Verdict(999, 1, TCP_SYN, 0));
    EXPECT_EQ("segment.unacceptable+ack", Verdict(900000, 1, TCP_SYN, 0));
}

TEST_F(CIPSegmentCheckTest, NoAckFlag_DroppedWithoutAnswer)
{
    EXPECT_EQ("segment.no_ack", Verdict(1000, 0, 0));
    EXPECT_EQ("segment.no_ack", Verdict(1000, 100, TCP_PSH));
    EXPECT_EQ("segment.no_ack", Verdict(1000, 1, TCP_FIN));
}

// RFC 5961, section 5.2.
TEST_F(CIPSegmentCheckTest, Acknowledgement_FromALargestWindowBackToSndNxt_Accepted)
{
    EXPECT_EQ("segment.bad_ack+ack", Verdict(1000, 10, TCP_ACK, 6699));
    EXPECT_EQ("accepted", Verdict(1000, 10, TCP_ACK, 6700));
    EXPECT_EQ("accepted", Verdict(1000, 10, TCP_ACK, 7100));
    EXPECT_EQ("segment.bad_ack+ack", Verdict(1000, 10, TCP_ACK, 7101));
    EXPECT_EQ("segment.bad_ack+ack", Verdict(1000, 1, TCP_ACK | TCP_FIN, 7101));
}

TEST_F(CIPSegmentCheckTest, EachStateAfterTheHandshake_SameChecks)
{
    for (const tcp_state state : {ESTABLISHED, FIN_WAIT_1, FIN_WAIT_2, CLOSE_WAIT, CLOSING, LAST_ACK}) {
        m_Pcb.state = state;
        EXPECT_EQ("accepted", Verdict(1000, 0, TCP_ACK, 7100)) << state;
        EXPECT_EQ("accepted", Verdict(1000, 0, TCP_RST, 0)) << state;
        EXPECT_EQ("segment.no_ack", Verdict(1000, 1, TCP_FIN)) << state;
        EXPECT_EQ("segment.bad_ack+ack", Verdict(1000, 0, TCP_ACK, 7101)) << state;
        EXPECT_EQ("segment.unacceptable+ack", Verdict(2000, 0, TCP_ACK, 7100)) << state;
    }
}

TEST_F(CIPSegmentCheckTest, SynReceived_EachCheck_AsTheStateHasIt)
{
    m_Pcb.state = SYN_RCVD;
    m_Pcb.snd_nxt = 7001;
    EXPECT_EQ("accepted", Verdict(1000, 0, TCP_ACK, 7001));
    EXPECT_EQ("accepted", Verdict(1000, 10, TCP_ACK, 7001));
    EXPECT_EQ("segment.bad_ack+reset", Verdict(1000, 0, TCP_ACK, 7000));
    EXPECT_EQ("segment.bad_ack+reset", Verdict(1000, 0, TCP_ACK, 7002));
    EXPECT_EQ("segment.no_ack", Verdict(1000, 10, 0, 7001));
    EXPECT_EQ("segment.unacceptable+ack", Verdict(900, 0, TCP_ACK, 7001));
    EXPECT_EQ("accepted+ack", Verdict(999, 1, TCP_SYN, 0)) << "lwIP answers the same request again";
    EXPECT_EQ("segment.unacceptable+ack", Verdict(998, 1, TCP_SYN, 0));
    EXPECT_EQ("segment.syn_in_connection+ack", Verdict(1000, 1, TCP_SYN, 0));
    EXPECT_EQ("accepted", Verdict(1000, 0, TCP_RST, 0));
    EXPECT_EQ("segment.reset_in_window+ack", Verdict(1001, 0, TCP_RST, 0));
    EXPECT_EQ("segment.unacceptable", Verdict(999, 0, TCP_RST, 0));
}

// RFC 9293, section 3.10.7.3.
TEST_F(CIPSegmentCheckTest, SynSent_EachCheck_AsTheStateHasIt)
{
    m_Pcb.state = SYN_SENT;
    m_Pcb.snd_nxt = 7001;
    m_Pcb.nrtx = 1;
    EXPECT_EQ("accepted", Verdict(5, 1, TCP_SYN | TCP_ACK, 7001));
    EXPECT_EQ("accepted", Verdict(5, 0, TCP_RST | TCP_ACK, 7001));
    EXPECT_EQ("segment.bad_ack", Verdict(5, 0, TCP_RST | TCP_ACK, 7002));
    EXPECT_EQ("segment.no_ack", Verdict(5, 0, TCP_RST, 7001));
    EXPECT_EQ("segment.bad_flags", Verdict(5, 0, TCP_ACK, 7001));
    EXPECT_EQ("segment.bad_ack+reset", Verdict(5, 1, TCP_SYN | TCP_ACK, 7000));
    EXPECT_EQ("segment.bad_ack+reset", Verdict(5, 0, TCP_ACK, 9000));
    m_Pcb.nrtx = 0;
    EXPECT_EQ("accepted+reset", Verdict(5, 0, TCP_ACK, 9000)) << "lwIP resets it and asks again at once";
}

TEST_F(CIPSegmentCheckTest, TimeWait_OnlyThePeersEnd_PassesOn)
{
    m_Pcb.state = TIME_WAIT;
    EXPECT_EQ("accepted+ack", Verdict(999, 1, TCP_FIN | TCP_ACK, 7100));
    EXPECT_EQ("accepted+ack", Verdict(990, 10, TCP_FIN | TCP_ACK, 7100));
    EXPECT_EQ("accepted", Verdict(1000, 0, TCP_ACK, 7100)) << "lwIP ignores it";
    EXPECT_EQ("accepted", Verdict(1000, 0, TCP_RST, 0)) << "lwIP ignores it";
    EXPECT_EQ("segment.unacceptable+ack", Verdict(1000, 1, TCP_FIN | TCP_ACK, 7100));
    EXPECT_EQ("segment.unacceptable+ack", Verdict(1000, 10, TCP_ACK, 7100));
    EXPECT_EQ("segment.syn_in_connection+ack", Verdict(1100, 1, TCP_SYN, 0));
    EXPECT_EQ("segment.no_ack", Verdict(999, 1, TCP_FIN, 0));
}

}  // namespace
