#include "mantle/CMNEnsureSingleThread.h"

#include <algorithm>
#include <thread>

#include "MantleTest.h"
#include "mantle/CMNClock.h"

namespace mantle
{
namespace
{

template <class F>
void OnOtherThread(F run)
{
    std::thread thread(run);
    thread.join();
}

TEST(CMNEnsureSingleThreadTest, NotBound_CheckedAnywhere_Passes)
{
    CMNEnsureSingleThread check;
    EXPECT_EQ(check.GetThread(), 0u);
    EXPECT_TRUE(check.EnsureSingleThread("here"));
    OnOtherThread([&check] { EXPECT_TRUE(check.EnsureSingleThread("there")); });
}

TEST(CMNEnsureSingleThreadTest, BoundToThisThread_CheckedHere_Passes)
{
    CMNEnsureSingleThread check;
    check.SetToCurrentThread();
    EXPECT_EQ(check.GetThread(), CMNThreadManager::GetThreadSelfId());
    EXPECT_TRUE(check.EnsureSingleThread("here"));
}

TEST(CMNEnsureSingleThreadTest, BoundToThisThread_CheckedElsewhere_ReportedWithBothIdsAndThePlace)
{
    const CCatchReports reports;
    CMNEnsureSingleThread check;
    check.SetToCurrentThread();
    unsigned long other = 0;
    OnOtherThread([&] {
        other = CMNThreadManager::GetThreadSelfId();
        EXPECT_FALSE(check.EnsureSingleThread("the place"));
    });
    ASSERT_EQ(reports.Reports().size(), 1u);
    EXPECT_STREQ(reports.Reports()[0].m_szPlace, "the place");
    EXPECT_EQ(reports.Reports()[0].m_dwBoundThread, CMNThreadManager::GetThreadSelfId());
    EXPECT_EQ(reports.Reports()[0].m_dwThisThread, other);
}

TEST(CMNEnsureSingleThreadTest, BoundToAGivenThread_CheckedHere_Fails)
{
    const CCatchReports reports;
    CMNEnsureSingleThread check;
    check.SetToThread(CMNThreadManager::GetThreadSelfId() + 12345);
    EXPECT_FALSE(check.IsSatisfied());
    EXPECT_TRUE(reports.Reports().empty());
    EXPECT_FALSE(check.EnsureSingleThread("here"));
    EXPECT_EQ(reports.Reports().size(), 1u);
}

TEST(CMNEnsureSingleThreadTest, Reset_CheckedElsewhere_Passes)
{
    CMNEnsureSingleThread check;
    check.SetToCurrentThread();
    check.Reset();
    OnOtherThread([&check] { EXPECT_TRUE(check.EnsureSingleThread("there")); });
}

TEST(CMNEnsureSingleThreadTest, DefaultHandler_ManyFailures_OneTraceLineAPlaceAndSecondAndNoAbort)
{
    CMNManualClock clock(false);
    const CMNEnsureSingleThread::FHandler before = CMNEnsureSingleThread::SetHandler(nullptr);
    CMNEnsureSingleThread check;
    check.SetToThread(777777);
    const auto failures = [&check] {
        testing::internal::CaptureStderr();
        for (int count = 0; count < 100; ++count) {
            EXPECT_FALSE(check.EnsureSingleThread("place one"));
            EXPECT_FALSE(check.EnsureSingleThread("place two"));
        }
        return testing::internal::GetCapturedStderr();
    };
    const std::string first = failures();
    EXPECT_EQ(std::count(first.begin(), first.end(), '\n'), 2);
    EXPECT_THAT(first, testing::HasSubstr("place one"));
    EXPECT_THAT(first, testing::HasSubstr("777777"));
    EXPECT_THAT(first, testing::HasSubstr(std::to_string(CMNThreadManager::GetThreadSelfId())));
    clock.Advance(CMNTimeValue(0, 999999));
    EXPECT_EQ(failures(), "");
    clock.Advance(CMNTimeValue(0, 1));
    const std::string later = failures();
    EXPECT_EQ(std::count(later.begin(), later.end(), '\n'), 2);
    CMNEnsureSingleThread::SetHandler(before);
}

TEST(CMNEnsureSingleThreadTest, HandlerSet_SetAgain_TheOneBeforeIsReturned)
{
    const auto first = [](const CMNSingleThreadReport&) {};
    const CMNEnsureSingleThread::FHandler before = CMNEnsureSingleThread::SetHandler(first);
    EXPECT_EQ(CMNEnsureSingleThread::SetHandler(before), static_cast<CMNEnsureSingleThread::FHandler>(first));
}

}  // namespace
}  // namespace mantle
