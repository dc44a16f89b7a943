// Many calls of one kind in a row.
#ifndef MANTLE_CMNBURST_H
#define MANTLE_CMNBURST_H

#include "mantle/MNDefines.h"

namespace mantle
{

// Work of one thread that can wait for the end of a burst. Must outlive the burst, and everything that its thread does
// at its end: make it thread-local, of trivial members. It may not throw.
class CMNBurstWork
{
public:
    using CFunction = void (*)() noexcept;

    explicit constexpr CMNBurstWork(CFunction function) noexcept : m_pFunction(function) {}
    CMNBurstWork(const CMNBurstWork&) = delete;
    CMNBurstWork& operator=(const CMNBurstWork&) = delete;

private:
    friend class CMNBurst;

    const CFunction m_pFunction;
    CMNBurstWork* m_pNext = nullptr;
    bool m_bPutOff = false;
};

// A scope in which its thread makes many calls of one kind, such as handing in what one receive brought. What is
// called may put off the part that is as cheap for many calls as for one (taking a lock, waking a thread, a system
// call). It is done at the end of the scope, or of one inside it, and before the thread sleeps in a CMNWaiter. A thread
// that waits in another way, for what others do about its calls, has to call Finish first; one that waits in whatever
// way holds no lock that the work takes.
// Thread: one each, for all operations.
class MANTLE_API CMNBurst
{
public:
    CMNBurst() noexcept;
    ~CMNBurst();
    CMNBurst(const CMNBurst&) = delete;
    CMNBurst& operator=(const CMNBurst&) = delete;

    // Whether the calling thread is inside a burst.
    static bool IsOpen() noexcept;

    // Has the work done once, however often it is put off. Returns: false, and nothing will be done, when the calling
    // thread is inside no burst.
    static bool PutOff(CMNBurstWork& work) noexcept;

    // Does what the calling thread has put off, in that order, and what is put off meanwhile.
    static void Finish() noexcept;
};

}  // namespace mantle

#endif
