// Who receives what arrives on a transport.
#ifndef UXPORT_IPSTRANSPORTSINK_H
#define UXPORT_IPSTRANSPORTSINK_H

#include "uxport/PSDefines.h"

namespace uxport
{

class IPSTransport;
struct CPSTransportParameter;

// Implemented by the application; its results are ignored. Thread: the one that owns the transport.
// `transport` is always the object that came with OnConnectIndication; `param` may be null.
// Reenter: the sink may disconnect and release the transport from every one of these.
class UXPORT_API IPSTransportSink
{
public:
    // Data arrived: a stretch of the stream, or one datagram. Owns: `data` is good during the call; keep it by
    // DuplicateChained.
    virtual MNResult OnReceive(CMNMessageBlock& data, IPSTransport* transport, CPSTransportParameter* param) = 0;

    // The transport, which had refused data with MN_ERROR_PARTIAL_DATA, takes data again.
    virtual MNResult OnSend(IPSTransport* transport, CPSTransportParameter* param) = 0;

    // The connection ended without Disconnect, with `reason` MN_ERROR_FAILURE; nothing follows.
    virtual MNResult OnDisconnect(long reason, IPSTransport* transport) = 0;

    virtual ~IPSTransportSink() = default;
};

}  // namespace uxport

#endif
