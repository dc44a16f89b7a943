// The waiters of the threads, and the list of all waiters.
#ifndef MANTLE_CMNWAITERPOOL_H
#define MANTLE_CMNWAITERPOOL_H

#include <vector>

#include "mantle/CMNMutexThread.h"

namespace mantle
{

class CMNWaiter;

// Made for the threads and never freed: a signaller may hold a waiter whose thread has ended.
class CMNWaiterPool
{
public:
    static CMNWaiterPool& Instance() noexcept;

    CMNWaiter* Take();
    void Put(CMNWaiter* waiter);

private:
    CMNMutexThread m_Mutex;
    std::vector<CMNWaiter*> m_All MN_GUARDED_BY(m_Mutex);
    std::vector<CMNWaiter*> m_Free MN_GUARDED_BY(m_Mutex);
};

}  // namespace mantle

#endif
