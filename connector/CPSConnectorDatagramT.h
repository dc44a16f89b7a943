// What the UDP and the raw connector share.
#ifndef UXPORT_CONNECTOR_CPSCONNECTORDATAGRAMT_H
#define UXPORT_CONNECTOR_CPSCONNECTORDATAGRAMT_H

#include <cstdint>
#include <new>

#include "connector/IPSConnectorInternal.h"
#include "ipstack/ps_socket.h"
#include "mantle/CMNInetAddr.h"
#include "mantle/CMNTimeValue.h"
#include "mantle/IMNObserver.h"
#include "mantle/IMNTimerQueue.h"
#include "reactor/CPSReactorBase.h"
#include "socket/PSStackAddress.h"
#include "uxport/IPSEventHandler.h"
#include "uxport/IPSTransport.h"

namespace uxport
{

// Connects a datagram socket, which the stack does at once, and tells the wrapper of it on a zero-delay timer. The
// reactor never watches the connector. The wrapper owns it and may delete it while it is told. Thread: the reactor's.
template <class Wrapper, class Transport, class Socket>
class CPSConnectorDatagramT : public IPSEventHandler,
                              public IPSConnectorInternal,
                              public IMNTimerHandler,
                              public mantle::IMNObserver
{
public:
    CPSConnectorDatagramT(IPSReactor* reactor, Wrapper* wrapper) : m_pReactor(reactor), m_pWrapper(wrapper) {}
    ~CPSConnectorDatagramT() override { CPSConnectorDatagramT::Close(); }
    CPSConnectorDatagramT(const CPSConnectorDatagramT&) = delete;
    CPSConnectorDatagramT& operator=(const CPSConnectorDatagramT&) = delete;

    int GetHandle() const override { return m_pTransport ? m_pTransport->GetHandle() : PS_INVALID_HANDLE; }
    int OnClose(int, long) override { return 0; }

    // The socket is always bound: to `localAddr`, without it to the one of the attempt before, at first the IPv4
    // any-address. Returns: 0; PS_CONNECT_FAILED, also while a transport is held, which a failed attempt keeps until Close.
    MNResult Connect(const CMNInetAddr& peerAddr, CMNInetAddr* localAddr, unsigned short number1,
                     unsigned short number2) override
    {
        if (localAddr)
            m_LocalAddr = *localAddr;
        if (m_pTransport || !Open_i(peerAddr, number1, number2))
            return PS_CONNECT_FAILED;
        return Schedule_i() == MN_ERROR_UNEXPECTED ? PS_CONNECT_FAILED : MN_OK;
    }

    // A transport that has not been handed over is deleted at once.
    MNResult Close() override
    {
        CPSReactorBase::CancelTimerIfAlive(m_pReactor, this);
        Transport* transport = m_pTransport;
        m_pTransport = nullptr;
        delete transport;
        return MN_OK;
    }

    // Hands the transport over.
    void OnTimeout(const CMNTimeValue&, void*) override
    {
        Transport* transport = m_pTransport;
        m_pTransport = nullptr;
        m_pWrapper->OnConnectIndication(0, transport, this);
    }

    // An address has been found, or not: `data` points to a 32-bit result, 0 connects to the retry address.
    MNResult OnObserve(const char*, void* data) override
    {
        const bool found = data && *static_cast<const std::int32_t*>(data) == 0;
        if (found && !m_pTransport && Open_i(m_RetryAddr, 0, 0))
            return Schedule_i();
        CPSConnectorDatagramT::Close();
        return m_pWrapper->OnConnectIndication(static_cast<long>(MN_ERROR_FAILURE), nullptr, this);
    }

private:
    // The protocol's socket, bound to `localAddr`. Returns: 0 when it is open.
    virtual int OpenSocket_i(Socket& socket, const CMNInetAddr& localAddr, unsigned short number1,
                             unsigned short number2) = 0;

    // Returns: whether the transport is connected. It is held in any case.
    bool Open_i(const CMNInetAddr& peerAddr, unsigned short number1, unsigned short number2)
    {
        m_pTransport = new (std::nothrow) Transport(m_pReactor, peerAddr, nullptr);
        if (!m_pTransport)
            return false;
        Socket& socket = m_pTransport->GetPeer();
        return OpenSocket_i(socket, m_LocalAddr, number1, number2) == 0 && socket.Enable(Socket::s_nNonBlock) != -1 &&
               ps_connect(socket.GetHandle(), PSStackAddress(peerAddr), peerAddr.GetSize()) != -1;
    }

    MNResult Schedule_i() { return m_pReactor->ScheduleTimer(this, nullptr, CMNTimeValue::s_tvZero, 1); }

    IPSReactor* m_pReactor;             // not owned; also the timer queue
    Wrapper* m_pWrapper;                // not owned
    Transport* m_pTransport = nullptr;  // owned, without a reference
    CMNInetAddr m_RetryAddr;            // for OnObserve; nothing fills it
    CMNInetAddr m_LocalAddr;
};

}  // namespace uxport

#endif
