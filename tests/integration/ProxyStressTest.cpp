// Many user threads with many connections at once, doing everything at random.
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <random>

#include "ipstack/ipstack.h"
#include "tests/integration/support/CStressThread.h"
#include "tests/integration/support/CUserLoop.h"
#include "tests/integration/support/Sanitizers.h"

using namespace uxport;

namespace
{

constexpr long SECONDS = UNDER_THREAD_SANITIZER ? 60 : 5;
constexpr std::uint32_t THREADS = 8;
constexpr const char* SEED_VARIABLE = "UXPORT_STRESS_SEED";

std::uint32_t ChooseSeed()
{
    const char* given = std::getenv(SEED_VARIABLE);
    return given ? static_cast<std::uint32_t>(std::strtoul(given, nullptr, 10)) : std::random_device()();
}

TEST(ProxyStressTest, EightThreads200ConnectionsEach_EverythingAtRandom_NothingLostNothingLeft)
{
    const std::uint32_t seed = ChooseSeed();
    std::cout << SEED_VARIABLE << '=' << seed << std::endl;
    CNetwork network;
    CUserLoop user(network);
    const long before = mantle::CMNLiveObjects::Count();

    CStressThread::CAll threads;
    for (std::uint32_t i = 0; i < THREADS; ++i)
        threads.push_back(std::make_unique<CStressThread>(threads, i, seed));
    for (auto& thread : threads)
        thread->Start();
    user.StaysFalse([] { return false; }, SECONDS);
    for (auto& thread : threads)
        thread->Finish();

    // Every attempt that is left is answered.
    for (auto& thread : threads) {
        while (thread->HasAttempts())
            network.Turn(1);
    }
    CStressThread::CCounts sum;
    for (auto& thread : threads) {
        const CStressThread::CCounts counts = thread->GetCounts();
        EXPECT_EQ(counts.m_qwAttempts, counts.m_qwIndications + counts.m_qwDropped);
        sum.m_qwAttempts += counts.m_qwAttempts;
        sum.m_qwDropped += counts.m_qwDropped;
        sum.m_qwMade += counts.m_qwMade;
        sum.m_qwAccepted += counts.m_qwAccepted;
        sum.m_qwEnds += counts.m_qwEnds;
        sum.m_qwRestarts += counts.m_qwRestarts;
    }
    std::cout << sum.m_qwAttempts << " attempts, " << sum.m_qwDropped << " of them dropped, " << sum.m_qwMade
              << " successful; " << sum.m_qwAccepted << " accepted, " << sum.m_qwEnds << " ends, " << sum.m_qwRestarts
              << " restarts" << std::endl;
    EXPECT_GT(sum.m_qwAccepted, THREADS * CStressThread::s_nConnections);
    EXPECT_GT(sum.m_qwDropped, 0U);
    EXPECT_GT(sum.m_qwEnds, 0U);
    EXPECT_GT(sum.m_qwRestarts, 0U);

    for (auto& thread : threads)
        thread->Release();
    EXPECT_EQ(before, user.SettleTo(before));
    for (auto& thread : threads)
        thread->End();
}

}  // namespace
