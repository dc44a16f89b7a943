// One active raw IP open.
#ifndef UXPORT_CONNECTOR_CPSCONNECTORRAWT_H
#define UXPORT_CONNECTOR_CPSCONNECTORRAWT_H

#include "connector/CPSConnectorDatagramT.h"

namespace uxport
{

// The two numbers are the address family and the IP protocol. With IPv6 the local address must be given.
template <class Wrapper, class Transport, class Socket>
class CPSConnectorRawT : public CPSConnectorDatagramT<Wrapper, Transport, Socket>
{
public:
    using CPSConnectorDatagramT<Wrapper, Transport, Socket>::CPSConnectorDatagramT;

private:
    int OpenSocket_i(Socket& socket, const CMNInetAddr& localAddr, unsigned short family,
                     unsigned short protocol) override
    {
        return socket.OpenRawSocket(family, protocol, localAddr);
    }
};

}  // namespace uxport

#endif
