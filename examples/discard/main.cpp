// discard: servers that throw away what they get (RFC 863), over TCP and UDP, and a client of each, all of them main's.
#include <cinttypes>
#include <cstdio>

#include <CLI/CLI.hpp>

#include "CDiscardServer.h"
#include "CExamplePath.h"
#include "CSender.h"

using namespace uxport;

namespace
{

// Ends main's loop when nothing has come for a while: datagrams may be lost.
class CPatience : public mantle::CMNTimerWrapperIDSink
{
public:
    void Begin() { m_Timer.Schedule(this, CMNTimeValue(5, 0), 1); }
    void OnTimer(mantle::CMNTimerWrapperID*) override { CExample::Stop(); }

private:
    mantle::CMNTimerWrapperID m_Timer;
};

}  // namespace

int main(int argc, char** argv)
{
    CLI::App options(
        "Discard servers for TCP and UDP on the embedded stack, and a client of each. With nothing to "
        "send they serve until the program is interrupted.");
    std::uint64_t bytes = 10000000;
    std::uint64_t datagrams = 1000;
    unsigned short port = 9;
    options.add_option("--bytes", bytes, "to send over TCP")->capture_default_str();
    options.add_option("--datagrams", datagrams, "to send over UDP")->capture_default_str();
    options.add_option("--port", port, "of the servers")->capture_default_str()->check(CLI::Range(1, 65535));
    CExamplePath path;
    path.AddOptions(options);
    CLI11_PARSE(options, argc, argv);

    if (!CExample::Start() || !path.Open())
        return 2;
    std::function<void()> onReceived;
    CDiscardServer tcp([&onReceived] { onReceived(); });
    CDiscardServer udp([&onReceived] { onReceived(); });
    const bool serving = bytes == 0 && datagrams == 0;
    CPatience patience;
    onReceived = [&] {
        if (serving)
            return;
        patience.Begin();
        if (tcp.GetBytes() == bytes && udp.GetReceived() == datagrams)
            CExample::Stop();
    };
    CStreamSender stream(bytes);
    CDatagramSender packets(datagrams);
    const CMNInetAddr any("0.0.0.0", port);
    const CMNInetAddr own("127.0.0.1", port);
    if (tcp.Start(CONNECTION_TYPE_TCP, any) != MN_OK || udp.Start(CONNECTION_TYPE_UDP, any) != MN_OK)
        return CExample::Fail("the servers", MN_ERROR_FAILURE);
    if (!serving) {
        patience.Begin();
        if (stream.Start(own) != MN_OK || packets.Start(own) != MN_OK)
            return CExample::Fail("the clients", MN_ERROR_FAILURE);
    }
    CExample::Run();
    std::printf("discard: %" PRIu64 " bytes over TCP, %" PRIu64 " datagrams\n", tcp.GetBytes(), udp.GetReceived());
    return serving || (tcp.GetBytes() == bytes && (datagrams == 0 || udp.GetReceived() != 0)) ? 0 : 1;
}
