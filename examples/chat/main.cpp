// chat: a room full of people in one process. Reads a script from the standard input or from a file, lets its speakers
// join and talk over TCP on the embedded stack, and prints each line once everybody has heard it.
#include <cstdio>
#include <fstream>
#include <iostream>

#include <ipstack/ipstack.h>

#include "CChatScript.h"
#include "CChatServer.h"

using namespace uxport;

namespace
{

constexpr int WORKERS = 2;
const CMNInetAddr SERVER("127.0.0.1", 7100);

int Talk(std::istream& input)
{
    mantle::CMNThreadUser* thread = mantle::CMNThreadUser::AdoptCurrentThread();
    if (ipstack::IIPStackManager::Instance()->Startup(ipstack::CIPStackSettings()) != MN_OK ||
        IPSConnectionManager::Instance()->Init(1) != MN_OK)
        return 1;
    auto* server = new CChatServer(SERVER, WORKERS);  // the thread manager's
    if (server->Create(mantle::CMNThreadManager::Instance()->GetNewThreadType()) != MN_OK || !server->IsListening())
        return 1;
    CChatScript script(SERVER, input, *thread);
    script.Start();
    thread->RunEventLoop();
    server->Stop();
    server->Join();
    return script.IsDone() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc > 2) {
        std::fprintf(stderr, "usage: chat [SCRIPT]\n");
        return 2;
    }
    if (argc == 1)
        return Talk(std::cin);
    std::ifstream file(argv[1]);
    if (!file) {
        std::fprintf(stderr, "chat: cannot read %s\n", argv[1]);
        return 2;
    }
    return Talk(file);
}
