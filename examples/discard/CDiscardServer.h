// The server of both protocols.
#ifndef DISCARD_CDISCARDSERVER_H
#define DISCARD_CDISCARDSERVER_H

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <list>
#include <utility>

#include "CExample.h"

// Counts and throws away. One for each protocol.
class CDiscardServer : public CExampleSink
{
public:
    // `onReceived` is told after each stretch or datagram.
    explicit CDiscardServer(std::function<void()> onReceived) : m_OnReceived(std::move(onReceived)) {}

    MNResult Start(unsigned long type, const uxport::CMNInetAddr& address)
    {
        const MNResult result =
            uxport::IPSConnectionManager::Instance()->CreateConnectionServer(type, m_pAcceptor.ParaOut());
        return result == uxport::MN_OK ? m_pAcceptor->StartListen(this, address, 0, 0) : result;
    }

    MNResult OnConnectIndication(long, uxport::IPSTransport* transport, uxport::IPSAcceptorConnectorId*) override
    {
        m_Peers.emplace_back(transport);
        return transport->OpenWithSink(this);
    }

    MNResult OnReceive(uxport::CMNMessageBlock& data, uxport::IPSTransport*, uxport::CPSTransportParameter*) override
    {
        ++m_qwReceived;
        m_qwBytes += data.GetChainedLength();
        m_OnReceived();
        return uxport::MN_OK;
    }

    MNResult OnDisconnect(long, uxport::IPSTransport* transport) override
    {
        m_Peers.remove_if([transport](const auto& peer) { return peer.Get() == transport; });
        std::printf("discard: a connection has ended, %" PRIu64 " bytes so far\n", m_qwBytes);
        std::fflush(stdout);
        return uxport::MN_OK;
    }

    std::uint64_t GetBytes() const { return m_qwBytes; }
    std::uint64_t GetReceived() const { return m_qwReceived; }  // stretches or datagrams

private:
    std::function<void()> m_OnReceived;
    std::uint64_t m_qwReceived = 0;
    std::uint64_t m_qwBytes = 0;
    mantle::CMNAutoPtr<uxport::IPSAcceptor> m_pAcceptor;
    std::list<mantle::CMNAutoPtr<uxport::IPSTransport>> m_Peers;
};

#endif
