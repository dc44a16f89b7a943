// A listening endpoint.
#ifndef UXPORT_IPSACCEPTOR_H
#define UXPORT_IPSACCEPTOR_H

#include "uxport/IPSAcceptorConnectorId.h"

namespace uxport
{

class IPSAcceptorConnectorSink;

// Comes from IPSConnectionManager::CreateConnectionServer with one reference. Thread: the creating one.
class UXPORT_API IPSAcceptor : public IPSAcceptorConnectorId
{
public:
    // Listens on `localAddr` and offers every peer to `sink`, which must live until StopListen has returned.
    // The two numbers are the protocol's: TCP and UDP ignore them, raw takes address family and IP protocol and binds
    // nothing. UDP takes a fixed port: two acceptors on port 0 of one address would share their peers.
    // Returns: 0; MN_ERROR_ALREADY_INITIALIZED while listening; MN_ERROR_INVALID_ARG for a null sink; MN_ERROR_FAILURE
    // when the socket can't be opened, bound, listened on or registered (nothing stays open). A UDP or raw socket that
    // can't be made non-blocking: MN_ERROR_FAILURE, it stays open until the acceptor is deleted.
    [[nodiscard]] virtual MNResult StartListen(IPSAcceptorConnectorSink* sink, const CMNInetAddr& localAddr,
                                               unsigned short number1, unsigned short number2) = 0;

    // Stops; no indication follows. Accepted TCP transports live on; UDP and raw ones, which use the acceptor's socket,
    // are closed without OnDisconnect. Raw ones open again when their peer sends after a start. `reason` is not used.
    // An acceptor of these two that only its transports keep alive stops by itself.
    // Returns: 0, also when nothing listens. Reenter: may be called from OnConnectIndication; StartListen may follow.
    virtual MNResult StopListen(long reason) = 0;
};

}  // namespace uxport

#endif
