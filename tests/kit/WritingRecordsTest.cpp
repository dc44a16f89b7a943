// Small records: taken whole or not at all, and readable in one piece.
#include <algorithm>
#include <thread>

#include "KitLink.h"
#include "mantle/CMNClock.h"

using namespace kit;

namespace
{

constexpr std::size_t s_dwRecord = 16;  // taken whole or not at all

// Reads at most one record, waiting for it.
long ReadRecord(int handle, unsigned char* room, std::size_t size)
{
    long got = 0;
    while ((got = ps_recv(handle, room, size, 0)) == 0 && WaitFor(handle, PS_POLLIN) != 0) {
    }
    return got;
}

}  // namespace

TEST(Writing, AlmostFull_SmallWrites_WholeOrNothing)
{
    CPair pair = Connected();
    std::size_t sent = Fill(pair.m_Client.Get(), 1000);
    std::size_t received = 0;
    for (std::size_t round = 0; round < 3000; ++round) {
        const std::size_t size = round * 7 % s_dwRecord + 1;
        const long taken = SendPattern(pair.m_Client.Get(), sent, size);
        ASSERT_TRUE(taken == 0 || taken == static_cast<long>(size)) << taken << " of " << size;
        sent += static_cast<std::size_t>(taken);
        const std::size_t reads = std::min<std::size_t>(round * 13 % 41, sent - received);
        ASSERT_TRUE(ReceivePattern(pair.m_Server.Get(), received, reads));
        received += reads;
    }
    EXPECT_TRUE(ReceivePattern(pair.m_Server.Get(), received, sent - received));
}

TEST(Writing, FilledWithRecords_ReadOneByOne_EachInOnePiece)
{
    CPair pair = Connected();
    std::size_t sent = Fill(pair.m_Client.Get(), s_dwRecord);
    EXPECT_EQ(0U, sent % s_dwRecord);
    std::size_t received = 0;
    unsigned char room[s_dwRecord];
    while (received < 4 * 65536) {
        const long got = ReadRecord(pair.m_Server.Get(), room, sizeof(room));
        ASSERT_EQ(16, got) << "after " << received << " of " << sent;
        ASSERT_EQ(Pattern(received, s_dwRecord), CBytes(room, room + s_dwRecord));
        received += s_dwRecord;
        sent += Fill(pair.m_Client.Get(), s_dwRecord, sent);
    }
}

TEST(Writing, FilledWithRecords_TimePasses_EachStillInOnePiece)
{
    // A probe of the full window must not cut a record in two.
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    CPair pair = Connected();
    std::size_t sent = Fill(pair.m_Client.Get(), s_dwRecord);
    std::size_t received = 0;
    for (int round = 0; round < 8; ++round) {
        PassStackTime(30000);
        EXPECT_EQ(0U, static_cast<std::size_t>(Waiting(pair.m_Server.Get())) % s_dwRecord) << "round " << round;
        for (int i = 0; i < 1500; ++i) {
            unsigned char room[s_dwRecord];
            ASSERT_EQ(16, ReadRecord(pair.m_Server.Get(), room, sizeof(room))) << "after " << received;
            ASSERT_EQ(Pattern(received, s_dwRecord), CBytes(room, room + s_dwRecord));
            received += s_dwRecord;
        }
        sent += Fill(pair.m_Client.Get(), s_dwRecord, sent);
    }
    EXPECT_TRUE(ReceivePattern(pair.m_Server.Get(), received, sent - received));
}

TEST(Writing, RecordsOfManySizes_ReadOneByOne_EachInOnePiece)
{
    CPair pair = Connected();
    std::vector<std::size_t> sizes;  // of what was taken and not read
    std::size_t next = 0;
    std::size_t sent = 0;
    std::size_t received = 0;
    for (std::size_t records = 0; records < 60000; ++records) {
        for (;;) {
            const std::size_t size = (sizes.size() * 5 + 3) % s_dwRecord + 1;
            const long taken = SendPattern(pair.m_Client.Get(), sent, size);
            ASSERT_TRUE(taken == 0 || taken == static_cast<long>(size)) << taken << " of " << size;
            if (taken == 0) {
                break;
            }
            sizes.push_back(size);
            sent += size;
        }
        ASSERT_LT(next, sizes.size());
        unsigned char room[s_dwRecord];
        const long got = ReadRecord(pair.m_Server.Get(), room, sizes[next]);
        ASSERT_EQ(static_cast<long>(sizes[next]), got) << "record " << next << ", after " << received << " bytes";
        ASSERT_EQ(Pattern(received, sizes[next]), CBytes(room, room + sizes[next]));
        received += sizes[next++];
    }
}

TEST(Writing, RecordsOfManySizes_TimePasses_EachStillInOnePiece)
{
    // The peer's window ends inside a record; a probe of it must not carry a part.
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    for (std::size_t lead = 1; lead <= s_dwRecord; ++lead) {
        CPair pair = Connected();
        EXPECT_EQ(static_cast<long>(lead), SendPattern(pair.m_Client.Get(), 0, lead));
        const std::size_t sent = Fill(pair.m_Client.Get(), s_dwRecord, lead);
        PassStackTime(30000);
        EXPECT_EQ(0U, (static_cast<std::size_t>(Waiting(pair.m_Server.Get())) - lead) % s_dwRecord) << "lead " << lead;
        EXPECT_TRUE(ReceivePattern(pair.m_Server.Get(), 0, lead));
        for (std::size_t received = 0; received < sent; received += s_dwRecord) {
            unsigned char room[s_dwRecord];
            ASSERT_EQ(16, ReadRecord(pair.m_Server.Get(), room, sizeof(room)))
                << "lead " << lead << ", after " << received;
        }
    }
}

TEST(Writing, RecordsFromAnotherThread_ReadOneByOne_EachInOnePiece)
{
    constexpr std::size_t records = 30000;
    CPair pair = Connected();
    std::thread writer([&] {
        for (std::size_t i = 0; i < records; ++i) {
            long taken = 0;
            while ((taken = SendPattern(pair.m_Client.Get(), i * s_dwRecord, s_dwRecord)) == 0) {
                if (WaitFor(pair.m_Client.Get(), PS_POLLOUT) == 0) {
                    break;
                }
            }
            ASSERT_EQ(16, taken);
        }
    });
    for (std::size_t i = 0; i < records; ++i) {
        unsigned char room[s_dwRecord];
        const long got = ReadRecord(pair.m_Server.Get(), room, sizeof(room));
        EXPECT_EQ(16, got) << "record " << i;
        if (got != 16) {
            pair.m_Server.Close();  // ends the writer too
            break;
        }
        EXPECT_EQ(Pattern(i * s_dwRecord, s_dwRecord), CBytes(room, room + s_dwRecord));
    }
    writer.join();
}

TEST(Writing, RecordsOverALossyWire_SegmentsOfOddLength_EachInOnePiece)
{
    // 536 bytes a segment: no whole number of records fits, and the segment behind may be lost.
    mantle::CMNManualClock clock;
    const mantle::CMNClockParticipant participant;
    CWire wire(ipstack::CIPStackWireSettings(), 576);
    CPair pair = wire.Connect();
    ipstack::CIPStackWireSettings settings;
    settings.m_dwLossPerMille = 100;
    wire.m_Wire.SetSettings(settings);
    std::size_t sent = Fill(pair.m_Client.Get(), s_dwRecord);
    for (std::size_t received = 0; received < 4 * 65536; received += s_dwRecord) {
        unsigned char room[s_dwRecord];
        ASSERT_EQ(16, ReadRecord(pair.m_Server.Get(), room, sizeof(room))) << "after " << received;
        ASSERT_EQ(Pattern(received, s_dwRecord), CBytes(room, room + s_dwRecord));
        sent += Fill(pair.m_Client.Get(), s_dwRecord, sent);
    }
    EXPECT_GT(wire.m_Wire.GetLost(), 20U);
}

TEST(Writing, BlockingRecord_NoRoom_WaitsAndIsTakenWhole)
{
    CPair pair = Connected();
    const std::size_t sent = Fill(pair.m_Client.Get(), s_dwRecord);
    EXPECT_EQ(0, ps_fcntl(pair.m_Client.Get(), PS_F_SETFL, 0));
    std::thread writer([&] {
        for (std::size_t i = 0; i < 1000; ++i) {
            ASSERT_EQ(16, SendPattern(pair.m_Client.Get(), sent + i * s_dwRecord, s_dwRecord));
        }
    });
    EXPECT_TRUE(ReceivePattern(pair.m_Server.Get(), 0, sent + 1000 * s_dwRecord));
    writer.join();
}
