#include "reactor/CPSEventHandlerRepository.h"

#include <algorithm>
#include <new>

#include "ipstack/ps_defines.h"
#include "uxport/IPSEventHandler.h"

namespace uxport
{

namespace
{

void AppendHandle(ps_fdlist& list, int handle)
{
    if (list.count < PS_FD_SETSIZE)
        list.handles[list.count++] = handle;
}

bool FitsFdSet(int handle)
{
    return handle >= 0 && handle < FD_SETSIZE;
}

}  // namespace

MNResult CPSEventHandlerRepository::Close()
{
    mantle::CMNMutexGuard guard(m_Mutex);
    m_Map.clear();
    return MN_OK;
}

MNResult CPSEventHandlerRepository::Bind(int handle, const CElement& element)
{
    if (handle == PS_INVALID_HANDLE || !element.m_pEh)
        return MN_ERROR_INVALID_ARG;
    mantle::CMNMutexGuard guard(m_Mutex);
    try {
        CElement& stored = m_Map[handle];
        const bool found = stored.m_pEh != nullptr;
        stored = element;
        return found ? MN_ERROR_FOUND : MN_OK;
    } catch (const std::bad_alloc&) {
        return MN_ERROR_UNEXPECTED;
    }
}

MNResult CPSEventHandlerRepository::UnBind(int handle)
{
    if (handle == PS_INVALID_HANDLE)
        return MN_ERROR_INVALID_ARG;
    mantle::CMNMutexGuard guard(m_Mutex);
    m_Map.erase(handle);
    return MN_OK;
}

bool CPSEventHandlerRepository::Find(int handle, CElement& element)
{
    mantle::CMNMutexGuard guard(m_Mutex);
    const auto found = m_Map.find(handle);
    if (found == m_Map.end())
        return false;
    element = found->second;
    return true;
}

void CPSEventHandlerRepository::UnBindHandler(int handle, const IPSEventHandler* handler)
{
    mantle::CMNMutexGuard guard(m_Mutex);
    const auto found = m_Map.find(handle);
    if (found != m_Map.end() && found->second.m_pEh == handler)
        m_Map.erase(found);
}

int CPSEventHandlerRepository::FdSet_s(const CElement& element, ps_fdsets& sets)
{
    const int handle = element.m_pEh->GetHandle();
    if (element.m_Mask & READ_WATCH_MASK)
        AppendHandle(sets.read, handle);
    if (element.m_Mask & OUTPUT_GROUP_MASK)
        AppendHandle(sets.write, handle);
    return handle;
}

int CPSEventHandlerRepository::FdSet_s(const CElement& element, fd_set& readSet, fd_set& writeSet)
{
    const int handle = element.m_pEh->GetHandle();
    if (FitsFdSet(handle)) {
        if (element.m_Mask & READ_WATCH_MASK)
            FD_SET(handle, &readSet);
        if (element.m_Mask & OUTPUT_GROUP_MASK)
            FD_SET(handle, &writeSet);
    }
    return handle;
}

int CPSEventHandlerRepository::FillFdSets(ps_fdsets& sets)
{
    mantle::CMNMutexGuard guard(m_Mutex);
    int highest = PS_INVALID_HANDLE;
    for (const auto& [handle, element] : m_Map)
        highest = std::max(highest, FdSet_s(element, sets));
    return highest;
}

int CPSEventHandlerRepository::FillFdSets(fd_set& readSet, fd_set& writeSet, fd_set&)
{
    mantle::CMNMutexGuard guard(m_Mutex);
    int highest = PS_INVALID_HANDLE;
    for (const auto& [handle, element] : m_Map)
        highest = std::max(highest, FdSet_s(element, readSet, writeSet));
    return highest;
}

unsigned int CPSEventHandlerRepository::FillPollSets(ps_pollfd* entries, unsigned int capacity, unsigned int& count)
{
    mantle::CMNMutexGuard guard(m_Mutex);
    unsigned int filled = 0;
    for (const auto& [handle, element] : m_Map) {
        ps_pollfd& entry = entries[filled++];
        entry.fd = element.m_pEh->GetHandle();
        entry.events = 0;
        if (element.m_Mask & READ_WATCH_MASK)
            entry.events = PS_POLLIN;
        if (element.m_Mask & OUTPUT_GROUP_MASK)
            entry.events = static_cast<short>(entry.events | PS_POLLOUT);
        entry.revents = 0;
        if (filled > capacity)
            break;
    }
    count = filled;
    return filled;
}

}  // namespace uxport
