// Sequences of public calls with callbacks that call again, on the network thread and, through the proxies, on a user's.
#include "CFuzzStack.h"
#include "CLibraryRound.h"
#include "mantle/CMNEnsureSingleThread.h"

namespace
{

class CWork : public mantle::IMNEvent
{
public:
    explicit CWork(std::function<void()> work) : m_fWork(std::move(work)) {}
    mantle::MNResult OnEventFire() override
    {
        m_fWork();
        return mantle::MN_OK;
    }

private:
    std::function<void()> m_fWork;
};

void Start()
{
    mantle::CMNEnsureSingleThread::SetHandler(
        [](const mantle::CMNSingleThreadReport& report) { Require(false, report.m_szPlace); });
    CFuzzStack& stack = CFuzzStack::Instance();
    mantle::CMNThreadUser::AdoptCurrentThread();
    Require(uxport::IPSConnectionManager::Instance()->Init(1) == mantle::MN_OK, "the network thread starts");
    mantle::CMNClock::Sleep(mantle::CMNTimeValue(1, 0));  // its pipe is there
    stack.Mark();
}

void RunOnNetworkThread(const std::uint8_t* data, std::size_t size)
{
    uxport::IPSReactor* const reactor = uxport::IPSConnectionManager::Instance()->GetReactor();
    mantle::CMNEventThread done(1, 0);
    std::unique_ptr<CLibraryRound> round;
    const auto end = [&] {
        reactor->PostEvent(new CWork([&] {
            round.reset();
            done.Signal();
        }));
    };
    reactor->PostEvent(new CWork([&] {
        round = std::make_unique<CLibraryRound>(data, size, false, end);
        round->Begin();
    }));
    done.Wait();
}

void RunOnUserThread(const std::uint8_t* data, std::size_t size)
{
    mantle::CMNThreadUser* const thread = mantle::CMNThreadUser::AdoptCurrentThread();
    CLibraryRound round(data, size, true, [thread] { thread->Stop(); });
    round.Begin();
    thread->RunEventLoop();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const bool s_bStarted = (Start(), true);
    if (size == 0 || !s_bStarted) {
        return 0;
    }
    if (data[0] % 2 == 0) {
        RunOnNetworkThread(data + 1, size - 1);
    } else {
        RunOnUserThread(data + 1, size - 1);
    }
    CFuzzStack::Instance().CheckRest();
    return 0;
}
