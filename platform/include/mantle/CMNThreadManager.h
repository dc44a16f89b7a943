// The threads of the process and its orderly end.
#ifndef MANTLE_CMNTHREADMANAGER_H
#define MANTLE_CMNTHREADMANAGER_H

#include <memory>

#include "mantle/CMNMutexThread.h"
#include "mantle/CMNTimeValue.h"

namespace mantle
{

class CMNCleanUpBase;
class CMNPendingDeleteList;
class CMNThread;

// Thread: any, for every operation.
class MANTLE_API CMNThreadManager
{
public:
    using TType = int;
    using TFlag = unsigned int;

    // Thread types: a new type is what GetNewThreadType answers; TT_CURRENT asks for the caller's own thread.
    static constexpr TType TT_MAIN = 1;
    static constexpr TType TT_UNKNOWN = 2;
    static constexpr TType TT_CURRENT = 3;

    static constexpr TFlag TF_NONE = 0;
    static constexpr TFlag TF_JOINABLE = 1;

    static CMNThreadManager* Instance();

    // The thread object of type `type`, one that runs before one that has ended; TT_CURRENT: the calling thread's
    // own. Null when there is none, and for a thread that nobody adopted.
    CMNThread* GetThread(TType type);

    // A type for a new thread; never TT_CURRENT.
    TType GetNewThreadType();

    // The mutex under which singletons are made; null when the clean-up has been through.
    CMNMutexThreadBase* GetSingletonMutex();

    // The calling thread's id: never 0, never used again.
    static unsigned long GetThreadSelfId() noexcept;
    static bool IsEqualCurrentThread(unsigned long threadId) noexcept { return GetThreadSelfId() == threadId; }

    // Makes `thread` the calling thread's own object (null: none). It stays the caller's; it must be taken
    // back, or belong to the manager, before it is deleted. Returns the one before.
    CMNThread* AttachCurrentThread(CMNThread* thread) noexcept;

    // Keeps `thread` until the clean-up: it is stopped and joined there if it runs, and then deleted when
    // `owned`. Threads register themselves when they start; a thread object takes itself out when it is deleted.
    void RegisterThread(CMNThread* thread, bool owned);
    void UnregisterThread(CMNThread* thread);

    // The orderly end of the process; also run at exit. It is registered when the manager is first used: static
    // objects made later than that are gone by then. In this order: user queues refuse posts, destroy what they
    // hold and fire what is due until nothing is; user threads are stopped and joined; network threads are stopped
    // and joined; the clean-up objects are destroyed (those that last are ended), newest first, with the single-thread
    // checks silent on this thread. Threads that nobody joins may go on calling: what they hold pointers to stays
    // valid, but for thread objects that RegisterThread was given as owned.
    // Called from a framework thread or a callback it does not join itself and leaves what is shared alive.
    // A thread that does not come back within the bound leaves the objects undestroyed, with a trace line. A second
    // call does nothing, but waits for a first one on another thread unless that may be waiting for this thread.
    // Afterwards posts answer MN_ERROR_NOT_INITIALIZED, singletons and GetThread null.
    void CleanUp();

    // How long CleanUp waits for a thread; 10 s unless set.
    void SetJoinBound(const CMNTimeValue& bound);

    // Whether the clean-up has begun.
    bool IsCleaningUp() const noexcept;

    // Whether the calling thread runs, or has run, the clean-up.
    static bool IsCleanUpThread() noexcept;

    // Whether the clean-up has destroyed the shared objects; one that had to leave them alive never does.
    bool HasDestroyedObjects() const noexcept;

private:
    friend class CMNCleanUpBase;
    friend class CMNPendingDelete;
    friend class CMNThread;
    CMNThreadManager();
    ~CMNThreadManager();

    // Registers a thread that is about to start. Returns: false when the clean-up has begun.
    bool EnlistThread(CMNThread* thread);
    void AddCleanUp(CMNCleanUpBase* object);
    void RemoveCleanUp(CMNCleanUpBase* object);
    CMNPendingDeleteList& GetCleanUpDeletes() noexcept;

    class CImpl;
    std::unique_ptr<CImpl> m_pImpl;
};

}  // namespace mantle

#endif
