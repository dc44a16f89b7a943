#include "mantle/CMNEventThread.h"

#include <memory>
#include <thread>

#include "MantleTest.h"
#include "mantle/CMNClock.h"

namespace mantle
{
namespace
{

const CMNTimeValue s_tvShort(0, 2000);

TEST(CMNEventThreadTest, NotSignalled_WaitWithALimit_NotFoundAtTheLimit)
{
    CMNEventThread event(0, 0);
    EXPECT_EQ(event.Wait(&s_tvShort), MN_ERROR_NOT_FOUND);
    EXPECT_EQ(event.Wait(&CMNTimeValue::s_tvZero), MN_ERROR_NOT_FOUND);
}

TEST(CMNEventThreadTest, MadeSignalledAutomatic_WaitTwice_FirstOnly)
{
    CMNEventThread event(0, 1, "name");
    EXPECT_EQ(event.Wait(), MN_OK);
    EXPECT_EQ(event.Wait(&s_tvShort), MN_ERROR_NOT_FOUND);
}

TEST(CMNEventThreadTest, MadeSignalledManual_WaitTwice_BothUntilReset)
{
    CMNEventThread event(1, 1);
    EXPECT_EQ(event.Wait(), MN_OK);
    EXPECT_EQ(event.Wait(&CMNTimeValue::s_tvMax), MN_OK);
    EXPECT_EQ(event.Reset(), MN_OK);
    EXPECT_EQ(event.Wait(&s_tvShort), MN_ERROR_NOT_FOUND);
}

TEST(CMNEventThreadTest, SignalledTwiceAutomatic_WaitTwice_CountsOnce)
{
    CMNEventThread event(0, 0);
    EXPECT_EQ(event.Signal(), MN_OK);
    EXPECT_EQ(event.Signal(), MN_OK);
    EXPECT_EQ(event.Wait(), MN_OK);
    EXPECT_EQ(event.Wait(&s_tvShort), MN_ERROR_NOT_FOUND);
}

TEST(CMNEventThreadTest, ThreeWaitersAutomatic_OneSignal_WakesExactlyOne)
{
    CMNEventThread event(0, 0);
    std::atomic<int> woken{0};
    std::vector<std::thread> threads;
    for (int index = 0; index < 3; ++index) {
        threads.emplace_back([&] {
            EXPECT_EQ(event.Wait(), MN_OK);
            ++woken;
        });
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    event.Signal();
    while (woken == 0)
        std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(woken, 1);
    event.Signal();
    while (woken == 1)
        std::this_thread::yield();
    event.Signal();
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(woken, 3);
}

TEST(CMNEventThreadTest, ThreeWaitersManual_OneSignal_WakesAll)
{
    CMNEventThread event(1, 0);
    std::vector<std::thread> threads;
    for (int index = 0; index < 3; ++index)
        threads.emplace_back([&event] { EXPECT_EQ(event.Wait(&s_tvLimit), MN_OK); });
    event.Signal();
    for (std::thread& thread : threads)
        thread.join();
}

TEST(CMNEventThreadTest, WaiterTimedOut_SignalLater_GoesToTheNextWaiter)
{
    CMNEventThread event(0, 0);
    EXPECT_EQ(event.Wait(&s_tvShort), MN_ERROR_NOT_FOUND);
    event.Signal();
    EXPECT_EQ(event.Wait(&s_tvShort), MN_OK);
}

TEST(CMNEventThreadTest, HandMovedClock_WaitWithALimit_NoTimePassesOutside)
{
    CMNManualClock clock;
    CMNEventThread event(0, 0);
    const CMNTimeValue hour(3600, 0);
    const long long before = CMNClock::NowUs();
    EXPECT_EQ(event.Wait(&hour), MN_ERROR_NOT_FOUND);
    EXPECT_EQ(CMNClock::NowUs() - before, 3600000000LL);
}

// Fills what was freed, so that a late write shows.
TEST(CMNEventThreadTest, WaiterBack_DestroysTheEventAtOnce_SignallerTouchesNothingMore)
{
    for (int round = 0; round < 3000; ++round) {
        auto event = std::make_unique<CMNEventThread>(round % 2, 0);
        CMNEventThread* raw = event.get();
        std::thread signaller([raw] { raw->Signal(); });
        EXPECT_EQ(event->Wait(), MN_OK);
        event.reset();
        auto again = std::make_unique<unsigned char[]>(sizeof(CMNEventThread));
        for (std::size_t index = 0; index < sizeof(CMNEventThread); ++index)
            again[index] = 0xA5;
        signaller.join();
        for (std::size_t index = 0; index < sizeof(CMNEventThread); ++index)
            ASSERT_EQ(again[index], 0xA5) << "round " << round;
    }
}

TEST(CMNEventThreadTest, SignalAndLimitMeet_ManyTimes_EverySignalIsEitherTakenOrKept)
{
    CMNEventThread event(0, 0);
    constexpr int rounds = 1000;
    int taken = 0;
    for (int round = 0; round < rounds; ++round) {
        std::thread signaller([&event] { event.Signal(); });
        const CMNTimeValue limit(0, round % 100);
        if (event.Wait(&limit) == MN_OK)
            ++taken;
        signaller.join();
        if (event.Wait(&CMNTimeValue::s_tvZero) == MN_OK)
            ++taken;
    }
    EXPECT_EQ(taken, rounds);
}

}  // namespace
}  // namespace mantle
