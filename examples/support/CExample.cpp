#include "CExample.h"

#include <csignal>
#include <cstdio>
#include <thread>
#include <utility>

using namespace uxport;
using mantle::CMNThreadUser;

namespace
{

// A function as an event.
class CCall : public IMNEvent
{
public:
    explicit CCall(std::function<MNResult()> function) : m_Function(std::move(function)) {}
    MNResult OnEventFire() override { return m_Function(); }

private:
    std::function<MNResult()> m_Function;
};

}  // namespace

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

MNResult CExample::OnNetworkThread(std::function<MNResult()> function)
{
    return IPSConnectionManager::Instance()->GetReactor()->SendEvent(new CCall(std::move(function)));
}

int CExample::Fail(const std::string& what, MNResult result)
{
    std::fprintf(stderr, "%s: %s (%lu)\n", what.c_str(), mantle::MNResultText(result), result);
    return 2;
}
