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

thread_local CIPInputBatch::CBatch CIPInputBatch::t_Batch;

void CIPInputBatch::Add(CIPLink& link, pbuf* packet)
{
    if (t_Batch.m_pLink != &link) {
        Settle();
    }
    if (t_Batch.m_dwCount == 0) {
        t_Batch.m_pLink = &link;
        link.BeginUse();
        mantle::CMNBurst::PutOff(t_Work);
    }
    (t_Batch.m_pFirst ? t_Batch.m_pLast->next : t_Batch.m_pFirst) = packet;
    t_Batch.m_pLast = packet;
    if (++t_Batch.m_dwCount == CIPCore::s_dwStretch) {
        Settle();
    }
}

void CIPInputBatch::TakeIn() noexcept
{
    CIPLink& link = *t_Batch.m_pLink;
    pbuf* packet = t_Batch.m_pFirst;
    t_Batch = CBatch();
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
