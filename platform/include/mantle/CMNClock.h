// The one place that reads time, and the clock that a test moves by hand.
#ifndef MANTLE_CMNCLOCK_H
#define MANTLE_CMNCLOCK_H

#include "mantle/CMNTimeValue.h"

namespace mantle
{

// The clock that every timer, wait and stack deadline of the process reads.
class MANTLE_API CMNClock
{
public:
    // Microseconds since an arbitrary start; never goes back. Thread: any.
    static long long NowUs() noexcept;
    static CMNTimeValue Now() noexcept;
    static CMNTimeValue TimeOfDay() noexcept;

    // Whether a hand-moved clock is in force.
    static bool IsManual() noexcept;
};

// While an object of this class lives, time stands still unless moved: nobody sleeps for time. Once every
// framework thread waits (CMNWaiter) and nothing is ready, the clock moves on to the earliest of their
// deadlines, deadline by deadline. Make it before the threads that are to follow it; one at a time.
class MANTLE_API CMNManualClock
{
public:
    // `autoAdvance` false: time moves by Advance only.
    explicit CMNManualClock(bool autoAdvance = true);
    ~CMNManualClock();
    CMNManualClock(const CMNManualClock&) = delete;
    CMNManualClock& operator=(const CMNManualClock&) = delete;

    // Moves time on and wakes whoever was due. Thread: any.
    void Advance(const CMNTimeValue& step);

    // Switches moving by itself on or off. Thread: any.
    void SetAutoAdvance(bool on);
};

}  // namespace mantle

#endif
