// Everything of the user-space IP stack's interface.
#ifndef IPSTACK_IPSTACK_H
#define IPSTACK_IPSTACK_H

#include "ipstack/CIPCapture.h"
#include "ipstack/CIPStackWire.h"
#include "ipstack/CIPTunDevice.h"
#include "ipstack/IIPStack.h"
#include "ipstack/IIPStackManager.h"
#include "ipstack/ps_defines.h"
#include "ipstack/ps_socket.h"

#endif
