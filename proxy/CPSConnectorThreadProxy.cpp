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
          m_wNumber2(number2),
          m_Outcome(std::make_unique<CPSEventOnConnectIndication<CPSConnectorThreadProxy>>())
    {
    }

    MNResult OnEventFire() override
    {
        auto& actual = m_pOwner->m_pConnectorActual;
        IPSConnectionManager* manager = IPSConnectionManager::Instance();
        IPSConnector*& out = actual.ParaOut();
        if (!manager)
            return MN_ERROR_NOT_INITIALIZED;
        const MNResult result = manager->CreateConnectionClient(m_pOwner->m_dwType, out);
        if (result == MN_OK && !actual)
            return MN_ERROR_NULL_POINTER;
        if (result != MN_OK && result != MN_ERROR_UNEXPECTED)
            return result;
        m_pOwner->CPSAcceptorConnectorSinkThreadProxyT::m_dwAttempt = m_dwAttempt;
        m_pOwner->m_Outcome = std::move(m_Outcome);
        if (result == MN_OK && Connect_i(*actual))
            return MN_OK;
        PSReportNoMemory("an attempt to connect");
        actual = nullptr;
        return m_pOwner->OnConnectIndication(static_cast<long>(MN_ERROR_FAILURE), nullptr, nullptr);
    }

private:
    // A failure, too, arrives as an indication. Returns: false when there was no memory for that either.
    bool Connect_i(IPSConnector& actual)
    {
        // With a time-out a refusal for want of memory is told from the wake-up pipe's.
        CMNTimeValue timeout = m_bTimeout ? m_tvTimeout : CMNTimeValue::s_tvMax;
        return actual.AsycConnect(m_pOwner, m_PeerAddr, &timeout, m_bLocalAddr ? &m_LocalAddr : nullptr, m_wNumber1,
                                  m_wNumber2) != MN_ERROR_UNEXPECTED;
    }

    unsigned long m_dwAttempt;
    CMNInetAddr m_PeerAddr;
    CMNTimeValue m_tvTimeout;
    bool m_bTimeout;
    CMNInetAddr m_LocalAddr;
    bool m_bLocalAddr;
    unsigned short m_wNumber1;
    unsigned short m_wNumber2;
    CPSPreparedEvent m_Outcome;  // until the attempt is the network side's
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
      m_Delete(std::make_unique<CPSEventDeleteProxyT<CPSConnectorThreadProxy>>()),
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
    IMNEventQueue::CPlace place;
    MNResult result =
        PSMakeEvent<CPSEventAsycConnect>(place, this, m_dwAttempts + 1, peerAddr, timeout, localAddr, number1, number2);
    if (result == MN_ERROR_UNEXPECTED)
        return result;
    m_pSink = sink;
    if (result == MN_OK)
        result = PSPostToNetwork(m_pReactorNetwork, place);
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
    IMNEventQueue::CPlace place;
    const MNResult made = PSMakeEvent<CPSEventCancelConnect>(place, this);
    if (made == MN_ERROR_UNEXPECTED)
        return made;
    SetStopFlag();
    return made == MN_OK ? PSPostToNetwork(m_pReactorNetwork, place) : made;
}

MNResult CPSConnectorThreadProxy::SetStopFlag()
{
    m_pSink = nullptr;
    return CMNStopFlag::SetStopFlag();
}

void CPSConnectorThreadProxy::OnReferenceDestory()
{
    PSDeleteOnNetworkThread(this, m_pReactorNetwork, m_Delete);
}

}  // namespace uxport
