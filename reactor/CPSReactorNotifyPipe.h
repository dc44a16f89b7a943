// The wake-up handler of a reactor.
#ifndef UXPORT_REACTOR_CPSREACTORNOTIFYPIPE_H
#define UXPORT_REACTOR_CPSREACTORNOTIFYPIPE_H

#include <atomic>
#include <cstdint>

#include "reactor/CPSPipe.h"
#include "uxport/IPSEventHandler.h"

namespace uxport
{

class CPSReactorBase;

// One wake-up record: host byte order, written and read whole.
struct CPSNotifyRecord
{
    std::int32_t m_nHandle = PS_INVALID_HANDLE;  // -1: run the events; the pipe's read handle: stop
    std::int32_t m_nPadding = 0;
    std::int64_t m_llMask = 0;
};
static_assert(sizeof(CPSNotifyRecord) == 16, "a record is what the stack never splits");

// Owns the pipe, writes wake-up records into it and dispatches them on the reactor's thread.
class CPSReactorNotifyPipe : public IPSEventHandler
{
public:
    // Records that are under way in the pipe at once at most when the reactor's own thread writes.
    static constexpr int s_nMaxRecords = CPSPipe::s_nBufferSize / static_cast<int>(sizeof(CPSNotifyRecord));

    // Records and event runs of one pass of OnInput at most; the pipe stays readable, so the loop comes back.
    static constexpr int s_nMaxPass = 256;

    CPSReactorNotifyPipe() = default;
    ~CPSReactorNotifyPipe() override { Close(); }

    // Opens the pipe and registers its read end. Thread: the reactor's. Returns: 0; MN_ERROR_INVALID_ARG without a
    // reactor; MN_ERROR_FAILURE when the pipe can't be opened; what the registration returned.
    MNResult Open(CPSReactorBase* reactor);

    // Unregisters and closes. Returns: 0; MN_ERROR_FAILURE when a close of the stack failed.
    MNResult Close();

    // Writes one record. Thread: any; a full pipe makes other threads wait for room, the reactor's own never.
    // Returns: 0; MN_ERROR_NOT_INITIALIZED closed; MN_ERROR_UNEXPECTED no room or not written whole.
    MNResult Notify(IPSEventHandler* handler, long mask);

    int GetHandle() const override { return m_Pipe.GetReadHandle(); }

    // Dispatches the records. Ends at a stop record, behind an event run that left events or got new ones, and
    // after s_nMaxPass records. Returns: 0.
    int OnInput(int handle) override;
    int OnOutput(int) override { return 0; }

private:
    MNResult Write_i(int handle, long mask);

    CPSPipe m_Pipe;
    std::atomic<CPSReactorBase*> m_pReactor{nullptr};  // not owned
    std::atomic<int> m_nRecords{0};                    // written or being written, and not read yet
    std::atomic<bool> m_bEventsOwed{false};            // an EVENTQUEUE_MASK record found no room
};

}  // namespace uxport

#endif
