// Connect indications on their way from the network thread to the user thread.
#ifndef UXPORT_PROXY_CPSACCEPTORCONNECTORSINKTHREADPROXYT_H
#define UXPORT_PROXY_CPSACCEPTORCONNECTORSINKTHREADPROXYT_H

#include "proxy/CPSEventOfProxyT.h"
#include "proxy/CPSTransportThreadProxy.h"
#include "uxport/IPSAcceptorConnectorSink.h"

namespace uxport
{

// To the user thread: a connection, or the end of an attempt. `Proxy` is the acceptor or connector proxy.
template <class Proxy>
class CPSEventOnConnectIndication : public CPSEventOfProxyT<Proxy>
{
public:
    // `attempt`: which start of the proxy this answers. `transport` may be null.
    CPSEventOnConnectIndication(Proxy* owner, unsigned long attempt, long result, IPSTransport* transport)
        : CPSEventOfProxyT<Proxy>(owner), m_dwAttempt(attempt), m_lResult(result), m_pTransport(transport)
    {
    }

    // Returns: 0 delivered, or stopped meanwhile (the transport is then disconnected with 10002); 10005 without
    // a sink.
    MNResult OnEventFire() override
    {
        Proxy* owner = this->m_pOwner;
        owner->EnsureStopFlagThread("CPSEventOnConnectIndication");
        if (owner->IsFlagStopped() || !owner->IsCurrentAttempt(m_dwAttempt)) {
            if (m_pTransport)
                m_pTransport->Disconnect(static_cast<long>(MN_ERROR_NOT_INITIALIZED));
            return MN_OK;
        }
        IPSAcceptorConnectorSink* sink = owner->GetApplicationSink();
        owner->OnIndicated();
        if (!sink)
            return MN_ERROR_NULL_POINTER;
        sink->OnConnectIndication(m_lResult, m_pTransport.Get(), owner);
        return MN_OK;
    }

private:
    unsigned long m_dwAttempt;
    long m_lResult;
    mantle::CMNAutoPtr<IPSTransport> m_pTransport;
};

// The sink that the network-side acceptor or connector reports to; a base of `Proxy`. It wraps each transport
// into a proxy of its own while still on the network thread.
template <class Proxy>
class CPSAcceptorConnectorSinkThreadProxyT : public IPSAcceptorConnectorSink
{
public:
    // Thread: the network thread. Returns: the post's result; 10002 when the proxy is dying (the transport is
    // disconnected); what OpenWithSink returned where that failed for an acceptor.
    MNResult OnConnectIndication(long result, IPSTransport* transport, IPSAcceptorConnectorId*) override
    {
        mantle::CMNAutoPtr<IPSTransport> proxy;
        if (result == 0 && transport) {
            auto* wrapped = new CPSTransportThreadProxy(transport, m_pOwner->m_pReactorNetwork, m_pOwner->m_pThreadUser,
                                                        m_pOwner->m_dwType);
            if (const MNResult opened = transport->OpenWithSink(wrapped); opened != MN_OK) {
                delete wrapped;
                if (!m_pOwner->IsConnector())
                    return opened;
                result = static_cast<long>(opened);
            } else {
                proxy = wrapped;
            }
        }
        IMNEvent* event = PSMakeEvent<CPSEventOnConnectIndication<Proxy>>(m_pOwner, m_dwAttempt, result, proxy.Get());
        // A refusal drops the event's reference, which may be the last: this object is not touched behind the post.
        const MNResult posted = event ? PSPostToUser(m_pOwner->m_pThreadUser, event) : MN_ERROR_NOT_INITIALIZED;
        if (posted != MN_OK && proxy)
            transport->Disconnect(static_cast<long>(MN_ERROR_NOT_INITIALIZED));
        return posted;
    }

    IPSAcceptorConnectorSink* GetApplicationSink() const { return m_pSink; }

protected:
    explicit CPSAcceptorConnectorSinkThreadProxyT(Proxy* owner) : m_pOwner(owner) {}

    IPSAcceptorConnectorSink* m_pSink = nullptr;  // the application's; user thread only
    Proxy* m_pOwner;
    unsigned long m_dwAttempt = 0;  // the start that the network side works on; network thread only
};

}  // namespace uxport

#endif
