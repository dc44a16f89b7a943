// What the tests of mantle share.
#ifndef TESTS_MANTLETEST_H
#define TESTS_MANTLETEST_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "mantle/CMNEventThread.h"
#include "mantle/CMNMutexThread.h"
#include "mantle/CMNThreadUser.h"
#include "mantle/IMNEvent.h"
#include "mantle/IMNTimerQueue.h"

namespace mantle
{

// The longest that a test waits for what must come.
inline const CMNTimeValue s_tvLimit(20, 0);

// Runs a function; says what happened to it.
class CTestEvent : public IMNEvent
{
public:
    struct CCounts
    {
        std::atomic<int> m_nFired{0};
        std::atomic<int> m_nDestroyed{0};
    };

    explicit CTestEvent(std::function<void()> run = {}, CCounts* counts = nullptr, MNResult result = MN_OK)
        : m_Run(std::move(run)), m_pCounts(counts), m_Result(result)
    {
    }
    MNResult OnEventFire() override
    {
        if (m_pCounts)
            ++m_pCounts->m_nFired;
        if (m_Run)
            m_Run();
        return m_Result;
    }
    void OnDestorySelf() override
    {
        if (m_pCounts)
            ++m_pCounts->m_nDestroyed;
        delete this;
    }

private:
    std::function<void()> m_Run;
    CCounts* m_pCounts;
    MNResult m_Result;
};

// Runs a function when destroyed without having run.
class CAtDestroy : public IMNEvent
{
public:
    explicit CAtDestroy(std::function<void()> run) : m_Run(std::move(run)) {}
    MNResult OnEventFire() override
    {
        m_Run = nullptr;
        return MN_OK;
    }
    void OnDestorySelf() override
    {
        std::function<void()> run = std::move(m_Run);
        delete this;
        if (run)
            run();
    }

private:
    std::function<void()> m_Run;
};

class CTestTimer : public IMNTimerHandler
{
public:
    explicit CTestTimer(std::function<void()> run = {}) : m_Run(std::move(run)) {}
    void OnTimeout(const CMNTimeValue& now, void* arg) override
    {
        ++m_nFired;
        m_tvNow = now;
        m_pArg = arg;
        if (m_Run)
            m_Run();
    }

    std::function<void()> m_Run;
    int m_nFired = 0;
    CMNTimeValue m_tvNow;
    void* m_pArg = nullptr;
};

// A network thread in miniature: runs a function.
class CTestThread : public CMNThread
{
public:
    explicit CTestThread(std::function<void()> run = {}) : m_Run(std::move(run)) {}
    void OnThreadRun() override
    {
        if (m_Run)
            m_Run();
    }

    std::function<void()> m_Run;
};

// One that runs until it is stopped.
class CStoppableThread : public CMNThread
{
public:
    explicit CStoppableThread(std::function<void()> atEnd = {}) : m_AtEnd(std::move(atEnd)) {}
    void OnThreadRun() override
    {
        m_Stop.Wait();
        if (m_AtEnd)
            m_AtEnd();
    }
    MNResult Stop(CMNTimeValue*) override { return m_Stop.Signal(); }

private:
    CMNEventThread m_Stop{1, 0};
    std::function<void()> m_AtEnd;
};

// Lines that several threads write.
class CLog
{
public:
    void Add(const std::string& line)
    {
        CMNMutexGuard guard(m_Mutex);
        m_Lines.push_back(line);
    }
    std::vector<std::string> Get()
    {
        CMNMutexGuard guard(m_Mutex);
        return m_Lines;
    }

private:
    CMNMutexThread m_Mutex;
    std::vector<std::string> m_Lines MN_GUARDED_BY(m_Mutex);
};

// The calling thread as a user thread, while the object lives.
class CAdopted
{
public:
    CAdopted() : m_pThread(CMNThreadUser::AdoptCurrentThread()) {}
    ~CAdopted() { CMNThreadManager::Instance()->AttachCurrentThread(nullptr); }
    CAdopted(const CAdopted&) = delete;
    CAdopted& operator=(const CAdopted&) = delete;
    CMNThreadUser* operator->() const { return m_pThread; }
    CMNThreadUser* Get() const { return m_pThread; }

private:
    CMNThreadUser* m_pThread;
};

// Catches failed single-thread checks while it lives.
class CCatchReports
{
public:
    CCatchReports() : m_pBefore(CMNEnsureSingleThread::SetHandler(&Catch)) { Reports().clear(); }
    ~CCatchReports() { CMNEnsureSingleThread::SetHandler(m_pBefore); }
    CCatchReports(const CCatchReports&) = delete;
    CCatchReports& operator=(const CCatchReports&) = delete;

    static std::vector<CMNSingleThreadReport>& Reports()
    {
        static std::vector<CMNSingleThreadReport> s_Reports;
        return s_Reports;
    }

private:
    static void Catch(const CMNSingleThreadReport& report) { Reports().push_back(report); }

    CMNEnsureSingleThread::FHandler m_pBefore;
};

}  // namespace mantle

#endif
