#include "mantle/CMNReferenceControl.h"

#include <algorithm>
#include <memory>
#include <thread>

#include "MantleTest.h"
#include "mantle/CMNClock.h"
#include "mantle/CMNThreadUser.h"

namespace mantle
{
namespace
{

class CCounted : public CMNReferenceControlT<CMNMutexThread>
{
public:
    unsigned long AddReference() { return AddReference_i(); }
    bool TryAddReference() { return TryAddReference_i(); }
    unsigned long ReleaseReference() { return ReleaseReference_i(); }
    unsigned long GetReference() { return GetReference_i(); }
};

class CSingleThreaded : public CMNReferenceControlT<CMNMutexNullSingleThread>
{
public:
    unsigned long AddReference() { return AddReference_i(); }
    unsigned long ReleaseReference() { return ReleaseReference_i(); }
};

// Deleted later; may do something then.
class CDeferred : public CMNReferenceControlTimerDeleteT<CMNMutexThread>
{
public:
    explicit CDeferred(std::function<void()> atEnd = {}) : m_AtEnd(std::move(atEnd)) {}
    ~CDeferred() override
    {
        if (m_AtEnd)
            m_AtEnd();
    }
    unsigned long AddReference() { return AddReference_i(); }
    bool TryAddReference() { return TryAddReference_i(); }
    unsigned long ReleaseReference() { return ReleaseReference_i(); }

private:
    std::function<void()> m_AtEnd;
};

TEST(CMNReferenceControlTest, References_AddedAndReleased_CountsAndDeletesAtZero)
{
    const long live = CMNLiveObjects::Count();
    auto* object = new CCounted;
    EXPECT_EQ(CMNLiveObjects::Count(), live + 1);
    EXPECT_EQ(object->GetReference(), 0u);
    EXPECT_EQ(object->AddReference(), 1u);
    EXPECT_EQ(object->AddReference(), 2u);
    EXPECT_EQ(object->ReleaseReference(), 1u);
    EXPECT_EQ(object->ReleaseReference(), 0u);
    EXPECT_EQ(CMNLiveObjects::Count(), live);
}

TEST(CMNReferenceControlTest, CountZero_Released_ReportedAndNothingElse)
{
    const CCatchReports reports;
    const long live = CMNLiveObjects::Count();
    const auto object = std::make_unique<CCounted>();
    EXPECT_EQ(object->ReleaseReference(), 0u);
    EXPECT_EQ(object->GetReference(), 0u);
    EXPECT_EQ(reports.Reports().size(), 1u);
    EXPECT_EQ(CMNLiveObjects::Count(), live + 1);
}

TEST(CMNReferenceControlTest, CountZero_Tried_NoReference)
{
    CCounted object;
    EXPECT_FALSE(object.TryAddReference());
    object.AddReference();
    EXPECT_TRUE(object.TryAddReference());
    EXPECT_EQ(object.GetReference(), 2u);
}

TEST(CMNReferenceControlTest, FourThreads_AddAndRelease_DeletedOnceAtTheEnd)
{
    const long live = CMNLiveObjects::Count();
    auto* object = new CCounted;
    object->AddReference();
    std::vector<std::thread> threads;
    for (int index = 0; index < 4; ++index) {
        object->AddReference();
        threads.emplace_back([object] {
            for (int step = 0; step < 5000; ++step) {
                object->AddReference();
                object->ReleaseReference();
            }
            object->ReleaseReference();
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(CMNLiveObjects::Count(), live + 1);
    object->ReleaseReference();
    EXPECT_EQ(CMNLiveObjects::Count(), live);
}

TEST(CMNReferenceControlTest, CheckedBySingleThread_UsedElsewhere_Reported)
{
    const CCatchReports reports;
    auto* object = new CSingleThreaded;
    object->AddReference();
    std::thread other([object] { object->AddReference(); });
    other.join();
    EXPECT_EQ(reports.Reports().size(), 1u);
    object->ReleaseReference();
    object->ReleaseReference();
}

TEST(CMNReferenceControlTimerDeleteTest, LastReferenceReleased_TimerFires_DeletedThenAndNotBefore)
{
    const CAdopted adopted;
    CMNThreadUser* thread = adopted.Get();
    const long live = CMNLiveObjects::Count();
    auto* object = new CDeferred;
    object->AddReference();
    EXPECT_FALSE(object->IsDeletePending());
    EXPECT_EQ(object->ReleaseReference(), 0u);
    EXPECT_TRUE(object->IsDeletePending());
    EXPECT_EQ(CMNLiveObjects::Count(), live + 1);
    EXPECT_EQ(thread->RunPending(), 1u);
    EXPECT_EQ(CMNLiveObjects::Count(), live);
}

TEST(CMNReferenceControlTimerDeleteTest, DeletePending_ReferenceTakenAndReleased_ScheduledOnceAndNotSaved)
{
    const CAdopted adopted;
    CMNThreadUser* thread = adopted.Get();
    const long live = CMNLiveObjects::Count();
    auto* object = new CDeferred;
    object->AddReference();
    object->ReleaseReference();
    EXPECT_FALSE(object->TryAddReference());
    EXPECT_EQ(object->AddReference(), 1u);
    EXPECT_EQ(object->ReleaseReference(), 0u);
    EXPECT_EQ(object->AddReference(), 1u);
    EXPECT_EQ(thread->RunPending(), 1u);
    EXPECT_EQ(CMNLiveObjects::Count(), live);
}

TEST(CMNReferenceControlTimerDeleteTest, NoThreadObject_LastReferenceReleased_NeverDeleted)
{
    const long live = CMNLiveObjects::Count();
    auto* object = new CDeferred;
    object->AddReference();
    object->ReleaseReference();
    EXPECT_TRUE(object->IsDeletePending());
    EXPECT_EQ(CMNLiveObjects::Count(), live + 1);
    delete object;
}

// Refuses every timer.
class CRefusingThread : public CMNThread, public IMNTimerQueue
{
public:
    explicit CRefusingThread(std::function<void()> run) : m_Run(std::move(run)) {}
    void OnThreadRun() override { m_Run(); }
    IMNTimerQueue* GetTimerQueue() override { return this; }
    MNResult ScheduleTimer(IMNTimerHandler*, void*, const CMNTimeValue&, unsigned long) override
    {
        ++m_nAsked;
        return MN_ERROR_NOT_INITIALIZED;
    }
    MNResult CancelTimer(IMNTimerHandler*) override { return MN_ERROR_NOT_INITIALIZED; }

    std::function<void()> m_Run;
    int m_nAsked = 0;
};

TEST(CMNReferenceControlTimerDeleteTest, TimerRefused_RunEnds_DeletedOnThatThread)
{
    const long live = CMNLiveObjects::Count();
    unsigned long deletedOn = 0;
    CRefusingThread thread([&] {
        auto* object = new CDeferred([&] { deletedOn = CMNThreadManager::GetThreadSelfId(); });
        object->AddReference();
        object->ReleaseReference();
        EXPECT_EQ(CMNLiveObjects::Count(), live + 1);
    });
    ASSERT_EQ(thread.Create(100), MN_OK);
    ASSERT_EQ(thread.Join(), MN_OK);
    EXPECT_EQ(thread.m_nAsked, 1);
    EXPECT_EQ(CMNLiveObjects::Count(), live);
    EXPECT_EQ(deletedOn, thread.GetThreadId());
}

TEST(CMNReferenceControlTimerDeleteTest, TimerDropped_RunEnds_DeletedAndWhatItsDestructorReleasesToo)
{
    const long live = CMNLiveObjects::Count();
    CMNThreadUser thread;
    ASSERT_EQ(thread.Create(100), MN_OK);
    thread.SendEvent(new CTestEvent([&] {
        auto* inner = new CDeferred;
        inner->AddReference();
        auto* outer = new CDeferred([inner] { inner->ReleaseReference(); });
        outer->AddReference();
        thread.Stop();
        outer->ReleaseReference();
    }));
    ASSERT_EQ(thread.Join(), MN_OK);
    EXPECT_EQ(CMNLiveObjects::Count(), live);
}

// Keeps its timers and never fires them.
class CForgetfulThread : public CRefusingThread
{
public:
    using CRefusingThread::CRefusingThread;
    MNResult ScheduleTimer(IMNTimerHandler* handler, void*, const CMNTimeValue&, unsigned long) override
    {
        m_Handlers.push_back(handler);
        return MN_OK;
    }
    MNResult CancelTimer(IMNTimerHandler* handler) override
    {
        m_Handlers.erase(std::remove(m_Handlers.begin(), m_Handlers.end(), handler), m_Handlers.end());
        return MN_OK;
    }

    std::vector<IMNTimerHandler*> m_Handlers;
};

TEST(CMNReferenceControlTimerDeleteTest, TimerStillScheduled_RunEnds_CancelledBeforeTheObjectGoes)
{
    CForgetfulThread thread([] {
        auto* object = new CDeferred;
        object->AddReference();
        object->ReleaseReference();
    });
    ASSERT_EQ(thread.Create(100), MN_OK);
    ASSERT_EQ(thread.Join(), MN_OK);
    EXPECT_TRUE(thread.m_Handlers.empty());
}

TEST(CMNAutoPtrTest, Pointer_HeldCopiedMovedAssigned_CountFollows)
{
    const long live = CMNLiveObjects::Count();
    {
        auto* object = new CCounted;
        CMNAutoPtr<CCounted> first(object);
        EXPECT_EQ(object->GetReference(), 1u);
        const CMNAutoPtr<CCounted> copy(first);
        EXPECT_EQ(object->GetReference(), 2u);
        CMNAutoPtr<CCounted> moved(std::move(first));
        EXPECT_EQ(object->GetReference(), 2u);
        CMNAutoPtr<CCounted> assigned;
        EXPECT_FALSE(assigned);
        assigned = moved;
        EXPECT_EQ(object->GetReference(), 3u);
        EXPECT_EQ(assigned.Get(), object);
        EXPECT_EQ(assigned->GetReference(), 3u);
        EXPECT_EQ(&*assigned, object);
        assigned = nullptr;
        EXPECT_EQ(object->GetReference(), 2u);
        CMNAutoPtr<CCounted>& alias = moved;
        moved = alias;
        EXPECT_EQ(object->GetReference(), 2u);
    }
    EXPECT_EQ(CMNLiveObjects::Count(), live);
}

TEST(CMNAutoPtrTest, ParaOut_Filled_OldReleasedAndNewTakenWithItsReference)
{
    const long live = CMNLiveObjects::Count();
    {
        CMNAutoPtr<CCounted> pointer(new CCounted);
        auto* object = new CCounted;
        object->AddReference();
        pointer.ParaOut() = object;
        EXPECT_EQ(CMNLiveObjects::Count(), live + 1);
        EXPECT_EQ(object->GetReference(), 1u);
    }
    EXPECT_EQ(CMNLiveObjects::Count(), live);
}

}  // namespace
}  // namespace mantle
