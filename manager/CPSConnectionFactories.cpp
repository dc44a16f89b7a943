// The part of the manager that makes servers and clients.
#include "acceptor/CPSAcceptorTcp.h"
#include "connector/CPSConnectorWrapper.h"
#include "manager/CPSConnectionManager.h"
#include "mantle/CMNThreadManager.h"

using mantle::CMNThreadManager;

namespace uxport
{

MNResult CPSConnectionManager::CheckCaller_i()
{
    if (!m_pReactor.load() || !CMNThreadManager::Instance()->GetThread(CMNThreadManager::TT_CURRENT))
        return MN_ERROR_FAILURE;
    return IsNetworkThread(CMNThreadManager::GetThreadSelfId()) ? MN_OK : MN_ERROR_NOT_IMPLEMENTED;
}

MNResult CPSConnectionManager::CreateConnectionServer(unsigned long connectionType, IPSAcceptor*& out)
{
    const MNResult result = CheckCaller_i();
    return result == MN_OK ? CreateConnectionServer_i(connectionType, out) : result;
}

MNResult CPSConnectionManager::CreateConnectionServer_i(unsigned long connectionType, IPSAcceptor*& out)
{
    out = nullptr;
    switch (connectionType) {
    case CONNECTION_TYPE_TCP:
        out = new CPSAcceptorTcp(m_pReactor.load());
        out->AddReference();
        return MN_OK;
    case CONNECTION_TYPE_UDP:
    case CONNECTION_TYPE_RAW:
        return MN_ERROR_NOT_IMPLEMENTED;
    default:
        return MN_ERROR_INVALID_ARG;
    }
}

MNResult CPSConnectionManager::CreateConnectionClient(unsigned long connectionType, IPSConnector*& out)
{
    const MNResult result = CheckCaller_i();
    return result == MN_OK ? CreateConnectionClient_i(connectionType, out) : result;
}

MNResult CPSConnectionManager::CreateConnectionClient_i(unsigned long connectionType, IPSConnector*& out)
{
    out = nullptr;
    auto wrapper = std::make_unique<CPSConnectorWrapper>(m_pReactor.load());
    const MNResult result = wrapper->Init(connectionType);
    if (result != MN_OK)
        return result;
    out = wrapper.release();
    out->AddReference();
    return MN_OK;
}

}  // namespace uxport
