// Work for a thread's queue, as a function.
#ifndef CHAT_CWORK_H
#define CHAT_CWORK_H

#include <functional>
#include <utility>

#include <mantle/mantle.h>

class CWork : public mantle::IMNEvent
{
public:
    explicit CWork(std::function<void()> work) : m_fWork(std::move(work)) {}

    mantle::MNResult OnEventFire() override
    {
        m_fWork();
        return mantle::MN_OK;
    }

private:
    std::function<void()> m_fWork;
};

#endif
