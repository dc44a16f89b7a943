#include "proxy/CPSLateDeletes.h"

#include <list>

#include "mantle/CMNMutexThread.h"
#include "mantle/CMNThreadManager.h"
#include "proxy/PSNetworkThread.h"

using mantle::CMNMutexGuard;
using mantle::CMNMutexThread;
using mantle::CMNThreadManager;
using mantle::IMNEvent;

namespace uxport
{

namespace
{

struct CKept
{
    CMNMutexThread m_Mutex;
    std::list<IMNEvent*> m_Events MN_GUARDED_BY(m_Mutex);
};

// Never deleted: threads come here until the process is gone.
CKept& Kept()
{
    static CKept& kept = *new CKept;
    return kept;
}

}  // namespace

void CPSLateDeletes::Delete(IMNEvent* event)
{
    if (!CMNThreadManager::Instance()->IsCleaningUp() || CMNThreadManager::IsCleanUpThread() || PSIsNetworkThread()) {
        delete event;
        return;
    }
    CKept& kept = Kept();
    CMNMutexGuard guard(kept.m_Mutex);
    kept.m_Events.push_back(event);
}

void CPSLateDeletes::DeleteAll()
{
    CKept& kept = Kept();
    std::list<IMNEvent*> events;
    {
        CMNMutexGuard guard(kept.m_Mutex);
        events.swap(kept.m_Events);
    }
    for (IMNEvent* event : events)
        delete event;
}

}  // namespace uxport
