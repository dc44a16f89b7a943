// The manager's own network thread on the scripted stack, for cases that end with the process.
#ifndef TESTS_UNIT_DOUBLES_SCRIPTEDNETWORK_H
#define TESTS_UNIT_DOUBLES_SCRIPTEDNETWORK_H

#include <gtest/gtest.h>

#include <functional>
#include <utility>

#include "mantle/CMNThreadUser.h"
#include "tests/unit/scripted/CScriptedStack.h"
#include "tests/unit/scripted/CTestEvent.h"
#include "uxport/IPSConnectionManager.h"
#include "uxport/IPSReactor.h"

// Adopts the calling thread and starts the network thread; the next socket gets `nextHandle`.
inline void StartScriptedNetwork(int nextHandle)
{
    CScriptedStack& stack = CScriptedStack::Instance();
    stack.Reset();
    stack.EnablePipes();
    stack.SetNextHandle(1001);
    ASSERT_NE(mantle::CMNThreadUser::AdoptCurrentThread(), nullptr);
    ASSERT_EQ(uxport::IPSConnectionManager::Instance()->Init(1), uxport::MN_OK);
    stack.SetNextHandle(nextHandle);
}

// Runs `function` on the network thread and waits for it.
inline void OnScriptedNetwork(std::function<void()> function)
{
    uxport::IPSReactor* reactor = uxport::IPSConnectionManager::Instance()->GetReactor();
    ASSERT_EQ(reactor->SendEvent(new CTestCall(std::move(function))), uxport::MN_OK);
}

#endif
