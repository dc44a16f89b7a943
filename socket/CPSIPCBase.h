// A stack socket's handle.
#ifndef UXPORT_SOCKET_CPSIPCBASE_H
#define UXPORT_SOCKET_CPSIPCBASE_H

#include <atomic>

#include "uxport/PSDefines.h"

namespace uxport
{

// Thread: one at a time, but the handle may be read by any. The operations of the wrappers answer what the
// stack answered: 0 or a count, -1 on failure with the cause in get_pserrno().
class CPSIPCBase
{
public:
    // What Enable and Disable switch: 0, non-blocking mode.
    static constexpr int s_nNonBlock = 0;

    CPSIPCBase() = default;
    CPSIPCBase(const CPSIPCBase&) = delete;
    CPSIPCBase& operator=(const CPSIPCBase&) = delete;

    int GetHandle() const { return m_nHandle.load(std::memory_order_relaxed); }

    // Owns: the handle from here on; one held before is forgotten, not closed.
    void SetHandle(int handle) { m_nHandle.store(handle, std::memory_order_relaxed); }

    // Switch non-blocking mode on and off. Return: 0; -1 when the stack refused or `value` is not s_nNonBlock.
    int Enable(int value);
    int Disable(int value);

    int Control(int command, void* arg);

protected:
    ~CPSIPCBase() = default;

private:
    std::atomic<int> m_nHandle{PS_INVALID_HANDLE};
};

}  // namespace uxport

#endif
