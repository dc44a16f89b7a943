// Connections that the main thread owns, both ends: what crossing to the network thread and back costs, beside a program
// that does the same with Asio.
#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

#include "bench/CAsioEcho.h"
#include "bench/CBenchConnection.h"
#include "bench/CBenchNetwork.h"

using namespace uxport;

namespace
{

constexpr unsigned short PORT = 7021;
constexpr std::size_t LENGTH = 64;

// So many clients and servers of main, connected with each other.
class CProxyConnections : public IPSAcceptorConnectorSink
{
public:
    explicit CProxyConnections(std::size_t count) : m_nWanted(count)
    {
        IPSConnectionManager* manager = IPSConnectionManager::Instance();
        const CMNInetAddr address("127.0.0.1", PORT);
        if (manager->CreateConnectionServer(CONNECTION_TYPE_TCP, m_pAcceptor.ParaOut()) != MN_OK ||
            m_pAcceptor->StartListen(this, address, 0, 0) != MN_OK)
            return;
        for (std::size_t i = 0; i < count; ++i) {
            m_Connectors.emplace_back();
            if (manager->CreateConnectionClient(CONNECTION_TYPE_TCP, m_Connectors.back().ParaOut()) != MN_OK ||
                m_Connectors.back()->AsycConnect(this, address, nullptr, nullptr, 0, 0) != MN_OK)
                return;
        }
        m_Thread.RunEventLoop();
    }

    ~CProxyConnections() override
    {
        if (m_pAcceptor)
            m_pAcceptor->StopListen(0);
        for (auto* ends : {&m_Clients, &m_Servers}) {
            for (auto& end : *ends)
                end->m_pTransport->Disconnect(0);
            ends->clear();
        }
        m_Thread.RunPending();
        CBenchNetwork::Instance().RunNow([] {});
    }

    bool IsOpen() const { return m_Clients.size() == m_nWanted && m_Servers.size() == m_nWanted; }
    std::vector<std::unique_ptr<CBenchEnd>>& GetClients() { return m_Clients; }
    std::vector<std::unique_ptr<CBenchEnd>>& GetServers() { return m_Servers; }
    mantle::CMNThreadUser& GetThread() { return m_Thread; }

    MNResult OnConnectIndication(long result, IPSTransport* transport, IPSAcceptorConnectorId* id) override
    {
        if (result != 0)
            return m_Thread.Stop();
        auto& ends = id->IsConnector() ? m_Clients : m_Servers;
        ends.push_back(std::make_unique<CBenchEnd>());
        ends.back()->m_pTransport = transport;
        transport->OpenWithSink(ends.back().get());
        return IsOpen() ? m_Thread.Stop() : MN_OK;
    }

private:
    const std::size_t m_nWanted;
    mantle::CMNThreadUser& m_Thread = *mantle::CMNThreadUser::AdoptCurrentThread();
    mantle::CMNAutoPtr<IPSAcceptor> m_pAcceptor;
    std::vector<mantle::CMNAutoPtr<IPSConnector>> m_Connectors;
    std::vector<std::unique_ptr<CBenchEnd>> m_Clients;
    std::vector<std::unique_ptr<CBenchEnd>> m_Servers;
};

// A round trip: main, network thread, main, network thread, main.
void ProxyEcho(benchmark::State& state)
{
    CBenchNetwork::Instance();
    const std::string text(LENGTH, 'x');
    CProxyConnections connections(static_cast<std::size_t>(state.range(0)));
    if (!connections.IsOpen()) {
        state.SkipWithError("no connections");
        return;
    }
    for (auto& server : connections.GetServers()) {
        server->m_fOnReceive = [end = server.get()](CMNMessageBlock& data) {
            end->m_pTransport->SendData(data, nullptr);
        };
    }
    bool ended = false;
    for (auto& client : connections.GetClients()) {
        const auto send = [&text, end = client.get()] {
            CMNMessageBlock block(text.size(), text.data(), CMNMessageBlock::DONT_DELETE, text.size());
            end->m_pTransport->SendData(block, nullptr);
        };
        client->m_fOnReceive = [&, send, arrived = std::size_t{0}](CMNMessageBlock& data) mutable {
            arrived += data.GetLength();
            if (arrived < LENGTH || ended)
                return;
            arrived = 0;
            ended = !state.KeepRunning();
            if (ended)
                connections.GetThread().Stop();
            else
                send();
        };
        send();
    }
    connections.GetThread().RunEventLoop();
}
BENCHMARK(ProxyEcho)->Arg(1)->Arg(64)->UseRealTime()->MeasureProcessCPUTime();

// The number to beat: the same by Asio over the kernel's loopback.
void AsioEcho(benchmark::State& state)
{
    CAsioEcho echo(static_cast<std::size_t>(state.range(0)));
    bool ended = false;
    echo.Run(std::string(LENGTH, 'x'), [&] { return !ended && !(ended = !state.KeepRunning()); });
}
BENCHMARK(AsioEcho)->Arg(1)->Arg(64)->UseRealTime()->MeasureProcessCPUTime();

}  // namespace

BENCHMARK_MAIN();
