// Room in a container before something depends on it.
#ifndef IPSTACK_CIPROOM_H
#define IPSTACK_CIPROOM_H

#include <cstddef>
#include <new>
#include <vector>

#include "CIPCounters.h"

namespace ipstack
{

// Makes room for one more, so that adding it can't fail. Returns: false when there is no memory, which is counted.
template <class T>
bool ReserveOne(std::vector<T>& items) noexcept
{
    if (items.size() < items.capacity()) {
        return true;
    }
    try {
        items.reserve(2 * items.size() + 1);
        return true;
    } catch (const std::bad_alloc&) {
        CIPCounters::Add(CIPCounters::MemoryFailed);
        return false;
    }
}

}  // namespace ipstack

#endif
