#include "mantle/CMNWaiter.h"

#include <atomic>
#include <set>
#include <thread>

#include "MantleTest.h"
#include "mantle/CMNClock.h"

namespace mantle
{
namespace
{

TEST(CMNWaiterTest, SignalledBeforeTheWait_Wait_ReturnsAtOnce)
{
    CMNWaiter waiter;
    const std::uint32_t sequence = waiter.GetSequence();
    waiter.Signal();
    EXPECT_NE(waiter.GetSequence(), sequence);
    EXPECT_TRUE(waiter.Wait(sequence, CMNWaiter::s_llForever));
}

TEST(CMNWaiterTest, NobodySignals_Wait_FalseAtTheDeadlineAndNotBefore)
{
    CMNWaiter waiter;
    const long long deadline = CMNClock::NowUs() + 20000;
    EXPECT_FALSE(waiter.Wait(waiter.GetSequence(), deadline));
    EXPECT_GE(CMNClock::NowUs(), deadline);
}

TEST(CMNWaiterTest, DeadlinePassed_Wait_FalseAtOnce)
{
    CMNWaiter waiter;
    EXPECT_FALSE(waiter.Wait(waiter.GetSequence(), 0));
}

TEST(CMNWaiterTest, FarDeadline_Signalled_WakesUp)
{
    CMNWaiter waiter;
    std::thread waker([&waiter] { waiter.Signal(); });
    EXPECT_TRUE(waiter.Wait(0, 9000000000000000000LL));
    waker.join();
}

TEST(CMNWaiterTest, Asleep_Signalled_True)
{
    CMNWaiter waiter;
    std::thread waker([&waiter] {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        waiter.Signal();
    });
    EXPECT_TRUE(waiter.Wait(0, CMNWaiter::s_llForever));
    waker.join();
}

// Two threads hand a token to each other, half of the time through a sleep: one lost signal and both hang.
void PingPong(int rounds)
{
    CMNWaiter waiters[2];
    std::atomic<int> turn{0};
    const auto play = [&](int self) {
        for (int round = 0; round < rounds; ++round) {
            while (true) {
                const std::uint32_t sequence = waiters[self].GetSequence();
                if (turn.load() == self)
                    break;
                waiters[self].Wait(sequence, CMNWaiter::s_llForever);
            }
            turn.store(1 - self);
            waiters[1 - self].Signal();
        }
    };
    std::thread other(play, 1);
    play(0);
    other.join();
}

TEST(CMNWaiterTest, TwoThreads_HandATokenOver_NoSignalIsLost)
{
    PingPong(20000);
}

TEST(CMNWaiterTest, TwoThreadsUnderTheHandMovedClock_HandATokenOver_NoSignalIsLost)
{
    CMNManualClock clock;
    PingPong(5000);
}

TEST(CMNWaiterTest, ClockChangesWhileTokensGoRound_Repeatedly_NoSignalIsLost)
{
    std::atomic<bool> over{false};
    std::thread changer([&over] {
        while (!over) {
            CMNManualClock clock;
            std::this_thread::yield();
        }
    });
    PingPong(5000);
    over = true;
    changer.join();
}

TEST(CMNWaiterTest, ManySignallers_OneSleeper_SeesEveryItem)
{
    CMNWaiter& waiter = CMNWaiter::Current();
    constexpr int each = 5000;
    std::atomic<int> items{0};
    std::vector<std::thread> threads;
    for (int index = 0; index < 4; ++index) {
        threads.emplace_back([&] {
            for (int count = 0; count < each; ++count) {
                items.fetch_add(1);
                waiter.Signal();
            }
        });
    }
    int taken = 0;
    while (taken < 4 * each) {
        const std::uint32_t sequence = waiter.GetSequence();
        const int found = items.exchange(0);
        taken += found;
        if (found == 0)
            waiter.Wait(sequence, CMNWaiter::s_llForever);
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(taken, 4 * each);
}

TEST(CMNWaiterTest, Current_AskedTwice_SameWaiterOnOneThreadAnotherOnTheNext)
{
    CMNWaiter* mine = &CMNWaiter::Current();
    EXPECT_EQ(mine, &CMNWaiter::Current());
    CMNWaiter* other = nullptr;
    std::thread thread([&other] { other = &CMNWaiter::Current(); });
    thread.join();
    EXPECT_NE(mine, other);
}

TEST(CMNWaiterTest, ThreadEnded_LateSignal_FindsAValidWaiter)
{
    CMNWaiter* other = nullptr;
    std::thread thread([&other] { other = &CMNWaiter::Current(); });
    thread.join();
    const std::uint32_t sequence = other->GetSequence();
    other->Signal();
    EXPECT_EQ(other->GetSequence(), sequence + 1);
}

TEST(CMNWaiterTest, ManyThreadsInARow_EachTakesOne_WaitersAreUsedAgain)
{
    std::set<CMNWaiter*> waiters;
    for (int index = 0; index < 50; ++index) {
        std::thread thread([&waiters] { waiters.insert(&CMNWaiter::Current()); });
        thread.join();
    }
    EXPECT_EQ(waiters.size(), 1u);
}

TEST(CMNWaiterTest, SignallerStillInsideSignal_ThreadEnds_NothingIsTouchedAfterwards)
{
    for (int round = 0; round < 300; ++round) {
        std::atomic<CMNWaiter*> waiter{nullptr};
        std::thread sleeper([&waiter] {
            CMNWaiter& own = CMNWaiter::Current();
            const std::uint32_t sequence = own.GetSequence();
            waiter.store(&own);
            own.Wait(sequence, CMNWaiter::s_llForever);
        });
        while (!waiter.load())
            std::this_thread::yield();
        waiter.load()->Signal();
        waiter.load()->Signal();
        sleeper.join();
    }
    SUCCEED();
}

}  // namespace
}  // namespace mantle
