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

    // Whole milliseconds, rounded up. s_tvMax: -1 (wait without limit); any other value is capped at INT_MAX.
    long GetTotalInMsec() const noexcept;

    // Both additions saturate at s_tvMax and never wrap.
    CMNTimeValue& operator+=(const CMNTimeValue& other) noexcept;
    CMNTimeValue& operator-=(const CMNTimeValue& other) noexcept;

    // Now, by the clock in force (CMNClock.h): monotonic, and wall-clock time.
    static CMNTimeValue GetMonotonic();
    static CMNTimeValue GetTimeOfDay();

    static const CMNTimeValue s_tvZero;
    static const CMNTimeValue s_tvMax;

private:
    void Normalize() noexcept;

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
