#include "mantle/IMNEvent.h"

#include <list>
#include <new>

#include "CMNThreadLocal.h"

namespace mantle
{

// Events that were refused too deep inside other refusals of the same thread.
class CMNRefusedEvents
{
public:
    std::list<IMNEvent*> m_Events;
};

MNResult MNRefuseEvent(IMNEvent* event)
{
    CMNThreadLocal& local = CMNThreadLocal::Get();
    if (local.m_dwRefusals == s_nMNNestedRefusals) {
        try {
            local.m_pRefused->m_Events.push_back(event);
        } catch (const std::bad_alloc&) {
            event->OnDestorySelf();  // deeper instead
        }
        return MN_ERROR_NOT_INITIALIZED;
    }
    if (local.m_dwRefusals != 0) {
        ++local.m_dwRefusals;
        event->OnDestorySelf();
        --local.m_dwRefusals;
        return MN_ERROR_NOT_INITIALIZED;
    }
    CMNRefusedEvents refused;
    local.m_pRefused = &refused;
    local.m_dwRefusals = 1;
    event->OnDestorySelf();
    while (!refused.m_Events.empty()) {
        IMNEvent* next = refused.m_Events.front();
        refused.m_Events.pop_front();
        next->OnDestorySelf();
    }
    local.m_dwRefusals = 0;
    local.m_pRefused = nullptr;
    return MN_ERROR_NOT_INITIALIZED;
}

}  // namespace mantle
