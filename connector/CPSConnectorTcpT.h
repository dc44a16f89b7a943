// One active TCP open.
#ifndef UXPORT_CONNECTOR_CPSCONNECTORTCPT_H
#define UXPORT_CONNECTOR_CPSCONNECTORTCPT_H

#include <cstdint>
#include <new>

#include "connector/IPSConnectorInternal.h"
#include "ipstack/ps_socket.h"
#include "mantle/CMNInetAddr.h"
#include "mantle/IMNObserver.h"
#include "reactor/CPSReactorBase.h"
#include "socket/PSStackAddress.h"
#include "uxport/IPSEventHandler.h"
#include "uxport/IPSTransport.h"

namespace uxport
{

// Makes the transport, starts a non-blocking connect on its socket, waits for the outcome as an event handler
// and tells the wrapper, which owns the connector and may delete it while it is told. Thread: the reactor's.
template <class Wrapper, class Transport, class Socket>
class CPSConnectorTcpT : public IPSEventHandler, public IPSConnectorInternal, public mantle::IMNObserver
{
public:
    CPSConnectorTcpT(IPSReactor* reactor, Wrapper* wrapper) : m_pReactor(reactor), m_pWrapper(wrapper) {}
    ~CPSConnectorTcpT() override { CPSConnectorTcpT::Close(); }
    CPSConnectorTcpT(const CPSConnectorTcpT&) = delete;
    CPSConnectorTcpT& operator=(const CPSConnectorTcpT&) = delete;

    int GetHandle() const override { return m_pTransport ? m_pTransport->GetHandle() : PS_INVALID_HANDLE; }

    // The connect was decided.
    int OnOutput(int handle) override
    {
        if (ps_is_socket_errno(handle) != 0)
            return Fail_i();
        Transport* transport = m_pTransport;
        if (transport) {
            transport->AddReference();
            CPSConnectorTcpT::Close();
        }
        m_pWrapper->OnConnectIndication(0, transport, this);
        // Nothing of this object from here on: the wrapper may be gone.
        if (transport)
            transport->ReleaseReference();
        return 0;
    }

    // The reactor dropped the registration: the connect failed.
    int OnClose(int, long) override { return Fail_i(); }

    // A socket bound to the local address unless that is the any-address; without `localAddr` the one of the
    // attempt before. An attempt under way is dropped. Returns: PS_CONNECT_FAILED, the transport then stays until
    // Close; else what the notification returned.
    MNResult Connect(const CMNInetAddr& peerAddr, CMNInetAddr* localAddr, unsigned short, unsigned short) override
    {
        m_PeerAddr = peerAddr;
        if (localAddr)
            m_LocalAddr = *localAddr;
        auto* transport = new (std::nothrow) Transport(m_pReactor);
        if (!transport)
            return PS_CONNECT_FAILED;
        transport->AddReference();
        CPSConnectorTcpT::Close();  // while the attempt before can still be found by its handle
        m_pTransport = transport;

        Socket& socket = transport->GetPeer();
        const int opened = m_LocalAddr == CMNInetAddr::s_InetAddrAny ? socket.Open(0) : socket.Open(0, m_LocalAddr);
        if (opened != 0 || socket.Enable(Socket::s_nNonBlock) == -1)
            return PS_CONNECT_FAILED;
        if (CPSReactorBase::RegisterHandlerIfAlive(m_pReactor, this, CONNECT_MASK) != MN_OK)
            return PS_CONNECT_FAILED;
        if (ps_connect(socket.GetHandle(), PSStackAddress(m_PeerAddr), m_PeerAddr.GetSize()) == -1)
            return PS_CONNECT_FAILED;
        return m_pReactor->NotifyHandler(this, WRITE_MASK);
    }

    MNResult Close() override
    {
        if (Transport* transport = m_pTransport) {
            CPSReactorBase::RemoveHandlerIfAlive(m_pReactor, this, CONNECT_MASK);
            m_pTransport = nullptr;
            transport->ReleaseReference();
        }
        return MN_OK;
    }

    // An address has been found, or not: `data` points to a 32-bit result, 0 connects to the retry address.
    MNResult OnObserve(const char*, void* data) override
    {
        if (data && *static_cast<const std::int32_t*>(data) == 0) {
            const MNResult result = Connect(m_RetryAddr, &m_LocalAddr, 0, 0);
            if (result != PS_CONNECT_FAILED)
                return result;
        }
        CPSConnectorTcpT::Close();
        return m_pWrapper->OnConnectIndication(static_cast<long>(MN_ERROR_FAILURE), nullptr, this);
    }

private:
    int Fail_i()
    {
        CPSConnectorTcpT::Close();
        m_pWrapper->OnConnectIndication(static_cast<long>(MN_ERROR_FAILURE), nullptr, this);
        return 0;
    }

    IPSReactor* m_pReactor;             // not owned
    Wrapper* m_pWrapper;                // not owned
    Transport* m_pTransport = nullptr;  // one reference held
    CMNInetAddr m_RetryAddr;            // for OnObserve; nothing fills it
    CMNInetAddr m_LocalAddr;
    CMNInetAddr m_PeerAddr;
};

}  // namespace uxport

#endif
