// The table from handle to handler.
#ifndef UXPORT_REACTOR_CPSEVENTHANDLERREPOSITORY_H
#define UXPORT_REACTOR_CPSEVENTHANDLERREPOSITORY_H

#include <sys/select.h>

#include <unordered_map>

#include "mantle/CMNMutexThread.h"
#include "uxport/PSDefines.h"

struct ps_fdsets;
struct ps_pollfd;

namespace uxport
{

class IPSEventHandler;

// Thread: any; every operation takes the table's mutex, which is never held across a callback other than
// GetHandle. Iteration is in the map's own order, which is the order in which the loops visit handles.
class CPSEventHandlerRepository
{
public:
    struct CElement
    {
        IPSEventHandler* m_pEh = nullptr;  // not owned
        long m_Mask = 0;                   // bits of ALL_EVENTS_MASK, never 0 while stored
    };

    MNResult Open() { return MN_OK; }

    // Forgets every element without calling any handler. Returns: 0.
    MNResult Close();

    // Stores `element` under `handle`. Returns: 0; MN_ERROR_FOUND when one was stored there, which is replaced;
    // MN_ERROR_INVALID_ARG for handle -1 or a null handler; MN_ERROR_UNEXPECTED when there is no memory.
    MNResult Bind(int handle, const CElement& element);

    // Returns: 0, also when nothing was stored; MN_ERROR_INVALID_ARG for handle -1.
    MNResult UnBind(int handle);

    // Copies the element out. Returns: whether there is one.
    bool Find(int handle, CElement& element);

    // Takes out the element of `handle` if it is `handler`'s.
    void UnBindHandler(int handle, const IPSEventHandler* handler);

    // Fill the input of a wait with every element's handle, asked of its handler (GetHandle must therefore not
    // call the reactor). The lists: reading for READ_WATCH_MASK, writing for OUTPUT_GROUP_MASK; what goes
    // beyond a list's 1024 places is left out. Return: the highest handle, -1 for an empty table.
    int FillFdSets(ps_fdsets& sets);
    int FillFdSets(fd_set& readSet, fd_set& writeSet, fd_set& exceptSet);

    // The entries: input for READ_WATCH_MASK, output for OUTPUT_GROUP_MASK. `entries` has room for `capacity`
    // + 1: one entry beyond the capacity is written before the walk stops. Returns: the count, also in `count`.
    unsigned int FillPollSets(ps_pollfd* entries, unsigned int capacity, unsigned int& count);

private:
    using CMap = std::unordered_map<int, CElement>;

    static int FdSet_s(const CElement& element, ps_fdsets& sets);
    static int FdSet_s(const CElement& element, fd_set& readSet, fd_set& writeSet);

    mantle::CMNMutexThread m_Mutex;
    CMap m_Map MN_GUARDED_BY(m_Mutex);
};

}  // namespace uxport

#endif
