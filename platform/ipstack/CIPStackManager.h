// Start, links and counters.
#ifndef IPSTACK_CIPSTACKMANAGER_H
#define IPSTACK_CIPSTACKMANAGER_H

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
    CIPStackManager() = default;
    ~CIPStackManager() override = default;

    mantle::CMNMutexThread m_StartMutex;
    std::vector<CIPLink*> m_Links;  // core lock
};

}  // namespace ipstack

#endif
