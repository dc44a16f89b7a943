// Who is told of new connections.
#ifndef UXPORT_IPSACCEPTORCONNECTORSINK_H
#define UXPORT_IPSACCEPTORCONNECTORSINK_H

#include "uxport/PSDefines.h"

namespace uxport
{

class IPSAcceptorConnectorId;
class IPSTransport;

// Implemented by the application.
class UXPORT_API IPSAcceptorConnectorSink
{
public:
    // A peer was accepted, or an attempt to connect ended. `result` 0: `transport` is new and waits for
    // OpenWithSink; otherwise the attempt failed or timed out and `transport` is null.
    // Thread: the one that owns the acceptor or connector. Owns: the transport is kept alive during the call
    // only; a sink that keeps it calls AddReference. Reenter: the sink may stop, cancel, start again and
    // release `id` and the transport from here. Returns: ignored.
    virtual MNResult OnConnectIndication(long result, IPSTransport* transport, IPSAcceptorConnectorId* id) = 0;

    virtual ~IPSAcceptorConnectorSink() = default;
};

}  // namespace uxport

#endif
