// udp-echo: a server of many peers (RFC 862) and its clients, all of them main's.
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
    CExamplePath path;
    path.AddOptions(options);
    CLI11_PARSE(options, argc, argv);

    if (!CExample::Start() || !path.Open())
        return 2;
    CEchoServer server;
    if (const MNResult result = server.Start(CMNInetAddr("0.0.0.0", port)); result != MN_OK)
        return CExample::Fail("the server", result);
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

    long answered = 0;
    for (const CEchoClient& client : clients)
        answered += client.GetAnswered();
    const long said = static_cast<long>(peers) * lines;
    std::printf("udp-echo: %zu peers, %ld datagrams, %ld answered\n", server.ForgetPeers(), said, answered);
    return answered == said ? 0 : 1;
}
