#include "tests/memory/CRun.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <optional>

#include "ipstack/ipstack.h"
#include "platform/ipstack/CIPCore.h"
#include "platform/ipstack/CIPLink.h"
#include "platform/ipstack/CIPLinkTable.h"
#include "tests/memory/CFetch.h"
#include "tests/memory/InLibrary.h"
#include "uxport/CLowlevelP2PTransport.h"

using namespace uxport;

namespace
{

constexpr const char* ADDRESS_A = "10.9.1.1";
constexpr const char* ADDRESS_B = "10.9.1.2";
constexpr const char* HOST = "127.0.0.1";
constexpr unsigned short TCP_PORT = 7080;
constexpr unsigned short CLOSED_PORT = 7081;
constexpr unsigned short UDP_PORT = 7082;
constexpr unsigned short RAW_PROTOCOL = 89;
constexpr unsigned int WIRE_DELAY_US = 1000;
constexpr int TRIES = 4;  // while an allocation fails
constexpr int RESTART_TRY = 2;
constexpr int QUESTIONS = 8;  // of a datagram that may be lost
constexpr long ANSWER_SECONDS = 1;
constexpr long LIMIT_SECONDS = 60;
constexpr int MOST_SETTLES = 100;

unsigned short FreeUdpPort()
{
    const int handle = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    bind(handle, reinterpret_cast<sockaddr*>(&address), length);
    getsockname(handle, reinterpret_cast<sockaddr*>(&address), &length);
    close(handle);
    return ntohs(address.sin_port);
}

ipstack::CIPStackConfig Config(const char* address)
{
    ipstack::CIPStackConfig config;
    config.m_strAddress = address;
    return config;
}

// Two links of the stack that are each other's far side, over UDP.
class CLinks
{
public:
    CLinks()
    {
        const unsigned short portA = FreeUdpPort();
        unsigned short portB = portA;
        while (portB == portA)
            portB = FreeUdpPort();
        Open(m_LinkA, m_pStackA, ADDRESS_A, portA, portB);
        Open(m_LinkB, m_pStackB, ADDRESS_B, portB, portA);
        // What goes from one to the other leaves the stack, as on a wire.
        const ipstack::CIPCoreGuard core;
        ipstack::CIPLinkTable::SetPartners(static_cast<ipstack::CIPLink*>(m_pStackA)->GetNetif(),
                                           static_cast<ipstack::CIPLink*>(m_pStackB)->GetNetif());
    }
    ~CLinks()
    {
        ipstack::IIPStackManager::Instance()->DestroyStack(m_pStackA);
        ipstack::IIPStackManager::Instance()->DestroyStack(m_pStackB);
    }
    CLinks(const CLinks&) = delete;
    CLinks& operator=(const CLinks&) = delete;

private:
    static void Open(CLowlevelP2PTransport& link, ipstack::IIPStack*& stack, const char* address, unsigned short local,
                     unsigned short remote)
    {
        if (ipstack::IIPStackManager::Instance()->CreateStack(Config(address), &link, stack) != MN_OK ||
            link.Open(stack, HOST, remote, HOST, local) != MN_OK)
            Complain("a link can't be made");
    }

    CLowlevelP2PTransport m_LinkA;
    CLowlevelP2PTransport m_LinkB;
    ipstack::IIPStack* m_pStackA = nullptr;
    ipstack::IIPStack* m_pStackB = nullptr;
};

const CWay WAYS[] = {
    {"TCP, short", CONNECTION_TYPE_TCP, 0, 0, CMNInetAddr(ADDRESS_A, 0), CMNInetAddr(ADDRESS_B, TCP_PORT), 100},
    {"TCP, long", CONNECTION_TYPE_TCP, 0, 0, CMNInetAddr(ADDRESS_A, 0), CMNInetAddr(ADDRESS_B, TCP_PORT), 300000},
    {"UDP, short", CONNECTION_TYPE_UDP, 0, 0, CMNInetAddr(ADDRESS_A, 0), CMNInetAddr(ADDRESS_B, UDP_PORT), 20},
    {"UDP, fragments", CONNECTION_TYPE_UDP, 0, 0, CMNInetAddr(ADDRESS_A, 0), CMNInetAddr(ADDRESS_B, UDP_PORT), 4000},
    {"raw", CONNECTION_TYPE_RAW, CMNInetAddr::s_wFamilyIpv4, RAW_PROTOCOL, CMNInetAddr(ADDRESS_A, 0),
     CMNInetAddr(ADDRESS_B, 0), 100},
};
const CWay NOBODY = {
    "TCP, nobody", CONNECTION_TYPE_TCP, 0, 0, CMNInetAddr(ADDRESS_A, 0), CMNInetAddr(ADDRESS_B, CLOSED_PORT), 1};

// One attempt. Returns: whether the answer came.
bool Fetch(CHome& home, const CWay& way, bool expectNothing)
{
    std::unique_ptr<CFetch> fetch;
    home.Run([&] {
        fetch = std::make_unique<CFetch>(home, way);
        fetch->Start();
    });
    const bool datagram = way.m_dwType != CONNECTION_TYPE_TCP;
    bool over = false;
    for (int i = 0; i < (datagram ? QUESTIONS : 1) && !over; ++i) {
        over = home.WaitFor([&] { return fetch->IsOver(); }, datagram ? ANSWER_SECONDS : LIMIT_SECONDS);
        if (!over)
            home.Run([&] { fetch->AskAgain(); });
    }
    bool done = false;
    home.Run([&] {
        done = fetch->IsDone();
        fetch->Finish();
    });
    home.Settle();
    if (!over && !datagram)
        Complain("%s on the %s: neither an answer nor an end", way.m_szName, home.GetName());
    if (expectNothing && done)
        Complain("%s on the %s: an answer", way.m_szName, home.GetName());
    return done;
}

void Serve(CHome& home, CServer& server, const CWay& way, int tries)
{
    for (int i = 0; i < tries; ++i) {
        MNResult result = MN_OK;
        home.Run([&] { result = server.Listen(way); });
        if (result == MN_OK)
            return;
    }
    Complain("%s on the %s: nobody can listen", way.m_szName, home.GetName());
}

void Round(CHome& home, int tries)
{
    CServer tcp(home);
    CServer udp(home);
    CServer raw(home);
    Serve(home, tcp, WAYS[0], tries);
    Serve(home, udp, WAYS[2], tries);
    Serve(home, raw, WAYS[4], tries);
    for (const CWay& way : WAYS) {
        CServer& server = way.m_dwType == CONNECTION_TYPE_TCP ? tcp : way.m_dwType == CONNECTION_TYPE_UDP ? udp : raw;
        bool done = false;
        for (int i = 0; i < tries && !done; ++i) {
            if (i == RESTART_TRY) {  // a start that failed behind a proxy is told nobody
                home.Run([&] { server.Stop(); });
                Serve(home, server, way, tries);
            }
            done = Fetch(home, way, false);
        }
        if (!done)
            Complain("%s on the %s: no answer in %d tries", way.m_szName, home.GetName(), tries);
    }
    Fetch(home, NOBODY, true);
    if (!home.WaitFor([&] { return tcp.IsIdle(); }, LIMIT_SECONDS))
        Complain("TCP on the %s: a server is not told of the end", home.GetName());
    home.Run([&] {
        for (CServer* server : {&tcp, &udp, &raw}) {
            if (const MNResult result = server->Stop())
                Complain("StopListen answers %lu", result);
            server->Forget();
        }
    });
    home.Settle();
}

void BothHomes(int tries)
{
    for (const bool network : {true, false}) {
        CHome home(network);
        Round(home, tries);
    }
}

}  // namespace

const char* CRun::GetPathName(int path)
{
    return path == MEMORY ? "memory" : "link";
}

bool CRun::Do(int path, CAllocationFault::CRecord& record, std::uint64_t hash, unsigned int occurrence)
{
    std::optional<mantle::CMNManualClock> clock;
    if (path == MEMORY)
        clock.emplace();
    mantle::CMNThreadUser::AdoptCurrentThread();
    if (ipstack::IIPStackManager::Instance()->Startup(ipstack::CIPStackSettings()) != MN_OK ||
        IPSConnectionManager::Instance()->Init(1) != MN_OK)
        Complain("no start");
    std::optional<CLinks> links;
    std::optional<ipstack::CIPStackWire> wire;
    if (path == MEMORY) {
        ipstack::CIPStackWireSettings settings;
        settings.m_dwDelayUs = WIRE_DELAY_US;
        wire.emplace();
        if (wire->Open(Config(ADDRESS_A), Config(ADDRESS_B), settings) != MN_OK)
            Complain("no wire");
    } else {
        links.emplace();
    }
    CHome main(false);
    main.Settle();
    const long before = mantle::CMNLiveObjects::Count();
    CAllocationFault::SwitchOn(record, hash, occurrence);
    BothHomes(hash != 0 ? TRIES : 1);
    CAllocationFault::SwitchOff();
    BothHomes(1);
    for (int i = 0; i < MOST_SETTLES && mantle::CMNLiveObjects::Count() != before; ++i)
        main.Settle();
    if (mantle::CMNLiveObjects::Count() != before)
        Complain("%ld objects are left", mantle::CMNLiveObjects::Count() - before);
    links.reset();
    wire.reset();
    return GetComplaints() == 0;
}
