// Mutexes, with clang's thread-safety attributes.
#ifndef MANTLE_CMNMUTEXTHREAD_H
#define MANTLE_CMNMUTEXTHREAD_H

#include <mutex>

#include "mantle/CMNEnsureSingleThread.h"
#include "mantle/MNThreadSafety.h"

namespace mantle
{

// What locks and unlocks. Lock and UnLock return 0 when done.
class MANTLE_API MN_CAPABILITY("mutex") CMNMutexThreadBase
{
public:
    virtual ~CMNMutexThreadBase() = default;
    virtual int Lock() MN_ACQUIRE() = 0;
    virtual int UnLock() MN_RELEASE() = 0;
};

// A plain mutex; not recursive.
class MANTLE_API MN_CAPABILITY("mutex") CMNMutexThread
{
public:
    CMNMutexThread() = default;
    CMNMutexThread(const CMNMutexThread&) = delete;
    CMNMutexThread& operator=(const CMNMutexThread&) = delete;

    int Lock() MN_ACQUIRE() MN_NO_THREAD_SAFETY_ANALYSIS
    {
        m_Mutex.lock();
        return 0;
    }
    int UnLock() MN_RELEASE() MN_NO_THREAD_SAFETY_ANALYSIS
    {
        m_Mutex.unlock();
        return 0;
    }

private:
    std::mutex m_Mutex;
};

// No lock: a check, bound at construction, that one thread alone uses what it guards.
class MANTLE_API MN_CAPABILITY("mutex") CMNMutexNullSingleThread
{
public:
    CMNMutexNullSingleThread() { m_Est.SetToCurrentThread(); }

    int Lock() MN_ACQUIRE() MN_NO_THREAD_SAFETY_ANALYSIS
    {
        m_Est.EnsureSingleThread("CMNMutexNullSingleThread");
        return 0;
    }
    int UnLock() MN_RELEASE() MN_NO_THREAD_SAFETY_ANALYSIS { return 0; }

private:
    CMNEnsureSingleThread m_Est;
};

// Holds a mutex for a scope.
template <class Lock>
class MN_SCOPED_CAPABILITY CMNMutexGuardT
{
public:
    explicit CMNMutexGuardT(Lock& lock) MN_ACQUIRE(lock) : m_Lock(lock) { m_Lock.Lock(); }
    ~CMNMutexGuardT() MN_RELEASE() { m_Lock.UnLock(); }
    CMNMutexGuardT(const CMNMutexGuardT&) = delete;
    CMNMutexGuardT& operator=(const CMNMutexGuardT&) = delete;

private:
    Lock& m_Lock;
};

using CMNMutexGuard = CMNMutexGuardT<CMNMutexThread>;

}  // namespace mantle

#endif
