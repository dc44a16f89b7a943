#include "tests/unit/scripted/ScriptedStackTest.h"

#include <mutex>

#include "mantle/CMNEnsureSingleThread.h"
#include "mantle/CMNReferenceControl.h"
#include "mantle/CMNThreadManager.h"

using mantle::CMNEnsureSingleThread;
using mantle::CMNLiveObjects;
using mantle::CMNSingleThreadReport;
using mantle::CMNThreadManager;

namespace
{

std::mutex g_mutexReports;
std::vector<std::string> g_Reports;
CMNEnsureSingleThread::FHandler g_HandlerBefore = nullptr;

void KeepReport(const CMNSingleThreadReport& report)
{
    std::lock_guard<std::mutex> lock(g_mutexReports);
    g_Reports.emplace_back(report.m_szPlace);
}

}  // namespace

ScriptedStackTest::ScriptedStackTest()
{
    {
        std::lock_guard<std::mutex> lock(g_mutexReports);
        g_Reports.clear();
    }
    g_HandlerBefore = CMNEnsureSingleThread::SetHandler(KeepReport);
    m_Stack.Reset();
    m_pThreadBefore = CMNThreadManager::Instance()->AttachCurrentThread(&m_Thread);
    m_lLiveBefore = CMNLiveObjects::Count();
}

ScriptedStackTest::~ScriptedStackTest()
{
    CMNThreadManager::Instance()->AttachCurrentThread(m_pThreadBefore);
    CMNEnsureSingleThread::SetHandler(g_HandlerBefore);
}

void ScriptedStackTest::SetUp() {}

void ScriptedStackTest::TearDown()
{
    FireDueTimers();
    EXPECT_EQ(NewLiveObjects(), 0) << "counted objects left alive";
    EXPECT_EQ(m_Stack.Leftovers(), CCalls()) << "answers of the script that no call asked for";
    const CCalls reports = Reports();
    EXPECT_EQ(reports.size(), m_dwExpectedReports) << "failed checks: " << testing::PrintToString(reports);
}

std::vector<std::string> ScriptedStackTest::Reports()
{
    std::lock_guard<std::mutex> lock(g_mutexReports);
    return g_Reports;
}

void ScriptedStackTest::FireDueTimers()
{
    while (m_Thread.OwnTimers().CheckExpire() != 0) {
    }
}

long ScriptedStackTest::NewLiveObjects() const
{
    return CMNLiveObjects::Count() - m_lLiveBefore;
}
