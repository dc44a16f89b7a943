#include "mantle/CMNTimeValue.h"

#include <gtest/gtest.h>

#include <climits>

namespace mantle
{
namespace
{

TEST(CMNTimeValueTest, DefaultMade_Read_Zero)
{
    const CMNTimeValue value;
    EXPECT_EQ(value.GetSec(), 0);
    EXPECT_EQ(value.GetUsec(), 0);
    EXPECT_EQ(value, CMNTimeValue::s_tvZero);
}

TEST(CMNTimeValueTest, TooManyMicroseconds_Made_CarriedIntoSeconds)
{
    const CMNTimeValue value(1, 2500000);
    EXPECT_EQ(value.GetSec(), 3);
    EXPECT_EQ(value.GetUsec(), 500000);
}

TEST(CMNTimeValueTest, MixedSigns_Made_BothPartsGetTheSignOfTheWhole)
{
    const CMNTimeValue positive(2, -250000);
    EXPECT_EQ(positive.GetSec(), 1);
    EXPECT_EQ(positive.GetUsec(), 750000);
    const CMNTimeValue negative(-2, 250000);
    EXPECT_EQ(negative.GetSec(), -1);
    EXPECT_EQ(negative.GetUsec(), -750000);
    const CMNTimeValue small(0, -1);
    EXPECT_EQ(small.GetSec(), 0);
    EXPECT_EQ(small.GetUsec(), -1);
    const CMNTimeValue cancelling(1, -1500000);
    EXPECT_EQ(cancelling.GetSec(), 0);
    EXPECT_EQ(cancelling.GetUsec(), -500000);
}

TEST(CMNTimeValueTest, PartOfAMillisecond_InMsec_RoundedUp)
{
    EXPECT_EQ(CMNTimeValue(0, 0).GetTotalInMsec(), 0);
    EXPECT_EQ(CMNTimeValue(0, 1).GetTotalInMsec(), 1);
    EXPECT_EQ(CMNTimeValue(0, 999).GetTotalInMsec(), 1);
    EXPECT_EQ(CMNTimeValue(0, 1000).GetTotalInMsec(), 1);
    EXPECT_EQ(CMNTimeValue(0, 1001).GetTotalInMsec(), 2);
    EXPECT_EQ(CMNTimeValue(3, 999999).GetTotalInMsec(), 4000);
}

TEST(CMNTimeValueTest, Max_InMsec_WaitsWithoutLimit)
{
    EXPECT_EQ(CMNTimeValue::s_tvMax.GetTotalInMsec(), -1);
}

TEST(CMNTimeValueTest, LongValue_InMsec_CappedNotWrapped)
{
    EXPECT_EQ(CMNTimeValue(INT_MAX, 0).GetTotalInMsec(), INT_MAX);
    EXPECT_EQ(CMNTimeValue(LONG_MAX, 0).GetTotalInMsec(), INT_MAX);
    EXPECT_EQ(CMNTimeValue(INT_MAX / 1000, 647001).GetTotalInMsec(), INT_MAX);
    EXPECT_EQ(CMNTimeValue(INT_MAX / 1000 - 1, 0).GetTotalInMsec(), (INT_MAX / 1000 - 1) * 1000L);
}

TEST(CMNTimeValueTest, BelowZero_InMsec_ZeroAndNeverWithoutLimit)
{
    EXPECT_EQ(CMNTimeValue(0, -1000).GetTotalInMsec(), 0);
    EXPECT_EQ(CMNTimeValue(-5, 0).GetTotalInMsec(), 0);
}

TEST(CMNTimeValueTest, Microseconds_ThereAndBack_Same)
{
    for (const long long value : {0LL, 1LL, -1LL, 999999LL, 1000000LL, -1500001LL, 86400000000LL})
        EXPECT_EQ(CMNTimeValue::FromUsec(value).GetTotalInUsec(), value);
    EXPECT_EQ(CMNTimeValue::s_tvMax.GetTotalInUsec(), LLONG_MAX);
    EXPECT_EQ(CMNTimeValue::FromUsec(LLONG_MAX), CMNTimeValue::s_tvMax);
    EXPECT_EQ(CMNTimeValue(LONG_MAX / 2, 0).GetTotalInUsec(), LLONG_MAX);
    EXPECT_EQ(CMNTimeValue(LONG_MIN / 2, 0).GetTotalInUsec(), LLONG_MIN);
}

TEST(CMNTimeValueTest, Sum_BeyondTheLargest_StaysMax)
{
    EXPECT_EQ(CMNTimeValue::s_tvMax + CMNTimeValue(1, 0), CMNTimeValue::s_tvMax);
    EXPECT_EQ(CMNTimeValue(1, 0) + CMNTimeValue::s_tvMax, CMNTimeValue::s_tvMax);
    EXPECT_EQ(CMNTimeValue(LONG_MAX, 0) + CMNTimeValue(1, 0), CMNTimeValue::s_tvMax);
    EXPECT_EQ(CMNTimeValue(LONG_MAX - 1, 999999) + CMNTimeValue(0, 999999), CMNTimeValue(LONG_MAX, 999998));
    EXPECT_EQ(CMNTimeValue(LONG_MAX, 999998) + CMNTimeValue(0, 999998), CMNTimeValue::s_tvMax);
}

TEST(CMNTimeValueTest, Difference_OfMax_NeverWraps)
{
    EXPECT_EQ(CMNTimeValue::s_tvMax - CMNTimeValue(100, 0), CMNTimeValue::s_tvMax);
    EXPECT_EQ(CMNTimeValue::s_tvMax - CMNTimeValue::s_tvMax, CMNTimeValue::s_tvMax);
    EXPECT_LT(CMNTimeValue(1, 0) - CMNTimeValue::s_tvMax, CMNTimeValue(LONG_MIN / 2, 0));
    EXPECT_EQ(CMNTimeValue(LONG_MAX, 0) - CMNTimeValue(-1, 0), CMNTimeValue::s_tvMax);
    EXPECT_LT(CMNTimeValue(-LONG_MAX, 0) - CMNTimeValue(100, 0), CMNTimeValue(LONG_MIN / 2, 0));
}

TEST(CMNTimeValueTest, Difference_AcrossZero_Normalised)
{
    const CMNTimeValue value = CMNTimeValue(1, 0) - CMNTimeValue(2, 500000);
    EXPECT_EQ(value.GetSec(), -1);
    EXPECT_EQ(value.GetUsec(), -500000);
    EXPECT_EQ(value + CMNTimeValue(2, 500000), CMNTimeValue(1, 0));
}

TEST(CMNTimeValueTest, Values_Compared_OrderOfTime)
{
    EXPECT_LT(CMNTimeValue(1, 5), CMNTimeValue(1, 6));
    EXPECT_LT(CMNTimeValue(-1, -6), CMNTimeValue(-1, -5));
    EXPECT_LT(CMNTimeValue(0, -1), CMNTimeValue(0, 0));
    EXPECT_LE(CMNTimeValue(1, 5), CMNTimeValue(1, 5));
    EXPECT_GE(CMNTimeValue(1, 5), CMNTimeValue(1, 5));
    EXPECT_GT(CMNTimeValue(2, 0), CMNTimeValue(1, 999999));
    EXPECT_NE(CMNTimeValue(2, 0), CMNTimeValue(2, 1));
    EXPECT_LT(CMNTimeValue(LONG_MAX, 0), CMNTimeValue::s_tvMax);
}

TEST(CMNTimeValueTest, TimeOfDay_Read_AfterThisWasWritten)
{
    EXPECT_GT(CMNTimeValue::GetTimeOfDay(), CMNTimeValue(1600000000, 0));
}

TEST(CMNTimeValueTest, Monotonic_ReadTwice_NotBack)
{
    const CMNTimeValue first = CMNTimeValue::GetMonotonic();
    EXPECT_GE(CMNTimeValue::GetMonotonic(), first);
}

}  // namespace
}  // namespace mantle
