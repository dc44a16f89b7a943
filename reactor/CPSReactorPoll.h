// The loop over an array of poll entries: at most 8192 handles.
#ifndef UXPORT_REACTOR_CPSREACTORPOLL_H
#define UXPORT_REACTOR_CPSREACTORPOLL_H

#include "reactor/CPSReactorBase.h"
#include "reactor/CPSReactorNotifyPipe.h"

#include "ipstack/ps_defines.h"

namespace uxport
{

class CPSReactorPoll : public CPSReactorBase
{
public:
    // Handles that one wait watches.
    static constexpr unsigned int s_dwMaxHandles = 8192;

    CPSReactorPoll() = default;
    ~CPSReactorPoll() override;

    // Once in the life of the reactor: a later call returns 0 and does nothing, also after Close.
    MNResult Open() override;
    MNResult NotifyHandler(IPSEventHandler* handler, long mask) override { return m_Notify.Notify(handler, mask); }
    MNResult RunEventLoop() override;
    MNResult StopEventLoop() override;
    MNResult Close() override;
    void OnHandleRemoved(int) override {}
    MNResult OnHandleRegister(int, long, IPSEventHandler*) override { return MN_OK; }

private:
    void Dispatch_i(int left);

    CPSReactorNotifyPipe m_Notify;
    ps_pollfd m_Entries[s_dwMaxHandles + 1] = {};  // the fill writes one entry beyond its capacity
    unsigned int m_dwEntries = 0;
    mantle::CMNAtomic32 m_lOpened{0};
};

}  // namespace uxport

#endif
