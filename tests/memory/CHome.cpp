#include "tests/memory/CHome.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>

#include "tests/memory/CAllocationFault.h"

using namespace uxport;

namespace
{

constexpr int SETTLE_ROUNDS = 4;

std::atomic<int> g_nComplaints{0};

class CWork : public mantle::IMNEvent
{
public:
    CWork(const std::function<void()>& work, mantle::CMNEventThread& done) : m_fWork(work), m_Done(done) {}

    mantle::MNResult OnEventFire() override
    {
        const CTestScope test;
        m_fWork();
        m_Done.Signal();
        return mantle::MN_OK;
    }

private:
    const std::function<void()>& m_fWork;
    mantle::CMNEventThread& m_Done;
};

// Ends a run of main's loop.
class CLimit : public mantle::CMNTimerWrapperIDSink
{
public:
    explicit CLimit(mantle::CMNThreadUser& thread) : m_Thread(thread) {}
    void OnTimer(mantle::CMNTimerWrapperID*) override
    {
        m_bReached = true;
        m_Thread.Stop();
    }

    bool m_bReached = false;

private:
    mantle::CMNThreadUser& m_Thread;
};

mantle::CMNThreadUser& Main()
{
    return *mantle::CMNThreadUser::AdoptCurrentThread();
}

}  // namespace

void Complain(const char* format, ...)
{
    const CTestScope test;
    va_list arguments;
    va_start(arguments, format);
    std::printf("  wrong: ");
    std::vprintf(format, arguments);
    std::printf("\n");
    va_end(arguments);
    ++g_nComplaints;
}

int GetComplaints()
{
    return g_nComplaints.load();
}

CHome::CHome(bool network) : m_bNetwork(network) {}

void CHome::RunOnNetwork(const std::function<void()>& work)
{
    mantle::CMNEventThread done(1, 0);
    IPSConnectionManager::Instance()->GetReactor()->PostEvent(new CWork(work, done));
    done.Wait();
}

void CHome::Run(const std::function<void()>& work)
{
    if (m_bNetwork)
        RunOnNetwork(work);
    else
        work();
}

bool CHome::WaitFor(const std::function<bool()>& predicate, long seconds)
{
    bool reached = false;
    Run([&] {
        reached = predicate();
        if (!reached)
            m_fPredicate = predicate;
    });
    if (reached)
        return true;
    const CMNTimeValue limit(seconds, 0);
    if (m_bNetwork) {
        reached = m_Changed.Wait(&limit) == MN_OK;
        Run([&] {
            if (!reached && !m_fPredicate) {  // between the limit and now
                m_Changed.Reset();
                reached = true;
            }
            m_fPredicate = nullptr;
        });
        return reached;
    }
    CLimit sink(Main());
    mantle::CMNTimerWrapperID timer;
    timer.Schedule(&sink, limit, 1);
    {
        const CLibraryScope library;
        Main().RunEventLoop();
    }
    timer.Cancel();
    reached = !m_fPredicate;
    m_fPredicate = nullptr;
    return reached;
}

void CHome::Poke()
{
    if (!m_fPredicate || !m_fPredicate())
        return;
    m_fPredicate = nullptr;
    if (m_bNetwork)
        m_Changed.Signal();
    else
        Main().Stop();
}

void CHome::Settle()
{
    for (int round = 0; round < SETTLE_ROUNDS; ++round) {
        {
            const CLibraryScope library;
            Main().RunPending();
        }
        mantle::CMNClock::Sleep(CMNTimeValue(0, 1000));
        RunOnNetwork([] {});
    }
}
