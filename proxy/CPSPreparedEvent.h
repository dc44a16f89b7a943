// Events that must not fail for want of memory.
#ifndef UXPORT_PROXY_CPSPREPAREDEVENT_H
#define UXPORT_PROXY_CPSPREPAREDEVENT_H

#include <memory>

#include "proxy/CPSEventOfProxyT.h"
#include "proxy/CPSLateDeletes.h"

namespace uxport
{

// An event and its place in a queue, made with the object whose end it will tell, so that posting it can't fail.
class CPSPreparedEvent
{
public:
    CPSPreparedEvent() = default;
    explicit CPSPreparedEvent(std::unique_ptr<IMNEvent> event) : m_Place(1, event.get())
    {
        static_cast<void>(event.release());
    }
    CPSPreparedEvent(CPSPreparedEvent&& other) noexcept { m_Place.splice(m_Place.end(), other.m_Place); }
    CPSPreparedEvent& operator=(CPSPreparedEvent&& other) noexcept
    {
        m_Place.swap(other.m_Place);
        return *this;
    }
    ~CPSPreparedEvent()
    {
        if (!m_Place.empty())
            delete m_Place.front();
    }

    // Whether it is still here.
    bool IsThere() const noexcept { return !m_Place.empty(); }

    template <class Event>
    Event& As() noexcept
    {
        return static_cast<Event&>(*m_Place.front());
    }

    IMNEventQueue::CPlace& GetPlace() noexcept { return m_Place; }

private:
    IMNEventQueue::CPlace m_Place;
};

// Deletes a proxy on the network thread, later. `prepared` is the proxy's own, with a CPSEventDeleteProxyT.
template <class Proxy>
void PSPostDelete(Proxy* proxy, IPSReactor* reactor, CPSPreparedEvent& prepared)
{
    CPSPreparedEvent event(std::move(prepared));  // out of the proxy, which may go at once
    event.As<CPSEventDeleteProxyT<Proxy>>().SetProxy(proxy);
    PSPostToNetwork(reactor, event.GetPlace());
}

// The same, in place when this is that thread or when there is no reactor to do it. A thread that is neither side's is
// reported and treated like the user thread.
template <class Proxy>
void PSDeleteOnNetworkThread(Proxy* proxy, IPSReactor* reactor, CPSPreparedEvent& prepared)
{
    if (!reactor || PSIsNetworkThread()) {
        delete proxy;
        return;
    }
    proxy->EnsureStopFlagThread("PSDeleteOnNetworkThread");
    PSPostDelete(proxy, reactor, prepared);
}

}  // namespace uxport

#endif
