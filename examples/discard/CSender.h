// Who has something to throw away.
#ifndef DISCARD_CSENDER_H
#define DISCARD_CSENDER_H

#include <cstdint>

#include "CExample.h"

// A stream, in pieces. A transport of a user thread takes whatever it is given, and queues it: what keeps memory
// bounded is to wait, after a piece larger than the socket's send buffer, for the OnSend that follows when the whole
// piece has gone to the stack.
class CStreamSender : public CExampleSink
{
public:
    explicit CStreamSender(std::uint64_t bytes) : m_qwLeft(bytes) {}

    MNResult Start(const uxport::CMNInetAddr& address);
    MNResult OnConnectIndication(long result, uxport::IPSTransport* transport,
                                 uxport::IPSAcceptorConnectorId* id) override;
    MNResult OnSend(uxport::IPSTransport* transport, uxport::CPSTransportParameter* param) override;

private:
    static constexpr unsigned long s_dwPiece = 262144;

    std::uint64_t m_qwLeft;
    mantle::CMNAutoPtr<uxport::IPSConnector> m_pConnector;
    mantle::CMNAutoPtr<uxport::IPSTransport> m_pTransport;
};

// Datagrams, some at a time: nobody tells a sender of datagrams to wait, and what the other end has no room for is lost.
class CDatagramSender : public CExampleSink, public mantle::CMNTimerWrapperIDSink
{
public:
    explicit CDatagramSender(std::uint64_t datagrams) : m_qwLeft(datagrams) {}

    MNResult Start(const uxport::CMNInetAddr& address);
    MNResult OnConnectIndication(long result, uxport::IPSTransport* transport,
                                 uxport::IPSAcceptorConnectorId* id) override;
    void OnTimer(mantle::CMNTimerWrapperID* timer) override;

private:
    static constexpr int s_nAtATime = 16;
    static constexpr unsigned long s_dwLength = 1000;

    std::uint64_t m_qwLeft;
    mantle::CMNTimerWrapperID m_Timer;
    mantle::CMNAutoPtr<uxport::IPSConnector> m_pConnector;
    mantle::CMNAutoPtr<uxport::IPSTransport> m_pTransport;
};

#endif
