#include "mantle/CMNMessageBlock.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "CMNDataBlock.h"

namespace mantle
{

namespace
{

// A duplicate shares a buffer that is at most this many times as large as what it carries.
constexpr unsigned long s_dwPinFactor = 4;

bool MayShare(const CMNDataBlock& data, unsigned long length) noexcept
{
    return data.IsOwned() && data.GetPinned() <= s_dwPinFactor * length;
}

}  // namespace

CMNMessageBlock::CMNMessageBlock(unsigned long size, const char* data, unsigned long flags, unsigned long advanceWrite)
    : m_pData(data ? CMNDataBlock::MakeOver(const_cast<char*>(data), size, (flags & DONT_DELETE) == 0)
                   : CMNDataBlock::Make(size)),
      m_dwWrite(data ? std::min(advanceWrite, size) : 0)
{
}

CMNMessageBlock::CMNMessageBlock(CMNDataBlock* data, unsigned long read, unsigned long write) noexcept
    : m_pData(data), m_dwRead(read), m_dwWrite(write)
{
}

// One by one: a chain may be longer than the stack is deep.
CMNMessageBlock::~CMNMessageBlock()
{
    CMNMessageBlock* next = m_pNext;
    while (next) {
        CMNMessageBlock* block = next;
        next = block->m_pNext;
        block->m_pNext = nullptr;
        delete block;
    }
    m_pData->ReleaseReference();
}

unsigned long CMNMessageBlock::GetSpace() const noexcept
{
    return m_pData->GetSize() - m_dwWrite;
}

const char* CMNMessageBlock::GetReadPtr() const noexcept
{
    return m_pData->GetData() + m_dwRead;
}

char* CMNMessageBlock::GetWritePtr() const noexcept
{
    return m_pData->GetData() + m_dwWrite;
}

MNResult CMNMessageBlock::AdvanceReadPtr(unsigned long length) noexcept
{
    if (length > GetLength())
        return MN_ERROR_INVALID_ARG;
    m_dwRead += length;
    return MN_OK;
}

MNResult CMNMessageBlock::AdvanceWritePtr(unsigned long length) noexcept
{
    if (length > GetSpace())
        return MN_ERROR_INVALID_ARG;
    m_dwWrite += length;
    return MN_OK;
}

MNResult CMNMessageBlock::Write(const void* data, unsigned long length) noexcept
{
    if (length > GetSpace() || (!data && length != 0))
        return MN_ERROR_INVALID_ARG;
    if (length != 0)
        std::memcpy(GetWritePtr(), data, length);
    m_dwWrite += length;
    return MN_OK;
}

void CMNMessageBlock::Append(CMNMessageBlock* tail) noexcept
{
    CMNMessageBlock* last = this;
    while (last->m_pNext)
        last = last->m_pNext;
    last->m_pNext = tail;
}

unsigned long CMNMessageBlock::GetChainedLength() const noexcept
{
    unsigned long length = 0;
    for (const CMNMessageBlock* block = this; block; block = block->m_pNext)
        length += block->GetLength();
    return length;
}

MNResult CMNMessageBlock::AdvanceChainedReadPtr(unsigned long length, unsigned long* advanced) noexcept
{
    unsigned long left = length;
    for (CMNMessageBlock* block = this; block && left != 0; block = block->m_pNext) {
        const unsigned long step = std::min(left, block->GetLength());
        block->m_dwRead += step;
        left -= step;
    }
    if (advanced)
        *advanced = length - left;
    return MN_OK;
}

unsigned long CMNMessageBlock::PeekChained(void* data, unsigned long length) const noexcept
{
    unsigned long copied = 0;
    if (!data)
        return 0;
    for (const CMNMessageBlock* block = this; block && copied < length; block = block->m_pNext) {
        const unsigned long step = std::min(length - copied, block->GetLength());
        if (step != 0)
            std::memcpy(static_cast<char*>(data) + copied, block->GetReadPtr(), step);
        copied += step;
    }
    return copied;
}

// Neighbours that are copied go into one block.
CMNMessageBlock* CMNMessageBlock::DuplicateChained() const
{
    std::unique_ptr<CMNMessageBlock> first;
    CMNMessageBlock* last = nullptr;
    const CMNMessageBlock* block = this;
    while (block) {
        CMNMessageBlock* copy = nullptr;
        if (block->GetLength() == 0) {
            block = block->m_pNext;
            continue;
        }
        if (MayShare(*block->m_pData, block->GetLength())) {
            copy = new CMNMessageBlock(block->m_pData, block->m_dwRead, block->m_dwWrite);
            block->m_pData->AddReference();
            block = block->m_pNext;
        } else {
            unsigned long length = 0;
            const CMNMessageBlock* end = block;
            while (end && (end->GetLength() == 0 || !MayShare(*end->m_pData, end->GetLength()))) {
                length += end->GetLength();
                end = end->m_pNext;
            }
            copy = new CMNMessageBlock(length);
            for (; block != end; block = block->m_pNext)
                copy->Write(block->GetReadPtr(), block->GetLength());
        }
        if (last)
            last->m_pNext = copy;
        else
            first.reset(copy);
        last = copy;
    }
    return first ? first.release() : new CMNMessageBlock(0);
}

void CMNMessageBlock::DestroyChained() noexcept
{
    delete this;
}

unsigned long CMNMessageBlock::FillIov(iovec_ace* pieces, unsigned long count) const noexcept
{
    unsigned long filled = 0;
    if (!pieces)
        return 0;
    for (const CMNMessageBlock* block = this; block && filled < count; block = block->m_pNext) {
        if (block->GetLength() == 0)
            continue;
        pieces[filled].iov_base = block->m_pData->GetData() + block->m_dwRead;
        pieces[filled].iov_len = block->GetLength();
        ++filled;
    }
    return filled;
}

}  // namespace mantle
