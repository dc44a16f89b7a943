// The sockets by handle.
#ifndef IPSTACK_CIPSOCKETTABLE_H
#define IPSTACK_CIPSOCKETTABLE_H

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "mantle/CMNMutexThread.h"

namespace ipstack
{

class CIPSocket;

// Handles are taken from a queue of free numbers, first in, first out, that is longer than the sockets can be
// many by s_dwQuarantine: a closed handle's number comes back only after that many further sockets.
class CIPSocketTable
{
public:
    static constexpr unsigned int s_dwQuarantine = 1u << 15;

    // Makes room for `most` sockets. Once, before the stack is started.
    static void Start(unsigned int most);

    // Gives the socket a handle, and the table owns it. State: the core lock is held, for this, Close and the
    // counts. Returns: the handle, 0 when too many sockets are open; the caller keeps the socket then.
    static int Open(CIPSocket* socket);

    // Takes the socket off its handle; it is deleted when nobody uses it any more. Returns: false when another
    // thread has closed it already.
    static bool Close(int handle);

    static bool IsFull() noexcept { return s_dwOpen >= s_dwMost; }
    static unsigned int GetOpenCount() noexcept { return s_dwOpen; }

    // Handle numbers are below this.
    static unsigned int GetHandleLimit() noexcept { return s_dwLimit.load(std::memory_order_acquire); }

private:
    friend class CIPSocketUse;

    // Threads that use the slot in the low bits, and whether it is open, or closed and not yet given back.
    static constexpr std::uint32_t s_dwOpenBit = 1u << 31;
    static constexpr std::uint32_t s_dwDyingBit = 1u << 30;

    struct CSlot
    {
        std::atomic<std::uint32_t> m_dwState{0};
        CIPSocket* m_pSocket = nullptr;
    };

    static CIPSocket* Enter(int handle) noexcept;
    static void Leave(int handle) noexcept;
    static void Finish(int handle) noexcept;

    static std::atomic<unsigned int> s_dwLimit;
    static unsigned int s_dwMost;
    static unsigned int s_dwOpen;
    static CSlot* s_pSlots;

    static mantle::CMNMutexThread s_Mutex;
    static int* s_pFree MN_PT_GUARDED_BY(s_Mutex);  // a ring of s_dwLimit - 1 numbers
    static std::size_t s_nFirst MN_GUARDED_BY(s_Mutex);
    static std::size_t s_nFree MN_GUARDED_BY(s_Mutex);
};

// A use of a handle's socket: the socket stays until the use ends, also when another thread closes it.
class CIPSocketUse
{
public:
    explicit CIPSocketUse(int handle) noexcept : m_nHandle(handle), m_pSocket(CIPSocketTable::Enter(handle)) {}
    ~CIPSocketUse()
    {
        if (m_pSocket) {
            CIPSocketTable::Leave(m_nHandle);
        }
    }
    CIPSocketUse(const CIPSocketUse&) = delete;
    CIPSocketUse& operator=(const CIPSocketUse&) = delete;

    explicit operator bool() const noexcept { return m_pSocket != nullptr; }
    CIPSocket* operator->() const noexcept { return m_pSocket; }
    CIPSocket* Get() const noexcept { return m_pSocket; }

private:
    int m_nHandle;
    CIPSocket* m_pSocket;
};

}  // namespace ipstack

#endif
