// Waiting for readiness.
#ifndef IPSTACK_CIPWAITING_H
#define IPSTACK_CIPWAITING_H

#include <cstdint>

#include "CIPReadiness.h"
#include "mantle/CMNBurst.h"
#include "mantle/CMNClock.h"
#include "mantle/CMNWaiter.h"

namespace ipstack
{

class CIPWaiting
{
public:
    static constexpr long long s_llForever = mantle::CMNWaiter::s_llForever;

    // The deadline that lies `milliseconds` ahead; negative: none.
    static long long DeadlineAfter(long long milliseconds) noexcept
    {
        return milliseconds < 0 ? s_llForever : mantle::CMNClock::NowUs() + milliseconds * 1000;
    }

    // Sleeps until `look()` is not 0 or the deadline has passed. `watch(record)` enters the waiter at every handle
    // that the look depends on. Returns what the last look returned.
    template <class Look, class Watch>
    static int Until(long long deadlineUs, Look look, Watch watch)
    {
        CIPWaiterRecord& record = CIPWaiterRecord::Current();
        mantle::CMNWaiter& waiter = record.m_Waiter;
        mantle::CMNBurst::Finish();  // the work may wait itself
        record.m_bWaiting.store(true);
        int ready;
        for (;;) {
            const std::uint32_t sequence = waiter.GetSequence();
            watch(record);
            ready = look();
            if (ready != 0) {
                break;
            }
            if (!waiter.Wait(sequence, deadlineUs)) {
                ready = look();
                if (ready != 0 || (deadlineUs != s_llForever && mantle::CMNClock::NowUs() >= deadlineUs)) {
                    break;
                }
            }
        }
        record.m_bWaiting.store(false);
        return ready;
    }

    // Sleeps until the handle has one of `bits`, fails or is closed.
    static void ForHandle(int handle, std::uint32_t bits)
    {
        const std::uint32_t wanted = bits | CIPReadiness::s_dwError | CIPReadiness::s_dwHangUp;
        Until(
            s_llForever, [=] { return (CIPReadiness::Get(handle) & wanted) != 0 ? 1 : 0; },
            [=](CIPWaiterRecord& record) { CIPReadiness::Watch(handle, record); });
    }
};

}  // namespace ipstack

#endif
