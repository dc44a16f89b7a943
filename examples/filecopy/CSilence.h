// Notices that a peer says nothing any more.
#ifndef FILECOPY_CSILENCE_H
#define FILECOPY_CSILENCE_H

#include <functional>
#include <utility>

#include "CExample.h"

// Counts ticks, not time: who was stopped himself in between does not take that for the other's silence.
// Thread: a user thread.
class CSilence : private mantle::CMNTimerWrapperIDSink
{
public:
    using FCall = std::function<void()>;

    // Calls `silent` once when `seconds` have passed without Heard, and `tick` at every tick before. `silent` may
    // destroy this object.
    uxport::MNResult Watch(unsigned int seconds, FCall silent, FCall tick)
    {
        m_dwLimit = seconds * s_dwTicksPerSecond;
        m_dwTicks = 0;
        m_fSilent = std::move(silent);
        m_fTick = std::move(tick);
        return m_Timer.Schedule(this, uxport::CMNTimeValue(0, 1000000 / s_dwTicksPerSecond), 0);
    }

    void Heard() { m_dwTicks = 0; }
    void End() { m_Timer.Cancel(); }

private:
    static constexpr unsigned int s_dwTicksPerSecond = 5;

    void OnTimer(mantle::CMNTimerWrapperID*) override
    {
        m_fTick();
        if (++m_dwTicks != m_dwLimit)
            return;
        m_Timer.Cancel();
        const FCall silent = m_fSilent;
        silent();
    }

    mantle::CMNTimerWrapperID m_Timer;
    unsigned int m_dwTicks = 0;
    unsigned int m_dwLimit = 0;
    FCall m_fSilent;
    FCall m_fTick;
};

#endif
