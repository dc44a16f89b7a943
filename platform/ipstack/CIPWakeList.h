// Waiters to be signalled.
#ifndef IPSTACK_CIPWAKELIST_H
#define IPSTACK_CIPWAKELIST_H

#include <cstddef>
#include <vector>

#include "mantle/CMNWaiter.h"

namespace ipstack
{

// Waiters collected under a lock and signalled after it; each at least once.
class CIPWakeList
{
public:
    void Add(mantle::CMNWaiter* waiter)
    {
        for (std::size_t i = 0; i < m_nCount; ++i) {
            if (m_Waiters[i] == waiter) {
                return;
            }
        }
        if (m_nCount < s_nRoom) {
            m_Waiters[m_nCount++] = waiter;
        } else {
            m_More.push_back(waiter);
        }
    }

    bool IsEmpty() const noexcept { return m_nCount == 0; }

    // Moves the contents to `target`, which must be empty.
    void MoveTo(CIPWakeList& target) noexcept
    {
        for (std::size_t i = 0; i < m_nCount; ++i) {
            target.m_Waiters[i] = m_Waiters[i];
        }
        target.m_nCount = m_nCount;
        target.m_More.swap(m_More);
        m_nCount = 0;
    }

    void Signal() noexcept
    {
        for (std::size_t i = 0; i < m_nCount; ++i) {
            m_Waiters[i]->Signal();
        }
        for (mantle::CMNWaiter* waiter : m_More) {
            waiter->Signal();
        }
        m_nCount = 0;
        m_More.clear();
    }

private:
    static constexpr std::size_t s_nRoom = 16;

    std::size_t m_nCount = 0;
    mantle::CMNWaiter* m_Waiters[s_nRoom];
    std::vector<mantle::CMNWaiter*> m_More;
};

}  // namespace ipstack

#endif
