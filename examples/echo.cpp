// echo: the smallest whole program. A server and a client on the network thread; the client sends a line, the
// server sends it back, the client prints it.
#include <cstdio>
#include <string>

#include <ipstack/ipstack.h>
#include <mantle/mantle.h>
#include <uxport/uxport.h>

using namespace uxport;

namespace
{

const CMNInetAddr SERVER("127.0.0.1", 7);
mantle::CMNEventThread g_done(1, 0);

// Either end: keeps its transport until the connection has ended.
class CEnd : public IPSAcceptorConnectorSink, public IPSTransportSink
{
public:
    MNResult OnConnectIndication(long result, IPSTransport* transport, IPSAcceptorConnectorId* id) override
    {
        if (result != 0) {
            std::printf("no connection: %s\n", mantle::MNResultText(static_cast<MNResult>(result)));
            g_done.Signal();
            return MN_OK;
        }
        m_pTransport = transport;
        m_bClient = id->IsConnector();
        transport->OpenWithSink(this);
        if (m_bClient) {
            const std::string line = "hello, stack\n";
            CMNMessageBlock block(line.size());
            block.Write(line.data(), line.size());
            transport->SendData(block, nullptr);  // a few bytes always find room in a new connection
        }
        return MN_OK;
    }

    MNResult OnReceive(CMNMessageBlock& data, IPSTransport* transport, CPSTransportParameter*) override
    {
        if (!m_bClient)
            return transport->SendData(data, nullptr);
        std::fwrite(data.GetReadPtr(), 1, data.GetLength(), stdout);
        m_bAnswered = true;
        Disconnect();
        g_done.Signal();
        return MN_OK;
    }

    MNResult OnSend(IPSTransport*, CPSTransportParameter*) override { return MN_OK; }

    MNResult OnDisconnect(long, IPSTransport*) override
    {
        m_pTransport = nullptr;
        return MN_OK;
    }

    void Disconnect()
    {
        if (m_pTransport)
            m_pTransport->Disconnect(0);
        m_pTransport = nullptr;
    }
    bool IsAnswered() const { return m_bAnswered; }

private:
    mantle::CMNAutoPtr<IPSTransport> m_pTransport;
    bool m_bClient = false;
    bool m_bAnswered = false;
};

CEnd g_server, g_client;
mantle::CMNAutoPtr<IPSAcceptor> g_pAcceptor;
mantle::CMNAutoPtr<IPSConnector> g_pConnector;

// Both run on the network thread, where acceptors and connectors are made, used and released.
class CStart : public IMNEvent
{
    MNResult OnEventFire() override
    {
        IPSConnectionManager* manager = IPSConnectionManager::Instance();
        if (manager->CreateConnectionServer(CONNECTION_TYPE_TCP, g_pAcceptor.ParaOut()) == MN_OK &&
            manager->CreateConnectionClient(CONNECTION_TYPE_TCP, g_pConnector.ParaOut()) == MN_OK &&
            g_pAcceptor->StartListen(&g_server, SERVER, 0, 0) == MN_OK)
            return g_pConnector->AsycConnect(&g_client, SERVER, nullptr, nullptr, 0, 0);
        return MN_ERROR_FAILURE;
    }
};

class CStop : public IMNEvent
{
    MNResult OnEventFire() override
    {
        g_server.Disconnect();
        g_pAcceptor = nullptr;
        g_pConnector = nullptr;
        return MN_OK;
    }
};

}  // namespace

int main()
{
    ipstack::IIPStackManager::Instance()->Startup(ipstack::CIPStackSettings());
    IPSConnectionManager* manager = IPSConnectionManager::Instance();
    if (manager->Init(1) != MN_OK)
        return 1;
    const bool started = manager->GetReactor()->SendEvent(new CStart) == MN_OK;
    if (started)
        g_done.Wait();
    manager->GetReactor()->SendEvent(new CStop);
    return started && g_client.IsAnswered() ? 0 : 1;
}
