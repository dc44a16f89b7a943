#include "proxy/CPSTransportThreadProxy.h"

#include <cstdint>
#include <memory>
#include <new>

#include "mantle/CMNMessageBlock.h"
#include "mantle/CMNTimeValue.h"
#include "proxy/CPSTransportEvents.h"
#include "reactor/PSNoMemory.h"

using mantle::CMNThread;

namespace uxport
{

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
    : m_pTransport(transport),
      m_pThreadUser(threadUser),
      m_pReactorNetwork(reactorNetwork),
      m_dwType(type),
      m_OnDisconnect(std::make_unique<CPSEventOnDisconnect>()),
      m_Delete(std::make_unique<CPSEventDeleteProxyT<CPSTransportThreadProxy>>())
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
    IMNEventQueue::CPlace place;
    if (const MNResult result = PSMakeEvent<CPSEventSendData>(place, this, data, param); result != MN_OK)
        return result;
    if (const MNResult result = PSPostToNetwork(m_pReactorNetwork, place); result != MN_OK)
        return result;
    if (param)
        param->SentLength = length;
    return data.AdvanceChainedReadPtr(length);
}

MNResult CPSTransportThreadProxy::Send_i(CMNMessageBlock* data, CPSTransportParameter* param, bool owned)
{
    CPSChain keep(owned ? data : nullptr);
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
        if (!Queue_i(data, param, owned)) {
            if (!owned) {
                Drained_i();
                return MN_ERROR_UNEXPECTED;
            }
            // The application has been told that it was taken.
            PSReportNoMemory("data that waits");
            return OnDisconnect(static_cast<long>(MN_ERROR_FAILURE), nullptr);
        }
        static_cast<void>(keep.release());
    }
    return refusal != MN_OK ? Refused_i(refusal) : Drain_i();
}

bool CPSTransportThreadProxy::Queue_i(CMNMessageBlock* data, CPSTransportParameter* param, bool owned)
{
    try {
        CPSChain copy(owned ? nullptr : data->DuplicateChained());
        m_SendQueue.emplace_back(owned ? data : copy.get(), param);
        static_cast<void>(copy.release());
    } catch (const std::bad_alloc&) {
        return false;
    }
    if (owned)
        return true;
    const unsigned long rest = data->GetChainedLength();
    data->AdvanceChainedReadPtr(rest);
    if (param)
        param->SentLength = rest;
    return true;
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
    IMNEventQueue::CPlace place;
    const MNResult made = PSMakeEvent<CPSEventDisconnect>(place, this, reason);
    if (made == MN_ERROR_UNEXPECTED)
        return made;
    SetStopFlag();
    m_pSink = nullptr;
    return made == MN_OK ? PSPostToNetwork(m_pReactorNetwork, place) : made;
}

MNResult CPSTransportThreadProxy::GetPeerAddr(CMNInetAddr& addr)
{
    return m_pTransport ? m_pTransport->GetPeerAddr(addr) : MN_ERROR_NULL_POINTER;
}

MNResult CPSTransportThreadProxy::GetLocalAddr(CMNInetAddr& addr)
{
    return m_pTransport ? m_pTransport->GetLocalAddr(addr) : MN_ERROR_NULL_POINTER;
}

MNResult CPSTransportThreadProxy::PostToUser_i(IMNEventQueue::CPlace& place)
{
    // A refusal drops the event's reference, which may be the last: this object is not touched behind the post.
    // The transport, from inside whose call this runs, is deleted later at the earliest.
    IPSTransport* transport = m_pTransport.Get();
    const MNResult result = PSPostToUser(m_pThreadUser, place);
    if (result != MN_OK && transport)
        transport->Disconnect(static_cast<long>(MN_ERROR_NOT_INITIALIZED));
    return result;
}

template <class Event, class... Args>
MNResult CPSTransportThreadProxy::MakeAndPost_i(Args&&... args)
{
    IMNEventQueue::CPlace place;
    const MNResult made = PSMakeEvent<Event>(place, this, std::forward<Args>(args)...);
    if (made == MN_OK)
        return PostToUser_i(place);
    if (made != MN_ERROR_UNEXPECTED)
        return made;
    PSReportNoMemory("a callback");
    // A datagram may get lost; a stream that misses something has ended.
    if ((m_dwType & CONNECTION_TYPE_TCP) != 0)
        OnDisconnect(static_cast<long>(MN_ERROR_FAILURE), nullptr);
    return made;
}

MNResult CPSTransportThreadProxy::OnReceive(CMNMessageBlock& data, IPSTransport*, CPSTransportParameter* param)
{
    return MakeAndPost_i<CPSEventOnReceive>(data, param);
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
    return MakeAndPost_i<CPSEventOnSend>(param);
}

MNResult CPSTransportThreadProxy::OnDisconnect(long reason, IPSTransport*)
{
    if (m_pTransport)
        m_pTransport->Disconnect(reason);
    IMNEventQueue::CPlace place;
    if (!m_OnDisconnect.IsThere()) {  // on its way already
        const MNResult made = PSMakeEvent<CPSEventOnDisconnect>(place, this, reason);
        return made == MN_OK ? PostToUser_i(place) : made;
    }
    auto& event = m_OnDisconnect.As<CPSEventOnDisconnect>();
    event.SetReason(reason);
    if (!event.SetOwner(this))
        return MN_ERROR_NOT_INITIALIZED;
    place.swap(m_OnDisconnect.GetPlace());
    return PostToUser_i(place);
}

void CPSTransportThreadProxy::OnReferenceDestory()
{
    SetStopFlag();
    EnlistDelete();
    const MNResult result = m_TimerDelete.Schedule(this, CMNTimeValue::s_tvZero, 1);
    if (result == MN_ERROR_UNEXPECTED) {
        ForgetDelete();
        m_TimerDelete.Cancel();
        PSPostDelete(this, m_pReactorNetwork, m_Delete);  // also on the network thread: not inside the release
    } else if (result != MN_OK) {
        OnTimer(&m_TimerDelete);
    }
}

void CPSTransportThreadProxy::OnTimer(mantle::CMNTimerWrapperID*)
{
    ForgetDelete();
    m_TimerDelete.Cancel();
    PSDeleteOnNetworkThread(this, m_pReactorNetwork, m_Delete);
}

}  // namespace uxport
