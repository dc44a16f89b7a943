#include "connhub/CMNConnectionManager.h"

#include <atomic>

#include "CMNHubThread.h"
#include "CMNUDPTransport.h"
#include "mantle/CMNBurst.h"
#include "mantle/CMNTimeValue.h"

namespace connhub
{

namespace
{

// How long the end of the process waits for a callback that runs.
constexpr long s_lLastWaitSec = 10;

// Where the clean-up has not come that far, the thread must not outlive what it calls.
class CLastResort
{
public:
    ~CLastResort()
    {
        if (!m_bUsed.load()) {
            return;
        }
        mantle::CMNThreadManager::Instance()->CleanUp();
        if (CMNHubThread* thread = m_pThread.load()) {
            thread->Stop();
            thread->JoinFor(mantle::CMNTimeValue(s_lLastWaitSec, 0));
        }
    }

    std::atomic<bool> m_bUsed{false};
    std::atomic<CMNHubThread*> m_pThread{nullptr};
};

CLastResort s_LastResort;

}  // namespace

// The hub's last holder may be a transport that outlives the manager; its loop and its sockets are closed before that.
class CMNConnectionManager::CImpl
{
public:
    ~CImpl() { End(); }

    void End()
    {
        std::shared_ptr<CMNHub> hub;
        std::unique_ptr<CMNHubThread> thread;
        {
            mantle::CMNMutexGuard guard(m_Mutex);
            m_bEnded = true;
            hub = std::move(m_pHub);
            thread = std::move(m_pThread);
        }
        s_LastResort.m_pThread.store(nullptr);
        if (thread) {
            thread->Stop();
            thread->Join();
        }
        if (hub) {
            hub->Destroy();
        }
    }

    std::shared_ptr<CMNHub> GetHub()
    {
        mantle::CMNBurst::Finish();  // else below, under the mutex, while the new thread is awaited
        mantle::CMNMutexGuard guard(m_Mutex);
        if (m_pHub) {
            return m_pHub;
        }
        if (m_bEnded) {
            return nullptr;
        }
        auto hub = std::make_shared<CMNHub>();
        if (!hub->Init()) {
            return nullptr;
        }
        auto thread = std::make_unique<CMNHubThread>(hub);
        if (thread->Create(mantle::CMNThreadManager::Instance()->GetNewThreadType()) != mantle::MN_OK) {
            return nullptr;
        }
        s_LastResort.m_bUsed.store(true);
        s_LastResort.m_pThread.store(thread.get());
        m_pThread = std::move(thread);
        m_pHub = std::move(hub);
        return m_pHub;
    }

private:
    mantle::CMNMutexThread m_Mutex;
    std::shared_ptr<CMNHub> m_pHub MN_GUARDED_BY(m_Mutex);
    std::unique_ptr<CMNHubThread> m_pThread MN_GUARDED_BY(m_Mutex);
    bool m_bEnded MN_GUARDED_BY(m_Mutex) = false;
};

CMNConnectionManager::CMNConnectionManager() : m_pImpl(new CImpl) {}

CMNConnectionManager::~CMNConnectionManager() = default;

void CMNConnectionManager::End()
{
    m_pImpl->End();
}

CMNConnectionManager* CMNConnectionManager::Instance()
{
    return mantle::CMNSingletonT<CMNConnectionManager>::Instance();
}

mantle::MNResult CMNConnectionManager::CreateUDPTransport(IMNUDPTransportSink* sink, IMNUDPTransport*& transport)
{
    transport = nullptr;
    if (!sink) {
        return mantle::MN_ERROR_INVALID_ARG;
    }
    std::shared_ptr<CMNHub> hub = m_pImpl->GetHub();
    if (!hub) {
        return mantle::MN_ERROR_FAILURE;
    }
    transport = new CMNUDPTransport(std::make_shared<CMNUDPChannel>(std::move(hub), *sink));
    transport->AddReference();
    return mantle::MN_OK;
}

}  // namespace connhub
