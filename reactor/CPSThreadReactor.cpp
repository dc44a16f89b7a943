#include "reactor/CPSThreadReactor.h"

#include "ipstack/IIPStackManager.h"
#include "uxport/IPSReactor.h"

namespace uxport
{

CPSThreadReactor::~CPSThreadReactor()
{
    delete m_pReactor.load();
}

MNResult CPSThreadReactor::Init(IPSReactor* reactor)
{
    if (m_pReactor.load())
        return MN_ERROR_ALREADY_INITIALIZED;
    if (!reactor)
        return MN_ERROR_INVALID_ARG;
    m_pReactor.store(reactor);
    return MN_OK;
}

MNResult CPSThreadReactor::Stop(mantle::CMNTimeValue* timeout)
{
    if (timeout)
        return MN_ERROR_NOT_IMPLEMENTED;
    IPSReactor* reactor = m_pReactor.load();
    return reactor ? reactor->StopEventLoop() : MN_ERROR_NOT_INITIALIZED;
}

void CPSThreadReactor::OnThreadInit()
{
    if (IPSReactor* reactor = m_pReactor.load()) {
        ipstack::IIPStackManager::Instance()->AttachThread();
        reactor->Open();
    }
}

void CPSThreadReactor::OnThreadRun()
{
    if (IPSReactor* reactor = m_pReactor.load()) {
        reactor->RunEventLoop();
        reactor->Close();
    }
}

IMNEventQueue* CPSThreadReactor::GetEventQueue()
{
    return m_pReactor.load();
}

IMNTimerQueue* CPSThreadReactor::GetTimerQueue()
{
    return m_pReactor.load();
}

}  // namespace uxport
