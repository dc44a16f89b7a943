// Ends in the way that its argument names while the network thread runs, connections are open and events, timers and
// deferred deletions are pending. A static object that outlives the library checks at the very end that every event was
// destroyed exactly once, and then says so. Where the end comes from a callback, what the network thread shares stays
// alive, and with it the events that are still pending: none may have been destroyed twice.
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <ipstack/ipstack.h>
#include <mantle/mantle.h>
#include <unistd.h>
#include <uxport/uxport.h>

using namespace uxport;

namespace
{

constexpr unsigned short PORT = 7010;
constexpr int PENDING = 1000;

// Made before everything of the library and therefore destroyed after its clean-up.
class CLastCheck
{
public:
    ~CLastCheck()
    {
        const int made = m_nMade.load();
        const int destroyed = m_nDestroyed.load();
        const bool right = m_bAllDestroyed ? destroyed == made : destroyed <= made;
        if (!right || made < PENDING) {
            std::printf("ending: %s: %d events made, %d destroyed\n", m_szWay, made, destroyed);
            std::fflush(stdout);
            _exit(1);
        }
        std::printf("ending: %s: all well\n", m_szWay);
    }

    const char* m_szWay = "";
    bool m_bAllDestroyed = true;
    std::atomic<int> m_nMade{0};
    std::atomic<int> m_nDestroyed{0};
};

CLastCheck g_LastCheck;

class CCountedEvent : public IMNEvent
{
public:
    explicit CCountedEvent(std::function<void()> work) : m_fWork(std::move(work)) { ++g_LastCheck.m_nMade; }
    ~CCountedEvent() override { ++g_LastCheck.m_nDestroyed; }

    MNResult OnEventFire() override
    {
        if (m_fWork)
            m_fWork();
        return MN_OK;
    }

private:
    std::function<void()> m_fWork;
};

// Posts another event when it is destroyed, as an object that gives up what it holds may do.
class CPostsWhenDestroyed : public CCountedEvent
{
public:
    CPostsWhenDestroyed() : CCountedEvent(nullptr) {}
    ~CPostsWhenDestroyed() override
    {
        if (IPSConnectionManager* manager = IPSConnectionManager::Instance())
            manager->GetReactor()->PostEvent(new CCountedEvent(nullptr));
    }
};

IPSReactor* GetReactor()
{
    return IPSConnectionManager::Instance()->GetReactor();
}
void Post(std::function<void()> work)
{
    GetReactor()->PostEvent(new CCountedEvent(std::move(work)));
}

// Ends of connections that nobody closes.
class CSink : public IPSAcceptorConnectorSink, public IPSTransportSink
{
public:
    MNResult OnConnectIndication(long result, IPSTransport* transport, IPSAcceptorConnectorId* id) override
    {
        if (result == 0) {
            transport->AddReference();
            transport->OpenWithSink(this);
            m_Transports.push_back(transport);
            if (id->IsConnector() && ++m_nConnected == s_nConnections)
                m_Connected.Signal();
        }
        return MN_OK;
    }
    MNResult OnReceive(CMNMessageBlock&, IPSTransport*, CPSTransportParameter*) override
    {
        if (m_fOnReceive)
            m_fOnReceive();
        return MN_OK;
    }
    MNResult OnSend(IPSTransport*, CPSTransportParameter*) override { return MN_OK; }
    MNResult OnDisconnect(long, IPSTransport*) override { return MN_OK; }

    static constexpr int s_nConnections = 10;

    std::vector<IPSTransport*> m_Transports;
    std::vector<IPSConnector*> m_Connectors;
    IPSAcceptor* m_pAcceptor = nullptr;
    std::function<void()> m_fOnReceive;
    int m_nConnected = 0;
    mantle::CMNEventThread m_Connected{1, 0};
};

// Never destroyed: it outlives the library, and what it holds stays reachable.
CSink& g_Sink = *new CSink;

class CTimer : public IMNTimerHandler
{
public:
    void OnTimeout(const CMNTimeValue&, void*) override
    {
        if (m_fWork)
            m_fWork();
    }

    std::function<void()> m_fWork;
};

CTimer g_LateTimer;
CTimer g_Timer;

void Require(bool condition, const char* what)
{
    if (condition)
        return;
    std::printf("ending: %s does not work\n", what);
    std::fflush(stdout);
    _exit(1);
}

void OpenConnections()
{
    const CMNInetAddr address("127.0.0.1", PORT);
    IPSConnectionManager* manager = IPSConnectionManager::Instance();
    Require(manager->CreateConnectionServer(CONNECTION_TYPE_TCP, g_Sink.m_pAcceptor) == MN_OK, "the server");
    Require(g_Sink.m_pAcceptor->StartListen(&g_Sink, address, 0, 0) == MN_OK, "listening");
    for (int i = 0; i < CSink::s_nConnections; ++i) {
        IPSConnector* connector = nullptr;
        Require(manager->CreateConnectionClient(CONNECTION_TYPE_TCP, connector) == MN_OK, "the client");
        g_Sink.m_Connectors.push_back(connector);
        Require(connector->AsycConnect(&g_Sink, address, nullptr, nullptr, 0, 0) == MN_OK, "connecting");
    }
}

// Leaves everything pending that can be: a timer, deletions, blocked sends, events.
void MakeWork()
{
    GetReactor()->ScheduleTimer(&g_LateTimer, nullptr, CMNTimeValue(3600, 0), 1);
    for (int i = 0; i < 3; ++i) {
        IPSTransport* transport = g_Sink.m_Transports.back();
        g_Sink.m_Transports.pop_back();
        transport->ReleaseReference();
    }
    const std::string much(200000, 'x');
    for (IPSTransport* transport : g_Sink.m_Transports) {
        CMNMessageBlock block(much.size(), much.data(), CMNMessageBlock::DONT_DELETE, much.size());
        transport->SendData(block, nullptr);
    }
    for (int i = 0; i < PENDING; ++i)
        GetReactor()->PostEvent(i % 2 == 0 ? new CCountedEvent(nullptr) : new CPostsWhenDestroyed);
}

// While the network thread ends the process.
[[noreturn]] void WaitForEver()
{
    mantle::CMNEventThread never(1, 0);
    for (;;)
        never.Wait();
}

int End(const std::string& way)
{
    if (way == "return") {
        Post(MakeWork);
        return 0;
    }
    if (way == "exit") {
        Post(MakeWork);
        std::exit(0);
    }
    if (way == "callback") {
        g_LastCheck.m_bAllDestroyed = false;
        Post([] {
            MakeWork();
            std::exit(0);
        });
        WaitForEver();
    }
    if (way == "sink") {
        g_LastCheck.m_bAllDestroyed = false;
        Post([] {
            MakeWork();
            g_Sink.m_fOnReceive = [] { std::exit(0); };
        });
        WaitForEver();
    }
    if (way == "timer") {
        g_LastCheck.m_bAllDestroyed = false;
        Post([] {
            g_Timer.m_fWork = [] { std::exit(0); };
            GetReactor()->ScheduleTimer(&g_Timer, nullptr, CMNTimeValue::s_tvZero, 1);
            MakeWork();
        });
        WaitForEver();
    }
    if (way == "cleanup") {
        Post(MakeWork);
        mantle::CMNThreadManager::Instance()->CleanUp();
        Require(IPSConnectionManager::Instance() == nullptr, "the manager's end");
        return 0;
    }
    if (way == "cleanup_in_callback") {
        g_LastCheck.m_bAllDestroyed = false;
        // The loop goes on for some turns, with connections whose deletion was pending.
        mantle::CMNEventThread done(1, 0);
        int turns = 3;
        g_Timer.m_fWork = [&done, &turns] {
            if (--turns == 0)
                done.Signal();
        };
        Post([] {
            IPSReactor* reactor = GetReactor();
            MakeWork();
            mantle::CMNThreadManager::Instance()->CleanUp();
            reactor->ScheduleTimer(&g_Timer, nullptr, CMNTimeValue(0, 10000), 3);
        });
        done.Wait();
        return 0;
    }
    if (way == "user_thread") {
        // A user thread goes on posting to the network thread, and to itself, until it is refused.
        static mantle::CMNThreadUser* const user = new mantle::CMNThreadUser;
        Require(user->Create(mantle::CMNThreadManager::Instance()->GetNewThreadType()) == MN_OK, "the user thread");
        mantle::CMNThreadManager::Instance()->RegisterThread(user, true);
        static auto* const work = new std::function<void()>;  // outlives the thread
        *work = [] {
            Post(nullptr);
            user->PostEvent(new CCountedEvent(*work));
        };
        user->PostEvent(new CCountedEvent(*work));
        Post(MakeWork);
        return 0;
    }
    std::printf("ending: no way is called %s\n", way.c_str());
    _exit(2);
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2)
        return 2;
    g_LastCheck.m_szWay = argv[1];
    mantle::CMNThreadUser::AdoptCurrentThread();
    Require(ipstack::IIPStackManager::Instance()->Startup(ipstack::CIPStackSettings()) == MN_OK, "the stack");
    Require(IPSConnectionManager::Instance()->Init(1) == MN_OK, "the manager");
    Post(OpenConnections);
    g_Sink.m_Connected.Wait();
    return End(argv[1]);
}
