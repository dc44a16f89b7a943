// The counted buffer behind message blocks.
#ifndef MANTLE_CMNDATABLOCK_H
#define MANTLE_CMNDATABLOCK_H

#include <atomic>
#include <cstddef>

namespace mantle
{

// Own memory follows the object in the same piece of memory; a foreign buffer does not.
class CMNDataBlock
{
public:
    // Own memory for `size` bytes.
    static CMNDataBlock* Make(unsigned long size);

    // Over a foreign buffer; `owned`: one of new char[] that goes with the block.
    static CMNDataBlock* MakeOver(char* data, unsigned long size, bool owned);

    void AddReference() noexcept { m_dwReference.fetch_add(1, std::memory_order_relaxed); }
    void ReleaseReference() noexcept
    {
        if (m_dwReference.fetch_sub(1, std::memory_order_acq_rel) == 1)
            Free();
    }

    char* GetData() const noexcept { return m_pData; }
    unsigned long GetSize() const noexcept { return m_dwSize; }

    // What holding a reference keeps from being used otherwise, in bytes.
    unsigned long GetPinned() const noexcept;

    // Whether the bytes stay what they are as long as there is a reference.
    bool IsOwned() const noexcept { return m_eMemory != EMemory::FOREIGN; }

private:
    enum class EMemory
    {
        FOREIGN,     // the caller's
        TAKEN_OVER,  // new char[]
        HEAP,        // behind the object
        POOL         // behind the object, from the pool
    };

    CMNDataBlock(char* data, unsigned long size, EMemory memory) noexcept
        : m_pData(data), m_dwSize(size), m_eMemory(memory)
    {
    }
    ~CMNDataBlock() = default;
    void Free() noexcept;

    std::atomic<unsigned int> m_dwReference{1};
    char* m_pData;
    unsigned long m_dwSize;
    EMemory m_eMemory;
};

}  // namespace mantle

#endif
