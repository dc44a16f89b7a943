// What each handle is ready for, and who waits for it.
#ifndef IPSTACK_CIPREADINESS_H
#define IPSTACK_CIPREADINESS_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "CIPShortList.h"
#include "mantle/CMNMutexThread.h"
#include "mantle/CMNWaiter.h"

namespace ipstack
{

// Waiters to be signalled.
using CIPWakeList = CIPShortList<mantle::CMNWaiter>;

// A thread that waits, or has waited. Never freed.
class CIPWaiterRecord
{
public:
    explicit CIPWaiterRecord(mantle::CMNWaiter& waiter) : m_Waiter(waiter) {}

    // The calling thread's own.
    static CIPWaiterRecord& Current();

    mantle::CMNWaiter& m_Waiter;
    std::atomic<bool> m_bWaiting{false};  // inside a wait: only then does an event signal it
};

// One dense word of event bits for each handle, so that a look touches nothing else, and beside it the waiter
// that looks at the handle. Raising a bit tells the waiter; a waiter that is about to sleep enters itself and
// looks again, so nothing that is raised meanwhile is lost. All of it is sequentially consistent.
class CIPReadiness
{
public:
    static constexpr std::uint32_t s_dwIn = 1;
    static constexpr std::uint32_t s_dwOut = 2;
    static constexpr std::uint32_t s_dwError = 4;
    static constexpr std::uint32_t s_dwHangUp = 8;
    static constexpr std::uint32_t s_dwEvents = 15;

    // Makes words for the handles below `count`, all unknown. Once.
    static void Start(unsigned int count);

    // The handle's event bits; an unknown one hangs up. Thread: any.
    static std::uint32_t Get(int handle) noexcept
    {
        return static_cast<unsigned int>(handle) < s_dwCount.load(std::memory_order_acquire)
                   ? s_pWords[handle].load() & s_dwEvents
                   : s_dwHangUp;
    }

    // A handle comes into use, with these bits. State: the core lock is held, for this and the following.
    static void Open(int handle, std::uint32_t bits) noexcept;

    // It is out of use: it hangs up and who waits for it is told.
    static void Close(int handle, CIPWakeList& wakes);

    static void Raise(int handle, std::uint32_t bits, CIPWakeList& wakes);

    // Thread: any.
    static void Clear(int handle, std::uint32_t bits) noexcept
    {
        if (s_pWords[handle].load(std::memory_order_relaxed) & bits) {
            s_pWords[handle].fetch_and(~bits);
        }
    }

    // Enters `record` as the handle's waiter. Thread: the waiter's own, inside its wait.
    static void Watch(int handle, CIPWaiterRecord& record) noexcept;

    // Whether two waiters have met on the handle, so that its events wake all. For tests.
    static bool IsShared(int handle) noexcept { return (s_pWords[handle].load() & s_dwShared) != 0; }

private:
    friend class CIPWaiterRecord;

    // Two waiters have met on this handle: its events wake every waiter, until it is opened again.
    static constexpr std::uint32_t s_dwShared = 0x100;

    static void Tell(int handle, std::uint32_t before, CIPWakeList& wakes);

    static std::atomic<unsigned int> s_dwCount;
    static std::atomic<std::uint32_t>* s_pWords;
    static std::atomic<CIPWaiterRecord*>* s_pWatchers;
};

}  // namespace ipstack

#endif
