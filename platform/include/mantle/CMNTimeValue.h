// A span or point of time in seconds and microseconds.
#ifndef MANTLE_CMNTIMEVALUE_H
#define MANTLE_CMNTIMEVALUE_H

#include "mantle/MNDefines.h"

namespace mantle
{

// Normalised: the microseconds are in [0, 1000000) for values from zero up, in (-1000000, 0] below.
class MANTLE_API CMNTimeValue
{
public:
    CMNTimeValue() noexcept = default;
    CMNTimeValue(long seconds, long microseconds) noexcept;

    void Set(long seconds, long microseconds) noexcept;
    long GetSec() const noexcept { return m_lSec; }
    long GetUsec() const noexcept { return m_lUsec; }

    // Whole milliseconds, rounded up, as a waiting call takes them. s_tvMax: -1 (wait without limit); any other
    // value is capped at INT_MAX, and below zero at 0.
    long GetTotalInMsec() const noexcept;

    // Microseconds; s_tvMax and what does not fit: the largest value (the smallest when negative).
    long long GetTotalInUsec() const noexcept;
    static CMNTimeValue FromUsec(long long microseconds) noexcept;

    // Both saturate at s_tvMax and never wrap; s_tvMax less anything stays s_tvMax.
    CMNTimeValue& operator+=(const CMNTimeValue& other) noexcept;
    CMNTimeValue& operator-=(const CMNTimeValue& other) noexcept;

    // Now, by the clock in force (CMNClock.h): monotonic, and wall-clock time.
    static CMNTimeValue GetMonotonic();
    static CMNTimeValue GetTimeOfDay();

    static const CMNTimeValue s_tvZero;
    static const CMNTimeValue s_tvMax;

private:
    struct CNormalized
    {
    };
    constexpr CMNTimeValue(CNormalized, long seconds, long microseconds) noexcept
        : m_lSec(seconds), m_lUsec(microseconds)
    {
    }

    long m_lSec = 0;
    long m_lUsec = 0;
};

MANTLE_API bool operator==(const CMNTimeValue& a, const CMNTimeValue& b) noexcept;
MANTLE_API bool operator!=(const CMNTimeValue& a, const CMNTimeValue& b) noexcept;
MANTLE_API bool operator<(const CMNTimeValue& a, const CMNTimeValue& b) noexcept;
MANTLE_API bool operator<=(const CMNTimeValue& a, const CMNTimeValue& b) noexcept;
MANTLE_API bool operator>(const CMNTimeValue& a, const CMNTimeValue& b) noexcept;
MANTLE_API bool operator>=(const CMNTimeValue& a, const CMNTimeValue& b) noexcept;
MANTLE_API CMNTimeValue operator+(CMNTimeValue a, const CMNTimeValue& b) noexcept;
MANTLE_API CMNTimeValue operator-(CMNTimeValue a, const CMNTimeValue& b) noexcept;

}  // namespace mantle

#endif
