// The thread object of a test's own thread.
#ifndef TESTS_UNIT_SCRIPTED_CTESTTHREAD_H
#define TESTS_UNIT_SCRIPTED_CTESTTHREAD_H

#include "mantle/CMNThread.h"
#include "mantle/CMNTimerQueueOrderedList.h"
#include "uxport/IPSReactor.h"

// Its queues are what the test says: a reactor, or a timer queue of its own (the start) and no event queue.
class CTestThread : public mantle::CMNThread
{
public:
    // Both queues; null puts the own timer queue back.
    void UseReactor(uxport::IPSReactor* reactor)
    {
        m_pEventQueue = reactor;
        m_pTimerQueue = reactor ? static_cast<mantle::IMNTimerQueue*>(reactor) : &m_OwnTimers;
    }
    void UseTimerQueue(mantle::IMNTimerQueue* queue) { m_pTimerQueue = queue; }
    void UseEventQueue(mantle::IMNEventQueue* queue) { m_pEventQueue = queue; }

    mantle::IMNEventQueue* GetEventQueue() override { return m_pEventQueue; }
    mantle::IMNTimerQueue* GetTimerQueue() override { return m_pTimerQueue; }
    mantle::CMNTimerQueueOrderedList& OwnTimers() { return m_OwnTimers; }

private:
    mantle::CMNTimerQueueOrderedList m_OwnTimers{nullptr};
    mantle::IMNEventQueue* m_pEventQueue = nullptr;
    mantle::IMNTimerQueue* m_pTimerQueue = &m_OwnTimers;
};

#endif
