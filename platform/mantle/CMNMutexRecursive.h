// A mutex that its holder may lock again.
#ifndef MANTLE_CMNMUTEXRECURSIVE_H
#define MANTLE_CMNMUTEXRECURSIVE_H

#include <mutex>

#include "mantle/CMNMutexThread.h"

namespace mantle
{

class MN_CAPABILITY("mutex") CMNMutexRecursive : public CMNMutexThreadBase
{
public:
    int Lock() MN_ACQUIRE() MN_NO_THREAD_SAFETY_ANALYSIS override
    {
        m_Mutex.lock();
        return 0;
    }
    int UnLock() MN_RELEASE() MN_NO_THREAD_SAFETY_ANALYSIS override
    {
        m_Mutex.unlock();
        return 0;
    }

private:
    std::recursive_mutex m_Mutex;
};

}  // namespace mantle

#endif
