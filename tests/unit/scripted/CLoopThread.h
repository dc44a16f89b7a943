// A thread that opens a reactor, runs its loop and closes it.
#ifndef TESTS_UNIT_SCRIPTED_CLOOPTHREAD_H
#define TESTS_UNIT_SCRIPTED_CLOOPTHREAD_H

#include <future>
#include <thread>

#include "mantle/CMNClock.h"
#include "tests/unit/scripted/CTestThread.h"
#include "uxport/IPSReactor.h"

// The pipes of the scripted stack must be enabled. The thread has a thread object whose queues are the reactor.
class CLoopThread
{
public:
    // Returns once the reactor is open.
    explicit CLoopThread(uxport::IPSReactor& reactor) : m_Reactor(reactor)
    {
        std::promise<uxport::MNResult> opened;
        m_Thread = std::thread([this, &opened] { Run(opened); });
        m_dwOpened = opened.get_future().get();
    }
    ~CLoopThread() { Stop(); }
    CLoopThread(const CLoopThread&) = delete;
    CLoopThread& operator=(const CLoopThread&) = delete;

    // What Open returned.
    uxport::MNResult GetOpened() const { return m_dwOpened; }

    // Stops the loop and waits for the end. Returns: what RunEventLoop returned.
    uxport::MNResult Stop()
    {
        if (m_Thread.joinable()) {
            m_Reactor.StopEventLoop();
            m_Thread.join();
        }
        return m_dwRun;
    }

    // Waits for a loop that ends by itself. Returns: what RunEventLoop returned.
    uxport::MNResult Join()
    {
        if (m_Thread.joinable())
            m_Thread.join();
        return m_dwRun;
    }

    unsigned long GetId() const { return m_dwId; }

private:
    void Run(std::promise<uxport::MNResult>& opened)
    {
        mantle::CMNClockParticipant participant;
        CTestThread object;
        object.UseReactor(&m_Reactor);
        mantle::CMNThread* before = mantle::CMNThreadManager::Instance()->AttachCurrentThread(&object);
        m_dwId = mantle::CMNThreadManager::GetThreadSelfId();
        opened.set_value(m_Reactor.Open());
        m_dwRun = m_Reactor.RunEventLoop();
        m_Reactor.Close();
        mantle::CMNThreadManager::Instance()->AttachCurrentThread(before);
    }

    uxport::IPSReactor& m_Reactor;
    std::thread m_Thread;
    unsigned long m_dwId = 0;
    uxport::MNResult m_dwOpened = 0;
    uxport::MNResult m_dwRun = 0;
};

#endif
