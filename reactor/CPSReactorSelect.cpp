#include "reactor/CPSReactorSelect.h"

#include "ipstack/ps_socket.h"

namespace uxport
{

CPSReactorSelect::~CPSReactorSelect()
{
    // Here, where a post made by a dying event still finds a whole reactor.
    CloseQueue();
}

MNResult CPSReactorSelect::Open()
{
    MNResult result = CPSReactorBase::Open();
    if (result == MN_OK)
        result = m_Notify.Open(this);
    if (result != MN_OK) {
        Close();
        return result;
    }
    SetStartFlag();
    WakeForEarlyPosts();
    return MN_OK;
}

MNResult CPSReactorSelect::Close()
{
    if (!EnsureReactorThread(s_szLoopPlace))
        return MN_OK;
    RefuseEvents();
    m_Notify.Close();
    return CPSReactorBase::Close();
}

MNResult CPSReactorSelect::StopEventLoop()
{
    SetStopFlag();
    m_Notify.Notify(&m_Notify, 0);
    return MN_OK;
}

MNResult CPSReactorSelect::RunEventLoop()
{
    if (!EnsureReactorThread(s_szLoopPlace))
        return MN_OK;
    for (;;) {
        EnsureStopFlagThread(s_szLoopPlace);
        if (IsFlagStopped())
            return MN_OK;
        const CMNTimeValue remaining = FireTimers();
        const ps_timeval timeout = {remaining.GetSec(), remaining.GetUsec()};
        ps_fdsets in;
        ps_fdsets out;
        in.read.count = in.write.count = in.except.count = 0;
        out.read.count = out.write.count = out.except.count = 0;
        const int highest = m_Repository.FillFdSets(in);
        int left = ps_select(highest + 1, &in, &out, remaining == CMNTimeValue::s_tvMax ? nullptr : &timeout);
        if (left == 0)
            continue;
        if (left == -1)
            return MN_ERROR_FAILURE;
        left = Dispatch_i(out.read, READ_WATCH_MASK, left);
        Dispatch_i(out.write, OUTPUT_GROUP_MASK, left);
    }
}

int CPSReactorSelect::Dispatch_i(const ps_fdlist& ready, long mask, int left)
{
    for (unsigned int i = 0; i < ready.count && left != 0; ++i) {
        if (ready.handles[i] == PS_INVALID_HANDLE)
            continue;
        --left;
        ProcessHandleEvent(ready.handles[i], mask, 0, 0, 0);
    }
    return left;
}

}  // namespace uxport
