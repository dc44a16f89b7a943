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

    // Lets `step` of this clock pass on the calling thread, which waits meanwhile as any other. Under a
    // hand-moved clock that moves by itself everything that is due within `step` runs before this returns.
    static void Sleep(const CMNTimeValue& step);
};

// Makes the calling thread, while the object lives, one that the hand-moved clock waits for: time does not move
// by itself unless this thread waits too. Threads of the framework (started, or adopted) are that already. It is
// for the others that time matters to: a stack's own timer thread, a test's plain threads. A thread that is none
// of these holds the clock back only from the moment its wait in a CMNWaiter is over until it has left it.
// Such a thread must do all its waiting through the framework (CMNWaiter, CMNEventThread, Join, SendEvent,
// CMNClock::Sleep, the stack's blocking calls): while it is blocked in anything else, time stands still.
// Scopes nest. Without a hand-moved clock it costs one count at its beginning and end.
class MANTLE_API CMNClockParticipant
{
public:
    CMNClockParticipant();
    ~CMNClockParticipant();
    CMNClockParticipant(const CMNClockParticipant&) = delete;
    CMNClockParticipant& operator=(const CMNClockParticipant&) = delete;
};

// While an object of this class lives, time stands still unless moved: nobody sleeps for time.
//
// Once every participant (CMNClockParticipant, and every framework thread from before it starts until it has
// ended) waits in a CMNWaiter and nobody who waits has been signalled, the clock moves on to the earliest
// deadline of all who wait, participants or not, and wakes that one waiter; the next step comes when all wait
// again. Equal deadlines are woken one after the other, the older thread first, so that a run repeats exactly as
// far as its threads do not run at the same time for other reasons.
// A waiter that has been signalled, or whose deadline has come, counts as running before it has woken up.
//
// Time starts at a full ten seconds of CMNClock and goes on from where it was left when the object goes. What
// waits already follows the change at once, but see time jump by up to ten seconds: make it before the threads
// that are to follow it. One at a time: a second object does nothing. The clean-up at the end of the process
// puts the real clock back.
class MANTLE_API CMNManualClock
{
public:
    // `autoAdvance` false: time moves by Advance only.
    explicit CMNManualClock(bool autoAdvance = true);
    ~CMNManualClock();
    CMNManualClock(const CMNManualClock&) = delete;
    CMNManualClock& operator=(const CMNManualClock&) = delete;

    // Moves time on in one step and wakes whoever is due then, all at once. Thread: any.
    void Advance(const CMNTimeValue& step);

    // Switches moving by itself on or off. Thread: any.
    void SetAutoAdvance(bool on);

    // How often the clock has moved by itself to a deadline. Thread: any.
    unsigned long long GetSteps() const;

private:
    bool m_bInForce;
};

}  // namespace mantle

#endif
