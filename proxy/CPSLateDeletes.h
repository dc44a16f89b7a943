// Deletions that no network thread does any more.
#ifndef UXPORT_PROXY_CPSLATEDELETES_H
#define UXPORT_PROXY_CPSLATEDELETES_H

#include "mantle/IMNEvent.h"
#include "uxport/PSDefines.h"

namespace uxport
{

// What a proxy holds belongs to the network thread and has no locks. At the end of the process, when the reactor refuses
// the event that was to delete a proxy, the thread that released it must not do so itself: the network thread may still
// be closing, or other threads release theirs. Such events wait here for the thread that runs the clean-up.
class CPSLateDeletes
{
public:
    // Deletes `event`; during and after the clean-up only on a network thread and on the clean-up's, on every other
    // thread keeps it for that one. What comes too late for it stays where it is. Thread: any. Owns: `event`.
    static void Delete(mantle::IMNEvent* event);

    // Deletes what is kept now; threads that go on do not prolong it. Thread: the clean-up's, once the network threads
    // have ended.
    static void DeleteAll();
};

// Deletes a proxy when it runs, or, where it does not, as CPSLateDeletes does. It is made with the proxy.
template <class Proxy>
class CPSEventDeleteProxyT : public mantle::IMNEvent
{
public:
    ~CPSEventDeleteProxyT() override { Delete_i(); }

    void SetProxy(Proxy* proxy) noexcept { m_pProxy = proxy; }
    MNResult OnEventFire() override
    {
        Delete_i();
        return MN_OK;
    }
    void OnDestorySelf() override { CPSLateDeletes::Delete(this); }

private:
    void Delete_i()
    {
        Proxy* const proxy = m_pProxy;
        m_pProxy = nullptr;
        delete proxy;
    }

    Proxy* m_pProxy = nullptr;
};

}  // namespace uxport

#endif
