#include "mantle/CMNTimeValue.h"

#include <climits>

#include "mantle/CMNClock.h"

namespace mantle
{

namespace
{

constexpr long s_lUsecPerSec = 1000000;
constexpr long s_lUsecPerMsec = 1000;
constexpr long s_lMsecPerSec = 1000;

}  // namespace

const CMNTimeValue CMNTimeValue::s_tvZero{CNormalized{}, 0, 0};
const CMNTimeValue CMNTimeValue::s_tvMax{CNormalized{}, LONG_MAX, s_lUsecPerSec - 1};

CMNTimeValue::CMNTimeValue(long seconds, long microseconds) noexcept
{
    Set(seconds, microseconds);
}

void CMNTimeValue::Set(long seconds, long microseconds) noexcept
{
    m_lUsec = microseconds % s_lUsecPerSec;
    if (__builtin_add_overflow(seconds, microseconds / s_lUsecPerSec, &m_lSec)) {
        m_lSec = seconds < 0 ? -LONG_MAX : LONG_MAX;
        m_lUsec = seconds < 0 ? 1 - s_lUsecPerSec : s_lUsecPerSec - 1;
        return;
    }
    if (m_lSec > 0 && m_lUsec < 0) {
        --m_lSec;
        m_lUsec += s_lUsecPerSec;
    } else if (m_lSec < 0 && m_lUsec > 0) {
        ++m_lSec;
        m_lUsec -= s_lUsecPerSec;
    }
}

long CMNTimeValue::GetTotalInMsec() const noexcept
{
    if (*this == s_tvMax)
        return -1;
    if (m_lSec < 0 || m_lUsec < 0)
        return 0;
    if (m_lSec >= INT_MAX / s_lMsecPerSec)
        return INT_MAX;
    return m_lSec * s_lMsecPerSec + (m_lUsec + s_lUsecPerMsec - 1) / s_lUsecPerMsec;
}

long long CMNTimeValue::GetTotalInUsec() const noexcept
{
    long long total = 0;
    if (*this == s_tvMax || __builtin_mul_overflow(m_lSec, s_lUsecPerSec, &total) ||
        __builtin_add_overflow(total, m_lUsec, &total))
        return m_lSec < 0 ? LLONG_MIN : LLONG_MAX;
    return total;
}

CMNTimeValue CMNTimeValue::FromUsec(long long microseconds) noexcept
{
    if (microseconds == LLONG_MAX)
        return s_tvMax;
    return CMNTimeValue(static_cast<long>(microseconds / s_lUsecPerSec),
                        static_cast<long>(microseconds % s_lUsecPerSec));
}

CMNTimeValue& CMNTimeValue::operator+=(const CMNTimeValue& other) noexcept
{
    long seconds = 0;
    if (*this == s_tvMax || other == s_tvMax)
        *this = s_tvMax;
    else if (!__builtin_add_overflow(m_lSec, other.m_lSec, &seconds))
        Set(seconds, m_lUsec + other.m_lUsec);
    else if (m_lSec > 0)
        *this = s_tvMax;
    else
        *this = CMNTimeValue(-LONG_MAX, 1 - s_lUsecPerSec);
    return *this;
}

CMNTimeValue& CMNTimeValue::operator-=(const CMNTimeValue& other) noexcept
{
    long seconds = 0;
    if (*this == s_tvMax)
        return *this;
    if (other != s_tvMax && !__builtin_sub_overflow(m_lSec, other.m_lSec, &seconds))
        Set(seconds, m_lUsec - other.m_lUsec);
    else if (other.m_lSec > 0)
        *this = CMNTimeValue(-LONG_MAX, 1 - s_lUsecPerSec);
    else
        *this = s_tvMax;
    return *this;
}

CMNTimeValue CMNTimeValue::GetMonotonic()
{
    return CMNClock::Now();
}

CMNTimeValue CMNTimeValue::GetTimeOfDay()
{
    return CMNClock::TimeOfDay();
}

bool operator==(const CMNTimeValue& a, const CMNTimeValue& b) noexcept
{
    return a.GetSec() == b.GetSec() && a.GetUsec() == b.GetUsec();
}

bool operator!=(const CMNTimeValue& a, const CMNTimeValue& b) noexcept
{
    return !(a == b);
}

bool operator<(const CMNTimeValue& a, const CMNTimeValue& b) noexcept
{
    return a.GetSec() != b.GetSec() ? a.GetSec() < b.GetSec() : a.GetUsec() < b.GetUsec();
}

bool operator<=(const CMNTimeValue& a, const CMNTimeValue& b) noexcept
{
    return !(b < a);
}

bool operator>(const CMNTimeValue& a, const CMNTimeValue& b) noexcept
{
    return b < a;
}

bool operator>=(const CMNTimeValue& a, const CMNTimeValue& b) noexcept
{
    return !(a < b);
}

CMNTimeValue operator+(CMNTimeValue a, const CMNTimeValue& b) noexcept
{
    return a += b;
}

CMNTimeValue operator-(CMNTimeValue a, const CMNTimeValue& b) noexcept
{
    return a -= b;
}

}  // namespace mantle
