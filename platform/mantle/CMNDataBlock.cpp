#include "CMNDataBlock.h"

#include <new>

#include "CMNBufferPool.h"

namespace mantle
{

static_assert(sizeof(CMNDataBlock) <= CMNBufferSizes::s_nHead, "a data block fits into the head of a pooled buffer");

CMNDataBlock* CMNDataBlock::Make(unsigned long size)
{
    const int index = CMNBufferSizes::ClassOf(size);
    if (index >= 0) {
        char* memory = static_cast<char*>(CMNBufferPool::Take(index));
        return new (memory) CMNDataBlock(memory + CMNBufferSizes::s_nHead, size, EMemory::POOL);
    }
    char* memory = static_cast<char*>(::operator new(sizeof(CMNDataBlock) + size));
    return new (memory) CMNDataBlock(memory + sizeof(CMNDataBlock), size, EMemory::HEAP);
}

CMNDataBlock* CMNDataBlock::MakeOver(char* data, unsigned long size, bool owned)
{
    void* memory = ::operator new(sizeof(CMNDataBlock));
    return new (memory) CMNDataBlock(data, size, owned ? EMemory::TAKEN_OVER : EMemory::FOREIGN);
}

unsigned long CMNDataBlock::GetPinned() const noexcept
{
    return m_eMemory == EMemory::POOL ? CMNBufferSizes::SizeOf(CMNBufferSizes::ClassOf(m_dwSize)) : m_dwSize;
}

void CMNDataBlock::Free() noexcept
{
    const EMemory memory = m_eMemory;
    const int index = CMNBufferSizes::ClassOf(m_dwSize);
    if (memory == EMemory::TAKEN_OVER)
        delete[] m_pData;
    this->~CMNDataBlock();
    if (memory == EMemory::POOL)
        CMNBufferPool::Put(index, this);
    else
        ::operator delete(this);
}

}  // namespace mantle
