#include "mantle/CMNMutexThread.h"

#include <thread>

#include "MantleTest.h"

namespace mantle
{
namespace
{

TEST(CMNMutexThreadTest, Unlocked_LockedAndUnlocked_BothZero)
{
    CMNMutexThread mutex;
    const int locked = mutex.Lock();
    EXPECT_EQ(locked, 0);
    EXPECT_EQ(mutex.UnLock(), 0);
}

TEST(CMNMutexThreadTest, FourThreads_Count_NothingIsLost)
{
    CMNMutexThread mutex;
    long count = 0;
    std::vector<std::thread> threads;
    for (int index = 0; index < 4; ++index) {
        threads.emplace_back([&] {
            for (int step = 0; step < 10000; ++step) {
                CMNMutexGuard guard(mutex);
                ++count;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(count, 40000);
}

TEST(CMNMutexNullSingleThreadTest, OwnThread_Locked_NoReport)
{
    CMNMutexNullSingleThread lock;
    const int locked = lock.Lock();
    EXPECT_EQ(locked, 0);
    EXPECT_EQ(lock.UnLock(), 0);
}

TEST(CMNMutexNullSingleThreadTest, OtherThread_Locked_Reported)
{
    const CCatchReports reports;
    CMNMutexNullSingleThread lock;
    std::thread other([&lock] { CMNMutexGuardT<CMNMutexNullSingleThread> guard(lock); });
    other.join();
    ASSERT_EQ(reports.Reports().size(), 1u);
    EXPECT_EQ(reports.Reports()[0].m_dwBoundThread, CMNThreadManager::GetThreadSelfId());
}

}  // namespace
}  // namespace mantle
