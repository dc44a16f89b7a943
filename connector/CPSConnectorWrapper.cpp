#include "connector/CPSConnectorWrapper.h"

#include "connector/CPSConnectorRawT.h"
#include "connector/CPSConnectorTcpT.h"
#include "connector/CPSConnectorUdpT.h"
#include "mantle/CMNTimeValue.h"
#include "reactor/CPSReactorBase.h"
#include "reactor/CPSSelfHold.h"
#include "socket/CPSSocketRaw.h"
#include "socket/CPSSocketTcp.h"
#include "socket/CPSSocketUdp.h"
#include "transport/CPSTransportRaw.h"
#include "transport/CPSTransportTcp.h"
#include "transport/CPSTransportUdp.h"
#include "uxport/IPSAcceptorConnectorSink.h"

namespace uxport
{

namespace
{

constexpr long REASON_FAILURE = static_cast<long>(MN_ERROR_FAILURE);

// The timer's argument carries the reason.
void* ReasonArgument()
{
    return reinterpret_cast<void*>(REASON_FAILURE);
}

}  // namespace

CPSConnectorWrapper::~CPSConnectorWrapper()
{
    Close_i();
    delete m_pConnector;
}

MNResult CPSConnectorWrapper::Init(unsigned long type)
{
    if (m_pConnector)
        return MN_ERROR_ALREADY_INITIALIZED;
    if (!m_pReactor)
        return MN_ERROR_NOT_INITIALIZED;
    switch (type) {
    case CONNECTION_TYPE_TCP:
        m_pConnector = new CPSConnectorTcpT<CPSConnectorWrapper, CPSTransportTcp, CPSSocketTcp>(m_pReactor, this);
        return MN_OK;
    case CONNECTION_TYPE_UDP:
        m_pConnector = new CPSConnectorUdpT<CPSConnectorWrapper, CPSTransportUdp, CPSSocketUdp>(m_pReactor, this);
        return MN_OK;
    case CONNECTION_TYPE_RAW:
        m_pConnector = new CPSConnectorRawT<CPSConnectorWrapper, CPSTransportRaw, CPSSocketRaw>(m_pReactor, this);
        return MN_OK;
    default:
        Close_i();
        return MN_ERROR_INVALID_ARG;
    }
}

MNResult CPSConnectorWrapper::AsycConnect(IPSAcceptorConnectorSink* sink, const CMNInetAddr& peerAddr,
                                          CMNTimeValue* timeout, CMNInetAddr* localAddr, unsigned short number1,
                                          unsigned short number2)
{
    if (!CPSReactorBase::IsAlive(m_pReactor))
        return MN_ERROR_NOT_INITIALIZED;
    if (m_dwClosed == 0)
        m_pReactor->CancelTimer(this);  // the superseded attempt's time-out must not end this one
    m_pSink = sink;
    m_dwClosed = 0;
    MNResult result = PS_CONNECT_FAILED;
    if (m_pSink && m_pConnector) {
        result = m_pConnector->Connect(peerAddr, localAddr, number1, number2);
        if (result != PS_CONNECT_FAILED && !timeout)
            return result;
    }
    result = m_pReactor->ScheduleTimer(this, ReasonArgument(),
                                       result == PS_CONNECT_FAILED ? CMNTimeValue(0, 0) : *timeout, 1);
    if (result == MN_ERROR_UNEXPECTED) {
        Close_i();
        m_pSink = nullptr;
    }
    return result;
}

void CPSConnectorWrapper::OnTimeout(const CMNTimeValue&, void* arg)
{
    if (arg != ReasonArgument())
        return;
    const CPSSelfHoldT<CPSConnectorWrapper> hold(*this);
    Close_i();
    Indicate_i(REASON_FAILURE, nullptr);
}

MNResult CPSConnectorWrapper::OnConnectIndication(long reason, IPSTransport* transport, IPSConnectorInternal*)
{
    const CPSSelfHoldT<CPSConnectorWrapper> hold(*this);
    const mantle::CMNAutoPtr<IPSTransport> holdTransport(transport);
    Close_i();
    Indicate_i(reason, reason == 0 ? transport : nullptr);
    return MN_OK;
}

void CPSConnectorWrapper::Indicate_i(long reason, IPSTransport* transport)
{
    if (m_pSink)
        m_pSink->OnConnectIndication(reason, transport, this);
}

MNResult CPSConnectorWrapper::CancelConnect()
{
    const MNResult result = Close_i();
    m_pSink = nullptr;
    return result;
}

MNResult CPSConnectorWrapper::Close_i()
{
    if (m_dwClosed != 0)
        return m_dwClosed;
    m_dwClosed = 1;
    if (m_pConnector)
        m_pConnector->Close();
    return CPSReactorBase::CancelTimerIfAlive(m_pReactor, this);
}

}  // namespace uxport
