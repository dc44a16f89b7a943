// The reference count of the transports and their deletion, which is deferred.
#include "transport/CPSTransportTcp.h"

#include <thread>

#include "mantle/CMNThreadManager.h"
#include "tests/unit/doubles/EndpointTest.h"

using mantle::CMNThreadManager;

namespace uxport
{
namespace
{

const std::string SCHEDULED = "ScheduleTimer(0,0s0us,1)=0";

class CPSTransportDeletionTest : public EndpointTest
{
protected:
    void SetUp() override
    {
        EndpointTest::SetUp();
        m_pTransport = new CPSTransportTcp(&m_Reactor);
    }

    CPSTransportTcp* m_pTransport = nullptr;
};

// Runs on a thread of its own with a timer queue that nobody fires.
class CReleasingThread : public CTestThread
{
public:
    explicit CReleasingThread(IPSReactor* reactor) : m_pReactor(reactor) {}
    void OnThreadRun() override
    {
        auto* transport = new CPSTransportTcp(m_pReactor);
        transport->AddReference();
        EXPECT_EQ(transport->ReleaseReference(), 0u);
        m_bPending = transport->IsDeletePending();
    }

    IPSReactor* m_pReactor;
    bool m_bPending = false;
};

TEST_F(CPSTransportDeletionTest, References_TakenAndReleased_AreCounted)
{
    EXPECT_EQ(m_pTransport->AddReference(), 1u);
    EXPECT_EQ(m_pTransport->AddReference(), 2u);
    EXPECT_EQ(m_pTransport->ReleaseReference(), 1u);
    EXPECT_FALSE(m_pTransport->IsDeletePending());
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
    EXPECT_EQ(m_pTransport->ReleaseReference(), 0u);
}

TEST_F(CPSTransportDeletionTest, References_ThroughTheInterface_AreTheSameCount)
{
    IPSTransport* transport = m_pTransport;
    EXPECT_EQ(transport->AddReference(), 1u);
    EXPECT_EQ(m_pTransport->AddReference(), 2u);
    EXPECT_EQ(transport->ReleaseReference(), 1u);
    EXPECT_EQ(transport->ReleaseReference(), 0u);
}

TEST_F(CPSTransportDeletionTest, LastRelease_Any_SchedulesOneZeroDelayTimerAndDeletesOnTheNextTurn)
{
    m_pTransport->AddReference();
    EXPECT_EQ(m_pTransport->ReleaseReference(), 0u);
    EXPECT_TRUE(m_pTransport->IsDeletePending());
    EXPECT_EQ(NewLiveObjects(), 1);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{SCHEDULED}));
    Turn();
    EXPECT_EQ(NewLiveObjects(), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSTransportDeletionTest, Deletion_SocketOpen_ClosesItFirst)
{
    m_pTransport->GetPeer().SetHandle(s_nSocket);
    m_pTransport->AddReference();
    m_pTransport->ReleaseReference();
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{SCHEDULED}));
    Turn();
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"RemoveHandler(7,63)=0", "ps_close(7)=0"}));
}

TEST_F(CPSTransportDeletionTest, SecondFallToZero_Pending_SchedulesNothingMore)
{
    m_pTransport->AddReference();
    m_pTransport->ReleaseReference();
    m_Stack.TakeCalls();
    EXPECT_EQ(m_pTransport->AddReference(), 1u);
    EXPECT_EQ(m_pTransport->ReleaseReference(), 0u);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
    Turn();
    EXPECT_EQ(NewLiveObjects(), 0);
}

TEST_F(CPSTransportDeletionTest, OnReferenceDestory_CalledTwice_SchedulesOnce)
{
    m_pTransport->OnReferenceDestory();
    m_pTransport->OnReferenceDestory();
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{SCHEDULED}));
    Turn();
    EXPECT_EQ(NewLiveObjects(), 0);
}

TEST_F(CPSTransportDeletionTest, ManyPending_OneTurn_DeletesAll)
{
    m_pTransport->OnReferenceDestory();
    for (int i = 0; i < 100; ++i)
        (new CPSTransportTcp(&m_Reactor))->OnReferenceDestory();
    EXPECT_EQ(NewLiveObjects(), 101);
    Turn();
    EXPECT_EQ(NewLiveObjects(), 0);
}

TEST_F(CPSTransportDeletionTest, LastRelease_NoThreadObject_NeverDeletes)
{
    CMNThreadManager::Instance()->AttachCurrentThread(nullptr);
    m_pTransport->AddReference();
    EXPECT_EQ(m_pTransport->ReleaseReference(), 0u);
    EXPECT_TRUE(m_pTransport->IsDeletePending());
    CMNThreadManager::Instance()->AttachCurrentThread(&m_Thread);
    Turn();
    EXPECT_EQ(NewLiveObjects(), 1);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
    delete m_pTransport;
}

TEST_F(CPSTransportDeletionTest, LastRelease_ThreadWithoutTimerQueue_NeverDeletes)
{
    m_Thread.UseTimerQueue(nullptr);
    m_pTransport->AddReference();
    EXPECT_EQ(m_pTransport->ReleaseReference(), 0u);
    EXPECT_TRUE(m_pTransport->IsDeletePending());
    m_Thread.UseTimerQueue(&m_Reactor);
    Turn();
    EXPECT_EQ(NewLiveObjects(), 1);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
    delete m_pTransport;
}

TEST_F(CPSTransportDeletionTest, LastRelease_OtherTimerQueueThanTheReactors_RunsOnThatOne)
{
    m_Thread.UseTimerQueue(&m_Thread.OwnTimers());
    m_pTransport->AddReference();
    m_pTransport->ReleaseReference();
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
    Turn();
    EXPECT_EQ(NewLiveObjects(), 1);
    FireDueTimers();
    EXPECT_EQ(NewLiveObjects(), 0);
}

TEST_F(CPSTransportDeletionTest, LastRelease_TimerRefused_DeletesWhenTheThreadObjectGoes)
{
    {
        CTestThread passing;
        passing.UseTimerQueue(&m_Reactor);
        CMNThreadManager::Instance()->AttachCurrentThread(&passing);
        m_Reactor.Refuse("ScheduleTimer", MN_ERROR_NOT_INITIALIZED);
        m_pTransport->AddReference();
        EXPECT_EQ(m_pTransport->ReleaseReference(), 0u);
        CMNThreadManager::Instance()->AttachCurrentThread(&m_Thread);
        Turn();
        EXPECT_EQ(NewLiveObjects(), 1);
    }
    EXPECT_EQ(NewLiveObjects(), 0);
}

TEST_F(CPSTransportDeletionTest, ThreadEnds_DeletionPending_EmptiesItsList)
{
    delete m_pTransport;
    CReleasingThread thread(&m_Reactor);
    ASSERT_EQ(thread.Create(CMNThreadManager::Instance()->GetNewThreadType()), MN_OK);
    ASSERT_EQ(thread.Join(), MN_OK);
    EXPECT_TRUE(thread.m_bPending);
    EXPECT_EQ(NewLiveObjects(), 0);
    EXPECT_EQ(thread.OwnTimers().GetPendingTimersCount(), 0u);
}

TEST_F(CPSTransportDeletionTest, References_OnAnotherThread_AreReported)
{
    ExpectReports(2);
    m_pTransport->AddReference();
    std::thread([this] {
        m_pTransport->AddReference();
        m_pTransport->ReleaseReference();
    }).join();
    EXPECT_EQ(m_pTransport->ReleaseReference(), 0u);
}

TEST_F(CPSTransportDeletionTest, Release_CountIsZero_IsReportedAndSchedulesNothing)
{
    ExpectReports(1);
    EXPECT_EQ(m_pTransport->ReleaseReference(), 0u);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
    EXPECT_FALSE(m_pTransport->IsDeletePending());
    delete m_pTransport;
}

TEST_F(CPSTransportDeletionTest, Delete_NeverReferenced_ClosesAtOnce)
{
    m_pTransport->GetPeer().SetHandle(s_nSocket);
    delete m_pTransport;
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"RemoveHandler(7,63)=0", "ps_close(7)=0"}));
    EXPECT_EQ(NewLiveObjects(), 0);
}

}  // namespace
}  // namespace uxport
