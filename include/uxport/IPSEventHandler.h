// What a reactor calls when a handle is ready.
#ifndef UXPORT_IPSEVENTHANDLER_H
#define UXPORT_IPSEVENTHANDLER_H

#include "uxport/PSDefines.h"

namespace uxport
{

// Thread: the reactor's. OnInput and OnOutput return 0 to stay registered; any other value makes the reactor
// remove the handler whole and call its OnClose. Handlers that rely on the defaults are removed at their
// first readiness.
class UXPORT_API IPSEventHandler
{
public:
    // The handle, -1 for none. Asked under the lock of the handle table: it must not call the reactor.
    virtual int GetHandle() const { return PS_INVALID_HANDLE; }

    virtual int OnInput(int handle)
    {
        static_cast<void>(handle);
        return -1;
    }
    virtual int OnOutput(int handle)
    {
        static_cast<void>(handle);
        return -1;
    }

    // Never called by the reactor.
    virtual int OnException(int handle)
    {
        static_cast<void>(handle);
        return -1;
    }

    // The reactor removed the handler: it failed, or the handle did. `mask` is what was registered.
    // Returns: ignored.
    virtual int OnClose(int handle, long mask)
    {
        static_cast<void>(handle);
        static_cast<void>(mask);
        return -1;
    }

    virtual ~IPSEventHandler() = default;
};

}  // namespace uxport

#endif
