// Threads that open, send and release while callbacks run; and the end of the process.
#include <atomic>
#include <cstdlib>
#include <memory>
#include <thread>

#include "mantle/CMNThreadManager.h"
#include "unit/connhub/UDPTransportTest.h"

namespace connhub
{
namespace
{

using mantle::CMNInetAddr;
using mantle::CMNLiveObjects;

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr int s_nRounds = 300;
#else
constexpr int s_nRounds = 1000;
#endif

class CCountingSink : public IMNUDPTransportSink
{
public:
    unsigned long OnReceive(mantle::CMNMessageBlock&, const CMNInetAddr&) override
    {
        ++m_dwCount;
        return 0;
    }
    std::atomic<unsigned int> m_dwCount{0};
};

// Notices callbacks that come too late.
class CMortalSink : public IMNUDPTransportSink
{
public:
    ~CMortalSink() override { EXPECT_FALSE(m_bInside.load()); }

    unsigned long OnReceive(mantle::CMNMessageBlock& data, const CMNInetAddr& from) override
    {
        EXPECT_FALSE(m_bInside.exchange(true));
        EXPECT_FALSE(m_bOver.load());
        ++m_nCalls;
        if (IMNUDPTransport* transport = m_pAnswer)
            transport->SendTo(data.GetReadPtr(), data.GetLength(), from);
        m_bInside.store(false);
        return 0;
    }

    std::atomic<bool> m_bInside{false};
    std::atomic<bool> m_bOver{false};
    std::atomic<int> m_nCalls{0};
    IMNUDPTransport* m_pAnswer = nullptr;
};

TEST_F(UDPTransportTest, TrafficBothWays_ReleasedAndMadeAgain_NoLateCallbackAndNoLeak)
{
    const long live = CMNLiveObjects::Count();
    MakeOpen(m_SinkB, m_B, m_AddressB);
    std::atomic<bool> stop{false};
    mantle::CMNMutexThread mutex;
    CMNInetAddr target = m_AddressB;
    std::thread sender([&] {
        const std::string text(600, 's');
        while (!stop.load()) {
            CMNInetAddr to;
            {
                mantle::CMNMutexGuard guard(mutex);
                to = target;
            }
            for (int burst = 0; burst < 20; ++burst)
                Send(m_B, text, to);
            std::this_thread::yield();
        }
    });
    int calls = 0;
    for (int round = 0; round < s_nRounds; ++round) {
        auto sink = std::make_unique<CMortalSink>();
        CTransportPtr transport;
        CMNInetAddr address;
        Make(*sink, transport);
        sink->m_pAnswer = transport.Get();
        ASSERT_EQ(transport->Open(CMNInetAddr("127.0.0.1", 0)), mantle::MN_OK);
        ASSERT_EQ(transport->GetLocalAddress(address), mantle::MN_OK);
        {
            mantle::CMNMutexGuard guard(mutex);
            target = address;
        }
        if (round % 4 != 0) {
            while (sink->m_nCalls.load() == 0)
                std::this_thread::yield();
        }
        for (int burst = 0; burst < 10; ++burst)
            Send(transport, "to B", m_AddressB);
        transport.ParaOut();
        sink->m_bOver.store(true);
        calls += sink->m_nCalls.load();
    }
    stop.store(true);
    sender.join();
    EXPECT_GE(calls, s_nRounds / 2);
    m_B.ParaOut();
    EXPECT_EQ(CMNLiveObjects::Count(), live);
}

// The loop's wait, just looking at the old socket, once held its address beyond the release.
TEST_F(UDPTransportTest, DatagramsComing_ReleasedAndOpenedAgain_TheAddressIsFree)
{
    MakeOpen(m_SinkB, m_B, m_AddressB);
    CCountingSink sink;
    CTransportPtr transport;
    CMNInetAddr address;
    MakeOpen(sink, transport, address);
    std::atomic<bool> stop{false};
    std::thread sender([&] {
        while (!stop.load()) {
            for (int burst = 0; burst < 20; ++burst)
                Send(m_B, "x", address);
            std::this_thread::yield();
        }
    });
    int refused = 0;
    for (int round = 0; round < 4 * s_nRounds && refused == 0; ++round) {
        // The loop is watching the socket, and has more to do for it.
        const unsigned int before = sink.m_dwCount.load();
        while (sink.m_dwCount.load() < before + 5)
            std::this_thread::yield();
        transport.ParaOut();
        Make(sink, transport);
        refused += transport->Open(address) == mantle::MN_OK ? 0 : 1;
    }
    stop.store(true);
    sender.join();
    transport.ParaOut();
    EXPECT_EQ(refused, 0);
}

TEST_F(UDPTransportTest, FourThreads_SendThroughOneTransport_EveryDatagramAccountedFor)
{
    MakeOpen(m_SinkA, m_A, m_AddressA);
    MakeOpen(m_SinkB, m_B, m_AddressB);
    m_A->SetQueueLimit(20000);
    std::atomic<std::uint64_t> refused{0};
    constexpr int each = 5000;
    std::vector<std::thread> threads;
    for (int index = 0; index < 4; ++index) {
        threads.emplace_back([&, index] {
            const std::string text(static_cast<std::size_t>(100 + index), 'x');
            for (int round = 0; round < each; ++round)
                refused += Send(m_A, text, m_AddressB) == mantle::MN_OK ? 0 : 1;
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    CMNUDPTransportCounters counters = m_A->GetCounters();
    while (counters.m_qwQueued != 0) {
        std::this_thread::yield();
        counters = m_A->GetCounters();
    }
    EXPECT_EQ(counters.m_qwSent + counters.m_qwDropped + counters.m_qwFailed, 4u * each);
    EXPECT_EQ(counters.m_qwDropped, refused.load());
}

class UDPTransportEndTest : public UDPTransportTest
{
protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    // Two transports that send each other what they receive, for ever.
    void Play()
    {
        for (CRecordingSink* sink : {&m_SinkA, &m_SinkB}) {
            sink->m_fOnReceive = [this, sink](const std::string& text) {
                Send(sink == &m_SinkA ? m_A : m_B, text, sink == &m_SinkA ? m_AddressB : m_AddressA);
            };
        }
        MakeOpen(m_SinkA, m_A, m_AddressA);
        MakeOpen(m_SinkB, m_B, m_AddressB);
        Send(m_A, "ball", m_AddressB);
        m_SinkA.WaitFor(10);
    }
};

TEST_F(UDPTransportEndTest, TransportsOpen_CleanedUp_ReleasedAfterwardsDoNoHarm)
{
    EXPECT_EXIT(
        {
            Play();
            mantle::CMNThreadManager::Instance()->CleanUp();
            const bool gone = CMNConnectionManager::Instance() == nullptr;
            const bool closed = Send(m_A, "x", m_AddressB) == mantle::MN_ERROR_NOT_INITIALIZED;
            m_A.ParaOut();
            m_B.ParaOut();
            exit(gone && closed ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(UDPTransportEndTest, ManagerHeldBeyondTheCleanUp_CreatesATransport_Refused)
{
    EXPECT_EXIT(
        {
            CMNConnectionManager* manager = CMNConnectionManager::Instance();
            Play();
            mantle::CMNThreadManager::Instance()->CleanUp();
            IMNUDPTransport* transport = nullptr;
            const bool refused = manager->CreateUDPTransport(&m_SinkA, transport) == mantle::MN_ERROR_FAILURE;
            exit(refused && !transport ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(UDPTransportEndTest, TransportsOpen_ProcessEnds_Quietly)
{
    EXPECT_EXIT(
        {
            Play();
            exit(0);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(UDPTransportEndTest, Callback_EndsTheProcess_Quietly)
{
    EXPECT_EXIT(
        {
            m_SinkA.m_fOnReceive = [](const std::string&) { exit(0); };
            MakeOpen(m_SinkA, m_A, m_AddressA);
            Send(m_A, "x", m_AddressA);
            m_SinkA.WaitFor(2);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(UDPTransportEndTest, Callback_CleansUp_ProcessEndsQuietly)
{
    EXPECT_EXIT(
        {
            m_SinkA.m_fOnReceive = [](const std::string&) { mantle::CMNThreadManager::Instance()->CleanUp(); };
            MakeOpen(m_SinkA, m_A, m_AddressA);
            Send(m_A, "x", m_AddressA);
            m_SinkA.WaitFor(1);
            exit(0);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace connhub
