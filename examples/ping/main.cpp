// ping: ICMP echo over a raw connection, as people know it. What answers is the stack at the other end.
#include <cmath>

#include <ipstack/CIPStackWire.h>
#include <CLI/CLI.hpp>

#include "CExamplePath.h"
#include "CPing.h"

using namespace uxport;

namespace
{

// Joins 10.0.0.1 and 10.0.0.2, both the stack's own. `loss`: percent of the round trips, half of it each way.
MNResult OpenWire(ipstack::CIPStackWire& wire, double loss)
{
    ipstack::CIPStackConfig ends[2];
    ends[0].m_strAddress = "10.0.0.1";
    ends[1].m_strAddress = "10.0.0.2";
    ipstack::CIPStackWireSettings settings;
    settings.m_dwLossPerMille = static_cast<unsigned int>(std::lround(1000 * (1 - std::sqrt(1 - loss / 100))));
    return wire.Open(ends[0], ends[1], settings);
}

}  // namespace

int main(int argc, char** argv)
{
    CLI::App app("ICMP echo over the embedded stack.");
    CPingOptions options;
    bool wired = false;
    double loss = 0;
    app.add_option("host", options.m_strHost, "IPv4 address")->capture_default_str()->check(CLI::ValidIPV4);
    app.add_option("-c,--count", options.m_nCount, "requests")->capture_default_str()->check(CLI::Range(1, 65535));
    app.add_option("-i,--interval", options.m_dInterval, "seconds between two requests")
        ->capture_default_str()
        ->check(CLI::Range(0.0, 3600.0));
    app.add_option("-W,--wait", options.m_dWait, "seconds for the last reply")
        ->capture_default_str()
        ->check(CLI::Range(0.0, 3600.0));
    app.add_option("-s,--size", options.m_nSize, "data bytes")->capture_default_str()->check(CLI::Range(0, 65000));
    CLI::Option* wire = app.add_flag("--wire", wired, "join 10.0.0.1 and 10.0.0.2 by a wire in memory");
    app.add_option("--loss", loss, "percent of the round trips that the wire loses")
        ->needs(wire)
        ->capture_default_str()
        ->check(CLI::Range(0.0, 100.0));
    CExamplePath path;
    path.AddOptions(app);
    CLI11_PARSE(app, argc, argv);

    if (!CExample::Start() || !path.Open())
        return 2;
    ipstack::CIPStackWire memory;
    if (wired) {
        if (const MNResult result = OpenWire(memory, loss); result != MN_OK)
            return CExample::Fail("the wire", result);
    }
    CPing ping(options);
    if (const MNResult result = ping.Start(); result != MN_OK)
        return CExample::Fail("the connection", result);
    CExample::Run();
    return ping.Report();
}
