// Everything of the connection framework.
#ifndef CONNHUB_CONNHUB_H
#define CONNHUB_CONNHUB_H

#include "connhub/CMNIPSessionManagerT.h"
#include "connhub/CMNPairInetAddr.h"

#endif
