// What the events of the thread proxies share.
#ifndef UXPORT_PROXY_CPSEVENTOFPROXYT_H
#define UXPORT_PROXY_CPSEVENTOFPROXYT_H

#include <utility>

#include "mantle/CMNThread.h"
#include "mantle/IMNEvent.h"
#include "proxy/CPSLateDeletes.h"
#include "proxy/PSNetworkThread.h"
#include "uxport/IPSReactor.h"

namespace uxport
{

// Post to a queue of either side. Own: `event`, also when they refuse. Return: the post's result; 10002 when
// there is no queue, or it takes no more events.
inline MNResult PSPostToUser(mantle::CMNThread* thread, IMNEvent* event)
{
    IMNEventQueue* queue = thread ? thread->GetEventQueue() : nullptr;
    return queue ? queue->PostEvent(event, IMNEventQueue::EPRIORITY_NORMAL) : mantle::MNRefuseEvent(event);
}

inline MNResult PSPostToNetwork(IPSReactor* reactor, IMNEvent* event)
{
    return reactor ? reactor->PostEvent(event, IMNEventQueue::EPRIORITY_NORMAL) : mantle::MNRefuseEvent(event);
}

// Deletes a proxy on the network thread, in place when this is it or when there is no reactor to do it. A thread
// that is neither side's is reported and treated like the user thread.
template <class Proxy>
void PSDeleteOnNetworkThread(Proxy* proxy, IPSReactor* reactor)
{
    if (!reactor || PSIsNetworkThread()) {
        delete proxy;
        return;
    }
    proxy->EnsureStopFlagThread("PSDeleteOnNetworkThread");
    PSPostToNetwork(reactor, new CPSEventDeleteProxyT<Proxy>(proxy));
}

// An event that keeps its proxy alive.
template <class Proxy>
class CPSEventOfProxyT : public IMNEvent
{
public:
    // Owns: the reference on `owner` that the caller has taken.
    explicit CPSEventOfProxyT(Proxy* owner) : m_pOwner(owner) {}
    ~CPSEventOfProxyT() override { m_pOwner->ReleaseReference(); }
    CPSEventOfProxyT(const CPSEventOfProxyT&) = delete;
    CPSEventOfProxyT& operator=(const CPSEventOfProxyT&) = delete;

protected:
    Proxy* m_pOwner;
};

// Makes an event for a proxy that may be dying. Returns: null when it is, which nothing revives.
template <class Event, class Proxy, class... Args>
Event* PSMakeEvent(Proxy* owner, Args&&... args)
{
    return owner->TryAddReference() ? new Event(owner, std::forward<Args>(args)...) : nullptr;
}

}  // namespace uxport

#endif
