// Which acceptor or connector an indication comes from.
#ifndef UXPORT_IPSACCEPTORCONNECTORID_H
#define UXPORT_IPSACCEPTORCONNECTORID_H

#include "mantle/CMNReferenceControl.h"
#include "uxport/PSDefines.h"

namespace uxport
{

// The identity that a sink receives with each indication, so that one sink can serve several.
class UXPORT_API IPSAcceptorConnectorId : public mantle::IMNReferenceControl
{
public:
    ~IPSAcceptorConnectorId() override = default;

    // false for an acceptor, true for a connector. Thread: any.
    virtual bool IsConnector() = 0;
};

}  // namespace uxport

#endif
