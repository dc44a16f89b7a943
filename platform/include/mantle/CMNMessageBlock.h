// Message blocks: data that is handed on without being copied.
#ifndef MANTLE_CMNMESSAGEBLOCK_H
#define MANTLE_CMNMESSAGEBLOCK_H

#include <cstddef>

#include "mantle/MNDefines.h"

// One piece of a gathered write.
struct iovec_ace
{
    void* iov_base;
    unsigned long iov_len;
};

namespace mantle
{

class CMNDataBlock;

// A chain of blocks. Each has a read and a write position in a data block, whose reference count is atomic;
// the positions belong to one thread at a time. Bytes are not changed after a block has been handed on.
class MANTLE_API CMNMessageBlock
{
public:
    enum : unsigned long
    {
        DONT_DELETE = 1  // with `data`: the caller's buffer, which it keeps and may change after the call
    };

    // Room for `size` bytes. Without `data`: own memory, from a pool when large. With `data` and DONT_DELETE: the
    // caller's buffer, not owned; with `data` alone: a new char[] buffer that the block takes over.
    // `advanceWrite`: bytes of `data` that are readable at once, `size` at most.
    explicit CMNMessageBlock(unsigned long size, const char* data = nullptr, unsigned long flags = 0,
                             unsigned long advanceWrite = 0);
    ~CMNMessageBlock();  // and of the blocks appended to it
    CMNMessageBlock(const CMNMessageBlock&) = delete;
    CMNMessageBlock& operator=(const CMNMessageBlock&) = delete;

    // The first block: readable bytes, room behind the write position, positions.
    unsigned long GetLength() const noexcept { return m_dwWrite - m_dwRead; }
    unsigned long GetSpace() const noexcept;
    const char* GetReadPtr() const noexcept;
    char* GetWritePtr() const noexcept;

    // Returns: 0; MN_ERROR_INVALID_ARG when it would pass the end (nothing changes).
    MNResult AdvanceReadPtr(unsigned long length) noexcept;
    MNResult AdvanceWritePtr(unsigned long length) noexcept;

    // Copies `length` bytes behind the write position. Returns: 0; MN_ERROR_INVALID_ARG when there is no room (nothing
    // changes).
    MNResult Write(const void* data, unsigned long length) noexcept;

    // The chain.
    CMNMessageBlock* GetNext() const noexcept { return m_pNext; }
    void Append(CMNMessageBlock* tail) noexcept;  // behind the last block; takes `tail` over
    unsigned long GetChainedLength() const noexcept;

    // Moves the read positions on, block by block; stops at the end. Returns: 0. `advanced` (may be null)
    // receives the count.
    MNResult AdvanceChainedReadPtr(unsigned long length, unsigned long* advanced = nullptr) noexcept;

    // Copies up to `length` readable bytes of the chain out without moving a position; returns the count.
    unsigned long PeekChained(void* data, unsigned long length) const noexcept;

    // A new chain with the readable bytes: shares data blocks that the chain owns, copies those it does not,
    // and copies what would pin a buffer more than four times as large as what it carries. Empty blocks are
    // left out; an empty chain gives one empty block. Without memory std::bad_alloc comes out of it, as out of making a
    // block, and nothing has changed.
    CMNMessageBlock* DuplicateChained() const;

    // Deletes the whole chain, this block included (which was made by new).
    void DestroyChained() noexcept;

    // Fills up to `count` pieces with the readable bytes, skipping empty blocks; returns how many.
    unsigned long FillIov(iovec_ace* pieces, unsigned long count) const noexcept;

private:
    CMNMessageBlock(CMNDataBlock* data, unsigned long read, unsigned long write) noexcept;

    CMNDataBlock* m_pData;
    CMNMessageBlock* m_pNext = nullptr;
    unsigned long m_dwRead = 0;
    unsigned long m_dwWrite = 0;
};

}  // namespace mantle

#endif
