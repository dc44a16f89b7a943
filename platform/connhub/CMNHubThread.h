// The background thread.
#ifndef CONNHUB_CMNHUBTHREAD_H
#define CONNHUB_CMNHUBTHREAD_H

#include <memory>
#include <utility>

#include "CMNHub.h"
#include "mantle/CMNThread.h"

namespace connhub
{

// Runs the hub's loop. Known to the thread manager, whose clean-up stops and joins it.
class CMNHubThread : public mantle::CMNThread
{
public:
    explicit CMNHubThread(std::shared_ptr<CMNHub> hub) : m_pHub(std::move(hub)) {}

    mantle::MNResult Stop(mantle::CMNTimeValue* timeout = nullptr) override
    {
        if (timeout) {
            return mantle::MN_ERROR_NOT_IMPLEMENTED;
        }
        m_pHub->Stop();
        return mantle::MN_OK;
    }
    void OnThreadRun() override { m_pHub->Run(); }

private:
    const std::shared_ptr<CMNHub> m_pHub;
};

}  // namespace connhub

#endif
