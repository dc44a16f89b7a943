#include "CIPStackManager.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "CIPCore.h"
#include "CIPCounters.h"
#include "CIPLink.h"
#include "CIPReadiness.h"
#include "CIPSocketTable.h"
#include "mantle/CMNSingleton.h"
#include "mantle/CMNWaiter.h"
#include "mantle/MNDefines.h"

namespace ipstack
{

namespace
{

// Ends the stack's own thread when the process is tidied up, after the network threads have ended.
class CIPThreadEnd : public mantle::CMNCleanUpBase
{
public:
    ~CIPThreadEnd() override { CIPCore::Instance().StopThread(); }
};

// Where the clean-up has not come that far, the thread must not outlive what it calls.
struct CIPLastResort
{
    ~CIPLastResort()
    {
        if (CIPCore::Instance().IsStarted()) {
            mantle::CMNThreadManager::Instance()->CleanUp();
            CIPCore::Instance().StopThread();
        }
    }
};

CIPLastResort s_LastResort;

}  // namespace

IIPStackManager* IIPStackManager::Instance()
{
    return &CIPStackManager::Get();
}

CIPStackManager::CIPStackManager() = default;

CIPStackManager::~CIPStackManager() = default;

CIPStackManager& CIPStackManager::Get()
{
    static auto* manager = new CIPStackManager;
    return *manager;
}

unsigned long CIPStackManager::Startup(const CIPStackSettings& settings)
{
    mantle::CMNMutexGuard guard(m_StartMutex);
    if (CIPCore::Instance().IsStarted()) {
        return mantle::MN_ERROR_ALREADY_INITIALIZED;
    }
    CIPSocketTable::Start(settings.m_dwMaxSockets);
    CIPCore::Instance().Start();
    new CIPThreadEnd;  // the clean-up's
    return mantle::MN_OK;
}

unsigned long CIPStackManager::AttachThread()
{
    CIPWaiterRecord::Current();  // no wait asks for memory from here on
    return mantle::MN_OK;
}

bool CIPStackManager::IsInitialized()
{
    return CIPCore::Instance().IsStarted();
}

unsigned long CIPStackManager::CreateStack(const CIPStackConfig& config, IIPStackLowLevel* lowLevel, IIPStack*& stack)
{
    if (!IsInitialized()) {
        return mantle::MN_ERROR_NOT_INITIALIZED;
    }
    if (!lowLevel) {
        return mantle::MN_ERROR_INVALID_ARG;
    }
    auto link = std::make_unique<CIPLink>(*lowLevel);
    CIPCoreGuard guard;
    if (const unsigned long result = link->Open(config)) {
        return result;
    }
    m_Links.push_back(link.get());
    stack = link.release();
    return mantle::MN_OK;
}

unsigned long CIPStackManager::DestroyStack(IIPStack* stack)
{
    CIPLink* link;
    {
        CIPCoreGuard guard;
        const auto found = std::find_if(m_Links.begin(), m_Links.end(),
                                        [=](CIPLink* entry) { return static_cast<IIPStack*>(entry) == stack; });
        if (found == m_Links.end()) {
            return mantle::MN_ERROR_INVALID_ARG;
        }
        link = *found;
        m_Links.erase(found);
        link->Close();
    }
    link->WaitUntilIdle();
    link->FreeQueue();
    std::vector<std::unique_ptr<CIPLink>> oldest;
    CIPCoreGuard guard;
    m_Closed.emplace_back(link);
    while (m_Closed.size() > s_nMostClosed && !m_Closed.front()->IsUsed()) {
        oldest.push_back(std::move(m_Closed.front()));
        m_Closed.pop_front();
    }
    return mantle::MN_OK;
}

std::size_t CIPStackManager::GetCounters(CIPStackCounter* counters, std::size_t room)
{
    CIPCoreGuard guard;
    return CIPCounters::Snapshot(counters, room);
}

}  // namespace ipstack
