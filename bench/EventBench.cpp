// Events: what it costs to post one and to have it run.
#include <benchmark/benchmark.h>

#include "bench/CBenchNetwork.h"

using namespace uxport;

namespace
{

// Posts itself again for every iteration.
class CSelfPosted : public IMNEvent
{
public:
    explicit CSelfPosted(benchmark::State& state) : m_State(state) {}

    MNResult OnEventFire() override
    {
        CBenchNetwork& network = CBenchNetwork::Instance();
        if (m_State.KeepRunning())
            network.GetReactor().PostEvent(new CSelfPosted(m_State));
        else
            network.Done();
        return MN_OK;
    }

private:
    benchmark::State& m_State;
};

// One event that is posted by the one before, into the empty queue: with its wake-up record.
void EventPostAndRunOne(benchmark::State& state)
{
    CBenchNetwork& network = CBenchNetwork::Instance();
    network.Run([&] { network.GetReactor().PostEvent(new CSelfPosted(state)); });
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}
BENCHMARK(EventPostAndRunOne)->UseRealTime();

class CNothing : public IMNEvent
{
public:
    MNResult OnEventFire() override { return MN_OK; }
};

// A burst of events, posted by another thread, until the last has run; the time is that of one event.
void EventPostAndRunBurst(benchmark::State& state)
{
    CBenchNetwork& network = CBenchNetwork::Instance();
    const auto burst = state.range(0);
    for (auto _ : state) {
        for (std::int64_t i = 1; i < burst; ++i)
            network.GetReactor().PostEvent(new CNothing);
        network.RunNow([] {});
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * burst);
}
BENCHMARK(EventPostAndRunBurst)->Arg(1)->Arg(1000)->UseRealTime();

// An event that another thread sends and waits for.
void EventSend(benchmark::State& state)
{
    CBenchNetwork& network = CBenchNetwork::Instance();
    for (auto _ : state)
        network.GetReactor().SendEvent(new CNothing);
}
BENCHMARK(EventSend)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
