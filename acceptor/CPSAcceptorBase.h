// What the acceptors of all protocols share.
#ifndef UXPORT_ACCEPTOR_CPSACCEPTORBASE_H
#define UXPORT_ACCEPTOR_CPSACCEPTORBASE_H

#include "mantle/CMNReferenceControl.h"
#include "uxport/IPSAcceptor.h"

namespace uxport
{

class IPSReactor;

// Thread: the reactor's. The last release deletes the object at once.
class CPSAcceptorBase : public IPSAcceptor, public mantle::CMNReferenceControlT<mantle::CMNMutexNullSingleThread>
{
public:
    unsigned long AddReference() override { return AddReference_i(); }
    unsigned long ReleaseReference() override { return ReleaseReference_i(); }
    bool TryAddReference() { return TryAddReference_i(); }
    unsigned long GetReferenceCount() { return GetReference_i(); }
    ~CPSAcceptorBase() override = default;
    bool IsConnector() override { return false; }

protected:
    explicit CPSAcceptorBase(IPSReactor* reactor) : m_pReactor(reactor) {}

    IPSReactor* m_pReactor;                       // not owned
    IPSAcceptorConnectorSink* m_pSink = nullptr;  // not owned; null unless listening
};

}  // namespace uxport

#endif
