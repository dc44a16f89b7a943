// What travels between the two sides of a transport's proxy.
#ifndef UXPORT_PROXY_CPSTRANSPORTEVENTS_H
#define UXPORT_PROXY_CPSTRANSPORTEVENTS_H

#include <memory>

#include "mantle/CMNMessageBlock.h"
#include "proxy/CPSEventOfProxyT.h"
#include "proxy/CPSTransportThreadProxy.h"

namespace uxport
{

struct CPSChainDestroyer
{
    void operator()(CMNMessageBlock* chain) const { chain->DestroyChained(); }
};
using CPSChain = std::unique_ptr<CMNMessageBlock, CPSChainDestroyer>;

// A parameter record that has changed threads.
class CPSParameterCopy
{
public:
    explicit CPSParameterCopy(const CPSTransportParameter* param)
        : m_Param(param ? *param : CPSTransportParameter()), m_pParam(param ? &m_Param : nullptr)
    {
    }
    CPSParameterCopy(const CPSParameterCopy&) = delete;
    CPSParameterCopy& operator=(const CPSParameterCopy&) = delete;
    CPSTransportParameter* Get() { return m_pParam; }

private:
    CPSTransportParameter m_Param;
    CPSTransportParameter* m_pParam;
};

using CPSEventOfTransport = CPSEventOfProxyT<CPSTransportThreadProxy>;

// To the network thread: data of the application.
class CPSEventSendData : public CPSEventOfTransport
{
public:
    CPSEventSendData(CPSTransportThreadProxy* owner, CMNMessageBlock& data, const CPSTransportParameter* param)
        : CPSEventOfTransport(owner), m_pData(data.DuplicateChained()), m_Param(param)
    {
    }

    MNResult OnEventFire() override { return m_pOwner->Send_i(m_pData.release(), m_Param.Get(), true); }

private:
    CPSChain m_pData;
    CPSParameterCopy m_Param;
};

// To the network thread: the application disconnects.
class CPSEventDisconnect : public CPSEventOfTransport
{
public:
    CPSEventDisconnect(CPSTransportThreadProxy* owner, long reason) : CPSEventOfTransport(owner), m_lReason(reason) {}

    MNResult OnEventFire() override
    {
        IPSTransport* transport = m_pOwner->GetTransport();
        return transport ? transport->Disconnect(m_lReason) : MN_ERROR_NULL_POINTER;
    }

private:
    long m_lReason;
};

// To the user thread: data has arrived.
class CPSEventOnReceive : public CPSEventOfTransport
{
public:
    CPSEventOnReceive(CPSTransportThreadProxy* owner, CMNMessageBlock& data, const CPSTransportParameter* param)
        : CPSEventOfTransport(owner), m_pData(data.DuplicateChained()), m_Param(param)
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
    CPSChain m_pData;
    CPSParameterCopy m_Param;
};

// To the user thread: the transport takes data again.
class CPSEventOnSend : public CPSEventOfTransport
{
public:
    CPSEventOnSend(CPSTransportThreadProxy* owner, const CPSTransportParameter* param)
        : CPSEventOfTransport(owner), m_Param(param)
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
    CPSParameterCopy m_Param;
};

// To the user thread: the connection has ended.
class CPSEventOnDisconnect : public CPSEventOfTransport
{
public:
    CPSEventOnDisconnect() : CPSEventOfTransport(nullptr) {}
    CPSEventOnDisconnect(CPSTransportThreadProxy* owner, long reason) : CPSEventOfTransport(owner), m_lReason(reason) {}

    void SetReason(long reason) { m_lReason = reason; }

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
    long m_lReason = 0;
};

}  // namespace uxport

#endif
