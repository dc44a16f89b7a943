// What the tests of both loops share.
#ifndef TESTS_UNIT_REACTOR_REACTORLOOPSUPPORT_H
#define TESTS_UNIT_REACTOR_REACTORLOOPSUPPORT_H

#include <functional>
#include <memory>
#include <string>

#include "reactor/CPSReactorPoll.h"
#include "reactor/CPSReactorSelect.h"
#include "tests/unit/scripted/ScriptedStackTest.h"

using CReactors = testing::Types<uxport::CPSReactorPoll, uxport::CPSReactorSelect>;

struct CReactorNames
{
    template <class Reactor>
    static std::string GetName(int index)
    {
        return index == 0 ? "Poll" : "Select";
    }
};

// A reactor of either kind on working pipes and real waits; calls are counted, not kept.
template <class Reactor>
class CReactorLoopTestT : public ScriptedStackTest
{
protected:
    static constexpr int WRITE_END = 102;  // of the first pipe that is opened

    CReactorLoopTestT() : m_pReactor(std::make_unique<Reactor>())
    {
        m_Stack.EnablePipes();
        m_Stack.SetRecording(false);
    }
    ~CReactorLoopTestT() override
    {
        m_pReactor.reset();
        EXPECT_EQ(m_Counts.m_nAlive, 0);
    }

    void Post(std::function<void()> function = nullptr)
    {
        EXPECT_EQ(m_pReactor->PostEvent(new CTestEvent(m_Counts,
                                                       [function] {
                                                           if (function)
                                                               function();
                                                           return uxport::MN_OK;
                                                       })),
                  uxport::MN_OK);
    }
    void PostStop()
    {
        Post([this] { m_pReactor->StopEventLoop(); });
    }

    // The stack's call that this reactor waits in.
    static const char* Wait() { return Name(static_cast<const Reactor*>(nullptr)); }

    CTestEventCounts m_Counts;
    std::unique_ptr<Reactor> m_pReactor;

private:
    static const char* Name(const uxport::CPSReactorPoll*) { return "ps_poll"; }
    static const char* Name(const uxport::CPSReactorSelect*) { return "ps_select"; }
};

#endif
