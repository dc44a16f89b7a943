// chargen: a character generator (RFC 864) over TCP and UDP. The server lives on the network thread and uses its
// transports directly; its readers are main's.
#include <cinttypes>
#include <cstdio>

#include <CLI/CLI.hpp>

#include "CChargenServer.h"
#include "CExamplePath.h"
#include "CReader.h"

using namespace uxport;

int main(int argc, char** argv)
{
    CLI::App options(
        "A character generator on the embedded stack and a reader for TCP and for UDP. With nothing to "
        "read it serves until it is interrupted.");
    std::uint64_t bytes = 1000000;
    std::uint64_t datagrams = 10;
    unsigned short port = 19;
    options.add_option("--bytes", bytes, "to read over TCP")->capture_default_str();
    options.add_option("--datagrams", datagrams, "to ask for over UDP")->capture_default_str();
    options.add_option("--port", port, "of the server")->capture_default_str()->check(CLI::Range(1, 65535));
    CExamplePath path;
    path.AddOptions(options);
    CLI11_PARSE(options, argc, argv);

    if (!CExample::Start() || !path.Open())
        return 2;
    CChargenServer server;
    const MNResult result = CExample::OnNetworkThread([&] { return server.Start(CMNInetAddr("0.0.0.0", port)); });
    if (result != MN_OK)
        return CExample::Fail("the server", result);
    int running = 2;
    const auto atEnd = [&running] {
        if (--running == 0)
            CExample::Stop();
    };
    CReader stream(CONNECTION_TYPE_TCP, bytes, atEnd);
    CReader packets(CONNECTION_TYPE_UDP, datagrams, atEnd);
    const bool serving = bytes == 0 && datagrams == 0;
    const CMNInetAddr own("127.0.0.1", port);
    if (!serving && (stream.Start(own) != MN_OK || packets.Start(own) != MN_OK))
        return CExample::Fail("the readers", MN_ERROR_FAILURE);
    CExample::Run();
    CExample::OnNetworkThread([&server] {
        server.Stop();
        return MN_OK;
    });
    std::printf("chargen: %" PRIu64 " characters over TCP, %" PRIu64 " datagrams, %s\n", stream.GetRead(),
                packets.GetRead(),
                stream.IsRight() && packets.IsRight() ? "all of them right" : "not all of them right");
    return serving || (stream.IsRight() && packets.IsRight()) ? 0 : 1;
}
