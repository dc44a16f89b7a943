// The loop over lists of handles: at most 1024 for reading and 1024 for writing.
#ifndef UXPORT_REACTOR_CPSREACTORSELECT_H
#define UXPORT_REACTOR_CPSREACTORSELECT_H

#include "reactor/CPSReactorBase.h"
#include "reactor/CPSReactorNotifyPipe.h"

struct ps_fdlist;

namespace uxport
{

class CPSReactorSelect : public CPSReactorBase
{
public:
    CPSReactorSelect() = default;
    ~CPSReactorSelect() override;

    // May be opened again after Close.
    MNResult Open() override;
    MNResult NotifyHandler(IPSEventHandler* handler, long mask) override { return m_Notify.Notify(handler, mask); }
    MNResult RunEventLoop() override;
    MNResult StopEventLoop() override;
    MNResult Close() override;
    void OnHandleRemoved(int) override {}
    MNResult OnHandleRegister(int, long, IPSEventHandler*) override { return MN_OK; }

private:
    int Dispatch_i(const ps_fdlist& ready, long mask, int left);

    CPSReactorNotifyPipe m_Notify;
};

}  // namespace uxport

#endif
