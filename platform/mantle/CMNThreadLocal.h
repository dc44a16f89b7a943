// What mantle keeps for each thread.
#ifndef MANTLE_CMNTHREADLOCAL_H
#define MANTLE_CMNTHREADLOCAL_H

#include "CMNBufferPool.h"

namespace mantle
{

class CMNBurstWork;
class CMNRefusedEvents;
class CMNThread;
class CMNWaiter;

// Plain data, so that it can be used as long as the thread runs at all, in other destructors of the thread too.
struct CMNThreadLocal
{
    unsigned long m_dwThreadId;
    CMNThread* m_pThread;          // the thread's own object
    CMNWaiter* m_pWaiter;          // from the pool, taken at first use
    unsigned int m_dwParticipant;  // nested scopes in which the hand-moved clock waits for the thread
    unsigned int m_dwInLoop;       // nested runs of callbacks
    unsigned int m_dwInTrace;      // nested calls of the trace sink
    unsigned int m_dwRefusals;     // nested refusals of events
    CMNRefusedEvents* m_pRefused;  // of the outermost of them
    unsigned int m_dwBursts;       // nested bursts
    CMNBurstWork* m_pFirstWork;    // put off until the burst's end
    CMNBurstWork* m_pLastWork;
    bool m_bCleanUp;  // runs, or has run, the clean-up at the end of the process
    bool m_bEnded;    // what is taken from now on does not come back by itself
    CMNBufferCache m_Buffers;

    static CMNThreadLocal& Get() noexcept;

    // Whether the calling thread is the one that runs main.
    static bool IsMainThread() noexcept;

    // Has what the thread holds given back when it ends: to be called when something is taken.
    void GiveBackAtEnd() noexcept;
};

}  // namespace mantle

#endif
