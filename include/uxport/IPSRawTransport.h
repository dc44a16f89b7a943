// The type of CreateRawSocket's out-argument.
#ifndef UXPORT_IPSRAWTRANSPORT_H
#define UXPORT_IPSRAWTRANSPORT_H

#include "mantle/CMNReferenceControl.h"
#include "uxport/PSDefines.h"

namespace uxport
{

// Implemented by nothing: raw IP goes through connection type CONNECTION_TYPE_RAW.
class UXPORT_API IPSRawTransport : public mantle::IMNReferenceControl
{
};

}  // namespace uxport

#endif
