// The network thread that the benchmarks measure on.
#ifndef BENCH_CBENCHNETWORK_H
#define BENCH_CBENCHNETWORK_H

#include <functional>

#include "mantle/mantle.h"
#include "reactor/CPSReactorPoll.h"
#include "uxport/uxport.h"

// The stack and the manager with one network thread, started once in the process.
class CBenchNetwork
{
public:
    static CBenchNetwork& Instance();

    uxport::CPSReactorPoll& GetReactor() { return *m_pReactor; }

    // Runs `work` on the network thread and returns when somebody there has called Done. Thread: main.
    void Run(const std::function<void()>& work);

    // Ends the Run under way. Thread: the network thread.
    void Done();

    // Runs `work` there and waits until it has run.
    void RunNow(const std::function<void()>& work);

private:
    CBenchNetwork();

    uxport::CPSReactorPoll* m_pReactor;
    mantle::CMNEventThread m_Done{0, 0};
};

// Work as an event.
class CBenchEvent : public mantle::IMNEvent
{
public:
    explicit CBenchEvent(std::function<void()> work) : m_fWork(std::move(work)) {}

    mantle::MNResult OnEventFire() override
    {
        m_fWork();
        return mantle::MN_OK;
    }

private:
    std::function<void()> m_fWork;
};

#endif
