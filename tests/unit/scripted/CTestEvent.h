// An event that counts what happens to it.
#ifndef TESTS_UNIT_SCRIPTED_CTESTEVENT_H
#define TESTS_UNIT_SCRIPTED_CTESTEVENT_H

#include <atomic>
#include <functional>
#include <memory>
#include <utility>

#include "mantle/IMNEvent.h"

// Outlives the events that count into it.
struct CTestEventCounts
{
    std::atomic<int> m_nFired{0};
    std::atomic<int> m_nDestroyed{0};  // calls of OnDestorySelf
    std::atomic<int> m_nAlive{0};
};

// Runs a function; OnDestorySelf runs another, then deletes.
class CTestEvent : public mantle::IMNEvent
{
public:
    explicit CTestEvent(CTestEventCounts& counts, std::function<mantle::MNResult()> fire = nullptr,
                        std::function<void()> destroy = nullptr)
        : m_Counts(counts), m_Fire(std::move(fire)), m_Destroy(std::move(destroy))
    {
        ++m_Counts.m_nAlive;
    }
    ~CTestEvent() override
    {
        if (m_AtDelete)
            m_AtDelete();
        --m_Counts.m_nAlive;
    }

    // Runs `function` in the destructor.
    CTestEvent* AtDelete(std::function<void()> function)
    {
        m_AtDelete = std::move(function);
        return this;
    }

    mantle::MNResult OnEventFire() override
    {
        ++m_Counts.m_nFired;
        return m_Fire ? m_Fire() : mantle::MN_OK;
    }

    void OnDestorySelf() override
    {
        ++m_Counts.m_nDestroyed;
        if (m_Destroy)
            m_Destroy();
        delete this;
    }

private:
    CTestEventCounts& m_Counts;
    std::function<mantle::MNResult()> m_Fire;
    std::function<void()> m_Destroy;
    std::function<void()> m_AtDelete;
};

// The shortest event: runs a function.
class CTestCall : public mantle::IMNEvent
{
public:
    explicit CTestCall(std::function<void()> function) : m_Function(std::move(function)) {}
    mantle::MNResult OnEventFire() override
    {
        m_Function();
        return mantle::MN_OK;
    }

private:
    std::function<void()> m_Function;
};

#endif
