// One UDP association.
#ifndef UXPORT_TRANSPORT_CPSTRANSPORTUDP_H
#define UXPORT_TRANSPORT_CPSTRANSPORTUDP_H

#include "socket/CPSSocketUdp.h"
#include "transport/CPSTransportDatagramT.h"

namespace uxport
{

class CPSAcceptorUdp;
class CPSTransportUdp;

extern template class CPSTransportDatagramT<CPSTransportUdp, CPSAcceptorUdp, CPSSocketUdp>;

class CPSTransportUdp : public CPSTransportDatagramT<CPSTransportUdp, CPSAcceptorUdp, CPSSocketUdp>
{
public:
    CPSTransportUdp(IPSReactor* reactor, const CMNInetAddr& peer, CPSAcceptorUdp* acceptor)
        : CPSTransportDatagramT(reactor, peer, acceptor)
    {
    }
    ~CPSTransportUdp() override;
};

}  // namespace uxport

#endif
