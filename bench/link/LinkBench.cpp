// One TCP connection between two processes, each with its own stack, over a UDP path on 127.0.0.1: throughput, and the
// round trip of 64 bytes. Starts itself twice: once to serve, once to measure.
//
//     link_bench [--seconds N] [--mtu BYTES] [--buffer BYTES] [--owner network|user] [--only bulk|trip] [--counters]
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <ipstack/ipstack.h>
#include <mantle/mantle.h>
#include <netinet/in.h>
#include <uxport/uxport.h>

using namespace uxport;

namespace
{

using CClock = std::chrono::steady_clock;

constexpr unsigned short PORT = 5201;
constexpr std::size_t PIECE = 65536;
constexpr std::size_t LARGE_PIECE = 1 << 20;
constexpr std::size_t ROUND_TRIP = 64;
constexpr char BULK = 'B';
constexpr char ECHO = 'E';

const char* const SERVER_ADDRESS = "10.77.0.1";
const char* const CLIENT_ADDRESS = "10.77.0.2";

struct CSettings
{
    unsigned long m_dwSeconds = 3;
    unsigned int m_dwMtu = 1400;
    unsigned long m_dwBuffer = 0;  // 0: the stack's own
    bool m_bUser = false;
    bool m_bCounters = false;
    bool m_bBulk = true;
    bool m_bTrip = true;
    std::string m_strRole;
    unsigned short m_wLocalPort = 0;
    unsigned short m_wRemotePort = 0;
    int m_nReady = -1;  // written to when the server listens
};

class CWork : public mantle::IMNEvent
{
public:
    explicit CWork(std::function<void()> work) : m_fWork(std::move(work)) {}
    mantle::MNResult OnEventFire() override
    {
        m_fWork();
        return MN_OK;
    }

private:
    std::function<void()> m_fWork;
};

// One process: the stack, the link and one end of the connection.
class CEnd : public IPSAcceptorConnectorSink, public IPSTransportSink
{
public:
    explicit CEnd(const CSettings& settings) : m_Settings(settings), m_Piece(settings.m_bUser ? LARGE_PIECE : PIECE)
    {
        std::memset(m_Piece.GetWritePtr(), 'x', m_Piece.GetSpace());
        m_Piece.AdvanceWritePtr(m_Piece.GetSpace());
    }

    bool Start()
    {
        const bool server = m_Settings.m_strRole == "serve";
        m_pUser = mantle::CMNThreadUser::AdoptCurrentThread();
        ipstack::IIPStackManager* stacks = ipstack::IIPStackManager::Instance();
        if (stacks->Startup(ipstack::CIPStackSettings()) != MN_OK || IPSConnectionManager::Instance()->Init(1) != MN_OK)
            return false;
        ipstack::CIPStackConfig config;
        config.m_strAddress = server ? SERVER_ADDRESS : CLIENT_ADDRESS;
        config.m_dwMtu = m_Settings.m_dwMtu;
        ipstack::IIPStack* stack = nullptr;
        if (stacks->CreateStack(config, &m_Link, stack) != MN_OK)
            return false;
        m_Link.Open(stack, "127.0.0.1", m_Settings.m_wRemotePort, "127.0.0.1", m_Settings.m_wLocalPort);
        const auto begin = [this, server] {
            const CMNInetAddr address(SERVER_ADDRESS, PORT);
            IPSConnectionManager* manager = IPSConnectionManager::Instance();
            if (server) {
                if (manager->CreateConnectionServer(CONNECTION_TYPE_TCP, m_pAcceptor.ParaOut()) != MN_OK ||
                    m_pAcceptor->StartListen(this, address, 0, 0) != MN_OK || ::write(m_Settings.m_nReady, "r", 1) != 1)
                    std::abort();
                return;
            }
            CMNTimeValue limit(5, 0);
            if (manager->CreateConnectionClient(CONNECTION_TYPE_TCP, m_pConnector.ParaOut()) != MN_OK ||
                m_pConnector->AsycConnect(this, address, &limit, nullptr, 0, 0) != MN_OK)
                std::abort();
        };
        if (m_Settings.m_bUser)
            begin();
        else
            IPSConnectionManager::Instance()->GetReactor()->PostEvent(new CWork(begin));
        return true;
    }

    // Until the connection has ended.
    void Run() { m_pUser->RunEventLoop(); }

    MNResult OnConnectIndication(long result, IPSTransport* transport, IPSAcceptorConnectorId* id) override
    {
        if (result != 0) {
            std::fprintf(stderr, "link_bench: no connection: %ld\n", result);
            return m_pUser->Stop();
        }
        m_pTransport = transport;
        transport->OpenWithSink(this);
        if (m_Settings.m_dwBuffer != 0) {
            // Opening sets both to 65535.
            unsigned long buffer = m_Settings.m_dwBuffer;
            transport->SetOption(OPT_SEND_BUFFER, &buffer);
            transport->SetOption(OPT_RECEIVE_BUFFER, &buffer);
        }
        if (id->IsConnector()) {
            m_bClient = true;
            m_tBegin = m_tSent = CClock::now();
            if (m_Settings.m_bTrip)
                Send(std::string(ROUND_TRIP, ECHO));
            else
                BeginBulk();
        }
        return MN_OK;
    }

    MNResult OnReceive(CMNMessageBlock& data, IPSTransport* transport, CPSTransportParameter*) override
    {
        if (m_bClient) {
            OnClientReceive(data.GetLength());
        } else if (*data.GetReadPtr() == BULK) {
            m_bBulk = true;
            SendBulk();
        } else {
            transport->SendData(data, nullptr);
        }
        return MN_OK;
    }

    MNResult OnSend(IPSTransport*, CPSTransportParameter*) override
    {
        if (m_bBulk)
            SendBulk();
        return MN_OK;
    }

    MNResult OnDisconnect(long, IPSTransport*) override { return m_pUser->Stop(); }

private:
    void Send(const std::string& text)
    {
        CMNMessageBlock block(text.size(), text.data(), CMNMessageBlock::DONT_DELETE, text.size());
        m_pTransport->SendData(block, nullptr);
    }

    // A user thread's sends are always taken, and OnSend follows when one that was more than the stack's buffer has
    // left; a network thread sends until it is refused.
    void SendBulk()
    {
        MNResult result = MN_OK;
        do {
            CMNMessageBlock* piece = m_Piece.DuplicateChained();
            result = m_pTransport->SendData(*piece, nullptr);
            piece->DestroyChained();
        } while (result == MN_OK && !m_Settings.m_bUser);
    }

    void OnClientReceive(std::size_t length)
    {
        const CClock::time_point now = CClock::now();
        m_nArrived += length;
        if (!m_bBulk) {
            if (m_nArrived < ROUND_TRIP)
                return;
            m_nArrived = 0;
            m_RoundTrips.push_back(std::chrono::duration<double, std::micro>(now - m_tSent).count());
            if (now - m_tBegin < std::chrono::seconds(m_Settings.m_dwSeconds)) {
                m_tSent = now;
                Send(std::string(ROUND_TRIP, ECHO));
                return;
            }
            std::sort(m_RoundTrips.begin(), m_RoundTrips.end());
            std::printf("round trip of %zu bytes: median %.1f us, 99 %% %.1f us, %zu of them\n", ROUND_TRIP,
                        m_RoundTrips[m_RoundTrips.size() / 2], m_RoundTrips[m_RoundTrips.size() * 99 / 100],
                        m_RoundTrips.size());
            std::fflush(stdout);
            if (m_Settings.m_bBulk)
                BeginBulk();
            else
                End();
            return;
        }
        // The first second is for the connection to find its speed.
        if (!m_bWarm && now - m_tBegin >= std::chrono::seconds(1)) {
            m_bWarm = true;
            m_tBegin = now;
            m_nArrived = 0;
        }
        if (m_bWarm && now - m_tBegin >= std::chrono::seconds(m_Settings.m_dwSeconds)) {
            const double seconds = std::chrono::duration<double>(now - m_tBegin).count();
            std::printf("one connection: %.0f Mbit/s\n", static_cast<double>(m_nArrived) * 8 / seconds / 1e6);
            std::fflush(stdout);
            m_bWarm = false;
            m_tBegin = now + std::chrono::hours(1);
            End();
        }
    }

    void BeginBulk()
    {
        m_bBulk = true;
        m_tBegin = CClock::now();
        Send(std::string(1, BULK));
    }

    void End()
    {
        m_pTransport->Disconnect(0);
        m_pUser->Stop();
    }

    const CSettings m_Settings;
    CMNMessageBlock m_Piece;
    mantle::CMNThreadUser* m_pUser = nullptr;
    CLowlevelP2PTransport m_Link;
    mantle::CMNAutoPtr<IPSAcceptor> m_pAcceptor;
    mantle::CMNAutoPtr<IPSConnector> m_pConnector;
    mantle::CMNAutoPtr<IPSTransport> m_pTransport;
    bool m_bClient = false;
    bool m_bBulk = false;
    bool m_bWarm = false;
    std::size_t m_nArrived = 0;
    CClock::time_point m_tBegin;
    CClock::time_point m_tSent;
    std::vector<double> m_RoundTrips;
};

void PrintCounters(const std::string& role)
{
    ipstack::CIPStackCounter counters[256];
    const std::size_t count =
        std::min<std::size_t>(ipstack::IIPStackManager::Instance()->GetCounters(counters, 256), 256);
    for (std::size_t index = 0; index < count; ++index) {
        if (counters[index].m_qwValue != 0)
            std::printf("%s %s %llu\n", role.c_str(), counters[index].m_szName,
                        static_cast<unsigned long long>(counters[index].m_qwValue));
    }
    std::fflush(stdout);
}

// Two ports that are free now.
void FindPorts(unsigned short (&ports)[2])
{
    int handles[2];
    for (int index = 0; index < 2; ++index) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof(address);
        handles[index] = ::socket(AF_INET, SOCK_DGRAM, 0);
        if (::bind(handles[index], reinterpret_cast<sockaddr*>(&address), length) != 0 ||
            ::getsockname(handles[index], reinterpret_cast<sockaddr*>(&address), &length) != 0)
            std::abort();
        ports[index] = ntohs(address.sin_port);
    }
    ::close(handles[0]);
    ::close(handles[1]);
}

pid_t StartRole(char** argv, const char* role, unsigned short local, unsigned short remote, int ready)
{
    const pid_t child = ::fork();
    if (child != 0)
        return child;
    std::vector<std::string> texts;
    for (char** at = argv; *at; ++at)
        texts.emplace_back(*at);
    for (const std::string& text :
         {std::string("--role"), std::string(role), std::string("--ports"), std::to_string(local),
          std::to_string(remote), std::string("--ready"), std::to_string(ready)})
        texts.push_back(text);
    std::vector<char*> arguments;
    for (std::string& text : texts)
        arguments.push_back(text.data());
    arguments.push_back(nullptr);
    ::execv("/proc/self/exe", arguments.data());
    std::_Exit(127);
}

int RunBoth(char** argv)
{
    unsigned short ports[2];
    FindPorts(ports);
    int ready[2];
    if (::pipe(ready) != 0)
        return 1;
    const pid_t server = StartRole(argv, "serve", ports[0], ports[1], ready[1]);
    ::close(ready[1]);
    char word;
    if (::read(ready[0], &word, 1) != 1)
        return 1;
    const pid_t client = StartRole(argv, "measure", ports[1], ports[0], -1);
    int status = 0;
    ::waitpid(client, &status, 0);
    int serverStatus = 0;
    if (status != 0)
        ::kill(server, SIGTERM);
    ::waitpid(server, &serverStatus, 0);
    return status == 0 && serverStatus == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv)
{
    CSettings settings;
    for (int index = 1; index < argc; ++index) {
        const std::string name = argv[index];
        const auto next = [&] { return index + 1 < argc ? argv[++index] : ""; };
        if (name == "--seconds")
            settings.m_dwSeconds = std::strtoul(next(), nullptr, 10);
        else if (name == "--mtu")
            settings.m_dwMtu = static_cast<unsigned int>(std::strtoul(next(), nullptr, 10));
        else if (name == "--buffer")
            settings.m_dwBuffer = std::strtoul(next(), nullptr, 10);
        else if (name == "--owner")
            settings.m_bUser = std::strcmp(next(), "user") == 0;
        else if (name == "--only") {
            const std::string only = next();
            settings.m_bBulk = only == "bulk";
            settings.m_bTrip = only == "trip";
        } else if (name == "--counters")
            settings.m_bCounters = true;
        else if (name == "--role")
            settings.m_strRole = next();
        else if (name == "--ready")
            settings.m_nReady = static_cast<int>(std::strtol(next(), nullptr, 10));
        else if (name == "--ports") {
            settings.m_wLocalPort = static_cast<unsigned short>(std::strtoul(next(), nullptr, 10));
            settings.m_wRemotePort = static_cast<unsigned short>(std::strtoul(next(), nullptr, 10));
        } else {
            std::fprintf(stderr, "link_bench: unknown option %s\n", name.c_str());
            return 2;
        }
    }
    if (settings.m_strRole.empty())
        return RunBoth(argv);
    auto* end = new CEnd(settings);  // its link is in use until the process is tidied up
    if (!end->Start()) {
        std::fprintf(stderr, "link_bench: %s does not start\n", settings.m_strRole.c_str());
        return 1;
    }
    end->Run();
    if (settings.m_bCounters)
        PrintCounters(settings.m_strRole);
    return 0;
}
