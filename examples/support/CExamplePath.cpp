#include "CExamplePath.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <vector>

#include <connhub/connhub.h>

using namespace uxport;
using ipstack::IIPStackManager;

namespace
{

// Takes "1.2.3.4:5" or "[::1]:5" apart; the system's own check of the host comes when it is used.
bool Split(const std::string& text, std::string& host, unsigned short& port)
{
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos)
        return false;
    host = text.substr(0, colon);
    if (host.size() > 2 && host.front() == '[' && host.back() == ']')
        host = host.substr(1, host.size() - 2);
    return CLI::detail::lexical_cast(text.substr(colon + 1), port) && CMNInetAddr().Set(host.c_str(), port) == MN_OK;
}

// The link does not tell.
bool CanBind(const CMNInetAddr& local)
{
    class CNoSink : public connhub::IMNUDPTransportSink
    {
        unsigned long OnReceive(CMNMessageBlock&, const CMNInetAddr&) override { return 0; }
    };
    static CNoSink sink;
    mantle::CMNAutoPtr<connhub::IMNUDPTransport> transport;
    return connhub::CMNConnectionManager::Instance()->CreateUDPTransport(&sink, transport.ParaOut()) == MN_OK &&
           transport->Open(local) == MN_OK;
}

// One a line: its name and its value.
void PrintCounters()
{
    std::vector<ipstack::CIPStackCounter> counters(IIPStackManager::Instance()->GetCounters(nullptr, 0));
    IIPStackManager::Instance()->GetCounters(counters.data(), counters.size());
    for (const ipstack::CIPStackCounter& counter : counters)
        std::printf("%s %" PRIu64 "\n", counter.m_szName, counter.m_qwValue);
}

bool Complain(const std::string& what)
{
    std::fprintf(stderr, "%s\n", what.c_str());
    return false;
}

}  // namespace

CExamplePath::~CExamplePath()
{
    if (m_pStack)
        IIPStackManager::Instance()->DestroyStack(m_pStack);
    m_pTun.reset();
    m_pUdp.reset();
    if (m_bCounters && m_bOpened)
        PrintCounters();
}

void CExamplePath::AddOptions(CLI::App& app)
{
    const std::string group = "Path";
    CLI::Option* tun = app.add_option("--tun", m_strTun, "TUN device of the system to use or make")->group(group);
    CLI::Option* local =
        app.add_option("--udp-local", m_strUdpLocal, "own end of a UDP path, as 127.0.0.1:7001")->group(group);
    CLI::Option* remote = app.add_option("--udp-remote", m_strUdpRemote, "the other end of it")->group(group);
    local->excludes(tun)->needs(remote);
    remote->needs(local);
    app.add_option("--address", m_strAddress, "the stack's own on the path")
        ->capture_default_str()
        ->check(CLI::ValidIPV4)
        ->group(group);
    app.add_option("--mtu", m_dwMtu, "longest packet")
        ->capture_default_str()
        ->check(CLI::Range(576, 65507))
        ->group(group);
    app.add_option("--capture", m_strCapture, "pcap file for what passes")->group(group);
    app.add_flag("--counters", m_bCounters, "print the stack's counters at the end")->group(group);
}

bool CExamplePath::Open()
{
    m_bOpened = true;
    if (!OpenLayerBelow())
        return false;
    if (!m_pBelow)
        return true;
    ipstack::CIPStackConfig config;
    config.m_strAddress = m_strAddress;
    config.m_dwMtu = m_dwMtu;
    if (!m_strCapture.empty()) {
        m_pCapture = std::make_unique<ipstack::CIPCapture>(*m_pBelow);
        if (m_pCapture->Start(m_strCapture) != MN_OK)
            return Complain(m_strCapture + " can't be written");
        m_pBelow = m_pCapture.get();
    }
    if (IIPStackManager::Instance()->CreateStack(config, m_pBelow, m_pStack) != MN_OK)
        return Complain("the stack refuses the address " + m_strAddress);
    if (m_pCapture)
        m_pCapture->SetStack(m_pStack);
    return StartLayerBelow(m_pCapture ? static_cast<ipstack::IIPStack*>(m_pCapture.get()) : m_pStack);
}

bool CExamplePath::OpenLayerBelow()
{
    if (!m_strTun.empty()) {
        m_pTun = std::make_unique<ipstack::CIPTunDevice>();
        m_pBelow = m_pTun.get();
        if (m_pTun->Open(m_strTun) != MN_OK)
            return Complain(m_strTun + ": " + std::strerror(m_pTun->GetSystemError()));
    } else if (!m_strUdpLocal.empty()) {
        m_pUdp = std::make_unique<CLowlevelP2PTransport>();
        m_pBelow = m_pUdp.get();
    }
    return true;
}

bool CExamplePath::StartLayerBelow(ipstack::IIPStack* input)
{
    if (m_pTun)
        return m_pTun->Start(input) == MN_OK || Complain(m_strTun + " can't be read");
    std::string local;
    std::string remote;
    unsigned short localPort = 0;
    unsigned short remotePort = 0;
    if (!Split(m_strUdpLocal, local, localPort) || !Split(m_strUdpRemote, remote, remotePort))
        return Complain("the ends of a UDP path are written as 127.0.0.1:7001");
    if (!CanBind(CMNInetAddr(local.c_str(), localPort)))
        return Complain(m_strUdpLocal + " can't be had");
    m_pUdp->Open(input, remote, remotePort, local, localPort);
    return true;
}
