#include "manager/CPSConnectionManager.h"

#include "ipstack/IIPStackManager.h"
#include "mantle/CMNThreadManager.h"
#include "mantle/IMNTraceManager.h"
#include "proxy/CPSLateDeletes.h"
#include "reactor/CPSThreadReactor.h"

using mantle::CMNThreadManager;
using mantle::IMNTraceManager;
using mantle::Text_Formator;

namespace uxport
{

namespace
{

constexpr int TRACE_LEVEL = 0;
constexpr std::size_t TRACE_LENGTH = 2048;

}  // namespace

IPSConnectionManager* IPSConnectionManager::Instance()
{
    return mantle::CMNSingletonT<CPSConnectionManager>::Instance();
}

CPSConnectionManager::~CPSConnectionManager()
{
    for (CPSThreadReactor* thread : m_Threads)
        thread->TakeReactor();
    m_pReactor.store(nullptr);
}

void CPSConnectionManager::End()
{
    for (const auto& reactor : m_Reactors)
        reactor->CloseQueue();
    CPSLateDeletes::DeleteAll();
}

MNResult CPSConnectionManager::Init(unsigned int networkThreadCount)
{
    if (!ipstack::IIPStackManager::Instance()->IsInitialized()) {
        char buffer[TRACE_LENGTH];
        Text_Formator text(buffer, sizeof buffer);
        text << "IPStack is no init"
             << " this=" << static_cast<const void*>(this);
        IMNTraceManager::Instance()->Trace(TRACE_LEVEL, text.GetText());
        return MN_ERROR_FAILURE;
    }
    if (m_bInitialized)
        return MN_OK;
    m_dwThreadCount = networkThreadCount;
    if (SpawnNetworkThread_i() != MN_OK)
        return MN_ERROR_FAILURE;
    m_bInitialized = true;
    return MN_OK;
}

MNResult CPSConnectionManager::SpawnNetworkThread_i()
{
    CPSReactorPoll* const reactor = m_Reactors.emplace_back(std::make_unique<CPSReactorPoll>()).get();
    m_pReactor.store(reactor);
    for (unsigned int i = 0; i < m_dwThreadCount; ++i) {
        auto thread = std::make_unique<CPSThreadReactor>();
        MNResult result = thread->Init(reactor);
        if (result == MN_OK)
            result = thread->Create(CMNThreadManager::Instance()->GetNewThreadType(), CMNThreadManager::TF_JOINABLE);
        if (result != MN_OK) {
            thread->TakeReactor();  // the manager's, and perhaps another thread's
            return result;
        }
        CMNThreadManager::Instance()->RegisterThread(thread.get(), false);
        m_Threads.push_back(thread.release());
    }
    return MN_OK;
}

bool CPSConnectionManager::IsNetworkThread(unsigned long threadId)
{
    for (CPSThreadReactor* thread : m_Threads) {
        if (thread->GetThreadId() == threadId)
            return true;
    }
    return false;
}

MNResult CPSConnectionManager::CreateRawSocket(unsigned short, unsigned short, mantle::CMNAutoPtr<IPSRawTransport>&)
{
    return MN_OK;
}

}  // namespace uxport
