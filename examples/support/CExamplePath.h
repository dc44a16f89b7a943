// The path of an example to others: a TUN device or a UDP path, chosen on the command line.
#ifndef EXAMPLES_SUPPORT_CEXAMPLEPATH_H
#define EXAMPLES_SUPPORT_CEXAMPLEPATH_H

#include <memory>
#include <string>

#include <ipstack/ipstack.h>
#include <uxport/CLowlevelP2PTransport.h>
#include <CLI/CLI.hpp>

// Without one of its options there is loopback only. Its destructor takes the link down, before anything is freed that
// the link may call, and prints the stack's counters when they are asked for.
class CExamplePath
{
public:
    CExamplePath() = default;
    ~CExamplePath();
    CExamplePath(const CExamplePath&) = delete;
    CExamplePath& operator=(const CExamplePath&) = delete;

    // Adds --tun, --udp-local, --udp-remote, --address, --mtu, --capture and --counters.
    void AddOptions(CLI::App& app);

    // Makes the link that the options ask for; the stack has been started. Returns: false with a line on standard error.
    bool Open();

    // The stack's own address on the link, for who changes the default.
    std::string m_strAddress = "10.77.0.1";
    std::string m_strUdpLocal;
    std::string m_strUdpRemote;

private:
    bool OpenLayerBelow();
    bool StartLayerBelow(ipstack::IIPStack* input);

    std::string m_strTun;
    std::string m_strCapture;
    unsigned int m_dwMtu = 1400;
    bool m_bCounters = false;
    bool m_bOpened = false;
    std::unique_ptr<ipstack::CIPCapture> m_pCapture;
    std::unique_ptr<ipstack::CIPTunDevice> m_pTun;
    std::unique_ptr<uxport::CLowlevelP2PTransport> m_pUdp;
    ipstack::IIPStackLowLevel* m_pBelow = nullptr;
    ipstack::IIPStack* m_pStack = nullptr;
};

#endif
