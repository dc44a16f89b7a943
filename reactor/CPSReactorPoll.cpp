#include "reactor/CPSReactorPoll.h"

#include "ipstack/ps_socket.h"

namespace uxport
{

CPSReactorPoll::~CPSReactorPoll()
{
    // Here, where a post made by a dying event still finds a whole reactor.
    CloseQueue();
}

MNResult CPSReactorPoll::Open()
{
    if (m_lOpened.load() == 1)
        return MN_OK;
    MNResult result = CPSReactorBase::Open();
    if (result == MN_OK)
        result = m_Notify.Open(this);
    if (result != MN_OK) {
        Close();
        return result;
    }
    SetStartFlag();
    m_lOpened.store(1);
    WakeForEarlyPosts();
    return MN_OK;
}

MNResult CPSReactorPoll::Close()
{
    if (!EnsureReactorThread(s_szLoopPlace))
        return MN_OK;
    RefuseEvents();
    m_Notify.Close();
    return CPSReactorBase::Close();
}

MNResult CPSReactorPoll::StopEventLoop()
{
    SetStopFlag();
    m_Notify.Notify(&m_Notify, 0);
    return MN_OK;
}

MNResult CPSReactorPoll::RunEventLoop()
{
    if (!EnsureReactorThread(s_szLoopPlace))
        return MN_OK;
    for (;;) {
        EnsureStopFlagThread(s_szLoopPlace);
        if (IsFlagStopped())
            return MN_OK;
        const int timeout = static_cast<int>(FireTimers().GetTotalInMsec());
        m_Repository.FillPollSets(m_Entries, s_dwMaxHandles, m_dwEntries);
        const int ready = ps_poll(m_Entries, m_dwEntries, timeout);
        if (ready == 0)
            continue;
        if (ready == -1)
            return MN_ERROR_FAILURE;
        Dispatch_i(ready);
        ProcessHandleEvent(PS_INVALID_HANDLE, EVENTQUEUE_MASK, 0, 0, 0);
    }
}

void CPSReactorPoll::Dispatch_i(int left)
{
    for (unsigned int i = 0; i < m_dwEntries && left != 0; ++i) {
        const ps_pollfd& entry = m_Entries[i];
        if (entry.fd <= 0 || entry.revents <= 0)
            continue;
        --left;
        long mask = 0;
        if (entry.revents & PS_POLLIN)
            mask |= READ_WATCH_MASK;
        if (entry.revents & PS_POLLOUT)
            mask |= OUTPUT_GROUP_MASK;
        if (entry.revents & (PS_POLLERR | PS_POLLHUP))
            mask |= CLOSE_MASK;
        ProcessHandleEvent(entry.fd, mask, 0, 0, 0);
    }
}

}  // namespace uxport
