#include "tests/integration/support/CUserLoop.h"

using namespace uxport;

namespace
{

// Each round takes an object one step further: timer, delete event, timer of the network side.
constexpr int SETTLE_ROUNDS = 4;
constexpr int MAX_SETTLES = 1000;

// Stops the loop at the limit.
class CLimit : public mantle::CMNTimerWrapperIDSink
{
public:
    explicit CLimit(mantle::CMNThreadUser& thread) : m_Thread(thread) {}
    void OnTimer(mantle::CMNTimerWrapperID*) override
    {
        m_bReached = true;
        m_Thread.Stop();
    }

    bool m_bReached = false;

private:
    mantle::CMNThreadUser& m_Thread;
};

}  // namespace

CUserLoop::CUserLoop(CNetwork& network) : m_Network(network), m_Thread(*mantle::CMNThreadUser::AdoptCurrentThread()) {}

bool CUserLoop::RunUntil(const std::function<bool()>& predicate, long limitSeconds)
{
    if (predicate())
        return true;
    CLimit limit(m_Thread);
    mantle::CMNTimerWrapperID timer;
    timer.Schedule(&limit, CMNTimeValue(limitSeconds, 0), 1);
    m_fPredicate = predicate;
    m_Thread.RunEventLoop();
    m_fPredicate = nullptr;
    timer.Cancel();
    return !limit.m_bReached;
}

void CUserLoop::Poke()
{
    if (m_fPredicate && m_fPredicate()) {
        m_fPredicate = nullptr;
        m_Thread.Stop();
    }
}

void CUserLoop::Settle()
{
    for (int round = 0; round < SETTLE_ROUNDS; ++round) {
        m_Thread.RunPending();
        m_Network.Turn(1);
    }
    m_Thread.RunPending();
}

long CUserLoop::SettleTo(long liveObjects)
{
    for (int i = 0; i < MAX_SETTLES && mantle::CMNLiveObjects::Count() != liveObjects; ++i)
        Settle();
    return mantle::CMNLiveObjects::Count();
}
