#include "proxy/CPSAcceptorThreadProxy.h"

#include "mantle/CMNInetAddr.h"

namespace uxport
{

// To the network thread: make the real acceptor and start it.
class CPSEventStartListen : public CPSEventOfProxyT<CPSAcceptorThreadProxy>
{
public:
    CPSEventStartListen(CPSAcceptorThreadProxy* owner, unsigned long attempt, const CMNInetAddr& localAddr,
                        unsigned short number1, unsigned short number2)
        : CPSEventOfProxyT(owner),
          m_dwAttempt(attempt),
          m_LocalAddr(localAddr),
          m_wNumber1(number1),
          m_wNumber2(number2)
    {
    }

    MNResult OnEventFire() override
    {
        auto& actual = m_pOwner->m_pAcceptorActual;
        IPSConnectionManager* manager = IPSConnectionManager::Instance();
        IPSAcceptor*& out = actual.ParaOut();
        if (!manager)
            return MN_ERROR_NOT_INITIALIZED;
        MNResult result = manager->CreateConnectionServer(m_pOwner->m_dwType, out);
        if (result != MN_OK)
            return result;
        m_pOwner->CPSAcceptorConnectorSinkThreadProxyT::m_dwAttempt = m_dwAttempt;
        result = actual->StartListen(m_pOwner, m_LocalAddr, m_wNumber1, m_wNumber2);
        if (result != MN_OK)
            actual = nullptr;
        return result;
    }

private:
    unsigned long m_dwAttempt;
    CMNInetAddr m_LocalAddr;
    unsigned short m_wNumber1;
    unsigned short m_wNumber2;
};

// To the network thread: stop and let go of the real acceptor.
class CPSEventStopListen : public CPSEventOfProxyT<CPSAcceptorThreadProxy>
{
public:
    CPSEventStopListen(CPSAcceptorThreadProxy* owner, long reason) : CPSEventOfProxyT(owner), m_lReason(reason) {}

    MNResult OnEventFire() override
    {
        auto& actual = m_pOwner->m_pAcceptorActual;
        if (!actual)
            return MN_ERROR_NULL_POINTER;
        const MNResult result = actual->StopListen(m_lReason);
        actual = nullptr;
        return result;
    }

private:
    long m_lReason;
};

CPSAcceptorThreadProxy::CPSAcceptorThreadProxy(unsigned long type, IPSReactor* reactorNetwork,
                                               mantle::CMNThread* threadUser)
    : CPSAcceptorConnectorSinkThreadProxyT(this),
      m_pThreadUser(threadUser),
      m_pReactorNetwork(reactorNetwork),
      m_Delete(std::make_unique<CPSEventDeleteProxyT<CPSAcceptorThreadProxy>>()),
      m_dwType(type)
{
    BindStopFlagToCurrentThread();
}

CPSAcceptorThreadProxy::~CPSAcceptorThreadProxy() = default;

MNResult CPSAcceptorThreadProxy::StartListen(IPSAcceptorConnectorSink* sink, const CMNInetAddr& localAddr,
                                             unsigned short number1, unsigned short number2)
{
    EnsureStopFlagThread("CPSAcceptorThreadProxy::StartListen");
    if (!IsFlagStopped())
        return MN_ERROR_ALREADY_INITIALIZED;
    if (!sink)
        return MN_ERROR_INVALID_ARG;
    m_pSink = sink;
    IMNEventQueue::CPlace place;
    MNResult result = PSMakeEvent<CPSEventStartListen>(place, this, m_dwStarts + 1, localAddr, number1, number2);
    if (result == MN_OK)
        result = PSPostToNetwork(m_pReactorNetwork, place);
    if (result != MN_OK) {
        m_pSink = nullptr;
        return result;
    }
    ++m_dwStarts;
    SetStartFlag();
    return MN_OK;
}

MNResult CPSAcceptorThreadProxy::StopListen(long reason)
{
    EnsureStopFlagThread("CPSAcceptorThreadProxy::StopListen");
    if (IsFlagStopped())
        return MN_OK;
    IMNEventQueue::CPlace place;
    const MNResult made = PSMakeEvent<CPSEventStopListen>(place, this, reason);
    if (made == MN_ERROR_UNEXPECTED)
        return made;
    SetStopFlag();
    m_pSink = nullptr;
    return made == MN_OK ? PSPostToNetwork(m_pReactorNetwork, place) : made;
}

void CPSAcceptorThreadProxy::OnReferenceDestory()
{
    PSDeleteOnNetworkThread(this, m_pReactorNetwork, m_Delete);
}

}  // namespace uxport
