// A user thread of the stress test, with a server and many clients.
#ifndef TESTS_INTEGRATION_SUPPORT_CSTRESSTHREAD_H
#define TESTS_INTEGRATION_SUPPORT_CSTRESSTHREAD_H

#include <atomic>
#include <memory>
#include <random>
#include <vector>

#include "tests/integration/support/CNetwork.h"
#include "tests/integration/support/CStressPeer.h"

// Does something at random on each tick: connects, connects again, cancels, sends, disconnects, releases, stops and
// starts its server. Thread: its own, unless said otherwise.
class CStressThread : public uxport::IPSAcceptorConnectorSink, public mantle::CMNTimerWrapperIDSink
{
public:
    struct CCounts
    {
        std::uint64_t m_qwAttempts = 0;
        std::uint64_t m_qwIndications = 0;  // of attempts
        std::uint64_t m_qwMade = 0;         // attempts that succeeded
        std::uint64_t m_qwDropped = 0;      // attempts cancelled or superseded
        std::uint64_t m_qwAccepted = 0;
        std::uint64_t m_qwEnds = 0;  // OnDisconnect
        std::uint64_t m_qwRestarts = 0;
    };
    using CAll = std::vector<std::unique_ptr<CStressThread>>;

    static constexpr int s_nConnections = 200;

    // `all`: every thread of the test, complete before Start.
    CStressThread(const CAll& all, std::uint32_t index, std::uint32_t seed);
    ~CStressThread() override;

    // Thread: any.
    void Start();        // begins to tick
    void Finish();       // no more new things
    bool HasAttempts();  // whether an attempt is not answered yet
    void Release();      // lets everything go
    CCounts GetCounts();
    unsigned short GetPort() const { return m_wPort.load(); }
    void End();

    uxport::MNResult OnConnectIndication(long result, uxport::IPSTransport* transport,
                                         uxport::IPSAcceptorConnectorId* id) override;
    void OnTimer(mantle::CMNTimerWrapperID* timer) override;

private:
    class CSlot;

    void Run(std::function<void()> work);
    std::uint32_t Random(std::uint32_t below) { return static_cast<std::uint32_t>(m_Random() % below); }
    CStressThread& RandomThread() { return *m_All[Random(static_cast<std::uint32_t>(m_All.size()))]; }
    void Listen();
    void ActOnServer();
    void EndPeer(std::unique_ptr<CStressPeer>& peer);

    const CAll& m_All;
    const std::uint32_t m_dwIndex;
    std::mt19937 m_Random;
    std::atomic<unsigned short> m_wPort{0};
    CCounts m_Counts;
    mantle::CMNThreadUser m_Thread;
    std::unique_ptr<mantle::CMNTimerWrapperID> m_pTimer;
    mantle::CMNAutoPtr<uxport::IPSAcceptor> m_pAcceptor;
    std::vector<std::unique_ptr<CSlot>> m_Slots;
    std::vector<std::unique_ptr<CStressPeer>> m_Accepted;
    std::vector<std::unique_ptr<CStressPeer>> m_Ended;  // nothing holds on to a sink that has been let go
};

#endif
