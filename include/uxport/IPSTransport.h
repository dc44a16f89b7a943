// One connected endpoint.
#ifndef UXPORT_IPSTRANSPORT_H
#define UXPORT_IPSTRANSPORT_H

#include "mantle/CMNReferenceControl.h"
#include "uxport/CPSTransportParameter.h"
#include "uxport/PSDefines.h"

namespace uxport
{

class IPSTransportSink;

// Comes with OnConnectIndication. Thread: the one that owns the connection. The last release deletes the
// object later, never inside the call that released it, and closes what is still open.
class UXPORT_API IPSTransport : public mantle::IMNReferenceControl
{
public:
    ~IPSTransport() override = default;

    // Opens the transport and reports to `sink` from now on. A second call only replaces the sink.
    // Owns: the sink must live until Disconnect has returned or OnDisconnect was delivered.
    // Returns: 0; MN_ERROR_INVALID_ARG for null (nothing changes); MN_ERROR_FAILURE when the socket can't be made
    // non-blocking or MN_ERROR_INVALID_ARG when it is none: the socket is then closed and the sink forgotten.
    virtual MNResult OpenWithSink(IPSTransportSink* sink) = 0;

    virtual IPSTransportSink* GetSink() = 0;

    // Sends the readable bytes of `data` and moves its read position past what was taken; `param`, when given,
    // receives the count. UDP and raw send the first block of the chain alone, as one datagram, also an empty one, and
    // count the whole chain, taken or not. Returns: 0 all was taken; MN_ERROR_PARTIAL_DATA a part or nothing was: the
    // rest stays in `data` and OnSend tells when to try again (TCP); MN_ERROR_NOT_INITIALIZED closed;
    // MN_ERROR_NETWORK_SOCKET_ERROR the socket has failed (TCP); MN_ERROR_FAILURE the datagram was refused (UDP, raw).
    virtual MNResult SendData(CMNMessageBlock& data, CPSTransportParameter* param) = 0;

    // Options, see PSDefines.h. Returns: 0; MN_ERROR_INVALID_ARG for null, an option that this transport does not have
    // or a value that it does not take; MN_ERROR_NETWORK_SOCKET_ERROR when the socket call failed;
    // MN_ERROR_NOT_INITIALIZED for OPT_ALIVE of a closed one.
    virtual MNResult SetOption(unsigned long optionId, void* arg) = 0;
    virtual MNResult GetOption(unsigned long optionId, void* arg) = 0;

    // Closes; the sink hears nothing any more, not of this either. What was accepted for sending still goes
    // out. `reason` is not sent. Returns: 0, also when it is closed.
    virtual MNResult Disconnect(long reason) = 0;

    // Returns: 0 even when the address can't be had; `addr` is then left as it was.
    virtual MNResult GetPeerAddr(CMNInetAddr& addr) = 0;
    virtual MNResult GetLocalAddr(CMNInetAddr& addr) = 0;
};

}  // namespace uxport

#endif
