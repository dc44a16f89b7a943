// Connect indications on their way from the network thread to the user thread.
#ifndef UXPORT_PROXY_CPSACCEPTORCONNECTORSINKTHREADPROXYT_H
#define UXPORT_PROXY_CPSACCEPTORCONNECTORSINKTHREADPROXYT_H

#include <memory>
#include <new>

#include "proxy/CPSEventOfProxyT.h"
#include "proxy/CPSPreparedEvent.h"
#include "proxy/CPSTransportThreadProxy.h"
#include "reactor/PSNoMemory.h"
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

    // Made before it is needed. Set returns false when the proxy is dying.
    CPSEventOnConnectIndication() : CPSEventOnConnectIndication(nullptr, 0, 0, nullptr) {}
    bool Set(Proxy* owner, unsigned long attempt, long result, IPSTransport* transport)
    {
        m_dwAttempt = attempt;
        m_lResult = result;
        m_pTransport = transport;
        return this->SetOwner(owner);
    }

    // Returns: 0 delivered, or stopped meanwhile (the transport is then disconnected with MN_ERROR_NOT_INITIALIZED);
    // MN_ERROR_NULL_POINTER without a sink.
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
    // Thread: the network thread. Returns: the post's result; MN_ERROR_NOT_INITIALIZED when the proxy is dying,
    // MN_ERROR_UNEXPECTED when there is no memory for it (the transport is disconnected); what OpenWithSink returned
    // where that failed for an acceptor.
    MNResult OnConnectIndication(long result, IPSTransport* transport, IPSAcceptorConnectorId*) override
    {
        mantle::CMNAutoPtr<IPSTransport> proxy;
        if (result == 0 && transport) {
            const MNResult wrapped = Wrap_i(*transport, proxy);
            if (wrapped != MN_OK && !m_pOwner->IsConnector())
                return wrapped;
            result = static_cast<long>(wrapped);
        }
        IMNEventQueue::CPlace place;
        // A refusal drops the event's reference, which may be the last: this object is not touched behind the post.
        MNResult posted = MakeEvent_i(place, result, proxy.Get());
        if (posted == MN_OK)
            posted = PSPostToUser(m_pOwner->m_pThreadUser, place);
        else if (posted == MN_ERROR_UNEXPECTED)
            PSReportNoMemory("an indication");
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
    CPSPreparedEvent m_Outcome;     // a connector's, of that attempt; network thread only

private:
    // Gives the transport a proxy as its sink. Returns: 0; MN_ERROR_UNEXPECTED; what OpenWithSink returned.
    MNResult Wrap_i(IPSTransport& transport, mantle::CMNAutoPtr<IPSTransport>& proxy)
    {
        std::unique_ptr<CPSTransportThreadProxy> wrapped;
        try {
            wrapped = std::make_unique<CPSTransportThreadProxy>(&transport, m_pOwner->m_pReactorNetwork,
                                                                m_pOwner->m_pThreadUser, m_pOwner->m_dwType);
        } catch (const std::bad_alloc&) {
            PSReportNoMemory("a connection's proxy");
            transport.Disconnect(static_cast<long>(MN_ERROR_UNEXPECTED));
            return MN_ERROR_UNEXPECTED;
        }
        const MNResult opened = transport.OpenWithSink(wrapped.get());
        if (opened == MN_OK)
            proxy = wrapped.release();
        return opened;
    }

    // The indication's event. Returns: 0; MN_ERROR_NOT_INITIALIZED when the proxy is dying; MN_ERROR_UNEXPECTED when
    // there is no memory.
    MNResult MakeEvent_i(IMNEventQueue::CPlace& place, long result, IPSTransport* proxy)
    {
        using CEvent = CPSEventOnConnectIndication<Proxy>;
        if (!m_Outcome.IsThere())
            return PSMakeEvent<CEvent>(place, m_pOwner, m_dwAttempt, result, proxy);
        CPSPreparedEvent outcome(std::move(m_Outcome));
        if (!outcome.As<CEvent>().Set(m_pOwner, m_dwAttempt, result, proxy))
            return MN_ERROR_NOT_INITIALIZED;
        place.splice(place.end(), outcome.GetPlace());
        return MN_OK;
    }
};

}  // namespace uxport

#endif
