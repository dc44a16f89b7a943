#include "proxy/CPSConnectorThreadProxy.h"

#include "mantle/CMNInetAddr.h"
#include "mantle/CMNTimeValue.h"

using mantle::CMNThread;
using mantle::CMNThreadManager;

namespace uxport
{

// To the network thread: make the real connector and start the attempt.
class CPSEventAsycConnect : public CPSEventOfProxyT<CPSConnectorThreadProxy>
{
public:
    CPSEventAsycConnect(CPSConnectorThreadProxy* owner, unsigned long attempt, const CMNInetAddr& peerAddr,
                        const CMNTimeValue* timeout, const CMNInetAddr* localAddr, unsigned short number1,
                        unsigned short number2)
        : CPSEventOfProxyT(owner),
          m_dwAttempt(attempt),
          m_PeerAddr(peerAddr),
          m_tvTimeout(timeout ? *timeout : CMNTimeValue()),
          m_bTimeout(timeout != nullptr),
          m_LocalAddr(localAddr ? *localAddr : CMNInetAddr()),
          m_bLocalAddr(localAddr != nullptr),
          m_wNumber1(number1),
          m_wNumber2(number2)
    {
    }

    MNResult OnEventFire() override
    {
        auto& actual = m_pOwner->m_pConnectorActual;
        IPSConnectionManager* manager = IPSConnectionManager::Instance();
        IPSConnector*& out = actual.ParaOut();
        if (!manager)
            return MN_ERROR_NOT_INITIALIZED;
        if (const MNResult result = manager->CreateConnectionClient(m_pOwner->m_dwType, out); result != MN_OK)
            return result;
        if (!actual)
            return MN_ERROR_NULL_POINTER;
        m_pOwner->CPSAcceptorConnectorSinkThreadProxyT::m_dwAttempt = m_dwAttempt;
        // A failure, too, arrives as an indication.
        actual->AsycConnect(m_pOwner, m_PeerAddr, m_bTimeout ? &m_tvTimeout : nullptr,
                            m_bLocalAddr ? &m_LocalAddr : nullptr, m_wNumber1, m_wNumber2);
        return MN_OK;
    }

private:
    unsigned long m_dwAttempt;
    CMNInetAddr m_PeerAddr;
    CMNTimeValue m_tvTimeout;
    bool m_bTimeout;
    CMNInetAddr m_LocalAddr;
    bool m_bLocalAddr;
    unsigned short m_wNumber1;
    unsigned short m_wNumber2;
};

// To the network thread: cancel and let go of the real connector.
class CPSEventCancelConnect : public CPSEventOfProxyT<CPSConnectorThreadProxy>
{
public:
    explicit CPSEventCancelConnect(CPSConnectorThreadProxy* owner) : CPSEventOfProxyT(owner) {}

    MNResult OnEventFire() override
    {
        auto& actual = m_pOwner->m_pConnectorActual;
        if (!actual)
            return MN_ERROR_NULL_POINTER;
        actual->CancelConnect();
        actual = nullptr;
        return MN_OK;
    }
};

CPSConnectorThreadProxy::CPSConnectorThreadProxy(unsigned long type, IPSReactor* reactorNetwork, CMNThread* threadUser)
    : CPSAcceptorConnectorSinkThreadProxyT(this),
      m_pThreadUser(threadUser ? threadUser : CMNThreadManager::Instance()->GetThread(CMNThreadManager::TT_CURRENT)),
      m_pReactorNetwork(reactorNetwork),
      m_dwType(type)
{
    BindStopFlagToCurrentThread();
}

CPSConnectorThreadProxy::~CPSConnectorThreadProxy() = default;

MNResult CPSConnectorThreadProxy::AsycConnect(IPSAcceptorConnectorSink* sink, const CMNInetAddr& peerAddr,
                                              CMNTimeValue* timeout, CMNInetAddr* localAddr, unsigned short number1,
                                              unsigned short number2)
{
    EnsureStopFlagThread("CPSConnectorThreadProxy::AsycConnect");
    m_pSink = sink;
    IMNEvent* event =
        PSMakeEvent<CPSEventAsycConnect>(this, m_dwAttempts + 1, peerAddr, timeout, localAddr, number1, number2);
    const MNResult result = event ? PSPostToNetwork(m_pReactorNetwork, event) : MN_ERROR_NOT_INITIALIZED;
    if (result != MN_OK)
        return result;
    ++m_dwAttempts;
    return SetStartFlag();
}

MNResult CPSConnectorThreadProxy::CancelConnect()
{
    EnsureStopFlagThread("CPSConnectorThreadProxy::CancelConnect");
    if (IsFlagStopped())
        return static_cast<MNResult>(GetStopFlag());
    SetStopFlag();
    IMNEvent* event = PSMakeEvent<CPSEventCancelConnect>(this);
    return event ? PSPostToNetwork(m_pReactorNetwork, event) : MN_ERROR_NOT_INITIALIZED;
}

MNResult CPSConnectorThreadProxy::SetStopFlag()
{
    m_pSink = nullptr;
    return CMNStopFlag::SetStopFlag();
}

void CPSConnectorThreadProxy::OnReferenceDestory()
{
    PSDeleteOnNetworkThread(this, m_pReactorNetwork);
}

}  // namespace uxport
