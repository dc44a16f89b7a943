// The connector that the manager hands out.
#ifndef UXPORT_CONNECTOR_CPSCONNECTORWRAPPER_H
#define UXPORT_CONNECTOR_CPSCONNECTORWRAPPER_H

#include "mantle/CMNReferenceControl.h"
#include "uxport/IPSConnector.h"

namespace uxport
{

class IPSConnectorInternal;
class IPSReactor;
class IPSTransport;

// Adds to a protocol connector what all share: the sink, the time-out, the one indication for each attempt,
// cancelling. Thread: the reactor's. The last release deletes the object at once, but it survives its own
// callbacks.
class CPSConnectorWrapper : public IPSConnector,
                            public IMNTimerHandler,
                            public mantle::CMNReferenceControlT<mantle::CMNMutexNullSingleThread>
{
public:
    explicit CPSConnectorWrapper(IPSReactor* reactor) : m_pReactor(reactor) {}

    unsigned long AddReference() override { return AddReference_i(); }
    unsigned long ReleaseReference() override { return ReleaseReference_i(); }
    bool TryAddReference() { return TryAddReference_i(); }
    ~CPSConnectorWrapper() override;
    bool IsConnector() override { return true; }

    MNResult AsycConnect(IPSAcceptorConnectorSink* sink, const CMNInetAddr& peerAddr, CMNTimeValue* timeout,
                         CMNInetAddr* localAddr, unsigned short number1, unsigned short number2) override;
    MNResult CancelConnect() override;

    // Makes the protocol connector. Returns: 0; MN_ERROR_ALREADY_INITIALIZED when there is one;
    // MN_ERROR_NOT_INITIALIZED without a reactor; MN_ERROR_INVALID_ARG for a type that is none.
    virtual MNResult Init(unsigned long type);

    // The outcome, from the protocol connector. `transport` may be null. Returns: 0.
    virtual MNResult OnConnectIndication(long reason, IPSTransport* transport, IPSConnectorInternal* from);

    // The time-out, or the failure that AsycConnect found at once.
    void OnTimeout(const CMNTimeValue& now, void* arg) override;

private:
    // Ends the attempt: closes the protocol connector, cancels the timer. Returns: 1 when nothing was under way;
    // else what the timer queue returned.
    MNResult Close_i();
    void Indicate_i(long reason, IPSTransport* transport);

    IPSReactor* m_pReactor;  // not owned; also the timer queue
    IPSAcceptorConnectorSink* m_pSink = nullptr;
    IPSConnectorInternal* m_pConnector = nullptr;  // owned
    unsigned int m_dwClosed = 1;                   // 0 while an attempt is under way
};

}  // namespace uxport

#endif
