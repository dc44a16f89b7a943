#include "platform/ipstack/CIPStreamQueue.h"

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "platform/ipstack/CIPCore.h"

namespace
{

using ipstack::CIPStreamQueue;

pbuf* Packet(const std::string& bytes)
{
    pbuf* packet = pbuf_alloc(PBUF_RAW, static_cast<u16_t>(bytes.size()), PBUF_RAM);
    std::memcpy(packet->payload, bytes.data(), bytes.size());
    return packet;
}

std::string Bytes(std::size_t length, std::size_t offset = 0)
{
    std::string bytes(length, 0);
    for (std::size_t i = 0; i < length; ++i) {
        bytes[i] = static_cast<char>((offset + i) * 13 + (offset + i) / 256);
    }
    return bytes;
}

std::string Read(CIPStreamQueue& queue, std::size_t room, bool peek = false)
{
    std::string bytes(room, 0);
    pbuf* used = nullptr;
    bytes.resize(queue.Read(&bytes[0], room, peek, used));
    CIPStreamQueue::FreeUsed(used);
    return bytes;
}

}  // namespace

TEST(CIPStreamQueue, SegmentsOfManySizes_ReadAcrossTheirBorders_SameBytes)
{
    const ipstack::CIPCoreGuard guard;
    CIPStreamQueue queue;
    std::size_t total = 0;
    for (const std::size_t size : {600U, 1U, 511U, 512U, 5U, 3999U, 1460U, 16U, 16U, 4000U, 100U, 8000U}) {
        EXPECT_TRUE(queue.Append(Packet(Bytes(size, total))));
        total += size;
    }
    EXPECT_EQ(total, queue.GetSize());
    std::size_t done = 0;
    for (std::size_t room = 1; done < total; room = room * 3 + 1) {
        const std::string part = Read(queue, room);
        EXPECT_EQ(Bytes(std::min(room, total - done), done), part);
        done += part.size();
        EXPECT_EQ(total - done, queue.GetSize());
    }
    EXPECT_EQ("", Read(queue, 10));
}

TEST(CIPStreamQueue, Peek_BytesStay)
{
    const ipstack::CIPCoreGuard guard;
    CIPStreamQueue queue;
    queue.Append(Packet("abcdef"));
    queue.Append(Packet("ghi"));
    EXPECT_EQ("abcdefgh", Read(queue, 8, true));
    EXPECT_EQ(9U, queue.GetSize());
    EXPECT_EQ("abc", Read(queue, 3));
    EXPECT_EQ("defghi", Read(queue, 99, true));
    EXPECT_EQ("defghi", Read(queue, 99));
}

TEST(CIPStreamQueue, SingleBytes_Queued_CostLittleMoreThanThemselves)
{
    const ipstack::CIPCoreGuard guard;
    CIPStreamQueue queue;
    for (std::size_t i = 0; i < 65535; ++i) {
        ASSERT_TRUE(queue.Append(Packet(Bytes(1, i))));
    }
    EXPECT_EQ(65535U, queue.GetSize());
    EXPECT_LT(queue.GetFootprint(), 80000U);
    EXPECT_EQ(Bytes(65535), Read(queue, 70000));
}

TEST(CIPStreamQueue, MoreThan64K_Queued_TotalRight)
{
    const ipstack::CIPCoreGuard guard;
    CIPStreamQueue queue;
    for (std::size_t i = 0; i < 20; ++i) {
        ASSERT_TRUE(queue.Append(Packet(Bytes(60000, i * 60000))));
    }
    EXPECT_EQ(1200000U, queue.GetSize());
    EXPECT_EQ(Bytes(1200000), Read(queue, 2000000));
}

TEST(CIPStreamQueue, ChainsAndSharedBuffers_Appended_CopiedFlat)
{
    const ipstack::CIPCoreGuard guard;
    CIPStreamQueue queue;
    pbuf* chain = Packet(Bytes(700));
    pbuf_cat(chain, Packet(Bytes(900, 700)));
    EXPECT_TRUE(queue.Append(chain));
    pbuf* shared = Packet(Bytes(600, 1600));
    pbuf_ref(shared);
    EXPECT_TRUE(queue.Append(shared));
    std::memset(shared->payload, 0, 600);
    pbuf_free(shared);
    EXPECT_EQ(Bytes(2200), Read(queue, 5000));
}

TEST(CIPStreamQueue, SmallBehindAPartlyReadBlock_Appended_InOrder)
{
    const ipstack::CIPCoreGuard guard;
    CIPStreamQueue queue;
    std::size_t written = 0;
    std::size_t read = 0;
    for (int i = 0; i < 5000; ++i) {
        queue.Append(Packet(Bytes(40, written)));
        written += 40;
        if (i % 3 != 0) {
            const std::string part = Read(queue, 55);
            ASSERT_EQ(Bytes(part.size(), read), part);
            read += part.size();
        }
    }
    EXPECT_EQ(Bytes(written - read, read), Read(queue, written));
}

TEST(CIPStreamQueue, EmptyPacket_Appended_Nothing)
{
    const ipstack::CIPCoreGuard guard;
    CIPStreamQueue queue;
    EXPECT_TRUE(queue.Append(Packet("")));
    EXPECT_EQ(0U, queue.GetSize());
}
