#include "tests/unit/proxy/CNetworkThread.h"

#include <gtest/gtest.h>

#include <chrono>

#include "mantle/CMNThreadManager.h"
#include "reactor/CPSReactorPoll.h"
#include "tests/unit/scripted/CScriptedStack.h"
#include "tests/unit/scripted/CTestEvent.h"

using uxport::CPSReactorBase;
using uxport::IPSConnectionManager;
using uxport::MN_OK;

namespace
{

constexpr int FIRST_PIPE_HANDLE = 100001;
constexpr std::chrono::milliseconds END_CHECK(20);

// Reaches what the reactor keeps to itself and its kin.
class CPeek : public uxport::CPSReactorPoll
{
public:
    static bool IsTimerDue(CPSReactorBase& reactor)
    {
        uxport::CMNTimeValue remaining = uxport::CMNTimeValue::s_tvMax;
        (reactor.*(&CPeek::m_pTimerQueue))->CheckExpire(&remaining, 0);
        return remaining == uxport::CMNTimeValue::s_tvZero;
    }
    static bool IsRegistered(CPSReactorBase& reactor, int handle)
    {
        uxport::CPSEventHandlerRepository::CElement element;
        return (reactor.*(&CPeek::m_Repository)).Find(handle, element);
    }
};

}  // namespace

CNetworkThread& CNetworkThread::Instance()
{
    static CNetworkThread& thread = *new CNetworkThread;
    return thread;
}

CNetworkThread::CNetworkThread()
{
    CScriptedStack& stack = CScriptedStack::Instance();
    stack.EnablePipes();
    stack.SetNextHandle(FIRST_PIPE_HANDLE);
    IPSConnectionManager* manager = IPSConnectionManager::Instance();
    EXPECT_EQ(manager->Init(1), MN_OK);
    m_pReactor = dynamic_cast<CPSReactorBase*>(manager->GetReactor());
    EXPECT_EQ(m_pReactor->PostEvent(new CTestCall([this] { Hold(); })), MN_OK);
    std::unique_lock<std::mutex> lock(m_Mutex);
    m_Changed.wait(lock, [this] { return m_bHeld; });
    stack.Reset();
}

void CNetworkThread::Hold()
{
    std::unique_lock<std::mutex> lock(m_Mutex);
    m_bHeld = true;
    m_Changed.notify_all();
    while (!mantle::CMNThreadManager::Instance()->IsCleaningUp()) {
        if (!m_Changed.wait_for(lock, END_CHECK, [this] { return m_pFunction != nullptr; }))
            continue;
        const std::function<void()>& function = *m_pFunction;
        lock.unlock();
        function();
        lock.lock();
        m_pFunction = nullptr;
        m_Changed.notify_all();
    }
}

void CNetworkThread::Run(const std::function<void()>& function)
{
    std::unique_lock<std::mutex> lock(m_Mutex);
    m_pFunction = &function;
    m_Changed.notify_all();
    m_Changed.wait(lock, [this] { return m_pFunction == nullptr; });
}

bool CNetworkThread::IsTimerDue()
{
    bool due = false;
    Run([&] { due = CPeek::IsTimerDue(*m_pReactor); });
    return due;
}

void CNetworkThread::FireTimers()
{
    Run([this] { EXPECT_EQ(m_pReactor->ProcessTimerTick(), MN_OK); });
}

bool CNetworkThread::IsRegistered(int handle) const
{
    return CPeek::IsRegistered(*m_pReactor, handle);
}

uxport::MNResult CNetworkThread::Report(int handle, long mask)
{
    uxport::MNResult result = MN_OK;
    Run([&] { result = m_pReactor->ProcessHandleEvent(handle, mask, 0, 0, 0); });
    return result;
}
