#include "platform/ipstack/CIPTcpBacklog.h"

#include <gtest/gtest.h>

#include "InputBatchTest.h"
#include "platform/ipstack/CIPCounters.h"

namespace
{

using namespace packetmaker;
using inputbatch::Input;
using ipstack::CIPCounters;
using ipstack::CIPTcpBacklog;

constexpr std::uint16_t s_wListening = 4000;

// A listener on a link's address.
class CIPTcpBacklogTest : public inputbatch::InputBatchTest
{
protected:
    CIPTcpBacklogTest() : m_nListener(ps_socket(PS_AF_INET, PS_SOCK_STREAM, 0))
    {
        ps_sockaddr_in address{};
        address.sin_len = sizeof(address);
        address.sin_family = PS_AF_INET;
        address.sin_port = 0xA00F;  // 4000 in network order
        EXPECT_EQ(0, ps_bind(m_nListener, reinterpret_cast<const ps_sockaddr*>(&address), sizeof(address)));
        EXPECT_EQ(0, ps_listen(m_nListener, 16));
    }
    ~CIPTcpBacklogTest() override { ps_close(m_nListener); }

    void Ask(std::uint16_t port, std::uint8_t flags = Syn, std::uint32_t ack = 0)
    {
        const CHeader4 header{"10.8.0.9", "10.8.0.1", 6};
        CTcp tcp;
        tcp.m_wSource = port;
        tcp.m_wDestination = s_wListening;
        tcp.m_dwSequence = flags == Syn ? 1000 : 1001;
        tcp.m_dwAck = ack;
        tcp.m_bFlags = flags;
        EXPECT_EQ(0u, Input(m_pLinkA, Make4(header, Tcp4(header, tcp))));
    }

    // What acknowledges an answer to a request.
    static std::uint32_t NextOf(const CPacket& answer)
    {
        return (std::uint32_t{answer[24]} << 24 | std::uint32_t{answer[25]} << 16 | std::uint32_t{answer[26]} << 8 |
                std::uint32_t{answer[27]}) +
               1;
    }

    static std::uint64_t Dropped() { return CIPCounters::Get(CIPCounters::TcpHalfOpenDropped); }

    int m_nListener;
};

TEST_F(CIPTcpBacklogTest, MostHalfOpen_OneMore_OldestGivesWaySilently)
{
    for (unsigned int i = 0; i < CIPTcpBacklog::s_dwMostHalfOpen; ++i) {
        Ask(static_cast<std::uint16_t>(20000 + i));
    }
    EXPECT_EQ(0u, Dropped());
    const std::uint64_t held = socketsupport::GetCounter("lwip.used.tcp_pcb");
    const std::size_t sent = m_BelowA.m_Sent.size();
    Ask(10000);
    EXPECT_EQ(1u, Dropped());
    EXPECT_EQ(sent + 1, m_BelowA.m_Sent.size()) << "the answer to the new request and nothing else";
    EXPECT_EQ(held, socketsupport::GetCounter("lwip.used.tcp_pcb"));

    // The first is unknown now, the second is not.
    Ask(20000, Ack, 1);
    EXPECT_EQ(Rst, m_BelowA.m_Sent.back()[33] & Rst);
    const std::uint64_t wrong = CIPCounters::Get(CIPCounters::SegmentBadAck);
    Ask(20001, Ack, 1);
    EXPECT_EQ(wrong + 1, CIPCounters::Get(CIPCounters::SegmentBadAck));
}

TEST_F(CIPTcpBacklogTest, GaveWayInABurst_LastStepInTheSameBurst_AcceptedAllTheSame)
{
    Ask(19999);
    const std::uint32_t next = NextOf(m_BelowA.m_Sent.back());
    for (unsigned int i = 1; i < CIPTcpBacklog::s_dwMostHalfOpen; ++i) {
        Ask(static_cast<std::uint16_t>(20000 + i));
    }
    {
        mantle::CMNBurst burst;
        Ask(10000);
        Ask(19999, Ack, next);
    }
    EXPECT_EQ(1u, Dropped());
    EXPECT_GT(ps_accept(m_nListener, nullptr, nullptr), 0);
}

TEST_F(CIPTcpBacklogTest, ListenerClosedWithHalfOpenOnes_LastStep_ResetAndNothingLeft)
{
    const std::uint64_t before = socketsupport::GetCounter("lwip.used.tcp_pcb");
    for (std::uint16_t i = 0; i < 10; ++i) {
        Ask(static_cast<std::uint16_t>(20000 + i));
    }
    EXPECT_EQ(before + 10, socketsupport::GetCounter("lwip.used.tcp_pcb"));
    EXPECT_EQ(0, ps_close(m_nListener));
    for (std::size_t i = 0; i < 10; ++i) {
        Ask(static_cast<std::uint16_t>(20000 + i), Ack, NextOf(m_BelowA.m_Sent[i]));
        EXPECT_EQ(Rst, m_BelowA.m_Sent.back()[33] & Rst);
    }
    EXPECT_EQ(before, socketsupport::GetCounter("lwip.used.tcp_pcb"));
}

}  // namespace
