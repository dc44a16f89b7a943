// A large transfer between two user threads, and what an idle process costs.
#include <gtest/gtest.h>

#include <iostream>

#include <sys/resource.h>

#include "ipstack/ipstack.h"
#include "tests/integration/support/CBytes.h"
#include "tests/integration/support/CUserClient.h"
#include "tests/integration/support/CUserServer.h"
#include "tests/integration/support/Sanitizers.h"

using namespace uxport;

namespace
{

constexpr unsigned short PORT = 7035;
constexpr std::uint64_t MEBIBYTE = 1024 * 1024;

rusage Usage()
{
    rusage usage{};
    EXPECT_EQ(0, getrusage(RUSAGE_SELF, &usage));
    return usage;
}

long long CpuMicroseconds(const rusage& usage)
{
    return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1000000LL + usage.ru_utime.tv_usec +
           usage.ru_stime.tv_usec;
}

// Compares a stream with what CBytes makes of the seed, block by block.
class CComparison
{
public:
    explicit CComparison(std::uint64_t seed) : m_Bytes(seed) {}

    void Add(const CMNMessageBlock& data)
    {
        std::string text(data.GetChainedLength(), '\0');
        data.PeekChained(text.data(), text.size());
        m_strLeft += text;
        const std::size_t whole = m_strLeft.size() / 8 * 8;
        m_bEqual = m_bEqual && m_strLeft.compare(0, whole, m_Bytes.Make(whole)) == 0;
        m_strLeft.erase(0, whole);
    }
    bool IsEqual() const { return m_bEqual && m_strLeft.empty(); }

private:
    CBytes m_Bytes;
    std::string m_strLeft;
    bool m_bEqual = true;
};

// Sends a stream from a thread of its own: on OnSend, one block that is too large to be taken at once, so that an
// OnSend follows each; and no more than a window ahead of what the receiver says it has.
class CSource : public IPSAcceptorConnectorSink, public IPSTransportSink
{
public:
    static constexpr std::uint64_t s_qwBlock = MEBIBYTE;

    CSource(std::uint64_t total, std::uint64_t window, std::uint64_t seed)
        : m_qwLeft(total), m_qwWindow(window), m_Bytes(seed)
    {
        EXPECT_EQ(MN_OK, m_Thread.Create(mantle::CMNThreadManager::Instance()->GetNewThreadType()));
        Run([this] {
            EXPECT_EQ(MN_OK, IPSConnectionManager::Instance()->CreateConnectionServer(CONNECTION_TYPE_TCP,
                                                                                      m_pAcceptor.ParaOut()));
            EXPECT_EQ(MN_OK, m_pAcceptor->StartListen(this, Loopback(PORT), 0, 0));
        });
    }

    // Lets everything go; the thread goes on until this object goes.
    void Release()
    {
        Run([this] {
            m_pAcceptor->StopListen(0);
            m_pAcceptor = nullptr;
            m_pTransport->Disconnect(0);
            m_pTransport = nullptr;
        });
    }

    MNResult OnConnectIndication(long, IPSTransport* transport, IPSAcceptorConnectorId*) override
    {
        m_pTransport = transport;
        EXPECT_EQ(MN_OK, transport->OpenWithSink(this));
        SendOn();
        return MN_OK;
    }
    MNResult OnReceive(CMNMessageBlock& data, IPSTransport*, CPSTransportParameter*) override
    {
        m_qwAnswered += data.GetChainedLength() * s_qwBlock;
        SendOn();
        return MN_OK;
    }
    MNResult OnSend(IPSTransport*, CPSTransportParameter*) override
    {
        ++m_nOnSend;
        m_bReady = true;
        SendOn();
        return MN_OK;
    }
    MNResult OnDisconnect(long, IPSTransport*) override { return MN_OK; }

    int m_nOnSend = 0;

private:
    void Run(std::function<void()> work) { EXPECT_EQ(MN_OK, m_Thread.SendEvent(new CWorkEvent(std::move(work)))); }

    void SendOn()
    {
        if (!m_bReady || m_qwLeft == 0 || m_qwSent - m_qwAnswered >= m_qwWindow)
            return;
        CMNMessageBlock block(s_qwBlock);
        m_Bytes.Fill(block.GetWritePtr(), s_qwBlock);
        block.AdvanceWritePtr(s_qwBlock);
        m_qwLeft -= s_qwBlock;
        m_qwSent += s_qwBlock;
        m_bReady = false;
        EXPECT_EQ(MN_OK, m_pTransport->SendData(block, nullptr));
    }

    std::uint64_t m_qwLeft;
    const std::uint64_t m_qwWindow;
    std::uint64_t m_qwSent = 0;
    std::uint64_t m_qwAnswered = 0;
    bool m_bReady = true;
    CBytes m_Bytes;
    mantle::CMNThreadUser m_Thread;
    mantle::CMNAutoPtr<IPSAcceptor> m_pAcceptor;
    mantle::CMNAutoPtr<IPSTransport> m_pTransport;
};

TEST(ProxyBulkTest, TwoUserThreads_64MebibytesSent_ArriveUnchangedAndMemoryIsBounded)
{
    constexpr std::uint64_t TOTAL = 64 * MEBIBYTE;
    constexpr std::uint64_t WINDOW = 4 * MEBIBYTE;
    constexpr long MAX_GROWTH_KIB = 32 * 1024;
    constexpr std::uint64_t SEED = 21;
    CNetwork network;
    CUserLoop user(network);
    const long before = mantle::CMNLiveObjects::Count();
    CSource source(TOTAL, WINDOW, SEED);
    {
        CUserClient client(user);
        CComparison comparison(SEED);
        std::uint64_t answers = 0;
        client.m_bKeep = false;
        client.m_fOnReceive = [&](CMNMessageBlock& data) {
            comparison.Add(data);
            for (; answers < client.m_qwReceived / CSource::s_qwBlock; ++answers)
                client.Send("!");
        };
        const long peakBefore = Usage().ru_maxrss;
        ASSERT_EQ(MN_OK, client.Connect(Loopback(PORT), 5));
        ASSERT_TRUE(user.RunUntil([&] { return client.m_qwReceived == TOTAL; }, 250)) << client.m_qwReceived;
        EXPECT_TRUE(comparison.IsEqual());
        const long growth = Usage().ru_maxrss - peakBefore;
        RecordProperty("growth_kib", std::to_string(growth));
        if (!UNDER_ADDRESS_SANITIZER && !UNDER_THREAD_SANITIZER) {
            EXPECT_LT(growth, MAX_GROWTH_KIB);
        }
        user.Settle();
        source.Release();
        EXPECT_EQ(static_cast<int>(TOTAL / CSource::s_qwBlock), source.m_nOnSend) << "one for each backlog";
    }
    EXPECT_EQ(before, user.SettleTo(before));
}

// Nothing turns while nothing happens, neither loop and not the stack's timer, though there are connections.
TEST(ProxyIdleTest, OneNetworkThreadOneUserThread_IdleForTenSeconds_NoCpuAndNoWakeUps)
{
    constexpr long SECONDS = 10;
    constexpr long long MAX_CPU_MICROSECONDS = UNDER_THREAD_SANITIZER ? 100000 : 10000;
    constexpr long SANITIZER_TICKS = UNDER_THREAD_SANITIZER ? 20 * SECONDS : 0;  // its own thread's
    constexpr long MAX_SWITCHES = SANITIZER_TICKS + 40;
    CNetwork network;
    CUserLoop user(network);
    CUserServer server(user, true);
    CUserClient client(user);
    ASSERT_EQ(MN_OK, server.Listen(Loopback(PORT)));
    ASSERT_EQ(MN_OK, client.Connect(Loopback(PORT), 5));
    ASSERT_TRUE(user.RunUntil([&] { return client.IsConnected() && server.GetCount() == 1; }));
    client.Send("awake?");
    ASSERT_TRUE(user.RunUntil([&] { return client.m_qwReceived == 6; }));
    user.Settle();

    const rusage before = Usage();
    EXPECT_TRUE(user.StaysFalse([] { return false; }, SECONDS));
    const rusage after = Usage();
    const long long cpu = CpuMicroseconds(after) - CpuMicroseconds(before);
    const long switches = after.ru_nvcsw + after.ru_nivcsw - before.ru_nvcsw - before.ru_nivcsw;
    std::cout << cpu << " microseconds of CPU, " << switches << " context switches" << std::endl;
    RecordProperty("cpu_microseconds", std::to_string(cpu));
    RecordProperty("context_switches", std::to_string(switches));
    EXPECT_LT(cpu, MAX_CPU_MICROSECONDS);
    EXPECT_LT(switches, MAX_SWITCHES);
}

}  // namespace
