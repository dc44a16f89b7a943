// A protocol connector, as the connector wrapper sees it.
#ifndef UXPORT_CONNECTOR_IPSCONNECTORINTERNAL_H
#define UXPORT_CONNECTOR_IPSCONNECTORINTERNAL_H

#include "uxport/PSDefines.h"

namespace uxport
{

class IPSConnectorInternal
{
public:
    // Starts an attempt. Returns: PS_CONNECT_FAILED when it failed at once; anything else when it is under way.
    virtual MNResult Connect(const CMNInetAddr& peerAddr, CMNInetAddr* localAddr, unsigned short number1,
                             unsigned short number2) = 0;

    // Ends the attempt without an indication. Returns: 0.
    virtual MNResult Close() = 0;

    virtual ~IPSConnectorInternal() = default;
};

}  // namespace uxport

#endif
