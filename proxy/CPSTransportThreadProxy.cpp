#include "proxy/CPSTransportThreadProxy.h"

#include <cstdint>
#include <memory>

#include "mantle/CMNMessageBlock.h"
#include "mantle/CMNTimeValue.h"
#include "proxy/CPSEventOfProxyT.h"

using mantle::CMNThread;

namespace uxport
{

namespace
{

struct CChainDestroyer
{
    void operator()(CMNMessageBlock* chain) const { chain->DestroyChained(); }
};
using CChain = std::unique_ptr<CMNMessageBlock, CChainDestroyer>;

// A parameter record that has changed threads.
class CParameterCopy
{
public:
    explicit CParameterCopy(const CPSTransportParameter* param)
        : m_Param(param ? *param : CPSTransportParameter()), m_pParam(param ? &m_Param : nullptr)
    {
    }
    CParameterCopy(const CParameterCopy&) = delete;
    CParameterCopy& operator=(const CParameterCopy&) = delete;
    CPSTransportParameter* Get() { return m_pParam; }

private:
    CPSTransportParameter m_Param;
    CPSTransportParameter* m_pParam;
};

using CEventOfTransport = CPSEventOfProxyT<CPSTransportThreadProxy>;

}  // namespace

// To the network thread: data of the application.
class CPSEventSendData : public CEventOfTransport
{
public:
    CPSEventSendData(CPSTransportThreadProxy* owner, CMNMessageBlock& data, const CPSTransportParameter* param)
        : CEventOfTransport(owner), m_pData(data.DuplicateChained()), m_Param(param)
    {
    }

    MNResult OnEventFire() override { return m_pOwner->Send_i(m_pData.release(), m_Param.Get(), true); }

private:
    CChain m_pData;
    CParameterCopy m_Param;
};

// To the network thread: the application disconnects.
class CPSEventDisconnect : public CEventOfTransport
{
public:
    CPSEventDisconnect(CPSTransportThreadProxy* owner, long reason) : CEventOfTransport(owner), m_lReason(reason) {}

    MNResult OnEventFire() override
    {
        IPSTransport* transport = m_pOwner->GetTransport();
        return transport ? transport->Disconnect(m_lReason) : MN_ERROR_NULL_POINTER;
    }

private:
    long m_lReason;
};

// To the user thread: data has arrived.
class CPSEventOnReceive : public CEventOfTransport
{
public:
    CPSEventOnReceive(CPSTransportThreadProxy* owner, CMNMessageBlock& data, const CPSTransportParameter* param)
        : CEventOfTransport(owner), m_pData(data.DuplicateChained()), m_Param(param)
    {
    }

    MNResult OnEventFire() override
    {
        m_pOwner->EnsureStopFlagThread("CPSEventOnReceive");
        if (m_pOwner->IsFlagStopped())
            return MN_OK;
        IPSTransportSink* sink = m_pOwner->GetSink();
        if (!sink || !m_pData)
            return MN_ERROR_NULL_POINTER;
        sink->OnReceive(*m_pData, m_pOwner, m_Param.Get());
        return MN_OK;
    }

private:
    CChain m_pData;
    CParameterCopy m_Param;
};

// To the user thread: the transport takes data again.
class CPSEventOnSend : public CEventOfTransport
{
public:
    CPSEventOnSend(CPSTransportThreadProxy* owner, const CPSTransportParameter* param)
        : CEventOfTransport(owner), m_Param(param)
    {
    }

    MNResult OnEventFire() override
    {
        m_pOwner->EnsureStopFlagThread("CPSEventOnSend");
        if (m_pOwner->IsFlagStopped())
            return MN_OK;
        IPSTransportSink* sink = m_pOwner->GetSink();
        if (!sink)
            return MN_ERROR_NULL_POINTER;
        sink->OnSend(m_pOwner, m_Param.Get());
        return MN_OK;
    }

private:
    CParameterCopy m_Param;
};

// To the user thread: the connection has ended.
class CPSEventOnDisconnect : public CEventOfTransport
{
public:
    CPSEventOnDisconnect(CPSTransportThreadProxy* owner, long reason) : CEventOfTransport(owner), m_lReason(reason) {}

    MNResult OnEventFire() override
    {
        m_pOwner->EnsureStopFlagThread("CPSEventOnDisconnect");
        if (m_pOwner->IsFlagStopped())
            return MN_OK;
        m_pOwner->SetStopFlag();
        IPSTransportSink* sink = m_pOwner->GetSink();
        if (!sink)
            return MN_ERROR_NULL_POINTER;
        sink->OnDisconnect(m_lReason, m_pOwner);
        return MN_OK;
    }

private:
    long m_lReason;
};

CPSTransportThreadProxy::CItem::CItem(CMNMessageBlock* data, const CPSTransportParameter* param)
    : m_pData(data), m_Param(param ? *param : CPSTransportParameter()), m_pParam(param ? &m_Param : nullptr)
{
}

CPSTransportThreadProxy::CItem::~CItem()
{
    m_pData->DestroyChained();
}

CPSTransportThreadProxy::CPSTransportThreadProxy(IPSTransport* transport, IPSReactor* reactorNetwork,
                                                 CMNThread* threadUser, unsigned long type)
    : m_pTransport(transport), m_pThreadUser(threadUser), m_pReactorNetwork(reactorNetwork), m_dwType(type)
{
    SetStartFlag();
    if (threadUser)
        BindStopFlagToThread(threadUser->GetThreadId());
}

CPSTransportThreadProxy::~CPSTransportThreadProxy()
{
    if (m_pTransport)
        m_pTransport->Disconnect(0);
}

MNResult CPSTransportThreadProxy::OpenWithSink(IPSTransportSink* sink)
{
    if (!sink)
        return MN_ERROR_INVALID_ARG;
    m_pSink = sink;
    return MN_OK;
}

MNResult CPSTransportThreadProxy::SendData(CMNMessageBlock& data, CPSTransportParameter* param)
{
    const unsigned long length = data.GetChainedLength();
    if (param)
        param->SentLength = 0;
    if (PSIsNetworkThread())
        return Send_i(&data, param, false);
    IMNEvent* event = PSMakeEvent<CPSEventSendData>(this, data, param);
    if (!event)
        return MN_ERROR_NOT_INITIALIZED;
    if (const MNResult result = PSPostToNetwork(m_pReactorNetwork, event); result != MN_OK)
        return result;
    if (param)
        param->SentLength = length;
    return data.AdvanceChainedReadPtr(length);
}

MNResult CPSTransportThreadProxy::Send_i(CMNMessageBlock* data, CPSTransportParameter* param, bool owned)
{
    CChain keep(owned ? data : nullptr);
    if (!m_pTransport)
        return MN_ERROR_NULL_POINTER;
    m_bNotifyOnSend = false;
    MNResult refusal = MN_OK;
    if (m_SendQueue.empty()) {
        if (!data) {
            Drained_i();
            return MN_OK;
        }
        refusal = m_pTransport->SendData(*data, param);
        if (refusal == MN_OK || IsUdp())
            return refusal;
    }
    if (data) {
        Queue_i(data, param, owned);
        static_cast<void>(keep.release());
    }
    return refusal != MN_OK ? Refused_i(refusal) : Drain_i();
}

void CPSTransportThreadProxy::Queue_i(CMNMessageBlock* data, CPSTransportParameter* param, bool owned)
{
    m_SendQueue.emplace_back(owned ? data : data->DuplicateChained(), param);
    if (owned)
        return;
    const unsigned long rest = data->GetChainedLength();
    data->AdvanceChainedReadPtr(rest);
    if (param)
        param->SentLength = rest;
}

MNResult CPSTransportThreadProxy::Drain_i()
{
    while (!m_SendQueue.empty()) {
        CItem& head = m_SendQueue.front();
        if (const MNResult refusal = m_pTransport->SendData(*head.m_pData, head.m_pParam); refusal != MN_OK)
            return Refused_i(refusal);
        m_SendQueue.pop_front();
    }
    Drained_i();
    return MN_OK;
}

void CPSTransportThreadProxy::Drained_i()
{
    m_bSendBlocked = false;
    m_bNotifyOnSend = true;
}

MNResult CPSTransportThreadProxy::Refused_i(MNResult refusal)
{
    m_LastRefusalWouldBlock.store(refusal == MN_ERROR_PARTIAL_DATA ? 1 : 0);
    m_bSendBlocked = true;
    return MN_OK;
}

MNResult CPSTransportThreadProxy::SetOption(unsigned long optionId, void* arg)
{
    return m_pTransport ? m_pTransport->SetOption(optionId, arg) : MN_ERROR_NULL_POINTER;
}

MNResult CPSTransportThreadProxy::GetOption(unsigned long optionId, void* arg)
{
    if (!m_pTransport)
        return MN_ERROR_NULL_POINTER;
    switch (optionId) {
    case OPT_TYPE: {
        std::uint64_t type = 0;
        if (const MNResult result = m_pTransport->GetOption(OPT_TYPE, &type); result != MN_OK)
            return result;
        if (!arg)
            return MN_ERROR_INVALID_ARG;
        *static_cast<std::uint64_t*>(arg) = type;
        return MN_OK;
    }
    case OPT_NETWORK_TRANSPORT:
        if (!arg)
            return MN_ERROR_INVALID_ARG;
        *static_cast<IPSTransport**>(arg) = m_pTransport.Get();
        return MN_OK;
    default:
        return m_pTransport->GetOption(optionId, arg);
    }
}

MNResult CPSTransportThreadProxy::Disconnect(long reason)
{
    EnsureStopFlagThread("CPSTransportThreadProxy::Disconnect");
    if (IsFlagStopped())
        return MN_OK;
    SetStopFlag();
    m_pSink = nullptr;
    IMNEvent* event = PSMakeEvent<CPSEventDisconnect>(this, reason);
    return event ? PSPostToNetwork(m_pReactorNetwork, event) : MN_ERROR_NOT_INITIALIZED;
}

MNResult CPSTransportThreadProxy::GetPeerAddr(CMNInetAddr& addr)
{
    return m_pTransport ? m_pTransport->GetPeerAddr(addr) : MN_ERROR_NULL_POINTER;
}

MNResult CPSTransportThreadProxy::GetLocalAddr(CMNInetAddr& addr)
{
    return m_pTransport ? m_pTransport->GetLocalAddr(addr) : MN_ERROR_NULL_POINTER;
}

template <class Event, class... Args>
MNResult CPSTransportThreadProxy::PostToUser_i(Args&&... args)
{
    IMNEvent* event = PSMakeEvent<Event>(this, std::forward<Args>(args)...);
    if (!event)
        return MN_ERROR_NOT_INITIALIZED;
    // A refusal drops the event's reference, which may be the last: this object is not touched behind the post.
    // The transport, from inside whose call this runs, is deleted later at the earliest.
    IPSTransport* transport = m_pTransport.Get();
    const MNResult result = PSPostToUser(m_pThreadUser, event);
    if (result != MN_OK && transport)
        transport->Disconnect(static_cast<long>(MN_ERROR_NOT_INITIALIZED));
    return result;
}

MNResult CPSTransportThreadProxy::OnReceive(CMNMessageBlock& data, IPSTransport*, CPSTransportParameter* param)
{
    return PostToUser_i<CPSEventOnReceive>(data, param);
}

MNResult CPSTransportThreadProxy::OnSend(IPSTransport*, CPSTransportParameter* param)
{
    if (IsUdp())
        return MN_OK;
    if (!m_SendQueue.empty()) {
        m_bNotifyOnSend = false;
        Send_i(nullptr, nullptr, false);
        if (m_bSendBlocked)
            return MN_OK;
    }
    if (!m_bNotifyOnSend)
        return MN_OK;
    m_bNotifyOnSend = false;
    return PostToUser_i<CPSEventOnSend>(param);
}

MNResult CPSTransportThreadProxy::OnDisconnect(long reason, IPSTransport*)
{
    if (m_pTransport)
        m_pTransport->Disconnect(reason);
    return PostToUser_i<CPSEventOnDisconnect>(reason);
}

void CPSTransportThreadProxy::OnReferenceDestory()
{
    SetStopFlag();
    EnlistDelete();
    if (m_TimerDelete.Schedule(this, CMNTimeValue::s_tvZero, 1) != MN_OK)
        OnTimer(&m_TimerDelete);
}

void CPSTransportThreadProxy::OnTimer(mantle::CMNTimerWrapperID*)
{
    ForgetDelete();
    m_TimerDelete.Cancel();
    PSDeleteOnNetworkThread(this, m_pReactorNetwork);
}

}  // namespace uxport
