// echo: the smallest whole program. main owns a server and a client; the client sends a line, the server sends it
// back, the client prints it. The sockets live on the library's network thread; every callback comes to main.
#include <cstdio>
#include <string>

#include <ipstack/ipstack.h>
#include <mantle/mantle.h>
#include <uxport/uxport.h>

using namespace uxport;

namespace
{

// Either end: keeps its transport until the connection has ended.
class CEnd : public IPSAcceptorConnectorSink, public IPSTransportSink
{
public:
    explicit CEnd(mantle::CMNThreadUser* thread) : m_pThread(thread) {}

    MNResult OnConnectIndication(long result, IPSTransport* transport, IPSAcceptorConnectorId* id) override
    {
        if (result != 0)
            return m_pThread->Stop();
        m_pTransport = transport;
        m_pTransport->OpenWithSink(this);
        m_bClient = id->IsConnector();
        if (m_bClient) {
            const std::string line = "hello, stack\n";
            CMNMessageBlock block(line.size());
            block.Write(line.data(), line.size());
            m_pTransport->SendData(block, nullptr);
        }
        return MN_OK;
    }

    MNResult OnReceive(CMNMessageBlock& data, IPSTransport* transport, CPSTransportParameter*) override
    {
        if (!m_bClient)
            return transport->SendData(data, nullptr);
        std::fwrite(data.GetReadPtr(), 1, data.GetLength(), stdout);
        m_bAnswered = true;
        return transport->Disconnect(0);
    }

    MNResult OnSend(IPSTransport*, CPSTransportParameter*) override { return MN_OK; }

    // The server's only: an end that disconnects hears no more.
    MNResult OnDisconnect(long, IPSTransport*) override { return m_pThread->Stop(); }

    bool IsAnswered() const { return m_bAnswered; }

private:
    mantle::CMNThreadUser* m_pThread;
    mantle::CMNAutoPtr<IPSTransport> m_pTransport;
    bool m_bClient = false;
    bool m_bAnswered = false;
};

}  // namespace

int main()
{
    mantle::CMNThreadUser* thread = mantle::CMNThreadUser::AdoptCurrentThread();
    ipstack::IIPStackManager::Instance()->Startup(ipstack::CIPStackSettings());
    IPSConnectionManager* manager = IPSConnectionManager::Instance();
    mantle::CMNAutoPtr<IPSAcceptor> acceptor;
    mantle::CMNAutoPtr<IPSConnector> connector;
    if (manager->Init(1) != MN_OK ||
        manager->CreateConnectionServer(CONNECTION_TYPE_TCP, acceptor.ParaOut()) != MN_OK ||
        manager->CreateConnectionClient(CONNECTION_TYPE_TCP, connector.ParaOut()) != MN_OK)
        return 1;

    const CMNInetAddr address("127.0.0.1", 7);
    CEnd server(thread);
    CEnd client(thread);
    if (acceptor->StartListen(&server, address, 0, 0) != MN_OK ||
        connector->AsycConnect(&client, address, nullptr, nullptr, 0, 0) != MN_OK)
        return 1;
    thread->RunEventLoop();
    acceptor->StopListen(0);
    return client.IsAnswered() ? 0 : 1;
}
