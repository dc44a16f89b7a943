// Handlers and a reactor without a loop for the tests of this folder.
#ifndef TESTS_UNIT_REACTOR_REACTORSUPPORT_H
#define TESTS_UNIT_REACTOR_REACTORSUPPORT_H

#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "reactor/CPSReactorBase.h"
#include "uxport/IPSEventHandler.h"

using CTexts = std::vector<std::string>;

// Keeps what is called: "in 5", "out 5", "close 5,4". Returns what its functions return, 0 without.
class CTestHandler : public uxport::IPSEventHandler
{
public:
    explicit CTestHandler(int handle, CTexts* log = nullptr) : m_nHandle(handle), m_pLog(log ? log : &m_Own) {}

    int GetHandle() const override { return m_nHandle; }
    int OnInput(int handle) override
    {
        m_pLog->push_back("in " + std::to_string(handle));
        const auto function = m_Input;
        return function ? function() : 0;
    }
    int OnOutput(int handle) override
    {
        m_pLog->push_back("out " + std::to_string(handle));
        const auto function = m_Output;
        return function ? function() : 0;
    }
    int OnClose(int handle, long mask) override
    {
        m_pLog->push_back("close " + std::to_string(handle) + "," + std::to_string(mask));
        const auto function = m_Close;
        return function ? function() : 0;
    }

    CTexts TakeCalls() { return std::exchange(*m_pLog, CTexts()); }

    int m_nHandle;
    std::function<int()> m_Input;
    std::function<int()> m_Output;
    std::function<int()> m_Close;

private:
    CTexts m_Own;
    CTexts* m_pLog;
};

// Calls a function on expiry.
class CTestTimer : public uxport::IMNTimerHandler
{
public:
    explicit CTestTimer(std::function<void()> function = nullptr) : m_Function(std::move(function)) {}
    void OnTimeout(const uxport::CMNTimeValue&, void*) override
    {
        ++m_nFired;
        if (m_Function)
            m_Function();
    }

    int m_nFired = 0;

private:
    std::function<void()> m_Function;
};

// The base alone: keeps what it asks of the deriving class; its stop flag can be set.
class CTestReactor : public uxport::CPSReactorBase
{
public:
    ~CTestReactor() override { DestoryPendingEvents(); }

    uxport::MNResult NotifyHandler(uxport::IPSEventHandler* handler, long mask) override
    {
        m_Log.push_back("notify " + std::to_string(handler ? handler->GetHandle() : -1) + "," + std::to_string(mask));
        return m_dwNotify;
    }
    uxport::MNResult RunEventLoop() override { return uxport::MN_OK; }
    uxport::MNResult StopEventLoop() override { return uxport::MN_OK; }
    void OnHandleRemoved(int handle) override { m_Log.push_back("removed " + std::to_string(handle)); }
    uxport::MNResult OnHandleRegister(int handle, long mask, uxport::IPSEventHandler* handler) override
    {
        m_Log.push_back("register " + std::to_string(handle) + "," + std::to_string(mask) + (handler ? "" : ",null"));
        return m_dwRegister;
    }

    // What the table holds for a handle.
    bool IsRegistered(int handle)
    {
        uxport::CPSEventHandlerRepository::CElement element;
        return m_Repository.Find(handle, element);
    }
    long GetMask(int handle)
    {
        uxport::CPSEventHandlerRepository::CElement element;
        return m_Repository.Find(handle, element) ? element.m_Mask : 0;
    }
    const uxport::IPSEventHandler* GetHandler(int handle)
    {
        uxport::CPSEventHandlerRepository::CElement element;
        return m_Repository.Find(handle, element) ? element.m_pEh : nullptr;
    }
    void StopQueue() { m_dwStopped.store(1); }

    CTexts TakeLog() { return std::exchange(m_Log, CTexts()); }

    CTexts m_Log;
    uxport::MNResult m_dwNotify = uxport::MN_OK;
    uxport::MNResult m_dwRegister = uxport::MN_OK;
};

// The 16 bytes of a wake-up record.
inline std::string WakeRecord(int handle, long mask)
{
    std::string record(16, '\0');
    const std::int32_t first = handle;
    const std::int64_t second = mask;
    std::memcpy(&record[0], &first, sizeof first);
    std::memcpy(&record[8], &second, sizeof second);
    return record;
}

#endif
