#include "CIPInputBatch.h"

#include "CIPCore.h"
#include "CIPLink.h"
#include "lwip/pbuf.h"
#include "mantle/CMNBurst.h"

namespace ipstack
{

namespace
{

thread_local mantle::CMNBurstWork t_Work(&CIPInputBatch::Settle);

}  // namespace

thread_local CIPInputBatch::CBatch CIPInputBatch::s_Batch;

void CIPInputBatch::Add(CIPLink& link, pbuf* packet)
{
    if (s_Batch.m_pLink != &link) {
        Settle();
    }
    if (s_Batch.m_dwCount == 0) {
        s_Batch.m_pLink = &link;
        link.BeginUse();
        mantle::CMNBurst::PutOff(t_Work);
    }
    (s_Batch.m_pFirst ? s_Batch.m_pLast->next : s_Batch.m_pFirst) = packet;
    s_Batch.m_pLast = packet;
    if (++s_Batch.m_dwCount == CIPCore::s_dwStretch) {
        Settle();
    }
}

void CIPInputBatch::TakeIn() noexcept
{
    CIPLink& link = *s_Batch.m_pLink;
    pbuf* packet = s_Batch.m_pFirst;
    s_Batch = CBatch();
    while (packet) {
        pbuf* next = packet->next;
        packet->next = nullptr;
        link.TakeIn(packet);
        packet = next;
    }
    link.EndUse();
}

void CIPInputBatch::Finish() noexcept
{
    CIPCoreGuard guard;  // who takes the lock takes in what it has
}

}  // namespace ipstack
