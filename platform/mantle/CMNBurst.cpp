#include "mantle/CMNBurst.h"

#include "CMNThreadLocal.h"

namespace mantle
{

CMNBurst::CMNBurst() noexcept
{
    ++CMNThreadLocal::Get().m_dwBursts;
}

CMNBurst::~CMNBurst()
{
    Finish();
    --CMNThreadLocal::Get().m_dwBursts;
}

void CMNBurst::Finish() noexcept
{
    CMNThreadLocal& local = CMNThreadLocal::Get();
    while (CMNBurstWork* work = local.m_pFirstWork) {
        local.m_pFirstWork = work->m_pNext;
        work->m_pNext = nullptr;
        work->m_bPutOff = false;
        work->m_pFunction();
    }
}

bool CMNBurst::IsOpen() noexcept
{
    return CMNThreadLocal::Get().m_dwBursts != 0;
}

bool CMNBurst::PutOff(CMNBurstWork& work) noexcept
{
    if (work.m_bPutOff)
        return true;
    CMNThreadLocal& local = CMNThreadLocal::Get();
    if (local.m_dwBursts == 0)
        return false;
    work.m_bPutOff = true;
    (local.m_pFirstWork ? local.m_pLastWork->m_pNext : local.m_pFirstWork) = &work;
    local.m_pLastWork = &work;
    return true;
}

}  // namespace mantle
