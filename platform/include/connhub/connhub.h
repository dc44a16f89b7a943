// Everything of the connection framework.
#ifndef CONNHUB_CONNHUB_H
#define CONNHUB_CONNHUB_H

#include "connhub/CHDefines.h"
#include "connhub/CMNConnectionManager.h"
#include "connhub/CMNIPSessionManagerT.h"
#include "connhub/CMNPairInetAddr.h"
#include "connhub/IMNUDPTransport.h"
#include "connhub/IMNUDPTransportSink.h"

#endif
