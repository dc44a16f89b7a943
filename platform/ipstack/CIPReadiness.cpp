#include "CIPReadiness.h"

#include <unordered_map>

namespace ipstack
{

std::atomic<unsigned int> CIPReadiness::s_dwCount{0};
std::atomic<std::uint32_t>* CIPReadiness::s_pWords = nullptr;
std::atomic<CIPWaiterRecord*>* CIPReadiness::s_pWatchers = nullptr;

namespace
{

// Every waiter there has been. A waiter of mantle's may serve one thread after another: it has one record.
struct CIPWaiterRegistry
{
    mantle::CMNMutexThread m_Mutex;
    std::unordered_map<mantle::CMNWaiter*, CIPWaiterRecord*> m_Records MN_GUARDED_BY(m_Mutex);

    static CIPWaiterRegistry& Instance()
    {
        static CIPWaiterRegistry* registry = new CIPWaiterRegistry;
        return *registry;
    }
};

thread_local CIPWaiterRecord* t_pRecord = nullptr;

// Under the lock only where the list has no room.
void Wake(mantle::CMNWaiter& waiter, CIPWakeList& wakes)
{
    bool full = false;
    wakes.Add(&waiter, &full);
    if (full) {
        waiter.Signal();
    }
}

}  // namespace

CIPWaiterRecord& CIPWaiterRecord::Current()
{
    if (!t_pRecord) {
        mantle::CMNWaiter& waiter = mantle::CMNWaiter::Current();
        CIPWaiterRegistry& registry = CIPWaiterRegistry::Instance();
        mantle::CMNMutexGuard guard(registry.m_Mutex);
        CIPWaiterRecord*& record = registry.m_Records[&waiter];
        if (!record) {
            record = new CIPWaiterRecord(waiter);
        }
        t_pRecord = record;
    }
    return *t_pRecord;
}

void CIPReadiness::Start(unsigned int count)
{
    // Never freed: a thread may look at its handles while the process ends.
    s_pWords = new std::atomic<std::uint32_t>[count];
    s_pWatchers = new std::atomic<CIPWaiterRecord*>[count];
    for (unsigned int i = 0; i < count; ++i) {
        s_pWords[i].store(s_dwHangUp, std::memory_order_relaxed);
        s_pWatchers[i].store(nullptr, std::memory_order_relaxed);
    }
    s_dwCount.store(count, std::memory_order_release);
}

void CIPReadiness::Open(int handle, std::uint32_t bits) noexcept
{
    s_pWatchers[handle].store(nullptr);
    s_pWords[handle].store(bits);
}

void CIPReadiness::Close(int handle, CIPWakeList& wakes)
{
    // The shared mark stays until the handle is opened again: a waiter may still stand here.
    std::uint32_t before = s_pWords[handle].load();
    while (!s_pWords[handle].compare_exchange_weak(before, (before & s_dwShared) | s_dwHangUp)) {
    }
    Tell(handle, before, wakes);
}

void CIPReadiness::Raise(int handle, std::uint32_t bits, CIPWakeList& wakes)
{
    if ((s_pWords[handle].load(std::memory_order_relaxed) & bits) == bits) {
        return;
    }
    Tell(handle, s_pWords[handle].fetch_or(bits), wakes);
}

void CIPReadiness::Tell(int handle, std::uint32_t before, CIPWakeList& wakes)
{
    if (before & s_dwShared) {
        CIPWaiterRegistry& registry = CIPWaiterRegistry::Instance();
        mantle::CMNMutexGuard guard(registry.m_Mutex);
        for (const auto& entry : registry.m_Records) {
            if (entry.second->m_bWaiting.load()) {
                Wake(*entry.first, wakes);
            }
        }
        return;
    }
    // A watcher that replaces this one from here on looks at the word after entering itself.
    if (CIPWaiterRecord* record = s_pWatchers[handle].load()) {
        if (record->m_bWaiting.load()) {
            Wake(record->m_Waiter, wakes);
        }
    }
}

void CIPReadiness::Watch(int handle, CIPWaiterRecord& record) noexcept
{
    if (static_cast<unsigned int>(handle) >= s_dwCount.load(std::memory_order_acquire)) {
        return;
    }
    std::atomic<CIPWaiterRecord*>& watcher = s_pWatchers[handle];
    if (watcher.load() == &record || (s_pWords[handle].load() & s_dwShared) != 0) {
        return;
    }
    CIPWaiterRecord* before = watcher.exchange(&record);
    if (before && before != &record && before->m_bWaiting.load()) {
        // Both wait now. What happened before the mark may have told one of them only: the other looks again.
        s_pWords[handle].fetch_or(s_dwShared);
        before->m_Waiter.Signal();
    }
}

}  // namespace ipstack
