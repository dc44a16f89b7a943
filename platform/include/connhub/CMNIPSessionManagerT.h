// The table of the peers of one endpoint.
#ifndef CONNHUB_CMNIPSESSIONMANAGERT_H
#define CONNHUB_CMNIPSESSIONMANAGERT_H

#include <unordered_map>
#include <utility>

#include "connhub/CMNPairInetAddr.h"
#include "mantle/CMNMutexThread.h"
#include "mantle/CMNReferenceControl.h"

namespace connhub
{

// From the two addresses to a counted transport, one reference for each entry, given back when the entry or the
// table goes. The mutex is held while the table is looked at or changed, never while a reference is given back.
// Thread: any.
template <class T>
class CMNIPSessionManagerT
{
public:
    CMNIPSessionManagerT() = default;
    CMNIPSessionManagerT(const CMNIPSessionManagerT&) = delete;
    CMNIPSessionManagerT& operator=(const CMNIPSessionManagerT&) = delete;

    // Adds `transport`, unless there is an entry already: that stays. Returns: 0; MN_ERROR_FOUND when there is one;
    // MN_ERROR_INVALID_ARG for null.
    mantle::MNResult AddTransport(const mantle::CMNInetAddr& source, const mantle::CMNInetAddr& local, T* transport)
    {
        if (!transport)
            return mantle::MN_ERROR_INVALID_ARG;
        CReference reference(transport);
        mantle::CMNMutexGuard guard(m_Mutex);
        const bool added = m_Transports.try_emplace(CMNPairInetAddr{source, local}, std::move(reference)).second;
        return added ? mantle::MN_OK : mantle::MN_ERROR_FOUND;
    }

    // Takes no reference. Returns: the transport; null when there is none.
    T* FindTransport(const mantle::CMNInetAddr& source, const mantle::CMNInetAddr& local)
    {
        mantle::CMNMutexGuard guard(m_Mutex);
        const auto found = m_Transports.find(CMNPairInetAddr{source, local});
        return found == m_Transports.end() ? nullptr : found->second.Get();
    }

    // Whatever transport the entry holds. Returns: 0; MN_ERROR_NOT_FOUND when there was none.
    mantle::MNResult RemoveTransport(const mantle::CMNInetAddr& source, const mantle::CMNInetAddr& local)
    {
        CReference reference;
        mantle::CMNMutexGuard guard(m_Mutex);
        const auto found = m_Transports.find(CMNPairInetAddr{source, local});
        if (found == m_Transports.end())
            return mantle::MN_ERROR_NOT_FOUND;
        reference = std::move(found->second);
        m_Transports.erase(found);
        return mantle::MN_OK;
    }

    // Shows every transport to `visit`, under the mutex.
    template <class Visit>
    void ForEach(Visit visit)
    {
        mantle::CMNMutexGuard guard(m_Mutex);
        for (const auto& entry : m_Transports)
            visit(*entry.second);
    }

    // Takes every entry out.
    void Clear()
    {
        CMap transports;
        mantle::CMNMutexGuard guard(m_Mutex);
        transports.swap(m_Transports);
    }

    std::size_t GetTransportsCount()
    {
        mantle::CMNMutexGuard guard(m_Mutex);
        return m_Transports.size();
    }

private:
    using CReference = mantle::CMNAutoPtr<T>;
    using CMap = std::unordered_map<CMNPairInetAddr, CReference, InetAddrHash>;

    mantle::CMNMutexThread m_Mutex;
    CMap m_Transports MN_GUARDED_BY(m_Mutex);
};

}  // namespace connhub

#endif
