// Which side of a proxy the calling thread is on.
#ifndef UXPORT_PROXY_PSNETWORKTHREAD_H
#define UXPORT_PROXY_PSNETWORKTHREAD_H

#include "mantle/CMNThreadManager.h"
#include "uxport/IPSConnectionManager.h"

namespace uxport
{

// Whether the caller is a network thread; nobody is once the manager has gone.
inline bool PSIsNetworkThread()
{
    IPSConnectionManager* manager = IPSConnectionManager::Instance();
    return manager && manager->IsNetworkThread(mantle::CMNThreadManager::GetThreadSelfId());
}

}  // namespace uxport

#endif
