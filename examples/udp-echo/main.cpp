// udp-echo: a server of many peers (RFC 862) on the network thread, and its clients, which are main's.
#include <cstdio>
#include <list>

#include <CLI/CLI.hpp>

#include "CEchoClient.h"
#include "CEchoServer.h"
#include "CExamplePath.h"

using namespace uxport;

int main(int argc, char** argv)
{
    CLI::App options(
        "A UDP echo server and its clients on the embedded stack. Without clients it serves until "
        "it is interrupted.");
    int peers = 3;
    int lines = 4;
    unsigned short port = 7;
    options.add_option("--peers", peers, "clients")->capture_default_str()->check(CLI::Range(0, 4000));
    options.add_option("--lines", lines, "datagrams of each")->capture_default_str()->check(CLI::Range(1, 1000000));
    options.add_option("--port", port, "of the server")->capture_default_str()->check(CLI::Range(1, 65535));
    std::size_t most = 10000;
    long idle = 60;
    options.add_option("--most", most, "peers that the server knows at a time; the longest silent gives way")
        ->capture_default_str()
        ->check(CLI::Range(1, 1000000));
    options.add_option("--idle", idle, "seconds without a datagram until it forgets one")
        ->capture_default_str()
        ->check(CLI::Range(1, 1000000));
    CExamplePath path;
    path.AddOptions(options);
    CLI11_PARSE(options, argc, argv);

    if (!CExample::Start() || !path.Open())
        return 2;
    CEchoServer server(most, idle);
    const MNResult started = CExample::OnNetworkThread([&] { return server.Start(CMNInetAddr("0.0.0.0", port)); });
    if (started != MN_OK)
        return CExample::Fail("the server", started);
    int running = peers;
    std::list<CEchoClient> clients;
    for (int i = 1; i <= peers; ++i) {
        clients.emplace_back(i, lines, [&running] {
            if (--running == 0)
                CExample::Stop();
        });
        if (const MNResult result = clients.back().Start(CMNInetAddr("127.0.0.1", port)); result != MN_OK)
            return CExample::Fail("a client", result);
    }
    CExample::Run();
    CExample::OnNetworkThread([&server] { return server.Stop(); });

    long answered = 0;
    for (const CEchoClient& client : clients)
        answered += client.GetAnswered();
    const long said = static_cast<long>(peers) * lines;
    std::printf("udp-echo: %zu peers, %ld datagrams, %ld answered\n", server.GetMost(), said, answered);
    std::printf("udp-echo: %lu peers gave way to others, %lu fell silent\n", server.GetDisplaced(), server.GetIdle());
    return answered == said ? 0 : 1;
}
