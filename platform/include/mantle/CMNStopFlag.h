// A flag that says whether something has been stopped, and the check of the thread that may ask.
#ifndef MANTLE_CMNSTOPFLAG_H
#define MANTLE_CMNSTOPFLAG_H

#include "mantle/CMNAtomic.h"
#include "mantle/CMNEnsureSingleThread.h"

namespace mantle
{

// Starts as stopped. Setting and reading the flag never check the thread (any thread may); the check is the
// call EnsureStopFlagThread.
class MANTLE_API CMNStopFlag
{
public:
    CMNStopFlag() = default;

    // Both return 0.
    MNResult SetStartFlag() noexcept
    {
        m_lStopFlag.store(0);
        return MN_OK;
    }
    MNResult SetStopFlag() noexcept
    {
        m_lStopFlag.store(1);
        return MN_OK;
    }

    // 1 stopped, 0 started.
    std::int32_t GetStopFlag() const noexcept { return m_lStopFlag.load(); }
    bool IsFlagStopped() const noexcept { return GetStopFlag() != 0; }

    bool EnsureStopFlagThread(const char* place) const { return m_EstStop.EnsureSingleThread(place); }
    void BindStopFlagToCurrentThread() noexcept { m_EstStop.SetToCurrentThread(); }
    void BindStopFlagToThread(unsigned long threadId) noexcept { m_EstStop.SetToThread(threadId); }
    unsigned long GetStopFlagThread() const noexcept { return m_EstStop.GetThread(); }

private:
    CMNEnsureSingleThread m_EstStop;
    CMNAtomic32 m_lStopFlag{1};
};

}  // namespace mantle

#endif
