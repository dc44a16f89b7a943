// What a thread has handed in and the stack has still to see.
#ifndef IPSTACK_CIPINPUTBATCH_H
#define IPSTACK_CIPINPUTBATCH_H

struct pbuf;

namespace ipstack
{

class CIPLink;

// Packets of a burst (mantle/CMNBurst.h), of one link, which the stack takes in under one hold of the core lock: at
// the burst's end, when there are as many as a hold may have, and always before the thread that handed them in uses
// the stack otherwise or sleeps. One for each thread; operations are the thread's own.
class CIPInputBatch
{
public:
    // Keeps the packet, which is the batch's from then on. State: inside a burst, the core lock not held.
    static void Add(CIPLink& link, pbuf* packet);

    // Has the stack take in what is there. State: the core lock is not held.
    static void Settle() noexcept
    {
        while (s_Batch.m_dwCount != 0) {
            Finish();
        }
    }

    static bool IsEmpty() noexcept { return s_Batch.m_dwCount == 0; }

    // State: the core lock is held.
    static void TakeIn() noexcept;

private:
    struct CBatch
    {
        CIPLink* m_pLink = nullptr;
        pbuf* m_pFirst = nullptr;
        pbuf* m_pLast = nullptr;
        unsigned int m_dwCount = 0;
    };

    static void Finish() noexcept;

#if defined(__GNUC__)
    __attribute__((tls_model("initial-exec")))
#endif
    static thread_local CBatch s_Batch;
};

}  // namespace ipstack

#endif
