// The loop: dispatch of one handle, and whole turns with many handles registered.
#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

#include "bench/CBenchNetwork.h"
#include "ipstack/ps_socket.h"

using namespace uxport;

namespace
{

// A socket that nothing arrives on.
class CIdleHandler : public IPSEventHandler
{
public:
    CIdleHandler() : m_nHandle(ps_socket(PS_AF_INET, PS_SOCK_DGRAM, 0)) {}
    ~CIdleHandler() override { ps_close(m_nHandle); }

    int GetHandle() const override { return m_nHandle; }
    int OnInput(int) override
    {
        ++m_qwInputs;
        return 0;
    }

    std::uint64_t m_qwInputs = 0;

private:
    int m_nHandle;
};

// From the readiness report of one handle to its handler and back, without the wait.
void LoopDispatchOne(benchmark::State& state)
{
    CBenchNetwork& network = CBenchNetwork::Instance();
    network.RunNow([&] {
        CPSReactorPoll& reactor = network.GetReactor();
        CIdleHandler handler;
        reactor.RegisterHandler(&handler, READ_MASK);
        for (auto _ : state)
            reactor.ProcessHandleEvent(handler.GetHandle(), READ_MASK, 0, 0, 0);
        if (handler.m_qwInputs != static_cast<std::uint64_t>(state.iterations()))
            state.SkipWithError("not every dispatch reached the handler");
        reactor.RemoveHandler(&handler, ALL_EVENTS_MASK);
    });
}
BENCHMARK(LoopDispatchOne);

// A handler that is notified through the wake-up pipe, one record after the other.
class CNotified : public IPSEventHandler
{
public:
    explicit CNotified(benchmark::State& state) : m_State(state), m_nHandle(ps_socket(PS_AF_INET, PS_SOCK_DGRAM, 0)) {}
    ~CNotified() override { ps_close(m_nHandle); }

    int GetHandle() const override { return m_nHandle; }
    int OnInput(int) override
    {
        CBenchNetwork& network = CBenchNetwork::Instance();
        if (m_State.KeepRunning())
            network.GetReactor().NotifyHandler(this, READ_MASK);
        else
            network.Done();
        return 0;
    }

private:
    benchmark::State& m_State;
    int m_nHandle;
};

// One record through the wake-up pipe, dispatch included.
void LoopNotifyOne(benchmark::State& state)
{
    CBenchNetwork& network = CBenchNetwork::Instance();
    CNotified handler(state);
    network.Run([&] {
        network.GetReactor().RegisterHandler(&handler, READ_MASK);
        network.GetReactor().NotifyHandler(&handler, READ_MASK);
    });
    network.RunNow([&] { network.GetReactor().RemoveHandler(&handler, ALL_EVENTS_MASK); });
}
BENCHMARK(LoopNotifyOne)->UseRealTime();

// A timer that is always due: each turn of the loop fires it once.
class CTurnTimer : public IMNTimerHandler
{
public:
    explicit CTurnTimer(benchmark::State& state) : m_State(state) {}

    void OnTimeout(const CMNTimeValue&, void*) override
    {
        CBenchNetwork& network = CBenchNetwork::Instance();
        if (m_State.KeepRunning())
            network.GetReactor().ScheduleTimer(this, nullptr, CMNTimeValue::s_tvZero, 1);
        else
            network.Done();
    }

private:
    benchmark::State& m_State;
};

// One turn: timers, the wait set from the table, a look at every handle. Nothing is ready.
void LoopTurn(benchmark::State& state)
{
    CBenchNetwork& network = CBenchNetwork::Instance();
    std::vector<std::unique_ptr<CIdleHandler>> handlers;
    CTurnTimer timer(state);
    bool all = true;
    network.RunNow([&] {
        for (std::int64_t i = 0; i < state.range(0); ++i) {
            handlers.push_back(std::make_unique<CIdleHandler>());
            all = network.GetReactor().RegisterHandler(handlers.back().get(), READ_MASK) == MN_OK && all;
        }
    });
    network.Run([&] { network.GetReactor().ScheduleTimer(&timer, nullptr, CMNTimeValue::s_tvZero, 1); });
    network.RunNow([&] {
        for (auto& handler : handlers)
            network.GetReactor().RemoveHandler(handler.get(), ALL_EVENTS_MASK);
        handlers.clear();
    });
    if (!all)
        state.SkipWithError("not every handle could be registered");
    state.counters["per_handle"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * static_cast<double>(state.range(0)),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(LoopTurn)->Arg(10)->Arg(1000)->Arg(8000)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
