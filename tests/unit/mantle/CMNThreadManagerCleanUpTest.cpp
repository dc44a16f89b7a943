// The end of the process. Each case runs in a child process, which writes what happens, in order, to standard error.
#include "mantle/CMNThreadManager.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <thread>

#include "MantleTest.h"
#include "mantle/CMNClock.h"
#include "mantle/CMNReferenceControl.h"
#include "mantle/CMNSingleton.h"
#include "mantle/CMNThreadUser.h"
#include "mantle/CMNTimerWrapperID.h"
#include "mantle/IMNTraceManager.h"
#include "tests/support/KeepForEver.h"

namespace mantle
{
namespace
{

using testing::AllOf;
using testing::ContainsRegex;
using testing::ExitedWithCode;
using testing::HasSubstr;
using testing::Not;

void Say(const std::string& text)
{
    const std::string line = text + ";";
    if (::write(STDERR_FILENO, line.data(), line.size()) < 0)
        std::abort();
}

void Require(bool condition, const std::string& what)
{
    if (!condition)
        Say("WRONG " + what);
}

// A report in a child fails the case, unless it is expected.
void SayReport(const CMNSingleThreadReport& report)
{
    Say(std::string("WRONG report ") + report.m_szPlace);
}

// Everything said, in this order, and nothing wrong.
testing::Matcher<const std::string&> Said(const std::string& regex)
{
    return AllOf(ContainsRegex(regex), Not(HasSubstr("WRONG")));
}

CMNThreadManager* Manager()
{
    return CMNThreadManager::Instance();
}

class CNamed : public CMNCleanUpBase
{
public:
    explicit CNamed(std::string name, std::function<void()> atEnd = {})
        : m_strName(std::move(name)), m_AtEnd(std::move(atEnd))
    {
    }
    ~CNamed() override
    {
        Say("object " + m_strName);
        if (m_AtEnd)
            m_AtEnd();
    }

private:
    std::string m_strName;
    std::function<void()> m_AtEnd;
};

// A user thread that says when it has ended.
class CSayingUser : public CMNThreadUser
{
public:
    void OnThreadRun() override
    {
        CMNThreadUser::OnThreadRun();
        Say("user ended");
    }
};

class CDeferred : public CMNReferenceControlTimerDeleteT<CMNMutexThread>
{
public:
    explicit CDeferred(std::string name) : m_strName(std::move(name)) {}
    ~CDeferred() override { Say("deferred " + m_strName); }
    void MakeAndRelease()
    {
        AddReference_i();
        ReleaseReference_i();
    }

private:
    std::string m_strName;
};

class CSingle
{
public:
    CSingle() { Say("single made"); }
    ~CSingle() { Say("single gone"); }
};

class CMNThreadManagerCleanUpTest : public testing::Test
{
protected:
    void SetUp() override { testing::FLAGS_gtest_death_test_style = "threadsafe"; }

    // In the child: reports become words.
    static void Begin() { CMNEnsureSingleThread::SetHandler(&SayReport); }
};

TEST_F(CMNThreadManagerCleanUpTest, EverythingRuns_MainReturns_FourStepsInOrder)
{
    EXPECT_EXIT(
        {
            Begin();
            new CNamed("older");
            new CNamed("newer");
            CMNThreadUser* self = CMNThreadUser::AdoptCurrentThread();
            auto* user = new CSayingUser;
            Require(user->Create(100) == MN_OK, "create user");
            auto* network = new CStoppableThread([] { Say("network ended"); });
            Require(network->Create(101) == MN_OK, "create network");
            self->PostEvent(new CAtDestroy([] { Say("main's event"); }));
            CTestTimer timer([] { Say("main's timer"); });
            self->GetTimerQueue()->ScheduleTimer(&timer, nullptr, CMNTimeValue(), 1);
            std::exit(0);
        },
        ExitedWithCode(0), Said("^main's event;main's timer;user ended;network ended;object newer;object older;$"));
}

TEST_F(CMNThreadManagerCleanUpTest, MainAdopted_MainReturns_DueTimersFireUntilNoneIsAndOthersDoNot)
{
    EXPECT_EXIT(
        {
            Begin();
            CMNThreadUser* self = CMNThreadUser::AdoptCurrentThread();
            CTestTimer later([] { Say("WRONG later"); });
            CTestTimer third([] { Say("third"); });
            CTestTimer second([&] {
                Say("second");
                self->PostEvent(new CAtDestroy([&] {
                    Say("event of second");
                    self->GetTimerQueue()->ScheduleTimer(&third, nullptr, CMNTimeValue(), 1);
                }));
            });
            self->GetTimerQueue()->ScheduleTimer(&later, nullptr, CMNTimeValue(1000, 0), 1);
            self->PostEvent(new CAtDestroy([&] {
                Say("event");
                self->GetTimerQueue()->ScheduleTimer(&second, nullptr, CMNTimeValue(), 1);
            }));
            std::exit(0);
        },
        ExitedWithCode(0), Said("^event;second;event of second;third;$"));
}

TEST_F(CMNThreadManagerCleanUpTest, TimerSchedulesItselfWithoutDelay_MainReturns_NoHang)
{
    EXPECT_EXIT(
        {
            Begin();
            CMNThreadUser* self = CMNThreadUser::AdoptCurrentThread();
            CTestTimer timer;
            self->GetTimerQueue()->ScheduleTimer(&timer, nullptr, CMNTimeValue(), 0);
            new CNamed("a");
            std::exit(0);
        },
        ExitedWithCode(0), Said("^object a;$"));
}

TEST_F(CMNThreadManagerCleanUpTest, UserThreadHoldsEvents_MainReturns_DestroyedOnTheirThread)
{
    EXPECT_EXIT(
        {
            Begin();
            auto* user = new CMNThreadUser;
            user->Create(100);
            CMNEventThread busy(1, 0);
            user->PostEvent(new CTestEvent([&busy, user] {
                busy.Signal();
                while (!Manager()->IsCleaningUp())
                    std::this_thread::yield();
                // The clean-up has begun; a moment later it refuses posts.
                while (user->PostEvent(new CTestEvent([] {})) == MN_OK)
                    std::this_thread::yield();
            }));
            busy.Wait();
            user->PostEvent(new CTestEvent([] { Say("WRONG ran"); }));
            user->PostEvent(new CAtDestroy([user] {
                Say(CMNThreadManager::IsEqualCurrentThread(user->GetThreadId()) ? "home" : "WRONG thread");
                CTestEvent::CCounts counts;
                Require(user->PostEvent(new CTestEvent({}, &counts)) == MN_ERROR_NOT_INITIALIZED, "post accepted");
                Require(counts.m_nDestroyed == 1, "refused event not destroyed");
            }));
            std::exit(0);
        },
        ExitedWithCode(0), Said("^home;$"));
}

TEST_F(CMNThreadManagerCleanUpTest, NetworkThreadPostsToMain_WhileItEnds_RefusedAndDestroyed)
{
    EXPECT_EXIT(
        {
            Begin();
            CMNThreadUser* self = CMNThreadUser::AdoptCurrentThread();
            auto* network = new CStoppableThread([self] {
                CTestEvent::CCounts counts;
                Require(self->PostEvent(new CTestEvent({}, &counts)) == MN_ERROR_NOT_INITIALIZED, "post accepted");
                Require(self->SendEvent(new CTestEvent({}, &counts)) == MN_ERROR_NOT_INITIALIZED, "send accepted");
                Require(counts.m_nDestroyed == 2 && counts.m_nFired == 0, "counts");
                Say("network ended");
            });
            network->Create(100);
            std::exit(0);
        },
        ExitedWithCode(0), Said("^network ended;$"));
}

TEST_F(CMNThreadManagerCleanUpTest, ExitInACallbackOfAUserThread_Called_OthersJoinedObjectsAlive)
{
    EXPECT_EXIT(
        {
            Begin();
            new CNamed("WRONG");
            auto* other = new CSayingUser;
            other->Create(101);
            auto* network = new CStoppableThread([] { Say("network ended"); });
            network->Create(102);
            auto* user = new CMNThreadUser;
            user->Create(100);
            static std::atomic<bool> posted{false};
            user->PostEvent(new CTestEvent([] {
                while (!posted)
                    std::this_thread::yield();
                std::exit(5);
            }));
            user->PostEvent(new CAtDestroy([] { Say("own event"); }));
            posted = true;
            while (true)
                ::pause();
        },
        ExitedWithCode(5), Said("^own event;user ended;network ended;$"));
}

TEST_F(CMNThreadManagerCleanUpTest, ExitOnANetworkThread_Called_OthersJoinedObjectsAlive)
{
    EXPECT_EXIT(
        {
            Begin();
            new CNamed("WRONG");
            auto* user = new CSayingUser;
            user->Create(101);
            auto* network = new CTestThread([] { std::exit(6); });
            network->Create(102);
            while (true)
                ::pause();
        },
        ExitedWithCode(6), Said("^user ended;$"));
}

TEST_F(CMNThreadManagerCleanUpTest, ExitInACallbackOfMainsLoop_Called_OwnEventsDestroyedTimersNotFiredObjectsAlive)
{
    EXPECT_EXIT(
        {
            Begin();
            new CNamed("WRONG");
            CMNThreadUser* self = CMNThreadUser::AdoptCurrentThread();
            auto* user = new CSayingUser;
            user->Create(101);
            CTestTimer timer([] { Say("WRONG timer"); });
            self->PostEvent(new CTestEvent([&] {
                self->PostEvent(new CAtDestroy([] { Say("posted later"); }));
                self->GetTimerQueue()->ScheduleTimer(&timer, nullptr, CMNTimeValue(), 1);
                std::exit(7);
            }));
            self->PostEvent(new CAtDestroy([] { Say("posted before"); }));
            self->RunEventLoop();
        },
        ExitedWithCode(7), Said("^posted before;posted later;user ended;$"));
}

TEST_F(CMNThreadManagerCleanUpTest, CalledInACallback_Returns_ObjectsAliveAndTheLoopGoesOn)
{
    EXPECT_EXIT(
        {
            Begin();
            new CNamed("WRONG");
            CMNThreadUser* self = CMNThreadUser::AdoptCurrentThread();
            self->PostEvent(new CTestEvent([self] {
                Manager()->CleanUp();
                Require(!Manager()->HasDestroyedObjects(), "objects destroyed");
                Say("back");
                self->Stop();
            }));
            self->RunEventLoop();
            Say("left");
            std::exit(0);
        },
        ExitedWithCode(0), Said("^back;left;$"));
}

TEST_F(CMNThreadManagerCleanUpTest, ThreadEndedByItself_MainReturns_NothingOfItIsLeft)
{
    EXPECT_EXIT(
        {
            Begin();
            CMNEventThread ended(1, 0);
            auto* thread = new CTestThread([&ended] { ended.Signal(); });
            thread->Create(100);
            ended.Wait();
            new CNamed("a");
            std::exit(0);
        },
        ExitedWithCode(0), Said("^object a;$"));
}

TEST_F(CMNThreadManagerCleanUpTest, CalledTwice_SecondTime_NothingHappens)
{
    EXPECT_EXIT(
        {
            Begin();
            new CNamed("a");
            Manager()->CleanUp();
            Say("between");
            Manager()->CleanUp();
            Say("after");
            std::exit(0);
        },
        ExitedWithCode(0), Said("^object a;between;after;$"));
}

class CLastingSingle : public CMNLasting
{
public:
    void End() override
    {
        Require(CMNSingletonT<CLastingSingle>::Instance() == nullptr, "still found");
        Say("lasting ended");
    }
    ~CLastingSingle() { Say("WRONG lasting gone"); }
    bool IsThere() const { return m_nThere == 4711; }

private:
    int m_nThere = 4711;
};

TEST_F(CMNThreadManagerCleanUpTest, LastingSingleton_CleanedUp_EndedAndStillThere)
{
    EXPECT_EXIT(
        {
            Begin();
            CLastingSingle* lasting = CMNSingletonT<CLastingSingle>::Instance();
            Manager()->CleanUp();
            Require(lasting->IsThere(), "the object is not there");
            Require(CMNSingletonT<CLastingSingle>::Instance() == nullptr, "found again");
            std::exit(0);
        },
        ExitedWithCode(0), Said("^lasting ended;$"));
}

TEST_F(CMNThreadManagerCleanUpTest, TwoThreadsAtOnce_Called_TheSecondWaitsForTheFirst)
{
    EXPECT_EXIT(
        {
            Begin();
            CMNEventThread begun(1, 0);
            new CNamed("a", [&begun] {
                begun.Signal();
                std::this_thread::sleep_for(std::chrono::milliseconds(30));
                Say("first done");
            });
            std::thread first([] { Manager()->CleanUp(); });
            begun.Wait();
            Manager()->CleanUp();
            Say("second back");
            first.join();
            std::exit(0);
        },
        ExitedWithCode(0), Said("^object a;first done;second back;$"));
}

TEST_F(CMNThreadManagerCleanUpTest, ThreadDoesNotComeBack_BoundPasses_TraceLineAndObjectsLeft)
{
    EXPECT_EXIT(
        {
            Begin();
            new CNamed("WRONG");
            Manager()->SetJoinBound(CMNTimeValue(0, 20000));
            auto* stuck = new CTestThread([] {
                while (true)
                    ::pause();
            });
            stuck->Create(4711);
            std::exit(0);
        },
        ExitedWithCode(0), Said("clean-up: thread [0-9]+ of type 4711 has not ended"));
}

TEST_F(CMNThreadManagerCleanUpTest, OverAndDone_LateCalls_RefusedOrNull)
{
    EXPECT_EXIT(
        {
            Begin();
            CMNThreadUser* self = CMNThreadUser::AdoptCurrentThread();
            auto* user = new CMNThreadUser;
            user->Create(100);
            Require(CMNSingletonT<CSingle>::Instance() != nullptr, "no singleton");
            Manager()->CleanUp();
            Require(Manager()->IsCleaningUp(), "not cleaning up");
            Require(Manager()->HasDestroyedObjects(), "objects not destroyed");
            Require(CMNSingletonT<CSingle>::Instance() == nullptr, "singleton still there");
            Require(Manager()->GetSingletonMutex() == nullptr, "singleton mutex still there");
            Require(Manager()->GetThread(CMNThreadManager::TT_CURRENT) == nullptr, "current thread");
            Require(Manager()->GetThread(100) == nullptr, "thread by type");
            Require(CMNThreadUser::AdoptCurrentThread() == nullptr, "adopted");
            for (CMNThreadUser* thread : {self, user}) {
                CTestEvent::CCounts counts;
                Require(thread->PostEvent(new CTestEvent({}, &counts)) == MN_ERROR_NOT_INITIALIZED, "post");
                Require(thread->SendEvent(new CTestEvent({}, &counts)) == MN_ERROR_NOT_INITIALIZED, "send");
                Require(counts.m_nDestroyed == 2 && counts.m_nFired == 0, "counts");
                CTestTimer timer;
                Require(thread->GetTimerQueue()->ScheduleTimer(&timer, nullptr, CMNTimeValue(), 1) ==
                            MN_ERROR_NOT_INITIALIZED,
                        "timer");
            }
            CMNTimerWrapperID wrapper;
            Require(wrapper.Schedule(nullptr, CMNTimeValue()) == MN_ERROR_NULL_POINTER, "timer wrapper");
            CMNThreadUser late;
            Require(late.Create(200) == MN_ERROR_FAILURE, "thread made");
            std::exit(0);
        },
        ExitedWithCode(0), Said("^single made;single gone;$"));
}

struct CLateUser
{
    ~CLateUser()
    {
        if (m_pThread)
            Say(m_pThread->PostEvent(new CTestEvent) == MN_ERROR_NOT_INITIALIZED ? "refused" : "WRONG accepted");
    }
    CMNThreadUser* m_pThread = nullptr;
};
CLateUser s_LateUser;

TEST_F(CMNThreadManagerCleanUpTest, StaticObjectsDestructor_PostsAfterwards_Refused)
{
    EXPECT_EXIT(
        {
            Begin();
            s_LateUser.m_pThread = CMNThreadUser::AdoptCurrentThread();
            std::exit(0);
        },
        ExitedWithCode(0), Said("^refused;$"));
}

TEST_F(CMNThreadManagerCleanUpTest, ChecksBoundElsewhere_UsedByTheCleanUp_Silent)
{
    EXPECT_EXIT(
        {
            Begin();
            CMNEnsureSingleThread check;
            auto* network = new CStoppableThread;
            network->Create(100);
            check.SetToThread(network->GetThreadId());
            new CNamed("a", [&check] { Require(check.EnsureSingleThread("clean-up"), "check"); });
            std::exit(0);
        },
        ExitedWithCode(0), Said("^object a;$"));
}

TEST_F(CMNThreadManagerCleanUpTest, ObjectsReleaseCountedOnes_NoThreadObject_DeletedBeforeTheNextObject)
{
    EXPECT_EXIT(
        {
            Begin();
            new CNamed("older");
            new CNamed("newer", [] { (new CDeferred("of newer"))->MakeAndRelease(); });
            std::exit(0);
        },
        ExitedWithCode(0), Said("^object newer;deferred of newer;object older;$"));
}

TEST_F(CMNThreadManagerCleanUpTest, ObjectsReleaseCountedOnes_MainAdopted_DeletedBeforeTheNextObject)
{
    EXPECT_EXIT(
        {
            Begin();
            CMNThreadUser::AdoptCurrentThread();
            new CNamed("older");
            new CNamed("newer", [] { (new CDeferred("of newer"))->MakeAndRelease(); });
            (new CDeferred("before"))->MakeAndRelease();
            std::exit(0);
        },
        ExitedWithCode(0), Said("^deferred before;object newer;deferred of newer;object older;$"));
}

TEST_F(CMNThreadManagerCleanUpTest, ObjectMakesAnother_WhileItIsDestroyed_BothGo)
{
    EXPECT_EXIT(
        {
            Begin();
            new CNamed("a");
            new CNamed("b", [] { new CNamed("made late"); });
            std::exit(0);
        },
        ExitedWithCode(0), Said("^object b;object made late;object a;$"));
}

TEST_F(CMNThreadManagerCleanUpTest, NothingTidiedUp_MainReturns_NoHangAndNothingLeaks)
{
    EXPECT_EXIT(
        {
            Begin();
            CMNThreadUser* self = CMNThreadUser::AdoptCurrentThread();
            static CTestTimer* s_pTicks[3];
            for (int index = 0; index < 3; ++index) {
                s_pTicks[index] = new CTestTimer;
                auto* user = new CMNThreadUser;
                user->Create(100 + index);
                user->PostEvent(new CTestEvent([user, index] {
                    user->GetTimerQueue()->ScheduleTimer(s_pTicks[index], nullptr, CMNTimeValue(0, 100), 0);
                }));
                for (int count = 0; count < 100; ++count) {
                    user->PostEvent(new CTestEvent([self] { self->PostEvent(new CTestEvent); }));
                    self->PostEvent(new CTestEvent([user] { user->PostEvent(new CTestEvent); }));
                }
            }
            (new CStoppableThread)->Create(200);
            CMNSingletonT<CSingle>::Instance();
            std::exit(0);
        },
        ExitedWithCode(0), Said("^single made;single gone;$"));
}

TEST_F(CMNThreadManagerCleanUpTest, HandMovedClockInForce_MainReturns_RealClockIsBackAndNoHang)
{
    EXPECT_EXIT(
        {
            Begin();
            KeepForEver(new CMNManualClock(false));
            CMNThreadUser::AdoptCurrentThread();
            Manager()->SetJoinBound(CMNTimeValue(0, 20000));
            auto* stuck = new CTestThread([] {
                while (true)
                    ::pause();
            });
            stuck->Create(4712);
            std::exit(0);
        },
        ExitedWithCode(0), Said("of type 4712 has not ended"));
}

TEST_F(CMNThreadManagerCleanUpTest, OwnedThread_CleanedUp_Deleted)
{
    EXPECT_EXIT(
        {
            Begin();
            class COwned : public CStoppableThread
            {
            public:
                ~COwned() override { Say("deleted"); }
            };
            auto* thread = new COwned;
            Manager()->RegisterThread(thread, true);
            thread->Create(100);
            new CNamed("a");
            std::exit(0);
        },
        ExitedWithCode(0), Said("^object a;deleted;$"));
}

TEST_F(CMNThreadManagerCleanUpTest, PlainThreadAdoptedAndInItsLoop_MainReturns_StoppedAndWaitedFor)
{
    EXPECT_EXIT(
        {
            Begin();
            new CNamed("a");
            CMNEventThread running(1, 0);
            std::thread([&running] {
                CMNThreadUser* self = CMNThreadUser::AdoptCurrentThread();
                self->PostEvent(new CTestEvent([&running] { running.Signal(); }));
                self->RunEventLoop();
            }).detach();
            running.Wait();
            std::exit(0);
        },
        ExitedWithCode(0), Said("^object a;$"));
}

TEST_F(CMNThreadManagerCleanUpTest, MainInItsLoop_AnotherThreadExits_MainIsNotStoppedAndObjectsAreLeft)
{
    EXPECT_EXIT(
        {
            Begin();
            new CNamed("WRONG");
            CMNThreadUser* self = CMNThreadUser::AdoptCurrentThread();
            std::thread plain;
            self->PostEvent(new CTestEvent([&plain] { plain = std::thread([] { std::exit(8); }); }));
            self->RunEventLoop();
            Say("WRONG left the loop");
        },
        ExitedWithCode(8), Said("of type 1 has not ended"));
}

TEST_F(CMNThreadManagerCleanUpTest, ThreadsBeingCreated_MainReturnsMeanwhile_NoneIsForgotten)
{
    EXPECT_EXIT(
        {
            Begin();
            for (int index = 0; index < 4; ++index) {
                std::thread([] {
                    while (true) {
                        auto thread = std::make_unique<CStoppableThread>();
                        if (thread->Create(100) != MN_OK)
                            break;
                        thread.release();
                        if (Manager()->IsCleaningUp())
                            break;
                        std::this_thread::sleep_for(std::chrono::milliseconds(2));
                    }
                }).detach();
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            new CNamed("a");
            std::exit(0);
        },
        ExitedWithCode(0), Said("^object a;$"));
}

}  // namespace
}  // namespace mantle
