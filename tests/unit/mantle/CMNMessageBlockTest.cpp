#include "mantle/CMNMessageBlock.h"

#include <atomic>
#include <cstring>
#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <thread>

#include "MantleTest.h"

namespace mantle
{
namespace
{

constexpr unsigned long s_dwReceive = 65535;  // what a receive makes room for

struct CDestroy
{
    void operator()(CMNMessageBlock* block) const { block->DestroyChained(); }
};
using CBlock = std::unique_ptr<CMNMessageBlock, CDestroy>;

// A block of its own memory with `text` in `size` bytes.
CBlock Make(const std::string& text, unsigned long size = 0)
{
    CBlock block(new CMNMessageBlock(size > text.size() ? size : text.size()));
    EXPECT_EQ(block->Write(text.data(), text.size()), MN_OK);
    return block;
}

CBlock Borrow(const std::string& text)
{
    return CBlock(new CMNMessageBlock(text.size(), text.data(), CMNMessageBlock::DONT_DELETE, text.size()));
}

std::string Text(const CMNMessageBlock& block)
{
    std::string text(block.GetChainedLength(), '\0');
    EXPECT_EQ(block.PeekChained(&text[0], text.size()), text.size());
    return text;
}

TEST(CMNMessageBlockTest, OwnMemory_Made_EmptyWithRoom)
{
    const CMNMessageBlock block(100);
    EXPECT_EQ(block.GetLength(), 0u);
    EXPECT_EQ(block.GetSpace(), 100u);
    EXPECT_EQ(block.GetNext(), nullptr);
    const CMNMessageBlock large(s_dwReceive);
    EXPECT_EQ(large.GetSpace(), s_dwReceive);
    const CMNMessageBlock none(0);
    EXPECT_EQ(none.GetSpace(), 0u);
}

TEST(CMNMessageBlockTest, CallersBuffer_Made_ReadableAsFarAsSaid)
{
    const char text[] = "hello";
    CMNMessageBlock block(5, text, CMNMessageBlock::DONT_DELETE, 3);
    EXPECT_EQ(block.GetReadPtr(), text);
    EXPECT_EQ(block.GetLength(), 3u);
    EXPECT_EQ(block.GetSpace(), 2u);
    CMNMessageBlock whole(5, text, CMNMessageBlock::DONT_DELETE, 99);
    EXPECT_EQ(whole.GetLength(), 5u);
}

TEST(CMNMessageBlockTest, NewBuffer_TakenOver_DeletedWithTheBlock)
{
    char* buffer = new char[6];
    std::memcpy(buffer, "hello", 6);
    CMNMessageBlock block(6, buffer, 0, 5);
    EXPECT_EQ(Text(block), "hello");
    const CBlock copy(block.DuplicateChained());
    EXPECT_EQ(copy->GetReadPtr(), block.GetReadPtr());
}

TEST(CMNMessageBlockTest, Positions_MovedPastTheEnd_RefusedAndUnchanged)
{
    CMNMessageBlock block(10);
    EXPECT_EQ(block.AdvanceWritePtr(11), MN_ERROR_INVALID_ARG);
    EXPECT_EQ(block.AdvanceWritePtr(4), MN_OK);
    EXPECT_EQ(block.AdvanceReadPtr(5), MN_ERROR_INVALID_ARG);
    EXPECT_EQ(block.AdvanceReadPtr(1), MN_OK);
    EXPECT_EQ(block.GetLength(), 3u);
    EXPECT_EQ(block.GetSpace(), 6u);
    EXPECT_EQ(block.AdvanceWritePtr(~0ul), MN_ERROR_INVALID_ARG);
    EXPECT_EQ(block.AdvanceReadPtr(~0ul), MN_ERROR_INVALID_ARG);
    EXPECT_EQ(block.GetLength(), 3u);
}

TEST(CMNMessageBlockTest, NoRoom_Write_RefusedAndUnchanged)
{
    CMNMessageBlock block(4);
    EXPECT_EQ(block.Write("12345", 5), MN_ERROR_INVALID_ARG);
    EXPECT_EQ(block.Write(nullptr, 1), MN_ERROR_INVALID_ARG);
    EXPECT_EQ(block.GetLength(), 0u);
    EXPECT_EQ(block.Write("12", 2), MN_OK);
    EXPECT_EQ(block.Write("34", 2), MN_OK);
    EXPECT_EQ(block.Write(nullptr, 0), MN_OK);
    EXPECT_EQ(Text(block), "1234");
}

TEST(CMNMessageBlockTest, Chain_ReadPositionMoved_BlockByBlockAndStopsAtTheEnd)
{
    const CBlock chain = Make("abc");
    chain->Append(Make("").release());
    chain->Append(Make("defg").release());
    EXPECT_EQ(chain->GetChainedLength(), 7u);
    unsigned long advanced = 99;
    EXPECT_EQ(chain->AdvanceChainedReadPtr(4, &advanced), MN_OK);
    EXPECT_EQ(advanced, 4u);
    EXPECT_EQ(chain->GetLength(), 0u);
    EXPECT_EQ(Text(*chain), "efg");
    EXPECT_EQ(chain->AdvanceChainedReadPtr(10, &advanced), MN_OK);
    EXPECT_EQ(advanced, 3u);
    EXPECT_EQ(chain->GetChainedLength(), 0u);
    EXPECT_EQ(chain->AdvanceChainedReadPtr(1), MN_OK);
}

TEST(CMNMessageBlockTest, Chain_Peeked_NoPositionMoves)
{
    const CBlock chain = Make("abc");
    chain->Append(Make("defg").release());
    char out[8] = "";
    EXPECT_EQ(chain->PeekChained(out, 5), 5u);
    EXPECT_STREQ(out, "abcde");
    EXPECT_EQ(chain->PeekChained(out, 100), 7u);
    EXPECT_EQ(chain->PeekChained(nullptr, 5), 0u);
    EXPECT_EQ(chain->GetChainedLength(), 7u);
}

TEST(CMNMessageBlockTest, ChainWithEmptyBlocks_FillIov_SkipsThem)
{
    const CBlock chain = Make("");
    chain->Append(Make("abc").release());
    chain->Append(Make("").release());
    chain->Append(Make("de").release());
    iovec_ace pieces[4] = {};
    ASSERT_EQ(chain->FillIov(pieces, 4), 2u);
    EXPECT_EQ(std::string(static_cast<char*>(pieces[0].iov_base), pieces[0].iov_len), "abc");
    EXPECT_EQ(std::string(static_cast<char*>(pieces[1].iov_base), pieces[1].iov_len), "de");
    EXPECT_EQ(chain->FillIov(pieces, 1), 1u);
    EXPECT_EQ(chain->FillIov(pieces, 0), 0u);
    EXPECT_EQ(chain->FillIov(nullptr, 4), 0u);
    EXPECT_EQ(Make("")->FillIov(pieces, 4), 0u);
}

TEST(CMNMessageBlockTest, OwnedBlock_Duplicated_SharesTheBytes)
{
    const CBlock block = Make("hello");
    const CBlock copy(block->DuplicateChained());
    EXPECT_EQ(copy->GetReadPtr(), block->GetReadPtr());
    EXPECT_EQ(Text(*copy), "hello");
    EXPECT_EQ(block->AdvanceReadPtr(2), MN_OK);
    EXPECT_EQ(Text(*copy), "hello");
}

TEST(CMNMessageBlockTest, BorrowedBlock_Duplicated_CopiesTheBytes)
{
    std::string text = "hello";
    const CBlock block = Borrow(text);
    const CBlock copy(block->DuplicateChained());
    EXPECT_NE(copy->GetReadPtr(), block->GetReadPtr());
    text = "XXXXX";
    EXPECT_EQ(Text(*copy), "hello");
}

TEST(CMNMessageBlockTest, OriginalGone_Duplicate_StillValid)
{
    CBlock block = Make("hello");
    const CBlock copy(block->DuplicateChained());
    const CBlock copyOfCopy(copy->DuplicateChained());
    block.reset();
    EXPECT_EQ(Text(*copy), "hello");
    EXPECT_EQ(Text(*copyOfCopy), "hello");
}

TEST(CMNMessageBlockTest, ReadPartly_Duplicated_OnlyTheReadableBytes)
{
    const CBlock block = Make("hello");
    block->AdvanceReadPtr(3);
    const CBlock copy(block->DuplicateChained());
    EXPECT_EQ(Text(*copy), "lo");
}

TEST(CMNMessageBlockTest, MixedChain_Duplicated_SharesCopiesAndLeavesEmptyOnesOut)
{
    const std::string borrowed = "borrowed";
    const CBlock chain = Make("owned");
    chain->Append(Make("").release());
    chain->Append(Borrow(borrowed).release());
    chain->Append(Borrow(borrowed).release());
    chain->Append(Make("tail").release());
    const CBlock copy(chain->DuplicateChained());
    EXPECT_EQ(Text(*copy), "ownedborrowedborrowedtail");
    int blocks = 0;
    for (const CMNMessageBlock* block = copy.get(); block; block = block->GetNext()) {
        EXPECT_NE(block->GetLength(), 0u);
        ++blocks;
    }
    EXPECT_EQ(blocks, 3);
}

TEST(CMNMessageBlockTest, EmptyChain_Duplicated_OneEmptyBlock)
{
    const CBlock chain = Make("");
    chain->Append(Make("").release());
    const CBlock copy(chain->DuplicateChained());
    EXPECT_EQ(copy->GetLength(), 0u);
    EXPECT_EQ(copy->GetNext(), nullptr);
}

TEST(CMNMessageBlockTest, BufferUpToFourTimesTheBytes_Duplicated_Shared)
{
    const CBlock block = Make(std::string(16384, 'x'), s_dwReceive);
    const CBlock copy(block->DuplicateChained());
    EXPECT_EQ(copy->GetReadPtr(), block->GetReadPtr());
    const CBlock small = Make(std::string(25, 'x'), 100);
    const CBlock smallCopy(small->DuplicateChained());
    EXPECT_EQ(smallCopy->GetReadPtr(), small->GetReadPtr());
}

TEST(CMNMessageBlockTest, BufferMoreThanFourTimesTheBytes_Duplicated_CompactCopy)
{
    const CBlock block = Make(std::string(16383, 'x'), s_dwReceive);
    const CBlock copy(block->DuplicateChained());
    EXPECT_NE(copy->GetReadPtr(), block->GetReadPtr());
    EXPECT_EQ(copy->GetSpace(), 0u);
    const CBlock small = Make(std::string(24, 'x'), 100);
    const CBlock smallCopy(small->DuplicateChained());
    EXPECT_NE(smallCopy->GetReadPtr(), small->GetReadPtr());
    EXPECT_EQ(smallCopy->GetSpace(), 0u);
}

long ResidentBytes()
{
    long pages = 0;
    long resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return resident * 4096;
}

TEST(CMNMessageBlockTest, ThousandsOfSmallMessagesFromFullReceives_Queued_HoldNoLargeBuffers)
{
    constexpr int messages = 4000;  // 256 MiB, were each to hold its receive buffer
    const std::string full(s_dwReceive, 'x');
    std::vector<CBlock> queue;
    queue.reserve(messages);
    Make(full);
    const long before = ResidentBytes();
    for (int count = 0; count < messages; ++count) {
        const CBlock received = Make(full);
        received->AdvanceReadPtr(s_dwReceive - 64);
        queue.emplace_back(received->DuplicateChained());
    }
    for (const CBlock& block : queue)
        ASSERT_EQ(block->GetLength() + block->GetSpace(), 64u);
    EXPECT_LT(ResidentBytes() - before, 64L << 20);
}

TEST(CMNMessageBlockTest, LargeBuffer_ReleasedAndMadeAgain_ComesFromThePool)
{
    for (const unsigned long size : {4096ul, 10000ul, s_dwReceive, 65536ul}) {
        const char* first = CMNMessageBlock(size).GetReadPtr();
        const CMNMessageBlock again(size);
        EXPECT_EQ(again.GetReadPtr(), first) << size;
    }
}

TEST(CMNMessageBlockTest, LargeBuffers_MadeHereReleasedThere_AreUsedAgainHere)
{
    std::set<const char*> buffers;
    for (int round = 0; round < 200; ++round) {
        std::vector<CBlock> blocks;
        for (int count = 0; count < 8; ++count) {
            blocks.emplace_back(new CMNMessageBlock(s_dwReceive));
            buffers.insert(blocks.back()->GetReadPtr());
        }
        std::thread other([&blocks] { blocks.clear(); });
        other.join();
    }
    EXPECT_LE(buffers.size(), 32u);
}

TEST(CMNMessageBlockTest, LargerThanThePool_Made_WorksAllTheSame)
{
    const std::string text(200000, 'y');
    const CBlock block = Make(text);
    const CBlock copy(block->DuplicateChained());
    EXPECT_EQ(Text(*copy), text);
}

TEST(CMNMessageBlockTest, VeryLongChain_Destroyed_NoDeepStack)
{
    CMNMessageBlock* chain = new CMNMessageBlock(1);
    CMNMessageBlock* last = chain;
    for (int count = 0; count < 300000; ++count) {
        auto* block = new CMNMessageBlock(1);
        last->Append(block);
        last = block;
    }
    chain->DestroyChained();
}

TEST(CMNMessageBlockTest, BlockOnTheStack_Gone_ItsTailGoesToo)
{
    CMNMessageBlock block(1);
    block.Append(Make("tail").release());
    EXPECT_EQ(block.GetChainedLength(), 4u);
}

TEST(CMNMessageBlockTest, OneBufferSharedByManyThreads_DuplicatedAndDestroyed_CountIsRight)
{
    const CBlock block = Make(std::string(5000, 'z'));
    std::atomic<bool> wrong{false};
    std::vector<std::thread> threads;
    for (int index = 0; index < 4; ++index) {
        CMNMessageBlock* own = block->DuplicateChained();
        threads.emplace_back([own, &wrong] {
            CMNMessageBlock* current = own;
            for (int step = 0; step < 3000; ++step) {
                CMNMessageBlock* next = current->DuplicateChained();
                current->DestroyChained();
                current = next;
                if (*current->GetReadPtr() != 'z')
                    wrong = true;
            }
            current->DestroyChained();
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_FALSE(wrong);
    EXPECT_EQ(Text(*block), std::string(5000, 'z'));
}

}  // namespace
}  // namespace mantle
