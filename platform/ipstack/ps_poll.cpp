#include <algorithm>
#include <cstring>

#include "CIPError.h"
#include "CIPInputBatch.h"
#include "CIPReadiness.h"
#include "CIPWaiting.h"
#include "ipstack/ps_socket.h"

using namespace ipstack;

namespace
{

constexpr std::uint32_t s_dwFailure = CIPReadiness::s_dwError | CIPReadiness::s_dwHangUp;
constexpr long s_lUsecPerMsec = 1000;
constexpr long s_lMsecPerSec = 1000;
constexpr long s_lMostSec = 1000000000;  // a longer limit is this: its microseconds fit any clock's

int LookAtEntries(ps_pollfd* entries, unsigned int count) noexcept
{
    int ready = 0;
    for (unsigned int i = 0; i < count; ++i) {
        ps_pollfd& entry = entries[i];
        if (entry.fd < 0) {
            entry.revents = 0;
            continue;
        }
        const std::uint32_t asked = (static_cast<std::uint32_t>(entry.events) & CIPReadiness::s_dwEvents) | s_dwFailure;
        entry.revents = static_cast<short>(CIPReadiness::Get(entry.fd) & asked);
        ready += entry.revents != 0;
    }
    return ready;
}

unsigned int CountOf(const ps_fdlist& list) noexcept
{
    return std::min<unsigned int>(list.count, PS_FD_SETSIZE);
}

// Writes the handles of `in` that have one of `bits` to `out`, which may be `in`.
int LookAtList(const ps_fdlist& in, ps_fdlist& out, std::uint32_t bits) noexcept
{
    unsigned int found = 0;
    const unsigned int count = CountOf(in);
    for (unsigned int i = 0; i < count; ++i) {
        if (in.handles[i] >= 0 && (CIPReadiness::Get(in.handles[i]) & bits) != 0) {
            out.handles[found++] = in.handles[i];
        }
    }
    out.count = found;
    return static_cast<int>(found);
}

int LookAtSets(const ps_fdsets& in, ps_fdsets& out) noexcept
{
    return LookAtList(in.read, out.read, CIPReadiness::s_dwIn | s_dwFailure) +
           LookAtList(in.write, out.write, CIPReadiness::s_dwOut | s_dwFailure) +
           LookAtList(in.except, out.except, s_dwFailure);
}

bool IsAnyReady(const ps_fdlist& list, std::uint32_t bits) noexcept
{
    for (unsigned int i = 0; i < CountOf(list); ++i) {
        if (list.handles[i] >= 0 && (CIPReadiness::Get(list.handles[i]) & bits) != 0) {
            return true;
        }
    }
    return false;
}

void WatchList(const ps_fdlist& list, CIPWaiterRecord& record) noexcept
{
    for (unsigned int i = 0; i < CountOf(list); ++i) {
        if (list.handles[i] >= 0) {
            CIPReadiness::Watch(list.handles[i], record);
        }
    }
}

long long TimeOutMs(const ps_timeval* timeout) noexcept
{
    if (!timeout) {
        return -1;
    }
    const long long sec = std::min(std::max(timeout->tv_sec, -s_lMostSec), s_lMostSec);
    const long long usec = timeout->tv_usec;
    const long long msec = sec * s_lMsecPerSec + usec / s_lUsecPerMsec + (usec % s_lUsecPerMsec > 0 ? 1 : 0);
    return std::min(std::max(0LL, msec), static_cast<long long>(s_lMostSec) * s_lMsecPerSec);
}

}  // namespace

extern "C" {

int ps_poll(ps_pollfd* entries, unsigned int count, int timeout)
{
    if (!entries && count != 0) {
        return CIPError::Fail(PS_EINVAL);
    }
    CIPInputBatch::Settle();
    const int ready = LookAtEntries(entries, count);
    if (ready != 0 || timeout == 0) {
        return ready;
    }
    return CIPWaiting::Until(
        CIPWaiting::DeadlineAfter(timeout), [=] { return LookAtEntries(entries, count); },
        [=](CIPWaiterRecord& record) {
            for (unsigned int i = 0; i < count; ++i) {
                if (entries[i].fd >= 0) {
                    CIPReadiness::Watch(entries[i].fd, record);
                }
            }
        });
}

int ps_select(int, const ps_fdsets* in, ps_fdsets* out, const ps_timeval* timeout)
{
    static const ps_fdsets s_Nothing{};
    const ps_fdsets& asked = in ? *in : s_Nothing;
    if (!out) {
        return CIPError::Fail(PS_EINVAL);
    }
    CIPInputBatch::Settle();
    const long long msec = TimeOutMs(timeout);
    if (msec != 0) {
        CIPWaiting::Until(
            CIPWaiting::DeadlineAfter(msec),
            [&] {
                return IsAnyReady(asked.read, CIPReadiness::s_dwIn | s_dwFailure) ||
                               IsAnyReady(asked.write, CIPReadiness::s_dwOut | s_dwFailure) ||
                               IsAnyReady(asked.except, s_dwFailure)
                           ? 1
                           : 0;
            },
            [&](CIPWaiterRecord& record) {
                WatchList(asked.read, record);
                WatchList(asked.write, record);
                WatchList(asked.except, record);
            });
    }
    return LookAtSets(asked, *out);
}

}  // extern "C"
