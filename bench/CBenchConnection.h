// A client and a server on the network thread, connected with each other.
#ifndef BENCH_CBENCHCONNECTION_H
#define BENCH_CBENCHCONNECTION_H

#include <functional>

#include "bench/CBenchNetwork.h"

// One end; calls the functions that are set.
class CBenchEnd : public uxport::IPSTransportSink
{
public:
    uxport::MNResult OnReceive(uxport::CMNMessageBlock& data, uxport::IPSTransport*,
                               uxport::CPSTransportParameter*) override
    {
        if (m_fOnReceive)
            m_fOnReceive(data);
        return uxport::MN_OK;
    }
    uxport::MNResult OnSend(uxport::IPSTransport*, uxport::CPSTransportParameter*) override
    {
        if (m_fOnSend)
            m_fOnSend();
        return uxport::MN_OK;
    }
    uxport::MNResult OnDisconnect(long, uxport::IPSTransport*) override { return uxport::MN_OK; }

    mantle::CMNAutoPtr<uxport::IPSTransport> m_pTransport;
    std::function<void(uxport::CMNMessageBlock&)> m_fOnReceive;
    std::function<void()> m_fOnSend;
};

// Thread: main; what is inside belongs to the network thread.
class CBenchConnection : public uxport::IPSAcceptorConnectorSink
{
public:
    CBenchConnection();
    ~CBenchConnection() override;

    bool IsOpen() const { return m_Client.m_pTransport && m_Server.m_pTransport; }
    CBenchEnd& GetClient() { return m_Client; }
    CBenchEnd& GetServer() { return m_Server; }

    uxport::MNResult OnConnectIndication(long result, uxport::IPSTransport* transport,
                                         uxport::IPSAcceptorConnectorId* id) override;

private:
    mantle::CMNAutoPtr<uxport::IPSAcceptor> m_pAcceptor;
    mantle::CMNAutoPtr<uxport::IPSConnector> m_pConnector;
    CBenchEnd m_Client;
    CBenchEnd m_Server;
};

#endif
