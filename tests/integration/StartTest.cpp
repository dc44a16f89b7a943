// The manager's start on the embedded stack.
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ipstack/ipstack.h"
#include "tests/integration/support/CClient.h"
#include "tests/integration/support/CListener.h"

using namespace uxport;

namespace
{

// Keeps the trace lines.
class CTraceLines : public mantle::IMNTraceSink
{
public:
    CTraceLines() { mantle::IMNTraceManager::Instance()->SetSink(this); }
    ~CTraceLines() override { mantle::IMNTraceManager::Instance()->SetSink(nullptr); }

    void OnTrace(int level, const char* text) override
    {
        const std::lock_guard<std::mutex> guard(m_Mutex);
        m_Lines.emplace_back(std::to_string(level) + " " + text);
    }

    std::vector<std::string> Get()
    {
        const std::lock_guard<std::mutex> guard(m_Mutex);
        return m_Lines;
    }

private:
    std::mutex m_Mutex;
    std::vector<std::string> m_Lines;
};

void StartStack()
{
    const unsigned long started = ipstack::IIPStackManager::Instance()->Startup(ipstack::CIPStackSettings());
    ASSERT_TRUE(started == MN_OK || started == MN_ERROR_ALREADY_INITIALIZED);
}

IPSReactor* GetReactor()
{
    return IPSConnectionManager::Instance()->GetReactor();
}

// Waits until the network thread has run an event.
void WaitForNetworkThread()
{
    mantle::CMNEventThread done(1, 0);
    ASSERT_EQ(MN_OK, GetReactor()->PostEvent(new CWorkEvent([&done] { done.Signal(); })));
    const CMNTimeValue limit(CNetwork::s_lLimitSeconds, 0);
    ASSERT_EQ(MN_OK, done.Wait(&limit));
}

TEST(StartTest, StackNotStarted_Init_FailsWithOneTraceLineAndMayBeTriedAgain)
{
    if (ipstack::IIPStackManager::Instance()->IsInitialized())
        GTEST_SKIP() << "another case of this process has started the stack; run the case alone";
    {
        CTraceLines lines;
        EXPECT_EQ(10001UL, IPSConnectionManager::Instance()->Init(1));
        ASSERT_EQ(1U, lines.Get().size());
        EXPECT_EQ(0U, lines.Get()[0].find("0 IPStack is no init this=")) << lines.Get()[0];
    }
    EXPECT_EQ(nullptr, GetReactor());
    IPSAcceptor* acceptor = nullptr;
    EXPECT_EQ(10001UL, IPSConnectionManager::Instance()->CreateConnectionServer(CONNECTION_TYPE_TCP, acceptor));
    StartStack();
    EXPECT_EQ(MN_OK, IPSConnectionManager::Instance()->Init(1));
    WaitForNetworkThread();
}

TEST(StartTest, Started_InitAgain_ReturnsZeroAndChangesNothing)
{
    StartStack();
    ASSERT_EQ(MN_OK, IPSConnectionManager::Instance()->Init(1));
    IPSReactor* reactor = GetReactor();
    EXPECT_EQ(MN_OK, IPSConnectionManager::Instance()->Init(7));
    EXPECT_EQ(reactor, GetReactor());
    WaitForNetworkThread();
}

TEST(StartTest, OnTheNetworkThread_TypesOfConnections_AnsweredAsOffered)
{
    CNetwork network;
    network.Run([] {
        IPSConnectionManager* manager = IPSConnectionManager::Instance();
        EXPECT_TRUE(manager->IsNetworkThread(mantle::CMNThreadManager::GetThreadSelfId()));
        for (const unsigned long type : {CONNECTION_TYPE_RAW, CONNECTION_TYPE_TCP, CONNECTION_TYPE_UDP}) {
            mantle::CMNAutoPtr<IPSAcceptor> acceptor;
            mantle::CMNAutoPtr<IPSConnector> connector;
            EXPECT_EQ(MN_OK, manager->CreateConnectionServer(type, acceptor.ParaOut()));
            EXPECT_EQ(MN_OK, manager->CreateConnectionClient(type, connector.ParaOut()));
        }
        IPSAcceptor* acceptor = nullptr;
        IPSConnector* connector = nullptr;
        EXPECT_EQ(10008UL, manager->CreateConnectionServer(5, acceptor));
        EXPECT_EQ(10008UL, manager->CreateConnectionClient(5, connector));
    });
    EXPECT_FALSE(IPSConnectionManager::Instance()->IsNetworkThread(mantle::CMNThreadManager::GetThreadSelfId()));
    EXPECT_FALSE(IPSConnectionManager::Instance()->IsNetworkThread(0));
}

TEST(StartTest, OnAUserThread_Create_GivesAProxyAndWithoutAThreadObjectNothing)
{
    CNetwork network;
    mantle::CMNAutoPtr<IPSAcceptor> proxy;
    EXPECT_EQ(MN_OK, IPSConnectionManager::Instance()->CreateConnectionServer(CONNECTION_TYPE_TCP, proxy.ParaOut()));
    EXPECT_TRUE(proxy);
    std::thread([] {
        IPSAcceptor* const before = reinterpret_cast<IPSAcceptor*>(0x10);
        IPSAcceptor* other = before;
        EXPECT_EQ(10001UL, IPSConnectionManager::Instance()->CreateConnectionServer(CONNECTION_TYPE_TCP, other));
        EXPECT_EQ(before, other);
    }).join();
}

// What a failed single-thread check said; both threads of a pair are network threads.
struct CReports
{
    static void Add(const mantle::CMNSingleThreadReport& report)
    {
        const std::lock_guard<std::mutex> guard(s_Mutex);
        s_Reports.push_back(report);
    }
    static std::vector<mantle::CMNSingleThreadReport> Get()
    {
        const std::lock_guard<std::mutex> guard(s_Mutex);
        return s_Reports;
    }

    static inline std::mutex s_Mutex;
    static inline std::vector<mantle::CMNSingleThreadReport> s_Reports;
};

TEST(StartTest, TwoNetworkThreads_Init_BothAreNetworkThreadsAndTheSecondIsReported)
{
    StartStack();
    CTraceLines lines;
    const auto before = mantle::CMNEnsureSingleThread::SetHandler(&CReports::Add);
    ASSERT_EQ(MN_OK, IPSConnectionManager::Instance()->Init(2));
    WaitForNetworkThread();
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(CNetwork::s_lLimitSeconds);
    while (CReports::Get().empty() && std::chrono::steady_clock::now() < limit)
        WaitForNetworkThread();
    const auto reports = CReports::Get();
    ASSERT_FALSE(reports.empty());
    IPSConnectionManager* manager = IPSConnectionManager::Instance();
    for (const auto& report : reports) {
        EXPECT_STREQ(reports[0].m_szPlace, report.m_szPlace) << "one place, so one line of the default handler";
        EXPECT_NE(report.m_dwBoundThread, report.m_dwThisThread);
        EXPECT_TRUE(manager->IsNetworkThread(report.m_dwBoundThread));
        EXPECT_TRUE(manager->IsNetworkThread(report.m_dwThisThread));
    }
    mantle::CMNEnsureSingleThread::SetHandler(before);
}

TEST(StartTest, TwoNetworkThreads_Init_DefaultHandlerTracesOneLineAndTheLibraryWorks)
{
    CTraceLines lines;
    const auto before = mantle::CMNEnsureSingleThread::SetHandler(nullptr);
    StartStack();
    ASSERT_EQ(MN_OK, IPSConnectionManager::Instance()->Init(2));
    {
        CNetwork network;
        CListener listener(network, true);
        CClient client(network);
        network.Run([&] {
            ASSERT_EQ(MN_OK, listener.Listen(Loopback(7009)));
            ASSERT_EQ(MN_OK, client.Connect(Loopback(7009), 5));
        });
        ASSERT_TRUE(network.WaitFor([&] { return client.IsConnected(); }));
        network.Run([&] { client.Send("two"); });
        ASSERT_TRUE(network.WaitFor([&] { return client.m_strReceived == "two"; }));
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(CNetwork::s_lLimitSeconds);
        while (lines.Get().empty() && std::chrono::steady_clock::now() < limit)
            network.Turn();
    }
    EXPECT_EQ(1U, lines.Get().size());
    mantle::CMNEnsureSingleThread::SetHandler(before);
}

TEST(StartTest, AnotherThreadPostsInATightLoop_Init_EveryAcceptedEventRuns)
{
    constexpr int EVENTS = 20000;
    StartStack();
    std::atomic<int> run{0};
    std::atomic<int> accepted{0};
    std::atomic<int> destroyed{0};

    class CCounted : public CWorkEvent
    {
    public:
        CCounted(std::atomic<int>& runs, std::atomic<int>& deaths) : CWorkEvent([&runs] { ++runs; }), m_Deaths(deaths)
        {
        }
        ~CCounted() override { ++m_Deaths; }

    private:
        std::atomic<int>& m_Deaths;
    };

    IPSConnectionManager* manager = IPSConnectionManager::Instance();
    std::atomic<bool> started{false};
    std::thread poster([&] {
        started = true;
        while (!manager->GetReactor())
            std::this_thread::yield();
        for (int i = 0; i < EVENTS; ++i) {
            if (manager->GetReactor()->PostEvent(new CCounted(run, destroyed)) == MN_OK)
                ++accepted;
        }
    });
    while (!started)
        std::this_thread::yield();
    ASSERT_EQ(MN_OK, manager->Init(1));
    poster.join();
    WaitForNetworkThread();
    EXPECT_EQ(EVENTS, accepted.load());
    EXPECT_EQ(EVENTS, run.load());
    // The last event is destroyed after it has run, which the network thread may still be about to do.
    WaitForNetworkThread();
    EXPECT_EQ(EVENTS, destroyed.load());
}

}  // namespace
