// Events on both loops, on working pipes and real waits.
#include "reactor/CPSReactorPoll.h"
#include "reactor/CPSReactorSelect.h"

#include <atomic>
#include <thread>

#include "tests/unit/reactor/ReactorLoopSupport.h"
#include "tests/unit/reactor/ReactorSupport.h"
#include "tests/unit/scripted/CLoopThread.h"

using namespace uxport;

namespace
{

template <class Reactor>
class CPSReactorLoopEventsTest : public CReactorLoopTestT<Reactor>
{
};

TYPED_TEST_SUITE(CPSReactorLoopEventsTest, CReactors, CReactorNames);

TYPED_TEST(CPSReactorLoopEventsTest, PostEvent_OtherThreads_EachThreadsOrderIsKept)
{
    constexpr int EACH = 3000;
    CLoopThread loop(*this->m_pReactor);
    std::vector<int> next(4, 0);
    std::atomic<int> wrong{0};
    std::vector<std::thread> posters;
    for (std::size_t poster = 0; poster < next.size(); ++poster) {
        posters.emplace_back([&, poster] {
            for (int i = 0; i < EACH; ++i) {
                this->Post([&next, &wrong, poster, i] {
                    if (next[poster]++ != i)
                        ++wrong;
                });
            }
        });
    }
    for (std::thread& poster : posters)
        poster.join();
    EXPECT_EQ(this->m_pReactor->SendEvent(new CTestEvent(this->m_Counts)), MN_OK);
    EXPECT_EQ(loop.Stop(), MN_OK);
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(next, std::vector<int>(4, EACH));
}

TYPED_TEST(CPSReactorLoopEventsTest, Open_PostsWereMadeBefore_OneRecordAndTheyRun)
{
    this->Post();
    this->Post();
    this->PostStop();
    EXPECT_EQ(this->m_Stack.CountOf("ps_send"), 0u);
    this->m_pReactor->Open();
    EXPECT_EQ(this->m_Stack.CountOf("ps_send", this->WRITE_END), 1u);
    EXPECT_EQ(this->m_pReactor->RunEventLoop(), MN_OK);
    EXPECT_EQ(this->m_Counts.m_nFired, 3);
    this->m_pReactor->Close();
}

TYPED_TEST(CPSReactorLoopEventsTest, Open_NothingPosted_NoRecord)
{
    this->m_pReactor->Open();
    EXPECT_EQ(this->m_Stack.CountOf("ps_send"), 0u);
    this->m_pReactor->Close();
}

TYPED_TEST(CPSReactorLoopEventsTest, Open_PostsOfAnotherThreadAllAround_NoneIsForgotten)
{
    for (int round = 0; round < 30; ++round) {
        TypeParam reactor;
        CTestEventCounts counts;
        std::atomic<bool> end{false};
        std::atomic<int> posted{0};
        std::thread poster([&] {
            while (!end.load()) {
                reactor.PostEvent(new CTestEvent(counts));
                ++posted;
            }
        });
        while (posted.load() < round)
            std::this_thread::yield();
        CLoopThread loop(reactor);
        const int soFar = posted.load();
        while (posted.load() < soFar + 50)
            std::this_thread::yield();
        end.store(true);
        poster.join();
        // No post behind the last one: nothing but its own record, or one before it, makes it run.
        while (counts.m_nFired != posted.load())
            std::this_thread::yield();
        loop.Stop();
        EXPECT_EQ(counts.m_nAlive, 0);
    }
}

TYPED_TEST(CPSReactorLoopEventsTest, Events_250000AtOnce_ATimerFiresInBetween)
{
    constexpr int EVENTS = 250000;
    this->m_pReactor->Open();
    int firedAtTimer = 0;
    CTestTimer timer([&] { firedAtTimer = this->m_Counts.m_nFired; });
    this->m_pReactor->ScheduleTimer(&timer, nullptr, CMNTimeValue(3600, 0), 1);
    for (int i = 0; i < EVENTS; ++i) {
        this->Post(i != 5000 ? std::function<void()>()
                             : [&] { this->m_pReactor->ScheduleTimer(&timer, nullptr, CMNTimeValue::s_tvZero, 1); });
    }
    this->PostStop();
    EXPECT_EQ(this->m_pReactor->RunEventLoop(), MN_OK);
    EXPECT_EQ(this->m_Counts.m_nFired, EVENTS + 1);
    EXPECT_EQ(timer.m_nFired, 1);
    EXPECT_GT(firedAtTimer, 5000);
    EXPECT_LT(firedAtTimer, EVENTS);
    this->m_pReactor->Close();
}

TYPED_TEST(CPSReactorLoopEventsTest, Events_OneThatKeepsPostingItself_TimersAndHandlesAreServed)
{
    this->m_pReactor->Open();
    CTestHandler handler(900);
    this->m_Stack.SetReady(900, PS_POLLIN);
    int inputs = 0;
    handler.m_Input = [&] {
        handler.TakeCalls();
        ++inputs;
        return 0;
    };
    this->m_pReactor->RegisterHandler(&handler, READ_MASK);
    CTestTimer timer;
    this->m_pReactor->ScheduleTimer(&timer, nullptr, CMNTimeValue(0, 1), 0);
    std::function<void()> again = [&] {
        if (timer.m_nFired < 10 || inputs < 10)
            this->Post(again);
        else
            this->m_pReactor->StopEventLoop();
    };
    this->Post(again);
    EXPECT_EQ(this->m_pReactor->RunEventLoop(), MN_OK);
    EXPECT_GE(timer.m_nFired, 10);
    EXPECT_GE(inputs, 10);
    this->m_pReactor->Close();
}

TYPED_TEST(CPSReactorLoopEventsTest, SendEvent_LoopThread_ResultAndThread)
{
    CLoopThread loop(*this->m_pReactor);
    std::atomic<unsigned long> ranOn{0};
    EXPECT_EQ(this->m_pReactor->SendEvent(new CTestEvent(this->m_Counts,
                                                         [&] {
                                                             ranOn = mantle::CMNThreadManager::GetThreadSelfId();
                                                             return MN_ERROR_PARTIAL_DATA;
                                                         })),
              MN_ERROR_PARTIAL_DATA);
    EXPECT_EQ(ranOn, loop.GetId());
    EXPECT_EQ(this->m_pReactor->SendEvent(nullptr), MN_ERROR_INVALID_ARG);
    // From inside an event it runs in place.
    EXPECT_EQ(this->m_pReactor->SendEvent(new CTestEvent(this->m_Counts,
                                                         [&] {
                                                             return this->m_pReactor->SendEvent(new CTestEvent(
                                                                 this->m_Counts, [] { return MN_ERROR_FOUND; }));
                                                         })),
              MN_ERROR_FOUND);
    loop.Stop();
}

TYPED_TEST(CPSReactorLoopEventsTest, SendEvent_ThousandsFromFourThreads_EachGetsItsOwnResult)
{
    constexpr MNResult EACH = 2000;
    CLoopThread loop(*this->m_pReactor);
    std::atomic<int> wrong{0};
    std::vector<std::thread> senders;
    for (MNResult sender = 0; sender < 4; ++sender) {
        senders.emplace_back([&, sender] {
            for (MNResult i = 0; i < EACH; ++i) {
                const MNResult expected = sender * EACH + i;
                if (this->m_pReactor->SendEvent(new CTestEvent(this->m_Counts, [expected] { return expected; })) !=
                    expected)
                    ++wrong;
            }
        });
    }
    for (std::thread& sender : senders)
        sender.join();
    loop.Stop();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(this->m_Counts.m_nFired, static_cast<int>(4 * EACH));
}

TYPED_TEST(CPSReactorLoopEventsTest, Close_SenderStillWaiting_IsWokenWithNotAvailable)
{
    this->m_pReactor->Open();
    MNResult result = MN_OK;
    std::thread sender([&] { result = this->m_pReactor->SendEvent(new CTestEvent(this->m_Counts)); });
    while (this->m_pReactor->GetPendingEventsCount() == 0)
        std::this_thread::yield();
    this->m_pReactor->Close();
    sender.join();
    EXPECT_EQ(result, MN_ERROR_NOT_AVAILABLE);
    EXPECT_EQ(this->m_Counts.m_nDestroyed, 1);
    EXPECT_EQ(this->m_Counts.m_nFired, 0);
}

TYPED_TEST(CPSReactorLoopEventsTest, Close_EventsThatPostWhenDestroyed_NothingLeft)
{
    this->m_pReactor->Open();
    const auto post = [this] {
        EXPECT_EQ(this->m_pReactor->PostEvent(new CTestEvent(this->m_Counts)), MN_ERROR_NOT_INITIALIZED);
    };
    this->m_pReactor->PostEvent((new CTestEvent(this->m_Counts))->AtDelete(post));
    this->m_pReactor->PostEvent(new CTestEvent(this->m_Counts, nullptr, post));
    this->m_pReactor->Close();
    EXPECT_EQ(this->m_Counts.m_nDestroyed, 4);
    EXPECT_EQ(this->m_Counts.m_nAlive, 0);
}

TYPED_TEST(CPSReactorLoopEventsTest, Destructor_NeverOpened_DestroysEventsThatPostAgain)
{
    IPSReactor* reactor = this->m_pReactor.get();
    const auto post = [this, reactor] {
        EXPECT_NE(dynamic_cast<TypeParam*>(reactor), nullptr) << "the reactor is still whole";
        reactor->PostEvent(new CTestEvent(this->m_Counts), IMNEventQueue::EPRIORITY_NORMAL);
    };
    reactor->PostEvent((new CTestEvent(this->m_Counts))->AtDelete(post));
    this->m_pReactor.reset();
    EXPECT_EQ(this->m_Counts.m_nDestroyed, 2);
    EXPECT_EQ(this->m_Counts.m_nAlive, 0);
}

}  // namespace
