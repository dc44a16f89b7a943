// Queues whose events run one at a time, when the test says so.
#ifndef TESTS_UNIT_PROXY_CSTEPREACTOR_H
#define TESTS_UNIT_PROXY_CSTEPREACTOR_H

#include <gtest/gtest.h>

#include <deque>
#include <mutex>

#include "uxport/IPSReactor.h"

// Thread: any, for everything.
class CStepQueue : public mantle::IMNEventQueue
{
public:
    ~CStepQueue() override { DestroyAll(); }

    uxport::MNResult PostEvent(mantle::IMNEvent* event, EPriority priority = EPRIORITY_NORMAL) override
    {
        if (!event)
            return uxport::MN_ERROR_INVALID_ARG;
        EXPECT_EQ(priority, EPRIORITY_NORMAL);
        {
            std::lock_guard<std::mutex> lock(m_Mutex);
            if (!m_bRefusing) {
                m_Events.push_back(event);
                return uxport::MN_OK;
            }
        }
        event->OnDestorySelf();
        return uxport::MN_ERROR_NOT_INITIALIZED;
    }
    uxport::MNResult SendEvent(mantle::IMNEvent* event) override
    {
        ADD_FAILURE() << "nothing may wait";
        event->OnDestorySelf();
        return uxport::MN_ERROR_NOT_INITIALIZED;
    }
    unsigned long GetPendingEventsCount() override
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        return m_Events.size();
    }

    // Whether posts are refused, as by a queue that has been closed.
    void Refuse(bool on)
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        m_bRefusing = on;
    }

    // Runs the oldest event on the calling thread. Returns: what it returned; 10011 when there is none.
    uxport::MNResult RunOne()
    {
        mantle::IMNEvent* event = Take();
        if (!event)
            return uxport::MN_ERROR_NOT_FOUND;
        const uxport::MNResult result = event->OnEventFire();
        event->OnDestorySelf();
        return result;
    }

    // Destroys what is pending, without running it, until nothing is.
    void DestroyAll()
    {
        while (mantle::IMNEvent* event = Take())
            event->OnDestorySelf();
    }

private:
    mantle::IMNEvent* Take()
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        if (m_Events.empty())
            return nullptr;
        mantle::IMNEvent* event = m_Events.front();
        m_Events.pop_front();
        return event;
    }

    std::mutex m_Mutex;
    std::deque<mantle::IMNEvent*> m_Events;
    bool m_bRefusing = false;
};

// The reactor that a proxy is given: takes posts, and nothing else is asked of it.
class CStepReactor : public uxport::IPSReactor
{
public:
    CStepQueue& Events() { return m_Events; }

    uxport::MNResult PostEvent(mantle::IMNEvent* event, EPriority priority = EPRIORITY_NORMAL) override
    {
        return m_Events.PostEvent(event, priority);
    }
    uxport::MNResult SendEvent(mantle::IMNEvent* event) override { return m_Events.SendEvent(event); }
    unsigned long GetPendingEventsCount() override { return m_Events.GetPendingEventsCount(); }

    uxport::MNResult ScheduleTimer(mantle::IMNTimerHandler*, void*, const uxport::CMNTimeValue&, unsigned long) override
    {
        return Unexpected();
    }
    uxport::MNResult CancelTimer(mantle::IMNTimerHandler*) override { return Unexpected(); }
    long GetReactorType() override { return 0; }
    uxport::MNResult Open() override { return Unexpected(); }
    uxport::MNResult RegisterHandler(uxport::IPSEventHandler*, long) override { return Unexpected(); }
    uxport::MNResult RemoveHandler(uxport::IPSEventHandler*, long) override { return Unexpected(); }
    uxport::MNResult NotifyHandler(uxport::IPSEventHandler*, long) override { return Unexpected(); }
    uxport::MNResult RunEventLoop() override { return Unexpected(); }
    uxport::MNResult StopEventLoop() override { return Unexpected(); }
    uxport::MNResult Close() override { return Unexpected(); }

private:
    static uxport::MNResult Unexpected()
    {
        ADD_FAILURE() << "a proxy only posts";
        return uxport::MN_ERROR_NOT_IMPLEMENTED;
    }

    CStepQueue m_Events;
};

#endif
