// A thread that opens a reactor, runs its loop and closes it.
#ifndef TESTS_UNIT_SCRIPTED_CLOOPTHREAD_H
#define TESTS_UNIT_SCRIPTED_CLOOPTHREAD_H

#include <thread>

#include "mantle/CMNClock.h"
#include "mantle/CMNEventThread.h"
#include "tests/unit/scripted/CTestThread.h"
#include "uxport/IPSReactor.h"

// The pipes of the scripted stack must be enabled. The thread has a thread object whose queues are the reactor.
// Every wait is one of the framework's, so that the hand-moved clock goes on meanwhile.
class CLoopThread
{
public:
    // Returns once the reactor is open.
    explicit CLoopThread(uxport::IPSReactor& reactor) : m_Reactor(reactor)
    {
        m_Thread = std::thread([this] { Run(); });
        m_Opened.Wait();
    }
    ~CLoopThread() { Stop(); }
    CLoopThread(const CLoopThread&) = delete;
    CLoopThread& operator=(const CLoopThread&) = delete;

    // What Open returned.
    uxport::MNResult GetOpened() const { return m_dwOpened; }

    // Stops the loop and waits for the end. Returns: what RunEventLoop returned.
    uxport::MNResult Stop()
    {
        if (m_Thread.joinable())
            m_Reactor.StopEventLoop();
        return Join();
    }

    // Waits for a loop that ends by itself. Returns: what RunEventLoop returned.
    uxport::MNResult Join()
    {
        if (m_Thread.joinable()) {
            m_Ended.Wait();
            m_Thread.join();
        }
        return m_dwRun;
    }

    unsigned long GetId() const { return m_dwId; }

private:
    void Run()
    {
        mantle::CMNClockParticipant participant;
        CTestThread object;
        object.UseReactor(&m_Reactor);
        mantle::CMNThread* before = mantle::CMNThreadManager::Instance()->AttachCurrentThread(&object);
        m_dwId = mantle::CMNThreadManager::GetThreadSelfId();
        m_dwOpened = m_Reactor.Open();
        m_Opened.Signal();
        m_dwRun = m_Reactor.RunEventLoop();
        m_Reactor.Close();
        mantle::CMNThreadManager::Instance()->AttachCurrentThread(before);
        m_Ended.Signal();
    }

    uxport::IPSReactor& m_Reactor;
    std::thread m_Thread;
    mantle::CMNEventThread m_Opened{1, 0};
    mantle::CMNEventThread m_Ended{1, 0};
    unsigned long m_dwId = 0;
    uxport::MNResult m_dwOpened = 0;
    uxport::MNResult m_dwRun = 0;
};

#endif
