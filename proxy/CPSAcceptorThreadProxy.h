// An acceptor of a user thread.
#ifndef UXPORT_PROXY_CPSACCEPTORTHREADPROXY_H
#define UXPORT_PROXY_CPSACCEPTORTHREADPROXY_H

#include "mantle/CMNReferenceControl.h"
#include "mantle/CMNStopFlag.h"
#include "proxy/CPSAcceptorConnectorSinkThreadProxyT.h"
#include "uxport/IPSAcceptor.h"

namespace uxport
{

// Drives the real acceptor on the network thread by events. Thread: StartListen and StopListen belong to the
// user thread; references to any. The object dies on the network thread.
class CPSAcceptorThreadProxy : public IPSAcceptor,
                               public mantle::CMNReferenceControlT<mantle::CMNMutexThread>,
                               public CPSAcceptorConnectorSinkThreadProxyT<CPSAcceptorThreadProxy>,
                               public mantle::CMNStopFlag
{
public:
    CPSAcceptorThreadProxy(unsigned long type, IPSReactor* reactorNetwork, mantle::CMNThread* threadUser);
    ~CPSAcceptorThreadProxy() override;

    unsigned long AddReference() override { return AddReference_i(); }
    unsigned long ReleaseReference() override { return ReleaseReference_i(); }
    bool TryAddReference() { return TryAddReference_i(); }
    bool IsConnector() override { return false; }

    // Posts the start. A failure of the start itself (an address in use) is not reported. Returns: 0;
    // MN_ERROR_ALREADY_INITIALIZED while started; MN_ERROR_INVALID_ARG for a null sink; MN_ERROR_UNEXPECTED when there
    // is no memory; the post's result.
    MNResult StartListen(IPSAcceptorConnectorSink* sink, const CMNInetAddr& localAddr, unsigned short number1,
                         unsigned short number2) override;

    // No indication follows; a connection on its way is disconnected with MN_ERROR_NOT_INITIALIZED. Returns: 0, also
    // when stopped already; MN_ERROR_UNEXPECTED when there is no memory, and nothing has changed; the post's result.
    MNResult StopListen(long reason) override;

    void OnReferenceDestory() override;

private:
    friend class CPSAcceptorConnectorSinkThreadProxyT<CPSAcceptorThreadProxy>;
    friend class CPSEventOnConnectIndication<CPSAcceptorThreadProxy>;
    friend class CPSEventStartListen;
    friend class CPSEventStopListen;

    bool IsCurrentAttempt(unsigned long attempt) const { return attempt == m_dwStarts; }
    void OnIndicated() {}

    mantle::CMNThread* m_pThreadUser;
    IPSReactor* m_pReactorNetwork;
    CPSPreparedEvent m_Delete;
    mantle::CMNAutoPtr<IPSAcceptor> m_pAcceptorActual;  // network thread only
    unsigned long m_dwType;
    unsigned long m_dwStarts = 0;  // user thread only
};

}  // namespace uxport

#endif
