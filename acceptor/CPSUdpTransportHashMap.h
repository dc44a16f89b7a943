// The table of all UDP peers.
#ifndef UXPORT_ACCEPTOR_CPSUDPTRANSPORTHASHMAP_H
#define UXPORT_ACCEPTOR_CPSUDPTRANSPORTHASHMAP_H

#include <unordered_map>

#include "acceptor/CPSPairInetAddr.h"
#include "mantle/CMNReferenceControl.h"
#include "mantle/CMNSingleton.h"
#include "uxport/PSDefines.h"

namespace uxport
{

class CPSTransportUdp;

// One for the process: the first UDP acceptor makes it, all share it, the clean-up at the end of the process destroys
// it. Holds one reference for each entry. Thread: the network thread, without a lock.
class CPSUdpTransportHashMap : public mantle::CMNCleanUpBase
{
public:
    // Makes the table unless there is one or the clean-up has begun.
    static void Create_s();

    // Null before the first acceptor and after the clean-up.
    static CPSUdpTransportHashMap* s_pUdpTransports;

    CPSUdpTransportHashMap();
    ~CPSUdpTransportHashMap() override;

    // Takes no reference. Returns: null when there is none.
    CPSTransportUdp* Find(const CPSPairInetAddr& key) const;

    // Leaves an entry that is there already.
    void Add(const CPSPairInetAddr& key, CPSTransportUdp* transport);

    // What goes forgets the acceptor's socket, so that it can't close a successor's entry later.
    void Remove(const CPSPairInetAddr& key);
    void RemoveAllOf(const CMNInetAddr& local);

    std::size_t GetCount() const { return m_Transports.size(); }

private:
    static constexpr std::size_t s_nBuckets = 4096;

    using CMap = std::unordered_map<CPSPairInetAddr, mantle::CMNAutoPtr<CPSTransportUdp>, PSInetAddrHash>;

    CMap::iterator Erase_i(CMap::iterator entry);

    CMap m_Transports;
};

}  // namespace uxport

#endif
