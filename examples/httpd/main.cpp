// httpd: a small static file server over the library, for programs behind a TUN device or a UDP path.
#include <cstdio>
#include <filesystem>
#include <list>
#include <string>

#include <CLI/CLI.hpp>

#include "CExamplePath.h"
#include "CHttpSession.h"

using namespace uxport;

namespace
{

// Thread: the network thread.
class CHttpServer : public IPSAcceptorConnectorSink
{
public:
    explicit CHttpServer(const std::string& root) : m_Folder(root) {}

    MNResult Start(const CMNInetAddr& address)
    {
        const MNResult result =
            IPSConnectionManager::Instance()->CreateConnectionServer(CONNECTION_TYPE_TCP, m_pAcceptor.ParaOut());
        return result == MN_OK ? m_pAcceptor->StartListen(this, address, 0, 0) : result;
    }

    MNResult Stop()
    {
        m_pAcceptor = nullptr;
        for (const CHttpSession& session : m_Sessions)
            m_dwAnswered += session.GetAnswered();
        m_Sessions.clear();
        return MN_OK;
    }

    MNResult OnConnectIndication(long result, IPSTransport* transport, IPSAcceptorConnectorId* id) override
    {
        for (auto session = m_Sessions.begin(); session != m_Sessions.end();) {
            m_dwAnswered += session->IsOver() ? session->GetAnswered() : 0;
            session = session->IsOver() ? m_Sessions.erase(session) : std::next(session);
        }
        return m_Sessions.emplace_back(m_Folder).OnConnectIndication(result, transport, id);
    }

    // Behind Stop. Thread: any.
    unsigned long GetAnswered() const { return m_dwAnswered; }

private:
    const CFolder m_Folder;
    mantle::CMNAutoPtr<IPSAcceptor> m_pAcceptor;
    std::list<CHttpSession> m_Sessions;
    unsigned long m_dwAnswered = 0;  // by sessions that are over
};

}  // namespace

int main(int argc, char** argv)
{
    CLI::App options(
        "A static file server on the embedded stack, until it is interrupted: GET and HEAD, ranges, "
        "connections that stay open.");
    std::string root;
    unsigned short port = 80;
    options.add_option("folder", root, "what to serve")->required()->check(CLI::ExistingDirectory);
    options.add_option("--port", port, "to serve on")->capture_default_str()->check(CLI::Range(1, 65535));
    CExamplePath path;
    path.AddOptions(options);
    CLI11_PARSE(options, argc, argv);

    if (!CExample::Start() || !path.Open())
        return 2;
    CHttpServer server(root);
    const MNResult result = CExample::OnNetworkThread([&] { return server.Start(CMNInetAddr("0.0.0.0", port)); });
    if (result != MN_OK)
        return CExample::Fail("the server", result);
    std::puts("httpd: ready");
    std::fflush(stdout);
    CExample::Run();
    CExample::OnNetworkThread([&server] { return server.Stop(); });
    std::printf("httpd: %lu requests answered\n", server.GetAnswered());
    return 0;
}
