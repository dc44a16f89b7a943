// The connection manager.
#ifndef UXPORT_MANAGER_CPSCONNECTIONMANAGER_H
#define UXPORT_MANAGER_CPSCONNECTIONMANAGER_H

#include <atomic>
#include <list>
#include <memory>

#include "mantle/CMNSingleton.h"
#include "reactor/CPSReactorPoll.h"
#include "uxport/IPSConnectionManager.h"

namespace uxport
{

class CPSThreadReactor;

// The one of the process stays valid to its end, with its reactors: threads that nobody joins may hold pointers to them.
class CPSConnectionManager : public IPSConnectionManager, public mantle::CMNLasting
{
public:
    CPSConnectionManager() = default;
    CPSConnectionManager(const CPSConnectionManager&) = delete;
    CPSConnectionManager& operator=(const CPSConnectionManager&) = delete;

    MNResult Init(unsigned int networkThreadCount) override;
    MNResult CreateConnectionClient(unsigned long connectionType, IPSConnector*& out) override;
    MNResult CreateConnectionServer(unsigned long connectionType, IPSAcceptor*& out) override;
    bool IsNetworkThread(unsigned long threadId) override;
    IPSReactor* GetReactor() override { return m_pReactor.load(); }
    MNResult CreateRawSocket(unsigned short family, unsigned short protocol,
                             mantle::CMNAutoPtr<IPSRawTransport>& transport) override;

    // The reactors refuse posts and destroy what they hold; deletions that waited for the network threads' end are done.
    void End() override;

    // Deletes the reactors. The threads have ended by then; their objects stay, as connections may still point
    // at them, and lose their reactor.
    ~CPSConnectionManager() override;

private:
    MNResult SpawnNetworkThread_i();

    // Makes the real object by `direct` on a network thread, a `Proxy` on any other.
    template <class Proxy, class Interface>
    MNResult Create_i(unsigned long connectionType, Interface*& out,
                      MNResult (CPSConnectionManager::*direct)(unsigned long, Interface*&));
    MNResult CreateConnectionServer_i(unsigned long connectionType, IPSAcceptor*& out);
    MNResult CreateConnectionClient_i(unsigned long connectionType, IPSConnector*& out);

    std::atomic<IPSReactor*> m_pReactor{nullptr};           // the last of m_Reactors
    std::list<std::unique_ptr<CPSReactorPoll>> m_Reactors;  // those of failed Inits, too: threads may still run them
    unsigned int m_dwThreadCount = 0;
    bool m_bInitialized = false;
    std::list<CPSThreadReactor*> m_Threads;  // in the order of creation; only Init changes it
};

}  // namespace uxport

#endif
