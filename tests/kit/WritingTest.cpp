// What a write takes: streams, small records, gathered pieces, datagrams.
#include <algorithm>
#include <thread>

#include "KitLink.h"

using namespace kit;

namespace
{

constexpr std::size_t s_dwRecord = 16;      // taken whole or not at all
constexpr std::size_t s_dwUdpMost = 65507;  // 65535 less the IPv4 and UDP headers

std::vector<ps_iovec> Pieces(CBytes& bytes, std::size_t pieceLength)
{
    std::vector<ps_iovec> pieces;
    for (std::size_t at = 0; at < bytes.size(); at += pieceLength) {
        const std::size_t length = std::min(pieceLength, bytes.size() - at);
        pieces.push_back({bytes.data() + at, length});
    }
    return pieces;
}

long Gathered(int handle, const std::vector<ps_iovec>& pieces)
{
    return ps_writev(handle, pieces.data(), pieces.size());
}

}  // namespace

TEST(Writing, NobodyReads_NonBlocking_CountThenZero)
{
    CPair pair = Connected();
    const std::size_t taken = Fill(pair.m_Client.Get(), 4000);
    EXPECT_GT(taken, 0U);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(0, SendPattern(pair.m_Client.Get(), taken, 4000));
    }
    EXPECT_EQ(0, Look(pair.m_Client.Get(), PS_POLLOUT));
    EXPECT_EQ(0, ps_is_socket_errno(pair.m_Client.Get()));
    EXPECT_TRUE(ReceivePattern(pair.m_Server.Get(), 0, 40000));
    EXPECT_EQ(PS_POLLOUT, WaitFor(pair.m_Client.Get(), PS_POLLOUT));  // room again, though more is still to go
    EXPECT_TRUE(ReceivePattern(pair.m_Server.Get(), 40000, taken - 40000));
    EXPECT_EQ(PS_POLLOUT, WaitFor(pair.m_Client.Get(), PS_POLLOUT));
    EXPECT_GT(SendPattern(pair.m_Client.Get(), taken, 4000), 0);
}

TEST(Writing, OutputReported_SmallWrite_AlwaysTaken)
{
    CPair pair = Connected();
    std::size_t sent = Fill(pair.m_Client.Get(), 999);
    std::size_t received = 0;
    for (int round = 0; round < 500; ++round) {
        EXPECT_TRUE(ReceivePattern(pair.m_Server.Get(), received, 777));
        received += 777;
        while (Look(pair.m_Client.Get(), PS_POLLOUT) == PS_POLLOUT) {
            ASSERT_EQ(16, SendPattern(pair.m_Client.Get(), sent, s_dwRecord)) << "reported ready, round " << round;
            sent += s_dwRecord;
        }
    }
    EXPECT_TRUE(ReceivePattern(pair.m_Server.Get(), received, sent - received));
}

TEST(Writing, SmallRecordInPieces_AlmostFull_WholeOrNothing)
{
    CPair pair = Connected();
    CBytes record = Pattern(0, s_dwRecord);
    const std::vector<ps_iovec> pieces = Pieces(record, 1);
    EXPECT_EQ(16U, pieces.size());
    std::size_t filled = Fill(pair.m_Client.Get(), 1001);
    CBytes room(1001);
    std::size_t records = 0;
    for (std::size_t round = 0; round < 600; ++round) {
        const long taken = Gathered(pair.m_Client.Get(), pieces);
        ASSERT_TRUE(taken == 0 || taken == 16) << taken;
        records += taken == 16 ? 1 : 0;
        if (filled > 0) {
            const long got =
                ps_recv(pair.m_Server.Get(), room.data(), std::min<std::size_t>(filled, round % 29 + 1), 0);
            ASSERT_GT(got, 0);
            filled -= static_cast<std::size_t>(got);
        }
    }
    EXPECT_EQ(filled, ReceiveBytes(pair.m_Server.Get(), filled).size());
    for (std::size_t i = 0; i < records; ++i) {
        ASSERT_EQ(record, ReceiveBytes(pair.m_Server.Get(), s_dwRecord)) << "record " << i << " of " << records;
    }
}

TEST(Writing, ManyPieces_Gathered_OneWriteInOrder)
{
    CPair pair = Connected();
    CBytes bytes = Pattern(0, 3 * PS_IOV_MAX);
    EXPECT_EQ(3 * PS_IOV_MAX, Gathered(pair.m_Client.Get(), Pieces(bytes, 3)));
    EXPECT_TRUE(ReceivePattern(pair.m_Server.Get(), 0, bytes.size()));
}

TEST(Writing, OnePieceTooMany_Gathered_RefusedAndNothingSent)
{
    CPair pair = Connected();
    CBytes bytes = Pattern(0, PS_IOV_MAX + 1);
    KIT_EXPECT_ERROR(PS_EINVAL, Gathered(pair.m_Client.Get(), Pieces(bytes, 1)));
    EXPECT_EQ(0, Waiting(pair.m_Server.Get()));
}

TEST(Writing, EmptyPieces_Gathered_PassedOver)
{
    CPair pair = Connected();
    char ab[] = "ab";
    const ps_iovec pieces[5] = {{nullptr, 0}, {ab, 1}, {ab, 0}, {ab + 1, 1}, {nullptr, 0}};
    EXPECT_EQ(2, ps_writev(pair.m_Client.Get(), pieces, 5));
    EXPECT_EQ((CBytes{'a', 'b'}), ReceiveBytes(pair.m_Server.Get(), 2));
    EXPECT_EQ(0, ps_writev(pair.m_Client.Get(), pieces, 0));
    EXPECT_EQ(0, Waiting(pair.m_Server.Get()));
}

TEST(Writing, NobodyReads_Gathered_CountThenZero)
{
    CPair pair = Connected();
    CBytes bytes = Pattern(0, 50000);
    const std::vector<ps_iovec> pieces = Pieces(bytes, 50);
    std::size_t total = 0;
    long taken = 0;
    CBytes expected;
    while ((taken = Gathered(pair.m_Client.Get(), pieces)) > 0) {
        total += static_cast<std::size_t>(taken);
        expected.insert(expected.end(), bytes.begin(), bytes.begin() + taken);
    }
    EXPECT_EQ(0, taken);
    EXPECT_EQ(expected, ReceiveBytes(pair.m_Server.Get(), total));
}

TEST(Writing, DatagramInPieces_Gathered_OneDatagram)
{
    const CSocket udp = BoundUdp();
    EXPECT_EQ(0, Connect(udp.Get(), LocalAddress(udp.Get())));
    CBytes bytes = Pattern(0, 2000);
    EXPECT_EQ(2000, Gathered(udp.Get(), Pieces(bytes, 7)));
    EXPECT_EQ(bytes, ReceiveDatagram(udp.Get()));
}

TEST(Writing, Longer_ThanSixteenBitLengths_NeverMisread)
{
    for (const std::size_t length : {65535U, 65536U, 65537U, 65536U + 16U, 131072U + 3U, 300000U}) {
        CPair pair = Connected();
        EXPECT_EQ(0, ps_set_snd_rcv_buffer(pair.m_Client.Get(), 524288, 524288));
        const long taken = SendPattern(pair.m_Client.Get(), 0, length);
        ASSERT_GT(taken, 60000) << length;
        ASSERT_LE(taken, static_cast<long>(length));
        EXPECT_TRUE(ReceivePattern(pair.m_Server.Get(), 0, static_cast<std::size_t>(taken))) << length;
        EXPECT_EQ(0, Waiting(pair.m_Server.Get())) << length;
    }
}

TEST(Writing, OnePieceLonger_ThanSixteenBitLengths_NeverMisread)
{
    CPair pair = Connected();
    EXPECT_EQ(0, ps_set_snd_rcv_buffer(pair.m_Client.Get(), 524288, 524288));
    CBytes bytes = Pattern(0, 200011);
    const ps_iovec pieces[3] = {{bytes.data(), 5}, {bytes.data() + 5, 131080}, {bytes.data() + 131085, 68926}};
    const long taken = ps_writev(pair.m_Client.Get(), pieces, 3);
    ASSERT_GT(taken, 60000);
    EXPECT_TRUE(ReceivePattern(pair.m_Server.Get(), 0, static_cast<std::size_t>(taken)));
}

TEST(Writing, Blocking_NoRoom_CallWaitsUntilAllIsTaken)
{
    constexpr std::size_t total = 1000003;
    CPair pair = Connected();
    EXPECT_EQ(0, ps_fcntl(pair.m_Client.Get(), PS_F_SETFL, 0));
    std::thread writer([&] {
        std::size_t sent = 0;
        while (sent < total) {
            const long taken = SendPattern(pair.m_Client.Get(), sent, total - sent);
            ASSERT_GT(taken, 0);
            sent += static_cast<std::size_t>(taken);
        }
    });
    EXPECT_TRUE(ReceivePattern(pair.m_Server.Get(), 0, total));
    writer.join();
}

TEST(Writing, PeerReset_Write_ConnectionReset)
{
    CPair pair = Connected();
    pair.m_Server.CloseByReset();
    EXPECT_NE(0, WaitFor(pair.m_Client.Get(), 0) & PS_POLLERR);
    KIT_EXPECT_ERROR(PS_ECONNRESET, ps_send(pair.m_Client.Get(), "x", 1, 0));
}

TEST(Writing, OwnSideShut_Write_BrokenPipe)
{
    CPair pair = Connected();
    EXPECT_EQ(0, ps_shutdown(pair.m_Client.Get(), PS_SHUT_WR));
    KIT_EXPECT_ERROR(PS_EPIPE, ps_send(pair.m_Client.Get(), "x", 1, 0));
    EXPECT_EQ(3, ps_send(pair.m_Server.Get(), "abc", 3, 0));
    EXPECT_EQ(3U, ReceiveBytes(pair.m_Client.Get(), 3).size());
}

TEST(Writing, PeerClosedInOrder_Writes_FailInTheEnd)
{
    CPair pair = Connected();
    EXPECT_EQ(0, pair.m_Server.Close());
    long sent = 1;
    for (int i = 0; i < 1000 && sent > 0; ++i) {
        sent = ps_send(pair.m_Client.Get(), "x", 1, 0);
    }
    EXPECT_EQ(-1, sent);
    EXPECT_NE(0, WaitFor(pair.m_Client.Get(), PS_POLLIN) & (PS_POLLIN | PS_POLLERR));
}

TEST(Writing, LongestDatagram_Sent_ArrivesWhole)
{
    const CSocket udp = BoundUdp();
    EXPECT_EQ(static_cast<long>(s_dwUdpMost), SendTo(udp.Get(), Pattern(0, s_dwUdpMost), LocalAddress(udp.Get())));
    EXPECT_EQ(Pattern(0, s_dwUdpMost), ReceiveDatagram(udp.Get()));
}

TEST(Writing, LongestDatagram_OverAWire_ArrivesWhole)
{
    CWire wire;
    const CSocket a = BoundUdp(CWire::EndA());
    const CSocket b = BoundUdp(CWire::EndB());
    EXPECT_EQ(static_cast<long>(s_dwUdpMost), SendTo(a.Get(), Pattern(0, s_dwUdpMost), LocalAddress(b.Get())));
    EXPECT_EQ(Pattern(0, s_dwUdpMost), ReceiveDatagram(b.Get()));
}

TEST(Writing, DatagramTooLong_Sent_MessageTooLong)
{
    const CSocket udp = BoundUdp();
    const CAddress own = LocalAddress(udp.Get());
    for (const std::size_t length :
         {s_dwUdpMost + 1, std::size_t{65535}, std::size_t{65536}, std::size_t{65540}, std::size_t{131072 + 10}}) {
        KIT_EXPECT_ERROR(PS_EMSGSIZE, SendTo(udp.Get(), CBytes(length), own));
    }
    EXPECT_EQ(0, Connect(udp.Get(), own));
    CBytes bytes(s_dwUdpMost + 1);
    KIT_EXPECT_ERROR(PS_EMSGSIZE, ps_send(udp.Get(), bytes.data(), bytes.size(), 0));
    KIT_EXPECT_ERROR(PS_EMSGSIZE, Gathered(udp.Get(), Pieces(bytes, 100)));
    EXPECT_EQ(0, Look(udp.Get(), PS_POLLIN));
    EXPECT_EQ(0, ps_is_socket_errno(udp.Get()));
}

TEST(Writing, RawMessageTooLong_Sent_MessageTooLong)
{
    const CSocket raw = Raw(253);
    constexpr std::size_t most = 65515;  // 65535 less the IPv4 header
    EXPECT_EQ(static_cast<long>(most), SendTo(raw.Get(), CBytes(most), CAddress::Loopback()));
    KIT_EXPECT_ERROR(PS_EMSGSIZE, SendTo(raw.Get(), CBytes(most + 1), CAddress::Loopback()));
    KIT_EXPECT_ERROR(PS_EMSGSIZE, SendTo(raw.Get(), CBytes(65536 + 100), CAddress::Loopback()));
}

TEST(Writing, NoDestination_Datagram_DestinationRequired)
{
    const CSocket udp = BoundUdp();
    KIT_EXPECT_ERROR(PS_EDESTADDRREQ, ps_send(udp.Get(), "x", 1, 0));
}

TEST(Writing, NoRoute_Datagram_NetworkUnreachable)
{
    const CSocket udp = Udp();
    KIT_EXPECT_ERROR(PS_ENETUNREACH, SendTo(udp.Get(), CBytes(1), CAddress::V4(203, 0, 113, 1, 9)));
}
