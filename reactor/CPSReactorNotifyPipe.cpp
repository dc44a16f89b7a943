#include "reactor/CPSReactorNotifyPipe.h"

#include "ipstack/ps_socket.h"
#include "reactor/CPSReactorBase.h"

namespace uxport
{

MNResult CPSReactorNotifyPipe::Open(CPSReactorBase* reactor)
{
    Close();
    m_pReactor.store(reactor);
    if (!reactor)
        return MN_ERROR_INVALID_ARG;
    m_nRecords.store(0);
    m_bEventsOwed.store(false);
    if (const MNResult result = m_Pipe.Open(); result != MN_OK)
        return result;
    ps_socket_nonblock(m_Pipe.GetReadHandle());
    const MNResult result = reactor->RegisterHandler(this, READ_MASK);
    if (result != MN_OK)
        Close();
    return result;
}

MNResult CPSReactorNotifyPipe::Close()
{
    if (CPSReactorBase* reactor = m_pReactor.load()) {
        reactor->RemoveHandler(this, ALL_EVENTS_MASK);
        m_pReactor.store(nullptr);
    }
    return m_Pipe.Close();
}

MNResult CPSReactorNotifyPipe::Notify(IPSEventHandler* handler, long mask)
{
    if (m_Pipe.GetWriteHandle() < 0)
        return MN_ERROR_NOT_INITIALIZED;
    const MNResult result = Write_i(handler ? handler->GetHandle() : PS_INVALID_HANDLE, mask);
    if (result != MN_OK && !handler && (mask & EVENTQUEUE_MASK))
        m_bEventsOwed.store(true);
    return result;
}

MNResult CPSReactorNotifyPipe::Write_i(int handle, long mask)
{
    // The reactor's thread alone drains the pipe and must not wait for room in it. The pipe holds
    // s_nMaxRecords for certain, so with fewer under way its send can't block, whatever others write meanwhile.
    const int before = m_nRecords.fetch_add(1);
    const CPSReactorBase* reactor = m_pReactor.load();
    if (before >= s_nMaxRecords && reactor && reactor->IsReactorThread()) {
        m_nRecords.fetch_sub(1);
        return MN_ERROR_UNEXPECTED;
    }
    CPSNotifyRecord record;
    record.m_nHandle = handle;
    record.m_llMask = mask;
    if (ps_send(m_Pipe.GetWriteHandle(), &record, sizeof record, 0) < static_cast<long>(sizeof record)) {
        m_nRecords.fetch_sub(1);
        return MN_ERROR_UNEXPECTED;
    }
    return MN_OK;
}

int CPSReactorNotifyPipe::OnInput(int)
{
    const int own = m_Pipe.GetReadHandle();
    for (int pass = 0; pass < s_nMaxPass; ++pass) {
        CPSNotifyRecord record;
        if (ps_recv(own, &record, sizeof record, 0) < static_cast<long>(sizeof record))
            break;
        m_nRecords.fetch_sub(1);
        if (record.m_nHandle == own)
            break;
        CPSReactorBase* reactor = m_pReactor.load();
        if (!reactor)
            continue;
        reactor->ProcessHandleEvent(record.m_nHandle, static_cast<long>(record.m_llMask), 0, 1, 0);
        // An event that keeps posting must not keep timers and sockets waiting.
        if (record.m_nHandle == PS_INVALID_HANDLE && reactor->GetPendingEventsCount() != 0)
            break;
    }
    // There is room again for the wake-up that found none.
    if (m_bEventsOwed.exchange(false))
        Notify(nullptr, EVENTQUEUE_MASK);
    return 0;
}

}  // namespace uxport
