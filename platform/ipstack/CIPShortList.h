// A list that is nearly always short.
#ifndef IPSTACK_CIPSHORTLIST_H
#define IPSTACK_CIPSHORTLIST_H

#include <cstddef>
#include <vector>

#include "CIPRoom.h"

namespace ipstack
{

// Pointers collected under a lock and worked off after it. The first few need no memory; of those each is in the
// list once, of the others at least once.
template <class T>
class CIPShortList
{
public:
    // Returns: whether it is in the list once more than before; with `full` (may be null) also whether there was no memory
    // for it.
    bool Add(T* item, bool* full = nullptr) noexcept
    {
        for (std::size_t i = 0; i < m_nCount; ++i) {
            if (m_Few[i] == item) {
                return false;
            }
        }
        if (m_nCount < s_nRoom) {
            m_Few[m_nCount++] = item;
        } else if (ReserveOne(m_More)) {
            m_More.push_back(item);
        } else {
            if (full) {
                *full = true;
            }
            return false;
        }
        return true;
    }

    bool IsEmpty() const noexcept { return m_nCount == 0; }

    // Moves the contents to `target`, which must be empty.
    void MoveTo(CIPShortList& target) noexcept
    {
        for (std::size_t i = 0; i < m_nCount; ++i) {
            target.m_Few[i] = m_Few[i];
        }
        target.m_nCount = m_nCount;
        target.m_More.swap(m_More);
        m_nCount = 0;
    }

    template <class Operation>
    void ForEach(Operation operation) const
    {
        for (std::size_t i = 0; i < m_nCount; ++i) {
            operation(*m_Few[i]);
        }
        for (T* item : m_More) {
            operation(*item);
        }
    }

private:
    static constexpr std::size_t s_nRoom = 8;

    std::size_t m_nCount = 0;
    T* m_Few[s_nRoom];
    std::vector<T*> m_More;
};

}  // namespace ipstack

#endif
