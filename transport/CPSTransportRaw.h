// One raw IP association.
#ifndef UXPORT_TRANSPORT_CPSTRANSPORTRAW_H
#define UXPORT_TRANSPORT_CPSTRANSPORTRAW_H

#include "socket/CPSSocketRaw.h"
#include "transport/CPSTransportDatagramT.h"

namespace uxport
{

class CPSAcceptorRaw;
class CPSTransportRaw;

extern template class CPSTransportDatagramT<CPSTransportRaw, CPSAcceptorRaw, CPSSocketRaw>;

// One IP packet for each datagram. As the UDP transport, whose type it answers for OPT_TYPE, with one option more.
class CPSTransportRaw : public CPSTransportDatagramT<CPSTransportRaw, CPSAcceptorRaw, CPSSocketRaw>
{
public:
    CPSTransportRaw(IPSReactor* reactor, const CMNInetAddr& peer, CPSAcceptorRaw* acceptor)
        : CPSTransportDatagramT(reactor, peer, acceptor)
    {
    }
    ~CPSTransportRaw() override;

    // OPT_RAW_HEADER_INCLUDED too; on a child it holds for the acceptor's socket, that is for every child.
    MNResult SetOption(unsigned long optionId, void* arg) override;
};

}  // namespace uxport

#endif
