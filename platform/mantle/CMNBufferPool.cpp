#include "CMNBufferPool.h"

#include <memory>
#include <new>

#include "CMNThreadLocal.h"

namespace mantle
{

// Made by the first Take; what is put back has been taken before.
CMNBufferPool& CMNBufferPool::Instance()
{
    static CMNBufferPool* const s_pInstance = [] {
        auto pool = std::make_unique<CMNBufferPool>();
        CMNMutexGuard guard(pool->m_Mutex);
        for (int index = 0; index < CMNBufferSizes::s_nClasses; ++index)
            pool->m_Free[index].reserve(s_nBytesEach / CMNBufferSizes::SizeOf(index));
        return pool.release();
    }();
    return *s_pInstance;
}

void* CMNBufferPool::Take(int index)
{
    CMNThreadLocal& local = CMNThreadLocal::Get();
    CMNBufferCache& cache = local.m_Buffers;
    int& count = cache.m_nCount[index];
    if (count == 0) {
        const int wanted = local.m_bEnded ? 1 : CMNBufferCache::s_nEach / 2;
        count = Instance().TakeShared(index, cache.m_Buffers[index], wanted);
        if (count == 0)
            return ::operator new(CMNBufferSizes::s_nHead + CMNBufferSizes::SizeOf(index));
        local.GiveBackAtEnd();
    }
    return cache.m_Buffers[index][--count];
}

void CMNBufferPool::Put(int index, void* buffer) noexcept
{
    CMNThreadLocal& local = CMNThreadLocal::Get();
    if (local.m_bEnded) {
        Instance().PutShared(index, &buffer, 1);
        return;
    }
    CMNBufferCache& cache = local.m_Buffers;
    int& count = cache.m_nCount[index];
    if (count == CMNBufferCache::s_nEach) {
        constexpr int half = CMNBufferCache::s_nEach / 2;
        Instance().PutShared(index, cache.m_Buffers[index] + half, half);
        count = half;
    } else if (count == 0) {
        local.GiveBackAtEnd();
    }
    cache.m_Buffers[index][count++] = buffer;
}

int CMNBufferPool::TakeShared(int index, void** buffers, int count) noexcept
{
    CMNMutexGuard guard(m_Mutex);
    int taken = 0;
    while (taken < count && !m_Free[index].empty()) {
        buffers[taken++] = m_Free[index].back();
        m_Free[index].pop_back();
    }
    return taken;
}

// Room for all that is kept was reserved: adding one cannot fail.
void CMNBufferPool::PutShared(int index, void* const* buffers, int count) noexcept
{
    int kept = 0;
    {
        CMNMutexGuard guard(m_Mutex);
        while (kept < count && m_Free[index].size() < s_nBytesEach / CMNBufferSizes::SizeOf(index))
            m_Free[index].push_back(buffers[kept++]);
    }
    for (; kept < count; ++kept)
        ::operator delete(buffers[kept]);
}

void CMNBufferCache::Flush() noexcept
{
    for (int index = 0; index < CMNBufferSizes::s_nClasses; ++index) {
        if (m_nCount[index] != 0)
            CMNBufferPool::Instance().PutShared(index, m_Buffers[index], m_nCount[index]);
        m_nCount[index] = 0;
    }
}

}  // namespace mantle
