// Active opening of one connection at a time.
#ifndef UXPORT_IPSCONNECTOR_H
#define UXPORT_IPSCONNECTOR_H

#include "uxport/IPSAcceptorConnectorId.h"

namespace uxport
{

class IPSAcceptorConnectorSink;

// Comes from IPSConnectionManager::CreateConnectionClient with one reference. Thread: the creating one.
class UXPORT_API IPSConnector : public IPSAcceptorConnectorId
{
public:
    // Starts an attempt; its outcome reaches `sink` as exactly one OnConnectIndication, never from inside this
    // call, with MN_ERROR_FAILURE for every failure and for the time-out. `timeout` null: no limit but the stack's own.
    // `localAddr` null: as in the attempt before, at first any; raw IPv6 gives one of its family. The numbers are the
    // raw protocol's address family and IP protocol. A null sink is told nothing. A new attempt supersedes one under
    // way; a UDP or raw one made on the network thread does not, cancel first. A UDP or raw attempt asks the peer
    // nothing: it succeeds on the next turn of the loop.
    // Owns: the arguments are copied; the sink must live until its indication or CancelConnect.
    // Returns: 0, or the code of the timer queue or the reactor (MN_ERROR_NOT_INITIALIZED when it is closed;
    // MN_ERROR_UNEXPECTED with a time-out, or on a user thread: no memory, no attempt is under way).
    virtual MNResult AsycConnect(IPSAcceptorConnectorSink* sink, const CMNInetAddr& peerAddr, CMNTimeValue* timeout,
                                 CMNInetAddr* localAddr, unsigned short number1, unsigned short number2) = 0;

    // Ends the attempt without an indication. Returns: 0; 1 when nothing was under way.
    // Reenter: may be called from OnConnectIndication.
    virtual MNResult CancelConnect() = 0;
};

}  // namespace uxport

#endif
