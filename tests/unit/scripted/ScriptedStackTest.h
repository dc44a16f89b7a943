// The fixture of every test on the scripted stack.
#ifndef TESTS_UNIT_SCRIPTED_SCRIPTEDSTACKTEST_H
#define TESTS_UNIT_SCRIPTED_SCRIPTEDSTACKTEST_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/unit/scripted/CScriptedStack.h"
#include "tests/unit/scripted/CTestEvent.h"
#include "tests/unit/scripted/CTestThread.h"

// Resets the stack; gives the test's thread an object; lets a failed single-thread check, an answer left over and
// a counted object left alive fail the test.
class ScriptedStackTest : public testing::Test
{
protected:
    using CCalls = std::vector<std::string>;

    ScriptedStackTest();
    ~ScriptedStackTest() override;

    void SetUp() override;
    void TearDown() override;

    // The number of failed checks (and releases below 0) that the test causes on purpose; 0 at the start.
    void ExpectReports(unsigned int count) { m_dwExpectedReports = count; }
    static std::vector<std::string> Reports();  // their places, in order

    // Fires what is due on the own timer queue of the test's thread, deferred deletions among it, until nothing is.
    void FireDueTimers();

    // Counted objects made since the start of the test and still alive.
    long NewLiveObjects() const;

    CScriptedStack& m_Stack = CScriptedStack::Instance();
    CTestThread m_Thread;

private:
    mantle::CMNThread* m_pThreadBefore = nullptr;
    long m_lLiveBefore = 0;
    unsigned int m_dwExpectedReports = 0;
};

#endif
