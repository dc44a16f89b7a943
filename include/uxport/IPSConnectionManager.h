// The entry point of the library.
#ifndef UXPORT_IPSCONNECTIONMANAGER_H
#define UXPORT_IPSCONNECTIONMANAGER_H

#include "mantle/CMNReferenceControl.h"
#include "uxport/IPSRawTransport.h"
#include "uxport/PSDefines.h"

namespace uxport
{

class IPSAcceptor;
class IPSConnector;
class IPSReactor;

class UXPORT_API IPSConnectionManager
{
public:
    // The one manager of the process. It and its reactor stay valid to the end of the process, also for threads that
    // nobody joins. Thread: any. Returns: null once the process' clean-up has ended it.
    static IPSConnectionManager* Instance();

    // Makes the reactor and its network threads; the stack must have been started. One thread is what the
    // library is built for; with 0 the reactor exists and nothing runs it: posts are kept until the end of the
    // process and a SendEvent waits for ever, as it does where the thread could not open its wake-up pipe.
    // Thread: one, before any other use. Returns: 0, also when it was done before; MN_ERROR_FAILURE when the stack is
    // not started or a thread can't be.
    [[nodiscard]] virtual MNResult Init(unsigned int networkThreadCount) = 0;

    // Makes a client or a server of a connection type; `out` brings one reference along.
    // A network thread gets the real object, used on network threads only. Any other thread gets a proxy, whose
    // callbacks come to the queue of that thread's own object; the type is looked at on the network thread.
    // Thread: any, after Init.
    // Returns: 0; MN_ERROR_FAILURE before Init or on a thread without a thread object of the framework (`out`
    // untouched); on a network thread MN_ERROR_INVALID_ARG for an unknown type (`out` null); MN_ERROR_UNEXPECTED when
    // there is no memory (`out` null or untouched).
    [[nodiscard]] virtual MNResult CreateConnectionClient(unsigned long connectionType, IPSConnector*& out) = 0;
    [[nodiscard]] virtual MNResult CreateConnectionServer(unsigned long connectionType, IPSAcceptor*& out) = 0;

    // Whether the id is a network thread's. Thread: any, after Init.
    virtual bool IsNetworkThread(unsigned long threadId) = 0;

    // The reactor of the network threads; null before Init. Once it has closed it refuses posts. Thread: any.
    virtual IPSReactor* GetReactor() = 0;

    // Does nothing, leaves `transport` alone and returns 0.
    virtual MNResult CreateRawSocket(unsigned short family, unsigned short protocol,
                                     mantle::CMNAutoPtr<IPSRawTransport>& transport) = 0;

    virtual ~IPSConnectionManager() = default;
};

}  // namespace uxport

#endif
