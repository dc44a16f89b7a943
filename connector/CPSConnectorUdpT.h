// One active UDP open.
#ifndef UXPORT_CONNECTOR_CPSCONNECTORUDPT_H
#define UXPORT_CONNECTOR_CPSCONNECTORUDPT_H

#include "connector/CPSConnectorDatagramT.h"

namespace uxport
{

template <class Wrapper, class Transport, class Socket>
class CPSConnectorUdpT : public CPSConnectorDatagramT<Wrapper, Transport, Socket>
{
public:
    using CPSConnectorDatagramT<Wrapper, Transport, Socket>::CPSConnectorDatagramT;

private:
    int OpenSocket_i(Socket& socket, const CMNInetAddr& localAddr, unsigned short, unsigned short) override
    {
        return socket.Open(localAddr);
    }
};

}  // namespace uxport

#endif
