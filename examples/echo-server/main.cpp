// echo-server: sends back what it gets (RFC 862) over TCP, to programs behind a TUN device or a UDP path.
#include <cstdio>
#include <list>

#include <CLI/CLI.hpp>

#include "CEchoSession.h"
#include "CExamplePath.h"

using namespace uxport;

namespace
{

// Thread: the network thread.
class CEchoServer : public IPSAcceptorConnectorSink
{
public:
    MNResult Start(const CMNInetAddr& address)
    {
        const MNResult result =
            IPSConnectionManager::Instance()->CreateConnectionServer(CONNECTION_TYPE_TCP, m_pAcceptor.ParaOut());
        return result == MN_OK ? m_pAcceptor->StartListen(this, address, 0, 0) : result;
    }

    MNResult Stop()
    {
        m_pAcceptor = nullptr;
        for (CEchoSession& session : m_Sessions)
            session.End();
        return MN_OK;
    }

    MNResult OnConnectIndication(long result, IPSTransport* transport, IPSAcceptorConnectorId* id) override
    {
        m_Sessions.remove_if([](const CEchoSession& session) { return session.IsOver(); });
        ++m_qwServed;
        return m_Sessions.emplace_back().OnConnectIndication(result, transport, id);
    }

    unsigned long GetServed() const { return m_qwServed; }

private:
    mantle::CMNAutoPtr<IPSAcceptor> m_pAcceptor;
    std::list<CEchoSession> m_Sessions;
    unsigned long m_qwServed = 0;
};

}  // namespace

int main(int argc, char** argv)
{
    CLI::App options("A TCP echo server on the embedded stack, until it is interrupted.");
    unsigned short port = 7;
    options.add_option("--port", port, "to serve")->capture_default_str()->check(CLI::Range(1, 65535));
    CExamplePath path;
    path.AddOptions(options);
    CLI11_PARSE(options, argc, argv);

    if (!CExample::Start() || !path.Open())
        return 2;
    CEchoServer server;
    const MNResult result = CExample::OnNetworkThread([&] { return server.Start(CMNInetAddr("0.0.0.0", port)); });
    if (result != MN_OK)
        return CExample::Fail("the server", result);
    std::puts("echo-server: ready");
    std::fflush(stdout);
    CExample::Run();
    CExample::OnNetworkThread([&server] { return server.Stop(); });
    std::printf("echo-server: %lu connections\n", server.GetServed());
    return 0;
}
