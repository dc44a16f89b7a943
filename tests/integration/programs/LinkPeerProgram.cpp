// The other process of the link tests: a stack with a link over UDP on 127.0.0.1 and an echo server on port 7. Says
// "ready", serves until its standard input ends, and leaves main with everything still at work.
//
//     uxport_link_peer OWN_ADDRESS LOCAL_PORT REMOTE_PORT
#include <cstdio>
#include <cstdlib>
#include <set>

#include <ipstack/ipstack.h>
#include <mantle/mantle.h>
#include <uxport/uxport.h>

using namespace uxport;

namespace
{

constexpr unsigned short ECHO_PORT = 7;

// One connection; sends back what arrives and deletes itself at the end. Those that are open when the process ends stay
// in the list of all. Thread: the network thread.
class CEcho : public IPSTransportSink
{
public:
    using CAll = std::set<CEcho*>;

    CEcho(IPSTransport* transport, CAll& all) : m_pTransport(transport), m_All(all)
    {
        m_All.insert(this);
        transport->OpenWithSink(this);
    }

    MNResult OnReceive(CMNMessageBlock& data, IPSTransport*, CPSTransportParameter*) override
    {
        if (m_pPending)
            m_pPending->Append(data.DuplicateChained());
        else if (m_pTransport->SendData(data, nullptr) == MN_ERROR_PARTIAL_DATA)
            m_pPending = data.DuplicateChained();
        return MN_OK;
    }

    MNResult OnSend(IPSTransport*, CPSTransportParameter*) override
    {
        if (m_pPending && m_pTransport->SendData(*m_pPending, nullptr) != MN_ERROR_PARTIAL_DATA) {
            m_pPending->DestroyChained();
            m_pPending = nullptr;
        }
        return MN_OK;
    }

    MNResult OnDisconnect(long, IPSTransport*) override
    {
        if (m_pPending)
            m_pPending->DestroyChained();
        m_All.erase(this);
        delete this;
        return MN_OK;
    }

private:
    mantle::CMNAutoPtr<IPSTransport> m_pTransport;
    CAll& m_All;
    CMNMessageBlock* m_pPending = nullptr;
};

class CServer : public IPSAcceptorConnectorSink
{
public:
    MNResult OnConnectIndication(long result, IPSTransport* transport, IPSAcceptorConnectorId*) override
    {
        if (result == 0)
            new CEcho(transport, m_Echoes);
        return MN_OK;
    }

    mantle::CMNAutoPtr<IPSAcceptor> m_pAcceptor;
    CEcho::CAll m_Echoes;
};

class CStart : public IMNEvent
{
public:
    CStart(CServer& server, const char* address, mantle::CMNEventThread& done)
        : m_Server(server), m_szAddress(address), m_Done(done)
    {
    }
    MNResult OnEventFire() override
    {
        IPSConnectionManager* manager = IPSConnectionManager::Instance();
        const CMNInetAddr address(m_szAddress, ECHO_PORT);
        if (manager->CreateConnectionServer(CONNECTION_TYPE_TCP, m_Server.m_pAcceptor.ParaOut()) != MN_OK ||
            m_Server.m_pAcceptor->StartListen(&m_Server, address, 0, 0) != MN_OK)
            std::abort();
        m_Done.Signal();
        return MN_OK;
    }

private:
    CServer& m_Server;
    const char* m_szAddress;
    mantle::CMNEventThread& m_Done;
};

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 4)
        return 2;
    const auto port = [](const char* text) { return static_cast<unsigned short>(std::strtoul(text, nullptr, 10)); };
    // Both are used until the process has been tidied up.
    static CServer* server = new CServer;
    static CLowlevelP2PTransport* link = new CLowlevelP2PTransport;

    ipstack::IIPStackManager* stacks = ipstack::IIPStackManager::Instance();
    ipstack::CIPStackConfig config;
    config.m_strAddress = argv[1];
    ipstack::IIPStack* stack = nullptr;
    if (stacks->Startup(ipstack::CIPStackSettings()) != MN_OK || IPSConnectionManager::Instance()->Init(1) != MN_OK ||
        stacks->CreateStack(config, link, stack) != MN_OK)
        return 1;
    link->Open(stack, "127.0.0.1", port(argv[3]), "127.0.0.1", port(argv[2]));
    mantle::CMNEventThread done(1, 0);
    IPSConnectionManager::Instance()->GetReactor()->PostEvent(new CStart(*server, argv[1], done));
    done.Wait();
    std::puts("ready");
    std::fflush(stdout);
    while (std::getchar() != EOF) {
    }
    return 0;
}
