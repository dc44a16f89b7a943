// The fixture of the connection manager's tests.
#ifndef TESTS_UNIT_DOUBLES_MANAGERTEST_H
#define TESTS_UNIT_DOUBLES_MANAGERTEST_H

#include <functional>
#include <memory>
#include <vector>

#include "manager/CPSConnectionManager.h"
#include "mantle/CMNThread.h"
#include "mantle/CMNThreadManager.h"
#include "tests/unit/scripted/ScriptedStackTest.h"
#include "uxport/IPSReactor.h"

// A manager of the test's own. Its network threads run on the scripted stack's pipes and are stopped and joined
// before it goes.
class ManagerTest : public ScriptedStackTest
{
protected:
    void SetUp() override
    {
        m_Stack.EnablePipes();
        m_nFirstType = mantle::CMNThreadManager::Instance()->GetNewThreadType() + 1;
    }
    void TearDown() override
    {
        StopThreads();
        m_pManager.reset();
        ScriptedStackTest::TearDown();
    }

    // The thread objects made since the start of the test, in the order of their creation.
    std::vector<mantle::CMNThread*> Threads() const
    {
        std::vector<mantle::CMNThread*> threads;
        const int last = mantle::CMNThreadManager::Instance()->GetNewThreadType();
        for (int type = m_nFirstType; type < last; ++type) {
            if (mantle::CMNThread* thread = mantle::CMNThreadManager::Instance()->GetThread(type))
                threads.push_back(thread);
        }
        return threads;
    }

    void StopThreads()
    {
        for (mantle::CMNThread* thread : Threads()) {
            thread->Stop();
            EXPECT_EQ(thread->Join(), uxport::MN_OK);
        }
    }

    // Runs `function` on the network thread and waits for it.
    void OnNetworkThread(std::function<void()> function)
    {
        EXPECT_EQ(m_pManager->GetReactor()->SendEvent(new CTestCall(std::move(function))), uxport::MN_OK);
    }

    std::unique_ptr<uxport::CPSConnectionManager> m_pManager = std::make_unique<uxport::CPSConnectionManager>();

private:
    int m_nFirstType = 0;
};

#endif
