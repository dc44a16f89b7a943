#include "manager/CPSConnectionManager.h"

#include <atomic>
#include <set>
#include <sstream>
#include <thread>

#include "mantle/CMNEnsureSingleThread.h"
#include "mantle/IMNTraceManager.h"
#include "reactor/CPSReactorPoll.h"
#include "tests/unit/doubles/CNoNewThreads.h"
#include "tests/unit/doubles/ManagerTest.h"

using mantle::CMNEnsureSingleThread;
using mantle::CMNThread;
using mantle::CMNThreadManager;

namespace uxport
{
namespace
{

// Keeps the trace lines while it lives.
class CTraceLines : public mantle::IMNTraceSink
{
public:
    CTraceLines() { mantle::IMNTraceManager::Instance()->SetSink(this); }
    ~CTraceLines() override { mantle::IMNTraceManager::Instance()->SetSink(nullptr); }
    void OnTrace(int level, const char* text) override
    {
        m_Levels.push_back(level);
        m_Lines.emplace_back(text);
    }

    std::vector<int> m_Levels;
    std::vector<std::string> m_Lines;
};

class CPSConnectionManagerTest : public ManagerTest
{
protected:
    unsigned int Attached() const { return m_Stack.CountOf("Manager::AttachThread"); }
};

TEST_F(CPSConnectionManagerTest, Instance_FromManyThreads_IsOneObject)
{
    std::vector<std::thread> threads;
    std::vector<IPSConnectionManager*> seen(8);
    for (IPSConnectionManager*& place : seen)
        threads.emplace_back([&place] { place = IPSConnectionManager::Instance(); });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(std::set<IPSConnectionManager*>(seen.begin(), seen.end()).size(), 1u);
    EXPECT_NE(seen[0], nullptr);
    EXPECT_NE(dynamic_cast<CPSConnectionManager*>(seen[0]), nullptr);
    EXPECT_EQ(IPSConnectionManager::Instance(), seen[0]);
}

TEST_F(CPSConnectionManagerTest, Constructor_Fresh_HasNoReactorAndNoThread)
{
    EXPECT_EQ(m_pManager->GetReactor(), nullptr);
    EXPECT_FALSE(m_pManager->IsNetworkThread(CMNThreadManager::GetThreadSelfId()));
    EXPECT_FALSE(m_pManager->IsNetworkThread(0));
    m_pManager.reset();
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSConnectionManagerTest, Init_StackNotStarted_TracesOneLineAndFails)
{
    m_Stack.On("Manager::IsInitialized").Returns(0);
    CTraceLines trace;
    EXPECT_EQ(m_pManager->Init(1), MN_ERROR_FAILURE);
    std::ostringstream expected;
    expected << "IPStack is no init this=" << static_cast<const void*>(m_pManager.get());
    EXPECT_EQ(trace.m_Lines, (CCalls{expected.str()}));
    EXPECT_EQ(trace.m_Levels, (std::vector<int>{0}));
    EXPECT_EQ(m_pManager->GetReactor(), nullptr);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"Manager::IsInitialized()=0"}));
}

TEST_F(CPSConnectionManagerTest, Init_StackStartedLater_Succeeds)
{
    m_Stack.On("Manager::IsInitialized").Returns(0);
    CTraceLines trace;
    EXPECT_EQ(m_pManager->Init(1), MN_ERROR_FAILURE);
    EXPECT_EQ(m_pManager->Init(1), MN_OK);
    EXPECT_EQ(trace.m_Lines.size(), 1u);
    EXPECT_EQ(Threads().size(), 1u);
}

TEST_F(CPSConnectionManagerTest, Init_One_RunsTheReactorOnOneAttachedThread)
{
    EXPECT_EQ(m_pManager->Init(1), MN_OK);
    EXPECT_NE(dynamic_cast<CPSReactorPoll*>(m_pManager->GetReactor()), nullptr);
    EXPECT_EQ(Attached(), 1u);
    unsigned long network = 0;
    CMNThread* object = nullptr;
    OnNetworkThread([&] {
        network = CMNThreadManager::GetThreadSelfId();
        object = CMNThreadManager::Instance()->GetThread(CMNThreadManager::TT_CURRENT);
    });
    EXPECT_TRUE(m_pManager->IsNetworkThread(network));
    EXPECT_FALSE(m_pManager->IsNetworkThread(CMNThreadManager::GetThreadSelfId()));
    EXPECT_FALSE(m_pManager->IsNetworkThread(0));
    ASSERT_EQ(Threads(), (std::vector<CMNThread*>{object}));
    EXPECT_EQ(object->GetThreadId(), network);
    EXPECT_EQ(object->GetTimerQueue(), m_pManager->GetReactor());
    EXPECT_EQ(object->GetEventQueue(), m_pManager->GetReactor());
}

TEST_F(CPSConnectionManagerTest, Init_Returned_ReactorIsOpen)
{
    ASSERT_EQ(m_pManager->Init(1), MN_OK);
    EXPECT_EQ(m_pManager->GetReactor()->NotifyHandler(nullptr, EVENTQUEUE_MASK), MN_OK);
}

TEST_F(CPSConnectionManagerTest, Init_Again_ReturnsZeroAndMakesNothing)
{
    ASSERT_EQ(m_pManager->Init(1), MN_OK);
    IPSReactor* reactor = m_pManager->GetReactor();
    for (const unsigned int count : {0u, 1u, 5u})
        EXPECT_EQ(m_pManager->Init(count), MN_OK);
    EXPECT_EQ(m_pManager->GetReactor(), reactor);
    EXPECT_EQ(Threads().size(), 1u);
    EXPECT_EQ(Attached(), 1u);
}

TEST_F(CPSConnectionManagerTest, Init_AgainWithStackGone_ReturnsFailureAndKeepsEverything)
{
    ASSERT_EQ(m_pManager->Init(1), MN_OK);
    IPSReactor* reactor = m_pManager->GetReactor();
    m_Stack.On("Manager::IsInitialized").Returns(0);
    CTraceLines trace;
    EXPECT_EQ(m_pManager->Init(1), MN_ERROR_FAILURE);
    EXPECT_EQ(trace.m_Lines.size(), 1u);
    EXPECT_EQ(m_pManager->GetReactor(), reactor);
    EXPECT_EQ(m_pManager->Init(1), MN_OK);
}

TEST_F(CPSConnectionManagerTest, Init_Zero_MakesAReactorThatNobodyRuns)
{
    EXPECT_EQ(m_pManager->Init(0), MN_OK);
    EXPECT_NE(m_pManager->GetReactor(), nullptr);
    EXPECT_EQ(Threads().size(), 0u);
    EXPECT_FALSE(m_pManager->IsNetworkThread(CMNThreadManager::GetThreadSelfId()));
    EXPECT_EQ(m_pManager->Init(3), MN_OK);
    EXPECT_EQ(Threads().size(), 0u);
}

TEST_F(CPSConnectionManagerTest, Init_Zero_PostsAreAcceptedAndDestroyedAtTheEnd)
{
    ASSERT_EQ(m_pManager->Init(0), MN_OK);
    CTestEventCounts counts;
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(m_pManager->GetReactor()->PostEvent(new CTestEvent(counts)), MN_OK);
    EXPECT_EQ(m_pManager->GetReactor()->GetPendingEventsCount(), 10u);
    EXPECT_EQ(counts.m_nDestroyed, 0);
    m_pManager.reset();
    EXPECT_EQ(counts.m_nFired, 0);
    EXPECT_EQ(counts.m_nDestroyed, 10);
    EXPECT_EQ(counts.m_nAlive, 0);
}

TEST_F(CPSConnectionManagerTest, Init_Two_BothAreNetworkThreadsAndTheSecondRunsNoLoop)
{
    ExpectReports(2);  // its loop and its close, under one name
    ASSERT_EQ(m_pManager->Init(2), MN_OK);
    const std::vector<CMNThread*> threads = Threads();
    ASSERT_EQ(threads.size(), 2u);
    EXPECT_EQ(Attached(), 2u);
    EXPECT_NE(threads[0]->GetThreadId(), threads[1]->GetThreadId());
    EXPECT_TRUE(m_pManager->IsNetworkThread(threads[0]->GetThreadId()));
    EXPECT_TRUE(m_pManager->IsNetworkThread(threads[1]->GetThreadId()));
    EXPECT_EQ(threads[1]->Join(), MN_OK);
    unsigned long network = 0;
    OnNetworkThread([&network] { network = CMNThreadManager::GetThreadSelfId(); });
    EXPECT_EQ(network, threads[0]->GetThreadId());
    EXPECT_TRUE(m_pManager->IsNetworkThread(threads[1]->GetThreadId()));
    const CCalls reports = Reports();
    EXPECT_EQ(std::set<std::string>(reports.begin(), reports.end()).size(), 1u);
}

TEST_F(CPSConnectionManagerTest, Init_TwoWithoutAHandlerOfChecks_TracesOneReport)
{
    const auto handler = CMNEnsureSingleThread::SetHandler(nullptr);
    CTraceLines trace;
    ASSERT_EQ(m_pManager->Init(2), MN_OK);
    EXPECT_EQ(Threads().back()->Join(), MN_OK);
    StopThreads();
    EXPECT_EQ(trace.m_Lines.size(), 1u);
    CMNEnsureSingleThread::SetHandler(handler);
}

TEST_F(CPSConnectionManagerTest, Init_PipeCannotBeOpened_ReturnsZeroAndTheThreadEnds)
{
    m_Stack.On("ps_socket").Fails(12);
    EXPECT_EQ(m_pManager->Init(1), MN_OK);
    ASSERT_EQ(Threads().size(), 1u);
    EXPECT_EQ(Threads()[0]->Join(), MN_OK);
    CTestEventCounts counts;
    EXPECT_EQ(m_pManager->GetReactor()->PostEvent(new CTestEvent(counts)), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(counts.m_nFired, 0);
    EXPECT_EQ(counts.m_nAlive, 0);
}

TEST_F(CPSConnectionManagerTest, Init_PostsFromAnotherThreadMeanwhile_LoseNothing)
{
    CTestEventCounts counts;
    std::atomic<bool> stop{false};
    int posted = 0;
    std::thread poster([&] {
        while (!stop) {
            if (IPSReactor* reactor = m_pManager->GetReactor()) {
                EXPECT_EQ(reactor->PostEvent(new CTestEvent(counts)), MN_OK);
                ++posted;
            } else {
                std::this_thread::yield();
            }
        }
    });
    EXPECT_EQ(m_pManager->Init(1), MN_OK);
    OnNetworkThread([] {});
    stop = true;
    poster.join();
    OnNetworkThread([] {});
    EXPECT_EQ(counts.m_nFired, posted);
    EXPECT_EQ(counts.m_nAlive, 0);
}

TEST_F(CPSConnectionManagerTest, Init_FirstThreadCannotStart_FailsAndASecondInitSucceeds)
{
    CNoNewThreads none;
    none.Begin();
    EXPECT_EQ(m_pManager->Init(2), MN_ERROR_FAILURE);
    none.End();
    EXPECT_EQ(Threads().size(), 0u);
    EXPECT_EQ(Attached(), 0u);
    IPSReactor* first = m_pManager->GetReactor();
    ASSERT_NE(first, nullptr);
    CTestEventCounts counts;
    EXPECT_EQ(first->PostEvent(new CTestEvent(counts)), MN_OK);

    EXPECT_EQ(m_pManager->Init(1), MN_OK);
    EXPECT_NE(m_pManager->GetReactor(), first);
    ASSERT_EQ(Threads().size(), 1u);
    OnNetworkThread([] {});
    EXPECT_EQ(counts.m_nAlive, 1);  // the replaced reactor lives on
    StopThreads();
    m_pManager.reset();
    EXPECT_EQ(counts.m_nAlive, 0);
}

TEST_F(CPSConnectionManagerTest, Init_SecondThreadCannotStart_FailsKeepsTheFirstAndASecondInitSucceeds)
{
    CNoNewThreads none;
    m_Stack.On("Manager::AttachThread").Calls([&none] { none.Begin(); });
    EXPECT_EQ(m_pManager->Init(2), MN_ERROR_FAILURE);
    none.End();
    ASSERT_EQ(Threads().size(), 1u);
    CMNThread* thread = Threads()[0];
    EXPECT_TRUE(m_pManager->IsNetworkThread(thread->GetThreadId()));
    IPSReactor* first = m_pManager->GetReactor();
    unsigned long network = 0;
    OnNetworkThread([&network] { network = CMNThreadManager::GetThreadSelfId(); });
    EXPECT_EQ(network, thread->GetThreadId());

    EXPECT_EQ(m_pManager->Init(1), MN_OK);
    EXPECT_NE(m_pManager->GetReactor(), first);
    ASSERT_EQ(Threads().size(), 2u);
    OnNetworkThread([&network] { network = CMNThreadManager::GetThreadSelfId(); });
    EXPECT_EQ(network, Threads()[1]->GetThreadId());
    EXPECT_TRUE(m_pManager->IsNetworkThread(network));
    EXPECT_TRUE(m_pManager->IsNetworkThread(thread->GetThreadId()));
    // The replaced reactor still runs on the first thread.
    EXPECT_EQ(first->SendEvent(new CTestCall([&network] { network = CMNThreadManager::GetThreadSelfId(); })), MN_OK);
    EXPECT_EQ(network, thread->GetThreadId());
}

TEST_F(CPSConnectionManagerTest, Destructor_ThreadsEnded_LeavesThreadObjectsWithoutAReactor)
{
    ASSERT_EQ(m_pManager->Init(1), MN_OK);
    StopThreads();
    CMNThread* thread = Threads()[0];
    m_pManager.reset();
    EXPECT_EQ(thread->GetEventQueue(), nullptr);
    EXPECT_EQ(thread->GetTimerQueue(), nullptr);
    CTestEventCounts counts;
    EXPECT_EQ(thread->PostEvent(new CTestEvent(counts)), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(counts.m_nAlive, 0);
}

}  // namespace
}  // namespace uxport
