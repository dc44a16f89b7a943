// Returns from main while threads that nobody joins call the library without a pause, in the way that its argument
// names. A static object that outlives the library lets every thread make some more calls, checks their results and
// that every event was destroyed, and says so. Some ways let the threads run on until the process is gone.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <ipstack/ipstack.h>
#include <mantle/mantle.h>
#include <unistd.h>
#include <uxport/uxport.h>

using namespace uxport;

namespace
{

constexpr unsigned short PORT = 7011;
constexpr int THREADS = 4;
constexpr int ROUNDS_BEFORE = 50;
constexpr int ROUNDS_AFTER = 50;
constexpr unsigned long MOST_PENDING = 1000;
constexpr std::chrono::seconds LIMIT(30);

// What the threads have done. Plain data: it is used until the process is gone.
std::atomic<bool> g_bOver{false};  // the clean-up has been through
std::atomic<bool> g_bStop{false};
std::atomic<int> g_nRunning{0};
std::atomic<long> g_lMade{0};
std::atomic<long> g_lDestroyed{0};
std::atomic<int> g_Rounds[THREADS];
std::atomic<int> g_RoundsOver[THREADS];

[[noreturn]] void Fail(const char* what)
{
    std::printf("unjoined: %s\n", what);
    std::fflush(stdout);
    _exit(1);
}

void Require(bool condition, const char* what)
{
    if (!condition)
        Fail(what);
}

void WaitUntil(const std::function<bool()>& condition, const char* what)
{
    const auto end = std::chrono::steady_clock::now() + LIMIT;
    while (!condition()) {
        Require(std::chrono::steady_clock::now() < end, what);
        std::this_thread::yield();
    }
}

bool HaveAll(const std::atomic<int> (&rounds)[THREADS], int least)
{
    for (const std::atomic<int>& round : rounds) {
        if (round.load() < least)
            return false;
    }
    return true;
}

// Made before everything of the library and therefore destroyed after its clean-up.
class CLastCheck
{
public:
    ~CLastCheck()
    {
        if (!m_szWay)
            return;
        g_bOver.store(true);
        WaitUntil([] { return HaveAll(g_RoundsOver, ROUNDS_AFTER); }, "a call behind the clean-up does not come back");
        if (m_bStop) {
            g_bStop.store(true);
            WaitUntil([] { return g_nRunning.load() == 0; }, "a thread does not come back");
            Require(g_lMade.load() == g_lDestroyed.load(), "not every event was destroyed, and once");
        }
        std::printf("unjoined: %s: all well\n", m_szWay);
    }

    const char* m_szWay = nullptr;
    bool m_bStop = false;
};

CLastCheck g_LastCheck;

class CCountedEvent : public IMNEvent
{
public:
    CCountedEvent() { ++g_lMade; }
    ~CCountedEvent() override { ++g_lDestroyed; }
    MNResult OnEventFire() override { return MN_OK; }
};

class CSink : public IPSAcceptorConnectorSink, public IPSTransportSink
{
public:
    MNResult OnConnectIndication(long result, IPSTransport* transport, IPSAcceptorConnectorId* id) override
    {
        if (result != 0)
            return MN_OK;
        transport->AddReference();
        transport->OpenWithSink(this);
        m_Transports.push_back(transport);
        if (id->IsConnector())
            ++m_nConnected;
        if (m_nConnected == THREADS && m_Transports.size() == 2 * THREADS)
            m_pMain->Stop();
        return MN_OK;
    }
    MNResult OnReceive(CMNMessageBlock&, IPSTransport*, CPSTransportParameter*) override { return MN_OK; }
    MNResult OnSend(IPSTransport*, CPSTransportParameter*) override { return MN_OK; }
    MNResult OnDisconnect(long, IPSTransport*) override { return MN_OK; }

    mantle::CMNThreadUser* m_pMain = nullptr;
    std::vector<IPSTransport*> m_Transports;
    std::vector<IPSConnector*> m_Connectors;
    IPSAcceptor* m_pAcceptor = nullptr;
    int m_nConnected = 0;
};

// Never destroyed, as all that the threads use.
CSink& g_Sink = *new CSink;
IPSConnectionManager* g_pManager = nullptr;
IPSReactor* g_pReactor = nullptr;
mantle::CMNThreadUser* g_pUser = nullptr;
// Never delivered to: what the threads start themselves.
CSink& g_SilentSink = *new CSink;

bool IsResult(MNResult result)
{
    return result == MN_OK || result == MN_ERROR_NOT_INITIALIZED;
}

void Send(IPSTransport* transport, bool over)
{
    CMNMessageBlock block(5, "hello", CMNMessageBlock::DONT_DELETE, 5);
    const MNResult result = transport->SendData(block, nullptr);
    Require(over ? result == MN_ERROR_NOT_INITIALIZED : IsResult(result), "a wrong result of SendData");
    Require(block.GetChainedLength() == (result == MN_OK ? 0u : 5u), "data lost");
}

void Post(IMNEventQueue* queue, bool over)
{
    const MNResult result = queue->PostEvent(new CCountedEvent);
    Require(over ? result == MN_ERROR_NOT_INITIALIZED : IsResult(result), "a wrong result of PostEvent");
}

void SendEvent(IMNEventQueue* queue, bool over)
{
    const MNResult result = queue->SendEvent(new CCountedEvent);
    Require(over ? result == MN_ERROR_NOT_INITIALIZED : IsResult(result) || result == MN_ERROR_NOT_AVAILABLE,
            "a wrong result of SendEvent");
}

// Objects of the thread's own, so that what belongs to one thread stays on it.
struct CCalls
{
    CCalls()
    {
        mantle::CMNThreadUser::AdoptCurrentThread();
        Require(g_pManager->CreateConnectionServer(CONNECTION_TYPE_TCP, m_pAcceptor) == MN_OK, "no own server");
        Require(g_pManager->CreateConnectionClient(CONNECTION_TYPE_TCP, m_pConnector) == MN_OK, "no own client");
    }

    void Make(IPSTransport* transport, bool over, int thread)
    {
        const CMNInetAddr address("127.0.0.1", static_cast<unsigned short>(PORT + 1 + thread));
        CMNInetAddr own;
        std::uint64_t type = 0;
        Require(transport->GetOption(OPT_TYPE, &type) == MN_OK, "a wrong result of GetOption");
        transport->GetPeerAddr(own);
        CMNTimeValue timeout(1, 0);
        MNResult result = m_pConnector->AsycConnect(&g_SilentSink, address, &timeout, nullptr, 0, 0);
        Require(over ? result == MN_ERROR_NOT_INITIALIZED : IsResult(result), "a wrong result of AsycConnect");
        m_pConnector->CancelConnect();
        m_pAcceptor->StopListen(0);
        result = m_pAcceptor->StartListen(&g_SilentSink, address, 0, 0);
        Require(over ? result == MN_ERROR_NOT_INITIALIZED : IsResult(result), "a wrong result of StartListen");
        IPSConnector* connector = nullptr;
        result = g_pManager->CreateConnectionClient(CONNECTION_TYPE_TCP, connector);
        Require(over ? result == MN_ERROR_FAILURE : result == MN_OK || result == MN_ERROR_FAILURE,
                "a wrong result of CreateConnectionClient");
        if (connector)
            connector->ReleaseReference();
        g_pManager->IsNetworkThread(1);
        g_pManager->GetReactor()->GetPendingEventsCount();
        Send(transport, over);
    }

    IPSAcceptor* m_pAcceptor = nullptr;
    IPSConnector* m_pConnector = nullptr;
};

using CRound = std::function<void(bool over)>;

CRound MakeRound(const std::string& way, int thread)
{
    IPSTransport* transport = g_Sink.m_Transports[static_cast<std::size_t>(thread)];
    if (way == "send")
        return [transport](bool over) { Send(transport, over); };
    if (way == "callback")  // where the clean-up gives up on a thread, the network thread may be left, too
        return [transport](bool) { Send(transport, false); };
    if (way == "post")
        return [](bool over) { Post(g_pReactor, over); };
    if (way == "post_to_user")
        return [](bool over) { Post(g_pUser->GetEventQueue(), over); };
    if (way == "wait")
        return [](bool over) { SendEvent(g_pReactor, over); };
    if (way == "calls") {
        auto* calls = new CCalls;
        return [transport, calls, thread](bool over) { calls->Make(transport, over, thread); };
    }
    if (way == "release") {
        // The last reference goes at any moment of the end.
        auto* left = new int(ROUNDS_BEFORE);
        return [transport, left](bool over) {
            if (*left == 0)
                return;
            if (over || (--*left == 0 && mantle::CMNThreadManager::Instance()->IsCleaningUp())) {
                *left = 0;
                transport->ReleaseReference();
            } else if (*left == 0) {
                *left = 1;
            }
        };
    }
    Fail("no way is called so");
}

void Run(const std::string& way, int thread)
{
    const auto index = static_cast<std::size_t>(thread);
    const CRound round = MakeRound(way, thread);
    while (!g_bStop.load()) {
        const bool over = g_bOver.load();
        if (!over && g_pReactor->GetPendingEventsCount() > MOST_PENDING)
            std::this_thread::yield();  // so that a busy machine's network thread gets its turn
        round(over);
        ++g_Rounds[index];
        if (over)
            ++g_RoundsOver[index];
    }
    --g_nRunning;
}

class CRunEvent : public IMNEvent
{
public:
    CRunEvent(std::string way, int thread) : m_strWay(std::move(way)), m_nThread(thread) {}
    MNResult OnEventFire() override
    {
        Run(m_strWay, m_nThread);
        return MN_OK;
    }

private:
    std::string m_strWay;
    int m_nThread;
};

// A thread of the system's, or one of the framework's that never comes back from its callback.
void Start(const std::string& way, int thread)
{
    if (way != "callback") {
        std::thread(&Run, way, thread).detach();
        return;
    }
    mantle::CMNThreadManager::Instance()->SetJoinBound(CMNTimeValue(0, 50000));
    auto* user = new mantle::CMNThreadUser;
    Require(user->Create(mantle::CMNThreadManager::Instance()->GetNewThreadType()) == MN_OK, "no user thread");
    user->PostEvent(new CRunEvent(way, thread));
}

void OpenConnections()
{
    const CMNInetAddr address("127.0.0.1", PORT);
    Require(g_pManager->CreateConnectionServer(CONNECTION_TYPE_TCP, g_Sink.m_pAcceptor) == MN_OK, "no server");
    Require(g_Sink.m_pAcceptor->StartListen(&g_Sink, address, 0, 0) == MN_OK, "no listening");
    for (int i = 0; i < THREADS; ++i) {
        IPSConnector* connector = nullptr;
        Require(g_pManager->CreateConnectionClient(CONNECTION_TYPE_TCP, connector) == MN_OK, "no client");
        g_Sink.m_Connectors.push_back(connector);
        Require(connector->AsycConnect(&g_Sink, address, nullptr, nullptr, 0, 0) == MN_OK, "no connecting");
    }
    Require(g_Sink.m_pMain->RunEventLoop() == MN_OK, "no loop");
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2)
        return 2;
    const std::string way = argv[1];
    g_Sink.m_pMain = mantle::CMNThreadUser::AdoptCurrentThread();
    Require(ipstack::IIPStackManager::Instance()->Startup(ipstack::CIPStackSettings()) == MN_OK, "no stack");
    g_pManager = IPSConnectionManager::Instance();
    Require(g_pManager->Init(1) == MN_OK, "no manager");
    g_pReactor = g_pManager->GetReactor();
    g_pUser = new mantle::CMNThreadUser;
    Require(g_pUser->Create(mantle::CMNThreadManager::Instance()->GetNewThreadType()) == MN_OK, "no user thread");
    OpenConnections();
    g_LastCheck.m_szWay = argv[1];
    g_LastCheck.m_bStop = way == "post" || way == "post_to_user" || way == "wait";
    g_nRunning.store(THREADS);
    for (int i = 0; i < THREADS; ++i)
        Start(way, i);
    WaitUntil([] { return HaveAll(g_Rounds, ROUNDS_BEFORE); }, "the threads do not run");
    return 0;
}
