// TCP on the embedded stack: round trips and bulk.
#include <benchmark/benchmark.h>

#include <string>

#include "bench/CBenchConnection.h"

using namespace uxport;

namespace
{

void SendText(CBenchEnd& end, const std::string& text)
{
    CMNMessageBlock block(text.size(), text.data(), CMNMessageBlock::DONT_DELETE, text.size());
    end.m_pTransport->SendData(block, nullptr);
}

// A message there and back, one after the other.
void TcpEcho(benchmark::State& state)
{
    CBenchNetwork& network = CBenchNetwork::Instance();
    const std::string text(static_cast<std::size_t>(state.range(0)), 'x');
    std::size_t arrived = 0;
    CBenchConnection connection;
    if (!connection.IsOpen()) {
        state.SkipWithError("no connection");
        return;
    }
    connection.GetServer().m_fOnReceive = [&](CMNMessageBlock& data) {
        connection.GetServer().m_pTransport->SendData(data, nullptr);
    };
    connection.GetClient().m_fOnReceive = [&](CMNMessageBlock& data) {
        arrived += data.GetLength();
        if (arrived < text.size())
            return;
        arrived = 0;
        if (state.KeepRunning())
            SendText(connection.GetClient(), text);
        else
            network.Done();
    };
    network.Run([&] { SendText(connection.GetClient(), text); });
}
BENCHMARK(TcpEcho)->Arg(64)->UseRealTime();

// A stream in sends of the given size; the sender lives with refused sends. One iteration is 64 KiB that arrived.
void TcpBulk(benchmark::State& state)
{
    constexpr std::uint64_t CHUNK = 65536;
    CBenchNetwork& network = CBenchNetwork::Instance();
    const std::string text(static_cast<std::size_t>(state.range(0)), 'x');
    std::uint64_t arrived = 0;
    std::uint64_t refused = 0;
    bool finished = false;
    CBenchConnection connection;
    if (!connection.IsOpen()) {
        state.SkipWithError("no connection");
        return;
    }
    const auto sendOn = [&] {
        while (!finished) {
            CMNMessageBlock block(text.size(), text.data(), CMNMessageBlock::DONT_DELETE, text.size());
            if (connection.GetClient().m_pTransport->SendData(block, nullptr) != MN_OK) {
                ++refused;
                return;
            }
        }
    };
    connection.GetClient().m_fOnSend = sendOn;
    connection.GetServer().m_fOnReceive = [&](CMNMessageBlock& data) {
        for (arrived += data.GetLength(); arrived >= CHUNK && !finished; arrived -= CHUNK) {
            if (!state.KeepRunning()) {
                finished = true;
                network.Done();
            }
        }
    };
    network.Run(sendOn);
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(CHUNK));
    state.counters["refused_per_64KiB"] =
        benchmark::Counter(static_cast<double>(refused), benchmark::Counter::kAvgIterations);
}
BENCHMARK(TcpBulk)->Arg(1024)->Arg(65536)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
