// The one real network thread of the process, which does what the test says and nothing else.
#ifndef TESTS_UNIT_PROXY_CNETWORKTHREAD_H
#define TESTS_UNIT_PROXY_CNETWORKTHREAD_H

#include <condition_variable>
#include <functional>
#include <mutex>

#include "manager/CPSConnectionManager.h"
#include "uxport/PSDefines.h"

namespace uxport
{
class CPSReactorBase;
}

// The singleton manager's network thread, held in one event of its own loop: it makes no call of the stack on its
// own account, so that the scripted stack may be reset between cases. It ends with the process. A hand-moved clock moves
// by Advance only while it is held.
class CNetworkThread
{
public:
    // Made on first use, on a stack whose pipes this enables for that moment.
    static CNetworkThread& Instance();

    // Runs `function` on the network thread and waits for it. Thread: one at a time.
    void Run(const std::function<void()>& function);

    // The manager's reactor, whose loop is held up.
    uxport::CPSReactorBase& GetReactor() const { return *m_pReactor; }

    // Whether a timer of the reactor is due; fires those that are.
    bool IsTimerDue();
    void FireTimers();

    // Whether a handler is registered under a handle, and tells it of `mask` as the loop would.
    bool IsRegistered(int handle) const;
    uxport::MNResult Report(int handle, long mask);

private:
    CNetworkThread();
    void Hold();

    uxport::CPSReactorBase* m_pReactor;
    std::mutex m_Mutex;
    std::condition_variable m_Changed;
    const std::function<void()>* m_pFunction = nullptr;
    bool m_bHeld = false;
};

#endif
