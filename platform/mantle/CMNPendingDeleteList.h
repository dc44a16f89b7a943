// The deletions that are pending on one thread.
#ifndef MANTLE_CMNPENDINGDELETELIST_H
#define MANTLE_CMNPENDINGDELETELIST_H

#include "mantle/CMNMutexThread.h"
#include "mantle/CMNReferenceControl.h"

namespace mantle
{

class CMNPendingDeleteList
{
public:
    CMNPendingDeleteList() = default;
    ~CMNPendingDeleteList() { DeleteAll(nullptr); }
    CMNPendingDeleteList(const CMNPendingDeleteList&) = delete;
    CMNPendingDeleteList& operator=(const CMNPendingDeleteList&) = delete;

    void Add(CMNPendingDelete& object);
    void Remove(CMNPendingDelete& object);

    // Takes the zero-delay timer of an object in the list. One for which there is no memory gets it along with the next
    // object, at the latest the thread's end deletes it. Thread: the list's.
    void Schedule(CMNPendingDelete& object, IMNTimerQueue& timers);

    // Deletes what is in the list, until nothing is: a destructor may add. Timers that are still scheduled for
    // it are cancelled in `timers` (may be null). Returns: how many were deleted.
    unsigned long DeleteAll(IMNTimerQueue* timers);

private:
    void Remove_i(CMNPendingDelete& object) MN_REQUIRES(m_Mutex);

    bool m_bWithoutTimers = false;  // there are such; the own thread's
    CMNMutexThread m_Mutex;
    CMNPendingDelete* m_pFirst MN_GUARDED_BY(m_Mutex) = nullptr;
    CMNPendingDelete* m_pLast MN_GUARDED_BY(m_Mutex) = nullptr;
};

}  // namespace mantle

#endif
