// Many calls of one kind in a row.
#ifndef MANTLE_CMNBURST_H
#define MANTLE_CMNBURST_H

#include "mantle/MNDefines.h"

namespace mantle
{

// Work of one thread that can wait for the end of a burst. Must outlive the burst: make it thread-local.
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
// call) to the scope's end. Scopes nest; the outermost one's end counts. Thread: one each, for all operations.
class MANTLE_API CMNBurst
{
public:
    CMNBurst() noexcept;
    // Does what was put off, in that order, and what is put off meanwhile.
    ~CMNBurst();
    CMNBurst(const CMNBurst&) = delete;
    CMNBurst& operator=(const CMNBurst&) = delete;

    // Whether the calling thread is inside a burst.
    static bool IsOpen() noexcept;

    // Has the work done once at the burst's end, however often it is put off. Returns: false, and nothing will be
    // done, when the calling thread is inside no burst.
    static bool PutOff(CMNBurstWork& work) noexcept;
};

}  // namespace mantle

#endif
