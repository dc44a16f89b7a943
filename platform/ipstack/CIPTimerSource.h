// Something inside the stack that has deadlines of its own.
#ifndef IPSTACK_CIPTIMERSOURCE_H
#define IPSTACK_CIPTIMERSOURCE_H

#include <climits>

namespace ipstack
{

// The stack's timer thread asks each registered source for its deadline, sleeps until the earliest and runs what
// is due. CIPCore::AddTimerSource registers a source, CIPCore::RemoveTimerSource takes it out and waits for a
// running Run, CIPCore::WakeTimerThread makes the thread ask again because a deadline moved to an earlier time.
class CIPTimerSource
{
public:
    static constexpr long long NoDeadline = LLONG_MAX;

    virtual ~CIPTimerSource() = default;

    // The next deadline on the one clock, NoDeadline when there is none. Thread: the timer thread, without the
    // core lock. Must be cheap and must take no lock under which the core lock is taken.
    virtual long long NextDeadlineUs() = 0;

    // Does what is due. Thread: the timer thread, without the core lock; packets may be fed into links.
    virtual void Run(long long nowUs) = 0;
};

}  // namespace ipstack

#endif
