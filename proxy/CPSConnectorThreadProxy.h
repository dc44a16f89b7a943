// A connector of a user thread.
#ifndef UXPORT_PROXY_CPSCONNECTORTHREADPROXY_H
#define UXPORT_PROXY_CPSCONNECTORTHREADPROXY_H

#include "mantle/CMNReferenceControl.h"
#include "mantle/CMNStopFlag.h"
#include "proxy/CPSAcceptorConnectorSinkThreadProxyT.h"
#include "uxport/IPSConnector.h"

namespace uxport
{

// Drives the real connector on the network thread by events and stops after the one indication of each attempt.
// Thread: AsycConnect and CancelConnect belong to the user thread; references to any. The object dies on the
// network thread.
class CPSConnectorThreadProxy : public IPSConnector,
                                public CPSAcceptorConnectorSinkThreadProxyT<CPSConnectorThreadProxy>,
                                public mantle::CMNReferenceControlT<mantle::CMNMutexThread>,
                                public mantle::CMNStopFlag
{
public:
    // `threadUser` null: the calling thread's own.
    CPSConnectorThreadProxy(unsigned long type, IPSReactor* reactorNetwork, mantle::CMNThread* threadUser);
    ~CPSConnectorThreadProxy() override;

    unsigned long AddReference() override { return AddReference_i(); }
    unsigned long ReleaseReference() override { return ReleaseReference_i(); }
    bool TryAddReference() { return TryAddReference_i(); }
    bool IsConnector() override { return true; }

    // Posts the attempt, which replaces one under way and its sink. Returns: 0; MN_ERROR_UNEXPECTED when there is no
    // memory, and nothing has changed; the post's result.
    MNResult AsycConnect(IPSAcceptorConnectorSink* sink, const CMNInetAddr& peerAddr, CMNTimeValue* timeout,
                         CMNInetAddr* localAddr, unsigned short number1, unsigned short number2) override;

    // Returns: the post's result; 1 when nothing is under way; MN_ERROR_UNEXPECTED when there is no memory, and nothing
    // has changed.
    MNResult CancelConnect() override;

    // Ends the attempt on this side: forgets the sink, too. Returns: 0.
    MNResult SetStopFlag();

    void OnReferenceDestory() override;

private:
    friend class CPSAcceptorConnectorSinkThreadProxyT<CPSConnectorThreadProxy>;
    friend class CPSEventOnConnectIndication<CPSConnectorThreadProxy>;
    friend class CPSEventAsycConnect;
    friend class CPSEventCancelConnect;

    bool IsCurrentAttempt(unsigned long attempt) const { return attempt == m_dwAttempts; }
    void OnIndicated() { SetStopFlag(); }

    mantle::CMNThread* m_pThreadUser;
    IPSReactor* m_pReactorNetwork;
    CPSPreparedEvent m_Delete;
    mantle::CMNAutoPtr<IPSConnector> m_pConnectorActual;  // network thread only
    unsigned long m_dwType;
    unsigned long m_dwAttempts = 0;  // user thread only
};

}  // namespace uxport

#endif
