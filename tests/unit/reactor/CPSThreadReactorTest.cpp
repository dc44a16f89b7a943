#include "reactor/CPSThreadReactor.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <thread>

#include "mantle/CMNThreadManager.h"
#include "reactor/CPSReactorPoll.h"
#include "tests/unit/reactor/ReactorSupport.h"
#include "tests/unit/scripted/ScriptedStackTest.h"

using namespace uxport;

namespace
{

// Thread-safe texts.
class CLog
{
public:
    void Add(const std::string& text)
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        m_Texts.push_back(text);
    }
    CTexts Take()
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        return std::exchange(m_Texts, CTexts());
    }

private:
    std::mutex m_Mutex;
    CTexts m_Texts;
};

// Keeps what its thread asks of it.
class CFakeReactor : public IPSReactor
{
public:
    explicit CFakeReactor(CLog& log) : m_Log(log) {}
    ~CFakeReactor() override { m_Log.Add("deleted"); }

    MNResult PostEvent(IMNEvent* event, EPriority) override
    {
        m_Log.Add("post");
        event->OnDestorySelf();
        return MN_ERROR_FOUND;
    }
    MNResult SendEvent(IMNEvent* event) override
    {
        m_Log.Add("send");
        event->OnDestorySelf();
        return MN_ERROR_FOUND;
    }
    unsigned long GetPendingEventsCount() override { return 0; }
    MNResult ScheduleTimer(IMNTimerHandler*, void*, const CMNTimeValue&, unsigned long) override { return MN_OK; }
    MNResult CancelTimer(IMNTimerHandler*) override { return MN_OK; }
    long GetReactorType() override { return 0; }
    MNResult Open() override { return Keep("open"); }
    MNResult RegisterHandler(IPSEventHandler*, long) override { return MN_OK; }
    MNResult RemoveHandler(IPSEventHandler*, long) override { return MN_OK; }
    MNResult NotifyHandler(IPSEventHandler*, long) override { return MN_OK; }
    MNResult RunEventLoop() override { return Keep("run"); }
    MNResult StopEventLoop() override
    {
        m_Log.Add("stop");
        return m_dwStop;
    }
    MNResult Close() override { return Keep("close"); }

    MNResult m_dwResult = MN_OK;
    MNResult m_dwStop = MN_OK;
    std::atomic<unsigned long> m_dwThread{0};

private:
    MNResult Keep(const char* text)
    {
        m_Log.Add(text);
        m_dwThread = mantle::CMNThreadManager::GetThreadSelfId();
        return m_dwResult;
    }

    CLog& m_Log;
};

class CPSThreadReactorTest : public ScriptedStackTest
{
protected:
    CPSThreadReactorTest() : m_pThread(std::make_unique<CPSThreadReactor>()) {}

    MNResult Create()
    {
        return m_pThread->Create(mantle::CMNThreadManager::Instance()->GetNewThreadType(),
                                 mantle::CMNThreadManager::TF_JOINABLE);
    }

    CLog m_Log;
    std::unique_ptr<CPSThreadReactor> m_pThread;
};

TEST_F(CPSThreadReactorTest, Init_Null_Refused)
{
    EXPECT_EQ(m_pThread->Init(nullptr), MN_ERROR_INVALID_ARG);
    EXPECT_EQ(m_pThread->GetEventQueue(), nullptr);
}

TEST_F(CPSThreadReactorTest, Init_Twice_KeepsTheFirst)
{
    auto* first = new CFakeReactor(m_Log);
    CFakeReactor second(m_Log);
    EXPECT_EQ(m_pThread->Init(first), MN_OK);
    EXPECT_EQ(m_pThread->Init(&second), MN_ERROR_ALREADY_INITIALIZED);
    EXPECT_EQ(m_pThread->Init(nullptr), MN_ERROR_ALREADY_INITIALIZED) << "the state is asked before the argument";
    EXPECT_EQ(m_pThread->GetEventQueue(), static_cast<IMNEventQueue*>(first));
}

TEST_F(CPSThreadReactorTest, Queues_WithAndWithoutReactor_AreTheReactors)
{
    EXPECT_EQ(m_pThread->GetEventQueue(), nullptr);
    EXPECT_EQ(m_pThread->GetTimerQueue(), nullptr);
    EXPECT_EQ(m_pThread->GetReactor(), nullptr);
    auto* reactor = new CFakeReactor(m_Log);
    m_pThread->Init(reactor);
    EXPECT_EQ(m_pThread->GetEventQueue(), static_cast<IMNEventQueue*>(reactor));
    EXPECT_EQ(m_pThread->GetTimerQueue(), static_cast<IMNTimerQueue*>(reactor));
    EXPECT_EQ(m_pThread->GetReactor(), nullptr) << "the framework's own kind of reactor is not used";
    EXPECT_FALSE(m_pThread->IsUserThread());
}

TEST_F(CPSThreadReactorTest, PostAndSendEvent_ThroughTheThread_ReachTheReactor)
{
    CTestEventCounts counts;
    m_pThread->Init(new CFakeReactor(m_Log));
    EXPECT_EQ(m_pThread->PostEvent(new CTestEvent(counts)), MN_ERROR_FOUND);
    EXPECT_EQ(m_pThread->SendEvent(new CTestEvent(counts)), MN_ERROR_FOUND);
    EXPECT_EQ(m_Log.Take(), (CTexts{"post", "send"}));
    EXPECT_EQ(counts.m_nDestroyed, 2);
}

TEST_F(CPSThreadReactorTest, Stop_TimeOutGiven_NotImplementedWhateverTheState)
{
    CMNTimeValue timeout(1, 0);
    EXPECT_EQ(m_pThread->Stop(&timeout), MN_ERROR_NOT_IMPLEMENTED);
    m_pThread->Init(new CFakeReactor(m_Log));
    EXPECT_EQ(m_pThread->Stop(&timeout), MN_ERROR_NOT_IMPLEMENTED);
    EXPECT_EQ(m_Log.Take(), CTexts());
}

TEST_F(CPSThreadReactorTest, Stop_NoReactor_NotInitialized)
{
    EXPECT_EQ(m_pThread->Stop(nullptr), MN_ERROR_NOT_INITIALIZED);
}

TEST_F(CPSThreadReactorTest, Stop_Reactor_ItsResult)
{
    auto* reactor = new CFakeReactor(m_Log);
    reactor->m_dwStop = MN_ERROR_PARTIAL_DATA;
    m_pThread->Init(reactor);
    EXPECT_EQ(m_pThread->Stop(nullptr), MN_ERROR_PARTIAL_DATA);
    EXPECT_EQ(m_Log.Take(), (CTexts{"stop"}));
}

TEST_F(CPSThreadReactorTest, Create_Reactor_AttachOpenRunCloseOnTheNewThread)
{
    auto* reactor = new CFakeReactor(m_Log);
    m_pThread->Init(reactor);
    m_Stack.On("Manager::AttachThread").Calls([this] { m_Log.Add("attach"); });
    EXPECT_EQ(Create(), MN_OK);
    EXPECT_EQ(m_pThread->Join(), MN_OK);
    EXPECT_EQ(m_Log.Take(), (CTexts{"attach", "open", "run", "close"}));
    EXPECT_EQ(reactor->m_dwThread, m_pThread->GetThreadId());
    EXPECT_NE(reactor->m_dwThread, mantle::CMNThreadManager::GetThreadSelfId());
    m_pThread.reset();
    EXPECT_EQ(m_Log.Take(), (CTexts{"deleted"}));
}

TEST_F(CPSThreadReactorTest, Create_EveryStepFails_TheOthersStillRun)
{
    auto* reactor = new CFakeReactor(m_Log);
    reactor->m_dwResult = MN_ERROR_FAILURE;
    m_pThread->Init(reactor);
    m_Stack.On("Manager::AttachThread").Returns(10002);
    EXPECT_EQ(Create(), MN_OK);
    EXPECT_EQ(m_pThread->Join(), MN_OK);
    EXPECT_EQ(m_Log.Take(), (CTexts{"open", "run", "close"}));
}

TEST_F(CPSThreadReactorTest, Create_NoReactor_RunsAndEndsAtOnce)
{
    EXPECT_EQ(Create(), MN_OK);
    EXPECT_EQ(m_pThread->Join(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls()) << "the stack is not even prepared";
}

TEST_F(CPSThreadReactorTest, TakeReactor_GivenBack_NotDeleted)
{
    CFakeReactor reactor(m_Log);
    m_pThread->Init(&reactor);
    EXPECT_EQ(m_pThread->TakeReactor(), &reactor);
    EXPECT_EQ(m_pThread->TakeReactor(), nullptr);
    EXPECT_EQ(m_pThread->Stop(nullptr), MN_ERROR_NOT_INITIALIZED);
    m_pThread.reset();
    EXPECT_EQ(m_Log.Take(), CTexts());
}

TEST_F(CPSThreadReactorTest, Destructor_NeverStarted_DeletesTheReactor)
{
    m_pThread->Init(new CFakeReactor(m_Log));
    m_pThread.reset();
    EXPECT_EQ(m_Log.Take(), (CTexts{"deleted"}));
}

TEST_F(CPSThreadReactorTest, PollReactor_Running_StopWithTimeOutLeavesItRunning)
{
    m_Stack.EnablePipes();
    CTestEventCounts counts;
    m_pThread->Init(new CPSReactorPoll);
    ASSERT_EQ(Create(), MN_OK);
    CMNTimeValue timeout(0, 1);
    EXPECT_EQ(m_pThread->Stop(&timeout), MN_ERROR_NOT_IMPLEMENTED);
    EXPECT_EQ(m_pThread->SendEvent(new CTestEvent(counts, [] { return MN_ERROR_FOUND; })), MN_ERROR_FOUND);
    EXPECT_EQ(m_pThread->Stop(nullptr), MN_OK);
    EXPECT_EQ(m_pThread->Join(), MN_OK);
    EXPECT_EQ(counts.m_nDestroyed, 1);
}

TEST_F(CPSThreadReactorTest, PollReactor_TimersOfItsThread_AreTheReactors)
{
    m_Stack.EnablePipes();
    m_pThread->Init(new CPSReactorPoll);
    ASSERT_EQ(Create(), MN_OK);
    CTestTimer timer([this] { m_pThread->Stop(nullptr); });
    m_pThread->SendEvent(new CTestCall([&] {
        mantle::CMNThread* own = mantle::CMNThreadManager::Instance()->GetThread(mantle::CMNThreadManager::TT_CURRENT);
        EXPECT_EQ(own, m_pThread.get());
        EXPECT_EQ(own->GetTimerQueue()->ScheduleTimer(&timer, nullptr, CMNTimeValue::s_tvZero, 1), MN_OK);
    }));
    EXPECT_EQ(m_pThread->Join(), MN_OK);
    EXPECT_EQ(timer.m_nFired, 1);
}

TEST_F(CPSThreadReactorTest, PollReactor_OpenFails_ThreadEnds)
{
    m_Stack.On("ps_socket").Fails(PS_EMFILE);
    m_pThread->Init(new CPSReactorPoll);
    EXPECT_EQ(Create(), MN_OK);
    EXPECT_EQ(m_pThread->Join(), MN_OK);
    EXPECT_EQ(m_Stack.CountOf("ps_poll"), 0u);
}

TEST_F(CPSThreadReactorTest, PollReactor_PostedRightBehindCreate_Runs)
{
    m_Stack.EnablePipes();
    for (int round = 0; round < 20; ++round) {
        CTestEventCounts counts;
        CPSThreadReactor thread;
        thread.Init(new CPSReactorPoll);
        ASSERT_EQ(thread.Create(mantle::CMNThreadManager::Instance()->GetNewThreadType(),
                                mantle::CMNThreadManager::TF_JOINABLE),
                  MN_OK);
        thread.PostEvent(new CTestEvent(counts, [&] { return thread.Stop(nullptr); }));
        EXPECT_EQ(thread.Join(), MN_OK);
        EXPECT_EQ(counts.m_nFired, 1);
    }
}

TEST_F(CPSThreadReactorTest, PollReactor_TwoThreadsShareIt_SecondIsReportedAndEndsCleanly)
{
    m_Stack.EnablePipes();
    CTestEventCounts counts;
    auto* reactor = new CPSReactorPoll;
    CPSThreadReactor second;
    m_pThread->Init(reactor);
    second.Init(reactor);
    ASSERT_EQ(Create(), MN_OK);
    ASSERT_EQ(
        second.Create(mantle::CMNThreadManager::Instance()->GetNewThreadType(), mantle::CMNThreadManager::TF_JOINABLE),
        MN_OK);
    EXPECT_EQ(second.Join(), MN_OK);
    EXPECT_EQ(m_pThread->SendEvent(new CTestEvent(counts, [] { return MN_ERROR_FOUND; })), MN_ERROR_FOUND)
        << "the first one's loop is untouched";
    EXPECT_EQ(m_pThread->Stop(nullptr), MN_OK);
    EXPECT_EQ(m_pThread->Join(), MN_OK);
    ExpectReports(2);
    const CCalls reports = Reports();
    ASSERT_EQ(reports.size(), 2u);
    EXPECT_EQ(reports[0], reports[1]) << "one place, so that the default handler writes one line";
    second.TakeReactor();
    EXPECT_EQ(m_Stack.CountOf("Manager::AttachThread"), 2u);
}

}  // namespace
