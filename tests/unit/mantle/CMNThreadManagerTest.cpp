#include "mantle/CMNThreadManager.h"

#include <set>
#include <thread>

#include "MantleTest.h"
#include "mantle/CMNThreadUser.h"

namespace mantle
{
namespace
{

TEST(CMNThreadManagerTest, ThreadThatNobodyAdopted_Asked_Null)
{
    EXPECT_EQ(CMNThreadManager::Instance()->GetThread(CMNThreadManager::TT_CURRENT), nullptr);
    std::thread plain(
        [] { EXPECT_EQ(CMNThreadManager::Instance()->GetThread(CMNThreadManager::TT_CURRENT), nullptr); });
    plain.join();
}

TEST(CMNThreadManagerTest, Current_IsThree_AndNewTypesNeverAre)
{
    EXPECT_EQ(CMNThreadManager::TT_CURRENT, 3);
    std::set<CMNThreadManager::TType> types;
    for (int count = 0; count < 1000; ++count) {
        const CMNThreadManager::TType type = CMNThreadManager::Instance()->GetNewThreadType();
        EXPECT_NE(type, 3);
        EXPECT_NE(type, CMNThreadManager::TT_MAIN);
        EXPECT_TRUE(types.insert(type).second);
    }
}

TEST(CMNThreadManagerTest, UnknownType_Asked_Null)
{
    EXPECT_EQ(CMNThreadManager::Instance()->GetThread(987654), nullptr);
}

TEST(CMNThreadManagerTest, EndedThread_AskedByType_StillThereUntilDeleted)
{
    CMNThreadManager* manager = CMNThreadManager::Instance();
    const CMNThreadManager::TType type = manager->GetNewThreadType();
    {
        CTestThread thread;
        ASSERT_EQ(thread.Create(type), MN_OK);
        thread.Join();
        EXPECT_EQ(manager->GetThread(type), &thread);
    }
    EXPECT_EQ(manager->GetThread(type), nullptr);
}

TEST(CMNThreadManagerTest, Attached_OtherThreads_SeeTheirOwnOnly)
{
    CMNThreadManager* manager = CMNThreadManager::Instance();
    CTestThread mine;
    EXPECT_EQ(manager->AttachCurrentThread(&mine), nullptr);
    EXPECT_EQ(manager->GetThread(CMNThreadManager::TT_CURRENT), &mine);
    std::thread plain([manager] { EXPECT_EQ(manager->GetThread(CMNThreadManager::TT_CURRENT), nullptr); });
    plain.join();
    EXPECT_EQ(manager->AttachCurrentThread(nullptr), &mine);
    EXPECT_EQ(manager->GetThread(CMNThreadManager::TT_CURRENT), nullptr);
}

TEST(CMNThreadManagerTest, ThreadIds_Compared_OwnOnly)
{
    const unsigned long self = CMNThreadManager::GetThreadSelfId();
    EXPECT_NE(self, 0u);
    EXPECT_EQ(CMNThreadManager::GetThreadSelfId(), self);
    EXPECT_TRUE(CMNThreadManager::IsEqualCurrentThread(self));
    EXPECT_FALSE(CMNThreadManager::IsEqualCurrentThread(self + 1));
    EXPECT_FALSE(CMNThreadManager::IsEqualCurrentThread(0));
}

TEST(CMNThreadManagerTest, SingletonMutex_LockedTwiceByItsHolder_NoDeadlock)
{
    CMNMutexThreadBase* mutex = CMNThreadManager::Instance()->GetSingletonMutex();
    ASSERT_NE(mutex, nullptr);
    const CMNMutexGuardT<CMNMutexThreadBase> guard(*mutex);
    CMNMutexThreadBase* again = CMNThreadManager::Instance()->GetSingletonMutex();
    const CMNMutexGuardT<CMNMutexThreadBase> inner(*again);
    EXPECT_EQ(mutex, again);
}

TEST(CMNThreadManagerTest, NothingEnded_Asked_NotCleaningUp)
{
    EXPECT_FALSE(CMNThreadManager::Instance()->IsCleaningUp());
}

}  // namespace
}  // namespace mantle
