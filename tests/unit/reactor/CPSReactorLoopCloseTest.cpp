// The close of both loops while others post: it refuses first and destroys then, so that it ends.
#include "reactor/CPSReactorPoll.h"
#include "reactor/CPSReactorSelect.h"

#include <atomic>
#include <future>
#include <thread>
#include <vector>

#include "tests/unit/reactor/ReactorLoopSupport.h"
#include "tests/unit/reactor/ReactorSupport.h"
#include "tests/unit/scripted/CLoopThread.h"

using namespace uxport;

namespace
{

constexpr int POSTERS = 4;

template <class Reactor>
class CPSReactorLoopCloseTest : public CReactorLoopTestT<Reactor>
{
protected:
    // A post of another thread, waited for.
    MNResult PostElsewhere()
    {
        return std::async(std::launch::async,
                          [this] { return this->m_pReactor->PostEvent(new CTestEvent(this->m_Counts)); })
            .get();
    }
};

TYPED_TEST_SUITE(CPSReactorLoopCloseTest, CReactors, CReactorNames);

TYPED_TEST(CPSReactorLoopCloseTest, Close_OtherThreadPostsWhileEventsAreDestroyed_RefusedAndDestroyed)
{
    this->m_pReactor->Open();
    std::vector<MNResult> results;
    for (int i = 0; i < 3; ++i) {
        this->m_pReactor->PostEvent(
            new CTestEvent(this->m_Counts, nullptr, [&] { results.push_back(this->PostElsewhere()); }));
    }
    this->m_pReactor->Close();
    EXPECT_EQ(results, std::vector<MNResult>(3, MN_ERROR_NOT_INITIALIZED));
    EXPECT_EQ(this->m_Counts.m_nDestroyed, 6);
    EXPECT_EQ(this->m_Counts.m_nAlive, 0);
}

TYPED_TEST(CPSReactorLoopCloseTest, Destructor_OtherThreadPostsWhileEventsAreDestroyed_RefusedAndDestroyed)
{
    IPSReactor* reactor = this->m_pReactor.get();
    MNResult result = MN_OK;
    reactor->PostEvent(new CTestEvent(this->m_Counts, nullptr, [&] {
        std::thread([&] { result = reactor->PostEvent(new CTestEvent(this->m_Counts)); }).join();
    }));
    this->m_pReactor.reset();
    EXPECT_EQ(result, MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(this->m_Counts.m_nAlive, 0);
}

TYPED_TEST(CPSReactorLoopCloseTest, Close_EventsThatPostAgainWhenDestroyedAndSoOn_EndsWithoutDeepRecursion)
{
    constexpr int CHAIN = 100000;
    this->m_pReactor->Open();
    int left = CHAIN;
    std::function<void()> again = [&] {
        if (--left > 0)
            this->m_pReactor->PostEvent(new CTestEvent(this->m_Counts, nullptr, again));
    };
    this->m_pReactor->PostEvent(new CTestEvent(this->m_Counts, nullptr, again));
    this->m_pReactor->Close();
    EXPECT_EQ(left, 0);
    EXPECT_EQ(this->m_Counts.m_nDestroyed, CHAIN);
    EXPECT_EQ(this->m_Counts.m_nAlive, 0);
}

TYPED_TEST(CPSReactorLoopCloseTest, Close_FourThreadsPostWithoutAPause_EndsAndNothingIsLeft)
{
    for (int round = 0; round < 10; ++round) {
        TypeParam reactor;
        CTestEventCounts counts;
        std::atomic<bool> end{false};
        std::atomic<int> refused{0};
        std::vector<std::thread> posters;
        CLoopThread loop(reactor);
        for (int i = 0; i < POSTERS; ++i) {
            posters.emplace_back([&] {
                while (!end.load()) {
                    if (reactor.PostEvent(new CTestEvent(counts)) == MN_ERROR_NOT_INITIALIZED)
                        ++refused;
                }
            });
        }
        while (counts.m_nFired == 0)
            std::this_thread::yield();
        loop.Stop();
        const int before = refused.load();
        while (refused.load() < before + POSTERS)
            std::this_thread::yield();
        end.store(true);
        for (std::thread& poster : posters)
            poster.join();
        EXPECT_EQ(counts.m_nAlive, 0) << "a refused post destroys, and nothing is pending any more";
    }
}

TYPED_TEST(CPSReactorLoopCloseTest, Close_FourThreadsSendWithoutAPause_EachGetsAResult)
{
    CTestEventCounts& counts = this->m_Counts;
    CLoopThread loop(*this->m_pReactor);
    std::atomic<int> wrong{0};
    std::vector<std::thread> senders;
    for (int i = 0; i < POSTERS; ++i) {
        senders.emplace_back([&] {
            MNResult result = MN_OK;
            while (result == MN_OK)
                result = this->m_pReactor->SendEvent(new CTestEvent(counts));
            if (result != MN_ERROR_NOT_INITIALIZED && result != MN_ERROR_NOT_AVAILABLE)
                ++wrong;
        });
    }
    while (counts.m_nFired == 0)
        std::this_thread::yield();
    loop.Stop();
    for (std::thread& sender : senders)
        sender.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(counts.m_nAlive, 0);
}

}  // namespace
