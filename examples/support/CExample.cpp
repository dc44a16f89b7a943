#include "CExample.h"

#include <csignal>
#include <cstdio>
#include <thread>

using namespace uxport;
using mantle::CMNThreadUser;

bool CExample::Start()
{
    // Blocked in every thread that is started from here on, so that the one below gets them.
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    CMNThreadUser* main = CMNThreadUser::AdoptCurrentThread();
    std::thread([ends, main] {
        int signal = 0;
        sigwait(&ends, &signal);
        main->Stop();
    }).detach();

    ipstack::IIPStackManager::Instance()->Startup(ipstack::CIPStackSettings());
    const MNResult result = IPSConnectionManager::Instance()->Init(1);
    return result == MN_OK || Fail("the network thread", result) == 0;
}

void CExample::Run()
{
    CMNThreadUser::AdoptCurrentThread()->RunEventLoop();
}

void CExample::Stop()
{
    CMNThreadUser::AdoptCurrentThread()->Stop();
}

int CExample::Fail(const std::string& what, MNResult result)
{
    std::fprintf(stderr, "%s: %s (%lu)\n", what.c_str(), mantle::MNResultText(result), result);
    return 2;
}
