// Large buffers that are used again.
#ifndef MANTLE_CMNBUFFERPOOL_H
#define MANTLE_CMNBUFFERPOOL_H

#include <cstddef>
#include <vector>

#include "mantle/CMNMutexThread.h"

namespace mantle
{

// Buffers of 4 KiB to 64 KiB, in powers of two, each with a head for its user in front. Smaller and larger ones
// come from the heap. A few per thread, then a bounded number for all, then the heap again.
struct CMNBufferSizes
{
    static constexpr std::size_t s_nHead = 64;
    static constexpr std::size_t s_nSmallest = 4096;
    static constexpr std::size_t s_nLargest = 65536;
    static constexpr int s_nClasses = 5;

    // Class of a buffer for `size` bytes; -1: not from the pool.
    static int ClassOf(std::size_t size) noexcept
    {
        if (size < s_nSmallest || size > s_nLargest)
            return -1;
        int index = 0;
        while ((s_nSmallest << index) < size)
            ++index;
        return index;
    }
    static constexpr std::size_t SizeOf(int index) noexcept { return s_nSmallest << index; }
};

// A thread's own few. Plain data, all zero at the start.
struct CMNBufferCache
{
    static constexpr int s_nEach = 4;

    void* m_Buffers[CMNBufferSizes::s_nClasses][s_nEach];
    int m_nCount[CMNBufferSizes::s_nClasses];

    void Flush() noexcept;  // all to the pool
};

// Takes and gives back buffers of a class, head included. Thread: any.
class CMNBufferPool
{
public:
    static void* Take(int index);
    static void Put(int index, void* buffer) noexcept;

private:
    friend struct CMNBufferCache;
    static constexpr std::size_t s_nBytesEach = 4u << 20;  // kept of each class

    static CMNBufferPool& Instance();
    int TakeShared(int index, void** buffers, int count) noexcept;
    void PutShared(int index, void* const* buffers, int count) noexcept;

    CMNMutexThread m_Mutex;
    std::vector<void*> m_Free[CMNBufferSizes::s_nClasses] MN_GUARDED_BY(m_Mutex);
};

}  // namespace mantle

#endif
