#include "mantle/CMNThread.h"

#include <pthread.h>

#include <csignal>
#include <set>
#include <thread>

#include "MantleTest.h"
#include "mantle/CMNClock.h"

namespace mantle
{
namespace
{

class CSlowInit : public CTestThread
{
public:
    using CTestThread::CTestThread;
    void OnCreate() override { m_dwCreatedOn = CMNThreadManager::GetThreadSelfId(); }
    void OnThreadInit() override
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        m_bInitialised = true;
        m_dwInitialisedOn = CMNThreadManager::GetThreadSelfId();
    }

    bool m_bInitialised = false;
    unsigned long m_dwCreatedOn = 0;
    unsigned long m_dwInitialisedOn = 0;
};

TEST(CMNThreadTest, Created_Returns_OnThreadInitHasFinished)
{
    CSlowInit thread;
    EXPECT_EQ(thread.GetThreadId(), 0u);
    EXPECT_FALSE(thread.IsRunning());
    ASSERT_EQ(thread.Create(7), MN_OK);
    EXPECT_TRUE(thread.m_bInitialised);
    EXPECT_EQ(thread.m_dwCreatedOn, CMNThreadManager::GetThreadSelfId());
    EXPECT_NE(thread.GetThreadId(), 0u);
    EXPECT_EQ(thread.GetThreadId(), thread.m_dwInitialisedOn);
    EXPECT_EQ(thread.GetThreadType(), 7);
    EXPECT_NE(thread.GetThreadHandle(), nullptr);
    EXPECT_EQ(thread.Join(), MN_OK);
    EXPECT_FALSE(thread.IsRunning());
}

TEST(CMNThreadTest, Base_Asked_HasNeitherReactorNorQueues)
{
    CTestThread thread;
    EXPECT_EQ(thread.GetReactor(), nullptr);
    EXPECT_EQ(thread.GetEventQueue(), nullptr);
    EXPECT_EQ(thread.GetTimerQueue(), nullptr);
    EXPECT_FALSE(thread.IsPool());
    EXPECT_FALSE(thread.IsUserThread());
    EXPECT_EQ(thread.Stop(), MN_ERROR_NOT_IMPLEMENTED);
}

TEST(CMNThreadTest, BaseWithoutQueue_PostAndSend_EventDestroyedAndRefused)
{
    CTestThread thread;
    CTestEvent::CCounts counts;
    EXPECT_EQ(thread.PostEvent(nullptr), MN_ERROR_INVALID_ARG);
    EXPECT_EQ(thread.SendEvent(nullptr), MN_ERROR_INVALID_ARG);
    EXPECT_EQ(thread.PostEvent(new CTestEvent({}, &counts)), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(thread.SendEvent(new CTestEvent({}, &counts)), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(counts.m_nFired, 0);
    EXPECT_EQ(counts.m_nDestroyed, 2);
}

TEST(CMNThreadTest, Running_CreatedAgain_AlreadyInitialised)
{
    CStoppableThread thread;
    ASSERT_EQ(thread.Create(100), MN_OK);
    EXPECT_EQ(thread.Create(101), MN_ERROR_ALREADY_INITIALIZED);
    EXPECT_EQ(thread.CreateNotRun(101), MN_ERROR_ALREADY_INITIALIZED);
    EXPECT_EQ(thread.GetThreadType(), 100);
    thread.Stop(nullptr);
    EXPECT_EQ(thread.Join(), MN_OK);
    EXPECT_EQ(thread.Create(101), MN_ERROR_ALREADY_INITIALIZED);
}

TEST(CMNThreadTest, SystemGivesNoThread_Created_FailureAndMayBeTriedAgain)
{
    pthread_attr_t before;
    pthread_attr_t huge;
    ASSERT_EQ(pthread_getattr_default_np(&before), 0);
    ASSERT_EQ(pthread_attr_init(&huge), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&huge, std::size_t{1} << 47), 0);
    if (pthread_setattr_default_np(&huge) != 0)
        GTEST_SKIP() << "the system does not take a default stack size of this kind";
    CTestThread thread;
    const MNResult result = thread.Create(100);
    pthread_setattr_default_np(&before);
    pthread_attr_destroy(&huge);
    pthread_attr_destroy(&before);
    EXPECT_EQ(result, MN_ERROR_FAILURE);
    EXPECT_FALSE(thread.IsRunning());
    EXPECT_EQ(thread.Join(), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(CMNThreadManager::Instance()->GetThread(100), nullptr);
    EXPECT_EQ(thread.Create(100), MN_OK);
    EXPECT_EQ(thread.Join(), MN_OK);
}

TEST(CMNThreadTest, NeverStarted_Joined_NotInitialised)
{
    CTestThread thread;
    EXPECT_EQ(thread.Join(), MN_ERROR_NOT_INITIALIZED);
}

TEST(CMNThreadTest, OnItself_Joined_Failure)
{
    MNResult result = MN_OK;
    CTestThread thread;
    thread.m_Run = [&] { result = thread.Join(); };
    ASSERT_EQ(thread.Create(100), MN_OK);
    EXPECT_EQ(thread.Join(), MN_OK);
    EXPECT_EQ(result, MN_ERROR_FAILURE);
    EXPECT_EQ(thread.Join(), MN_OK);
}

TEST(CMNThreadTest, StillRunning_JoinedWithABound_NotFoundAtTheBound)
{
    CStoppableThread thread;
    ASSERT_EQ(thread.Create(100), MN_OK);
    EXPECT_EQ(thread.JoinFor(CMNTimeValue(0, 5000)), MN_ERROR_NOT_FOUND);
    thread.Stop(nullptr);
    EXPECT_EQ(thread.JoinFor(s_tvLimit), MN_OK);
}

TEST(CMNThreadTest, FourThreads_JoinTheSame_AllReturn)
{
    CStoppableThread thread;
    ASSERT_EQ(thread.Create(100), MN_OK);
    std::vector<std::thread> joiners;
    for (int index = 0; index < 4; ++index)
        joiners.emplace_back([&thread] { EXPECT_EQ(thread.Join(), MN_OK); });
    thread.Stop(nullptr);
    for (std::thread& joiner : joiners)
        joiner.join();
}

TEST(CMNThreadTest, NotJoinable_Joined_WaitsForItsEndAllTheSame)
{
    CStoppableThread thread;
    ASSERT_EQ(thread.Create(100, CMNThreadManager::TF_NONE), MN_OK);
    thread.Stop(nullptr);
    EXPECT_EQ(thread.Join(), MN_OK);
}

TEST(CMNThreadTest, Running_Destory_RefusedUntilItHasEnded)
{
    auto* thread = new CStoppableThread;
    ASSERT_EQ(thread->Create(100), MN_OK);
    EXPECT_EQ(thread->Destory(), MN_ERROR_FAILURE);
    thread->Stop(nullptr);
    thread->Join();
    EXPECT_EQ(thread->Destory(), MN_OK);
    auto* never = new CTestThread;
    EXPECT_EQ(never->Destory(), MN_OK);
}

TEST(CMNThreadTest, Ids_SetAndRead_Kept)
{
    CTestThread thread;
    thread.SetThreadId(55);
    thread.SetDetachThreadId(66);
    EXPECT_EQ(thread.GetThreadId(), 55u);
    EXPECT_EQ(thread.GetDetachThreadId(), 66u);
}

TEST(CMNThreadTest, ManyThreads_Run_IdsNeverZeroAndNeverAgain)
{
    std::set<unsigned long> ids{CMNThreadManager::GetThreadSelfId()};
    for (int index = 0; index < 100; ++index) {
        CTestThread thread;
        ASSERT_EQ(thread.Create(100), MN_OK);
        ASSERT_EQ(thread.Join(), MN_OK);
        EXPECT_TRUE(ids.insert(thread.GetThreadId()).second);
    }
    EXPECT_EQ(ids.count(0), 0u);
}

TEST(CMNThreadTest, StartedAndAdopted_IsSubThread_OnlyTheStartedOneOfItsType)
{
    CTestThread started;
    EXPECT_FALSE(started.IsSubThread(100));
    ASSERT_EQ(started.Create(100), MN_OK);
    EXPECT_TRUE(started.IsSubThread(100));
    EXPECT_FALSE(started.IsSubThread(101));
    started.Join();
    CTestThread adopted;
    ASSERT_EQ(adopted.CreateNotRun(102), MN_OK);
    EXPECT_FALSE(adopted.IsSubThread(102));
}

TEST(CMNThreadTest, NewThread_SignalsAsked_AllButFaultsBlocked)
{
    bool termBlocked = false;
    bool faultBlocked = true;
    CTestThread thread([&] {
        sigset_t blocked;
        pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
        termBlocked = sigismember(&blocked, SIGTERM) == 1;
        faultBlocked = sigismember(&blocked, SIGSEGV) == 1;
    });
    ASSERT_EQ(thread.Create(100), MN_OK);
    thread.Join();
    EXPECT_TRUE(termBlocked);
    EXPECT_FALSE(faultBlocked);
}

TEST(CMNThreadTest, Adopted_UntilTakenBack_IsTheCurrentThread)
{
    CMNThreadManager* manager = CMNThreadManager::Instance();
    CTestThread thread;
    EXPECT_EQ(thread.CreateNotRun(100), MN_OK);
    EXPECT_TRUE(thread.IsRunning());
    EXPECT_EQ(thread.GetThreadId(), CMNThreadManager::GetThreadSelfId());
    EXPECT_NE(thread.GetThreadHandle(), nullptr);
    EXPECT_EQ(manager->GetThread(CMNThreadManager::TT_CURRENT), &thread);
    CTestThread other;
    EXPECT_EQ(other.CreateNotRun(101), MN_ERROR_ALREADY_INITIALIZED);
    EXPECT_EQ(thread.Join(), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(manager->AttachCurrentThread(nullptr), &thread);
    EXPECT_FALSE(thread.IsRunning());
    EXPECT_EQ(manager->GetThread(CMNThreadManager::TT_CURRENT), nullptr);
}

TEST(CMNThreadTest, AdoptedObjectDeleted_ThreadAsked_HasNone)
{
    {
        CTestThread thread;
        ASSERT_EQ(thread.CreateNotRun(100), MN_OK);
    }
    EXPECT_EQ(CMNThreadManager::Instance()->GetThread(CMNThreadManager::TT_CURRENT), nullptr);
    EXPECT_EQ(CMNThreadManager::Instance()->GetThread(100), nullptr);
}

TEST(CMNThreadTest, ThreadEnds_ItsOwnObject_SeenInsideAndGoneAfterwards)
{
    CMNThread* seen = nullptr;
    CTestThread thread([&] { seen = CMNThreadManager::Instance()->GetThread(CMNThreadManager::TT_CURRENT); });
    ASSERT_EQ(thread.Create(100), MN_OK);
    thread.Join();
    EXPECT_EQ(seen, &thread);
    EXPECT_EQ(CMNThreadManager::Instance()->GetThread(100), &thread);
}

}  // namespace
}  // namespace mantle
