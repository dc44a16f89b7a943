// Everything an application uses.
#ifndef UXPORT_UXPORT_H
#define UXPORT_UXPORT_H

#include "uxport/CLowlevelP2PTransport.h"
#include "uxport/CPSTimerWrapperID.h"
#include "uxport/CPSTransportParameter.h"
#include "uxport/IPSAcceptor.h"
#include "uxport/IPSAcceptorConnectorId.h"
#include "uxport/IPSAcceptorConnectorSink.h"
#include "uxport/IPSConnectionManager.h"
#include "uxport/IPSConnector.h"
#include "uxport/IPSEventHandler.h"
#include "uxport/IPSRawTransport.h"
#include "uxport/IPSReactor.h"
#include "uxport/IPSTransport.h"
#include "uxport/IPSTransportSink.h"
#include "uxport/PSDefines.h"

#endif
