// Start, links and counters.
#ifndef IPSTACK_CIPSTACKMANAGER_H
#define IPSTACK_CIPSTACKMANAGER_H

#include <deque>
#include <memory>
#include <vector>

#include "ipstack/IIPStackManager.h"
#include "mantle/CMNMutexThread.h"

namespace ipstack
{

class CIPLink;

// Never destroyed; its links live until they are taken down.
class CIPStackManager : public IIPStackManager
{
public:
    static CIPStackManager& Get();

    unsigned long Startup(const CIPStackSettings& settings) override;
    unsigned long AttachThread() override;
    bool IsInitialized() override;
    unsigned long CreateStack(const CIPStackConfig& config, IIPStackLowLevel* lowLevel, IIPStack*& stack) override;
    unsigned long DestroyStack(IIPStack* stack) override;
    std::size_t GetCounters(CIPStackCounter* counters, std::size_t room) override;

private:
    CIPStackManager();
    ~CIPStackManager() override;

    mantle::CMNMutexThread m_StartMutex;
    // Links taken down whose low level may still hand packets in; the oldest of more than these goes.
    static constexpr std::size_t s_nMostClosed = 1024;

    std::deque<std::unique_ptr<CIPLink>> m_Closed;  // core lock
    std::vector<CIPLink*> m_Links;                  // core lock
};

}  // namespace ipstack

#endif
