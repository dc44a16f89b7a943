#include "mantle/CMNStopFlag.h"

#include <thread>

#include "MantleTest.h"

namespace mantle
{
namespace
{

TEST(CMNStopFlagTest, Made_Read_StoppedAndUnbound)
{
    CMNStopFlag flag;
    EXPECT_EQ(flag.GetStopFlag(), 1);
    EXPECT_TRUE(flag.IsFlagStopped());
    EXPECT_EQ(flag.GetStopFlagThread(), 0u);
    EXPECT_TRUE(flag.EnsureStopFlagThread("here"));
}

TEST(CMNStopFlagTest, Set_StartAndStop_ZeroAndReadable)
{
    CMNStopFlag flag;
    EXPECT_EQ(flag.SetStartFlag(), MN_OK);
    EXPECT_EQ(flag.GetStopFlag(), 0);
    EXPECT_FALSE(flag.IsFlagStopped());
    EXPECT_EQ(flag.SetStopFlag(), MN_OK);
    EXPECT_EQ(flag.GetStopFlag(), 1);
}

TEST(CMNStopFlagTest, BoundToAnotherThread_SetAndRead_NoCheckButTheCheckFails)
{
    const CCatchReports reports;
    CMNStopFlag flag;
    flag.BindStopFlagToThread(CMNThreadManager::GetThreadSelfId() + 4711);
    EXPECT_EQ(flag.SetStartFlag(), MN_OK);
    EXPECT_EQ(flag.SetStopFlag(), MN_OK);
    EXPECT_EQ(flag.GetStopFlag(), 1);
    EXPECT_TRUE(reports.Reports().empty());
    EXPECT_FALSE(flag.EnsureStopFlagThread("here"));
    EXPECT_EQ(reports.Reports().size(), 1u);
}

TEST(CMNStopFlagTest, BoundToThisThread_Checked_Passes)
{
    CMNStopFlag flag;
    flag.BindStopFlagToCurrentThread();
    EXPECT_EQ(flag.GetStopFlagThread(), CMNThreadManager::GetThreadSelfId());
    EXPECT_TRUE(flag.EnsureStopFlagThread("here"));
}

}  // namespace
}  // namespace mantle
