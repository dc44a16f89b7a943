// Deferred work and the queues that run it.
#ifndef MANTLE_IMNEVENT_H
#define MANTLE_IMNEVENT_H

#include <list>

#include "mantle/MNDefines.h"

namespace mantle
{

// A piece of work for another thread, destroyed exactly once, through OnDestorySelf, on every road: run,
// refused, or left in a queue that closes.
class MANTLE_API IMNEvent
{
public:
    virtual MNResult OnEventFire() = 0;
    virtual void OnDestorySelf() { delete this; }
    virtual ~IMNEvent() = default;
};

// What a queue that takes no more events does with one: destroys it. An event that posts again when it is destroyed is
// refused from inside a refusal; beyond s_nMNNestedRefusals of those at a time on one thread the outermost destroys the
// event, before it returns, so that no chain of them runs out of stack. Thread: any. Returns: MN_ERROR_NOT_INITIALIZED.
constexpr unsigned int s_nMNNestedRefusals = 64;
MANTLE_API MNResult MNRefuseEvent(IMNEvent* event);

// The place of one event in a queue, made beforehand with the event in it.
using CMNEventPlace = std::list<IMNEvent*>;

// What a queue may offer besides: it takes an event that has its place already, and asks for no memory.
class IMNPreparedQueue
{
public:
    // As IMNEventQueue::PostEvent. `place` holds one event, and nothing afterwards. Thread: any.
    virtual MNResult PostPrepared(CMNEventPlace& place) = 0;

protected:
    ~IMNPreparedQueue() = default;
};

class MANTLE_API IMNEventQueue
{
public:
    enum EPriority
    {
        EPRIORITY_HIGH = 0,
        EPRIORITY_NORMAL = 1,
        EPRIORITY_LOW = 2
    };

    // Queues `event`; first in, first out, whatever the priority. Thread: any. Owns: the queue from here on,
    // also when it refuses. Returns: 0; MN_ERROR_INVALID_ARG for null; MN_ERROR_NOT_INITIALIZED when the queue is
    // closed, MN_ERROR_UNEXPECTED when there is no memory, after OnDestorySelf.
    virtual MNResult PostEvent(IMNEvent* event, EPriority priority = EPRIORITY_NORMAL) = 0;

    // Runs `event` on the queue's thread and waits for it; in place when the caller is that thread.
    // Thread: any. Returns: what OnEventFire returned; MN_ERROR_INVALID_ARG for null; MN_ERROR_NOT_INITIALIZED when the
    // queue is closed; MN_ERROR_UNEXPECTED when there is no memory.
    virtual MNResult SendEvent(IMNEvent* event) = 0;

    // A momentary value. Thread: any.
    virtual unsigned long GetPendingEventsCount() = 0;

    virtual ~IMNEventQueue() = default;

    using CPlace = CMNEventPlace;

    // As PostEvent, for an event that must not be lost: where the queue is an IMNPreparedQueue, as those of the framework
    // are, it asks for no memory. `place` holds the one event, and nothing afterwards. Thread: any. Returns: as PostEvent.
    MNResult PostPrepared(CPlace& place)
    {
        if (m_pPrepared)
            return m_pPrepared->PostPrepared(place);
        IMNEvent* const event = place.front();
        place.clear();
        return PostEvent(event);
    }

protected:
    // For the constructor of a queue that is one.
    void SetPreparedQueue(IMNPreparedQueue* queue) { m_pPrepared = queue; }

private:
    IMNPreparedQueue* m_pPrepared = nullptr;
};

// Deletes an object when it runs, or when it is destroyed without having run.
template <class T>
class CMNEventDeleteT : public IMNEvent
{
public:
    explicit CMNEventDeleteT(T* object) : m_pObject(object) {}
    ~CMNEventDeleteT() override { DeleteObject(); }
    CMNEventDeleteT(const CMNEventDeleteT&) = delete;
    CMNEventDeleteT& operator=(const CMNEventDeleteT&) = delete;

    MNResult OnEventFire() override
    {
        DeleteObject();
        return MN_OK;
    }

private:
    void DeleteObject()
    {
        T* object = m_pObject;
        m_pObject = nullptr;
        delete object;
    }

    T* m_pObject;
};

}  // namespace mantle

#endif
