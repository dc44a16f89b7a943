// The part of the manager that makes servers and clients.
#include <new>

#include "acceptor/CPSAcceptorRaw.h"
#include "acceptor/CPSAcceptorTcp.h"
#include "acceptor/CPSAcceptorUdp.h"
#include "connector/CPSConnectorWrapper.h"
#include "manager/CPSConnectionManager.h"
#include "mantle/CMNThread.h"
#include "proxy/CPSAcceptorThreadProxy.h"
#include "proxy/CPSConnectorThreadProxy.h"

using mantle::CMNThread;
using mantle::CMNThreadManager;

namespace uxport
{

template <class Proxy, class Interface>
MNResult CPSConnectionManager::Create_i(unsigned long connectionType, Interface*& out,
                                        MNResult (CPSConnectionManager::*direct)(unsigned long, Interface*&))
{
    IPSReactor* reactor = m_pReactor.load();
    if (!reactor)
        return MN_ERROR_FAILURE;
    CMNThread* threadUser = CMNThreadManager::Instance()->GetThread(CMNThreadManager::TT_CURRENT);
    if (!threadUser)
        return MN_ERROR_FAILURE;
    if (IsNetworkThread(CMNThreadManager::GetThreadSelfId())) {
        try {
            return (this->*direct)(connectionType, out);
        } catch (const std::bad_alloc&) {
            return MN_ERROR_UNEXPECTED;
        }
    }
    try {
        out = new Proxy(connectionType, reactor, threadUser);
    } catch (const std::bad_alloc&) {
        return MN_ERROR_UNEXPECTED;
    }
    out->AddReference();
    return MN_OK;
}

MNResult CPSConnectionManager::CreateConnectionServer(unsigned long connectionType, IPSAcceptor*& out)
{
    return Create_i<CPSAcceptorThreadProxy>(connectionType, out, &CPSConnectionManager::CreateConnectionServer_i);
}

MNResult CPSConnectionManager::CreateConnectionClient(unsigned long connectionType, IPSConnector*& out)
{
    return Create_i<CPSConnectorThreadProxy>(connectionType, out, &CPSConnectionManager::CreateConnectionClient_i);
}

MNResult CPSConnectionManager::CreateConnectionServer_i(unsigned long connectionType, IPSAcceptor*& out)
{
    out = nullptr;
    switch (connectionType) {
    case CONNECTION_TYPE_TCP:
        out = new CPSAcceptorTcp(m_pReactor.load());
        break;
    case CONNECTION_TYPE_UDP:
        out = new CPSAcceptorUdp(m_pReactor.load());
        break;
    case CONNECTION_TYPE_RAW:
        out = new CPSAcceptorRaw(m_pReactor.load());
        break;
    default:
        return MN_ERROR_INVALID_ARG;
    }
    out->AddReference();
    return MN_OK;
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
