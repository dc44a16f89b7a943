// What the events of the thread proxies share.
#ifndef UXPORT_PROXY_CPSEVENTOFPROXYT_H
#define UXPORT_PROXY_CPSEVENTOFPROXYT_H

#include <new>
#include <utility>

#include "mantle/CMNThread.h"
#include "mantle/IMNEvent.h"
#include "proxy/CPSLateDeletes.h"
#include "proxy/PSNetworkThread.h"
#include "uxport/IPSReactor.h"

namespace uxport
{

// Post to a queue of either side the event that `place` holds, which asks for no memory. Own: the event, also when they
// refuse. Return: the post's result; MN_ERROR_NOT_INITIALIZED when there is no queue, or it takes no more events.
inline MNResult PSPostToQueue(IMNEventQueue* queue, IMNEventQueue::CPlace& place)
{
    if (queue)
        return queue->PostPrepared(place);
    IMNEvent* const event = place.front();
    place.clear();
    return mantle::MNRefuseEvent(event);
}

inline MNResult PSPostToUser(mantle::CMNThread* thread, IMNEventQueue::CPlace& place)
{
    return PSPostToQueue(thread ? thread->GetEventQueue() : nullptr, place);
}

inline MNResult PSPostToNetwork(IPSReactor* reactor, IMNEventQueue::CPlace& place)
{
    return PSPostToQueue(reactor, place);
}

// An event that keeps its proxy alive.
template <class Proxy>
class CPSEventOfProxyT : public IMNEvent
{
public:
    // Owns: the reference on `owner` that the caller has taken.
    explicit CPSEventOfProxyT(Proxy* owner) : m_pOwner(owner) {}
    ~CPSEventOfProxyT() override
    {
        if (m_pOwner)
            m_pOwner->ReleaseReference();
    }
    CPSEventOfProxyT(const CPSEventOfProxyT&) = delete;
    CPSEventOfProxyT& operator=(const CPSEventOfProxyT&) = delete;

    // For an event that was made before it was needed, without an owner. Returns: false when the proxy is dying, which
    // nothing revives.
    bool SetOwner(Proxy* owner)
    {
        if (!owner->TryAddReference())
            return false;
        m_pOwner = owner;
        return true;
    }

protected:
    Proxy* m_pOwner;
};

// Makes an event for a proxy that may be dying, and its place in a queue. Returns: 0; MN_ERROR_NOT_INITIALIZED when it
// is, which nothing revives; MN_ERROR_UNEXPECTED when there is no memory.
template <class Event, class Proxy, class... Args>
MNResult PSMakeEvent(IMNEventQueue::CPlace& place, Proxy* owner, Args&&... args)
{
    try {
        IMNEventQueue::CPlace made(1, nullptr);
        if (!owner->TryAddReference())
            return MN_ERROR_NOT_INITIALIZED;
        // What its constructor throws has given the reference back.
        made.front() = new (std::nothrow) Event(owner, std::forward<Args>(args)...);
        if (!made.front()) {
            owner->ReleaseReference();
            return MN_ERROR_UNEXPECTED;
        }
        place.splice(place.end(), made);
        return MN_OK;
    } catch (const std::bad_alloc&) {
        return MN_ERROR_UNEXPECTED;
    }
}

}  // namespace uxport

#endif
