// What strangers can make the stack answer without a connection, and how often.
#include "KitLink.h"
#include "KitPackets.h"
#include "mantle/CMNClock.h"

using namespace kit;

namespace
{

constexpr unsigned int s_dwMany = 20000;

const CAddress s_Own = CAddress::V4(10, 9, 0, 1, 4000);
const std::uint8_t s_Own6Bytes[16] = {0xFD, 9, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
const std::uint8_t s_Peer6Bytes[16] = {0xFD, 9, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2};
const CAddress s_Own6 = CAddress::V6(s_Own6Bytes, 4000);
const CAddress s_Peer6 = CAddress::V6(s_Peer6Bytes, 4001);

CAddress Stranger(unsigned int number)
{
    return CAddress::V4(10, 9, 1 + number / 250, 1 + number % 250, 20000);
}

// A link in a net of 65 534 strangers, time standing still.
class AnswerLimits : public testing::Test
{
protected:
    // Packets in and their answers out again, in steps that the link's queue holds.
    template <typename TMake>
    std::size_t Answers(unsigned int count, TMake make)
    {
        std::size_t answers = 0;
        for (unsigned int i = 0; i < count; ++i) {
            m_Link.Inject(make(i));
            if (i % 1000 == 999) {
                answers += m_Link.TakeAll().size();
            }
        }
        return answers + m_Link.TakeAll().size();
    }

    mantle::CMNManualClock m_Clock;
    const mantle::CMNClockParticipant m_Participant;
    CLink m_Link{"10.9.0.1", "fd09::1", 1400, "255.255.0.0"};
};

}  // namespace

TEST_F(AnswerLimits, ClosedPort_SegmentsFromOnePeer_ResetsLimited)
{
    const auto segment = [](unsigned int i) { return TcpPacket(Stranger(0), s_Own, s_cTcpAck, i, i); };
    const std::size_t first = Answers(s_dwMany, segment);
    EXPECT_GE(first, 100U);
    EXPECT_LT(first, s_dwMany / 10);
    EXPECT_EQ(1U, Answers(1, [](unsigned int i) { return TcpPacket(Stranger(1), s_Own, s_cTcpAck, i, i); }))
        << "others are answered";
    PassStackTime(1000);
    EXPECT_EQ(first, Answers(s_dwMany, segment));
}

TEST_F(AnswerLimits, ClosedPort_SegmentsFromManyPeers_ResetsLimitedInAll)
{
    const auto segment = [](unsigned int i) { return TcpPacket(Stranger(i), s_Own, s_cTcpSyn, i, 0); };
    const std::size_t first = Answers(s_dwMany, segment);
    EXPECT_GE(first, 1000U);
    EXPECT_LT(first, s_dwMany / 2);
    PassStackTime(1000);
    EXPECT_GE(Answers(s_dwMany, segment), 1000U);
}

TEST_F(AnswerLimits, ListenerItself_BareAcknowledgements_ResetsLimited)
{
    const CSocket listener = Listener(s_Own);
    EXPECT_LT(Answers(s_dwMany, [](unsigned int i) { return TcpPacket(Stranger(0), s_Own, s_cTcpAck, i, i); }),
              s_dwMany / 10);
}

TEST_F(AnswerLimits, ClosedUdpPort_Datagrams_ErrorsLimited)
{
    EXPECT_LT(Answers(s_dwMany, [](unsigned int) { return UdpPacket(Stranger(0), s_Own, CBytes(4)); }), 200U);
    EXPECT_LT(Answers(s_dwMany, [](unsigned int i) { return UdpPacket(Stranger(i), s_Own, CBytes(4)); }), 2000U);
    PassStackTime(1000);
    EXPECT_LT(Answers(s_dwMany, [](unsigned int) { return UdpPacket(s_Peer6, s_Own6, CBytes(4)); }), 200U);
    EXPECT_EQ(1U, Answers(1, [](unsigned int) { return UdpPacket(Stranger(0), s_Own, CBytes(4)); }));
}

TEST_F(AnswerLimits, EchoRequests_OnePeerAndMany_RepliesLimited)
{
    EXPECT_LT(Answers(s_dwMany, [](unsigned int i) { return EchoRequest(Stranger(0), s_Own, 1, i); }), s_dwMany / 2);
    EXPECT_EQ(1U, Answers(1, [](unsigned int i) { return EchoRequest(Stranger(1), s_Own, 1, i); }));
    EXPECT_LT(Answers(s_dwMany, [](unsigned int i) { return EchoRequest(Stranger(i), s_Own, 1, i); }),
              s_dwMany * 3 / 4);
    PassStackTime(1000);
    EXPECT_LT(Answers(s_dwMany, [](unsigned int i) { return EchoRequest(s_Peer6, s_Own6, 1, i); }), s_dwMany / 2);
}

// Only what the stack answers by itself is limited: an application's own packets of these kinds are its business.
TEST_F(AnswerLimits, ApplicationSendsEchoReplies_AllLeave)
{
    const CSocket raw = Raw(1);
    std::size_t left = 0;
    for (unsigned int i = 0; i < s_dwMany; ++i) {
        CBytes reply = EchoMessage(s_Own, Stranger(0), 1, i, CBytes());
        reply[0] = 0;
        EXPECT_EQ(static_cast<long>(reply.size()), SendTo(raw.Get(), reply, Stranger(0)));
        left += m_Link.TakeAll().size();
    }
    EXPECT_EQ(s_dwMany, left);
}

TEST_F(AnswerLimits, InsideTheStack_ConnectsToClosedPorts_AllRefusedAtOnce)
{
    for (unsigned int i = 0; i < 7000; ++i) {
        const CSocket client = Tcp();
        EXPECT_EQ(0, Connect(client.Get(), CAddress::Loopback(9)));
        ASSERT_EQ(PS_ECONNREFUSED, ps_is_socket_errno(client.Get())) << i;
    }
}
