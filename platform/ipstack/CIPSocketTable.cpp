#include "CIPSocketTable.h"

#include "CIPInputBatch.h"
#include "CIPReadiness.h"
#include "CIPSocket.h"

namespace ipstack
{

std::atomic<unsigned int> CIPSocketTable::s_dwLimit{0};
unsigned int CIPSocketTable::s_dwMost = 0;
unsigned int CIPSocketTable::s_dwOpen = 0;
CIPSocketTable::CSlot* CIPSocketTable::s_pSlots = nullptr;
mantle::CMNMutexThread CIPSocketTable::s_Mutex;
int* CIPSocketTable::s_pFree = nullptr;
std::size_t CIPSocketTable::s_nFirst = 0;
std::size_t CIPSocketTable::s_nFree = 0;

void CIPSocketTable::Start(unsigned int most)
{
    const unsigned int limit = most + s_dwQuarantine + 1;  // number 0 is no handle
    CIPReadiness::Start(limit);
    s_dwMost = most;
    s_pSlots = new CSlot[limit];
    {
        mantle::CMNMutexGuard guard(s_Mutex);
        s_pFree = new int[limit - 1];
        for (unsigned int i = 1; i < limit; ++i) {
            s_pFree[i - 1] = static_cast<int>(i);
        }
        s_nFree = limit - 1;
    }
    s_dwLimit.store(limit, std::memory_order_release);
}

int CIPSocketTable::Open(CIPSocket* socket)
{
    if (IsFull()) {
        return 0;
    }
    int handle;
    {
        mantle::CMNMutexGuard guard(s_Mutex);
        if (s_nFree == 0) {
            return 0;
        }
        handle = s_pFree[s_nFirst];
        s_nFirst = (s_nFirst + 1) % (GetHandleLimit() - 1);
        --s_nFree;
    }
    ++s_dwOpen;
    CSlot& slot = s_pSlots[handle];
    slot.m_pSocket = socket;
    slot.m_dwState.fetch_or(s_dwOpenBit, std::memory_order_release);
    return handle;
}

bool CIPSocketTable::Close(int handle)
{
    std::atomic<std::uint32_t>& state = s_pSlots[handle].m_dwState;
    std::uint32_t before = state.load();
    do {
        if (!(before & s_dwOpenBit)) {
            return false;
        }
    } while (!state.compare_exchange_weak(before, (before & ~s_dwOpenBit) | s_dwDyingBit));
    --s_dwOpen;
    return true;
}

CIPSocket* CIPSocketTable::Enter(int handle) noexcept
{
    CIPInputBatch::Settle();
    if (static_cast<unsigned int>(handle) >= s_dwLimit.load(std::memory_order_acquire)) {
        return nullptr;
    }
    CSlot& slot = s_pSlots[handle];
    if (!(slot.m_dwState.load(std::memory_order_relaxed) & s_dwOpenBit)) {
        return nullptr;
    }
    if (slot.m_dwState.fetch_add(1, std::memory_order_acquire) & s_dwOpenBit) {
        return slot.m_pSocket;
    }
    Leave(handle);
    return nullptr;
}

void CIPSocketTable::Leave(int handle) noexcept
{
    if (s_pSlots[handle].m_dwState.fetch_sub(1, std::memory_order_acq_rel) == (s_dwDyingBit | 1)) {
        Finish(handle);
    }
}

void CIPSocketTable::Finish(int handle) noexcept
{
    CSlot& slot = s_pSlots[handle];
    std::uint32_t expected = s_dwDyingBit;
    CIPSocket* socket = slot.m_pSocket;
    // Another thread may have come and gone meanwhile: the last of them finishes.
    if (!slot.m_dwState.compare_exchange_strong(expected, 0, std::memory_order_acq_rel)) {
        return;
    }
    delete socket;
    mantle::CMNMutexGuard guard(s_Mutex);
    s_pFree[(s_nFirst + s_nFree) % (GetHandleLimit() - 1)] = handle;
    ++s_nFree;
}

}  // namespace ipstack
