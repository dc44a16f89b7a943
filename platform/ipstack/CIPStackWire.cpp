#include "ipstack/CIPStackWire.h"

#include <atomic>
#include <map>
#include <new>
#include <vector>

#include "CIPCore.h"
#include "CIPCounters.h"
#include "CIPLink.h"
#include "CIPLinkTable.h"
#include "CIPTimerSource.h"
#include "mantle/CMNClock.h"
#include "mantle/CMNMutexThread.h"
#include "mantle/CMNWaiter.h"
#include "mantle/MNDefines.h"

namespace ipstack
{

namespace
{

constexpr unsigned int PerMille = 1000;
constexpr unsigned int Ends = 2;

// What a direction decides by: splitmix64, Steele, Lea and Flood, "Fast splittable pseudorandom number
// generators", OOPSLA 2014.
class CDice
{
public:
    void Seed(std::uint64_t seed) noexcept { m_qwState = seed; }

    // Whether an event of this probability happens.
    bool Roll(unsigned int perMille) noexcept
    {
        m_qwState += 0x9e3779b97f4a7c15U;
        std::uint64_t value = m_qwState;
        value = (value ^ (value >> 30)) * 0xbf58476d1ce4e5b9U;
        value = (value ^ (value >> 27)) * 0x94d049bb133111ebU;
        value ^= value >> 31;
        return value % PerMille < perMille;
    }

private:
    std::uint64_t m_qwState = 0;
};

// What happens to one packet.
struct CFate
{
    unsigned int m_dwCopies = 1;
    unsigned int m_dwDelayUs = 0;
};

}  // namespace

// The wire carries in the thread that emits as long as there is no delay, otherwise in the stack's own.
class CIPStackWire::CImpl : private CIPTimerSource
{
public:
    unsigned long Open(const CIPStackConfig& endA, const CIPStackConfig& endB, const CIPStackWireSettings& settings);
    void SetSettings(const CIPStackWireSettings& settings);
    void Close();

    std::atomic<std::uint64_t> m_qwLost{0};
    std::atomic<std::uint64_t> m_qwDuplicated{0};
    std::atomic<std::uint64_t> m_qwReordered{0};

private:
    // The layer below one end.
    class CEnd : public IIPStackLowLevel
    {
    public:
        unsigned long IPStackLowLevelOutput(const char* data, unsigned long length, unsigned char) override
        {
            m_pWire->Carry(m_dwIndex, data, length);
            return mantle::MN_OK;
        }

        CImpl* m_pWire = nullptr;
        unsigned int m_dwIndex = 0;
    };

    // A packet on its way.
    struct CPacket
    {
        unsigned int m_dwFrom;
        std::vector<char> m_Bytes;
    };

    long long NextDeadlineUs() override;
    void Run(long long nowUs) override;

    void Carry(unsigned int from, const char* data, unsigned long length);
    CFate Decide(unsigned int from) MN_REQUIRES(m_Mutex);
    void Lose(CIPCounters::EId why) noexcept;
    void Deliver(unsigned int from, const char* data, unsigned long length);
    void LeaveDelivery();

    mantle::CMNMutexThread m_Mutex;
    CEnd m_LowLevels[Ends];
    IIPStack* m_pLinks[Ends] = {};  // set while m_bOpen or before anything is emitted
    bool m_bOpen MN_GUARDED_BY(m_Mutex) = false;
    CIPStackWireSettings m_Settings MN_GUARDED_BY(m_Mutex);
    CDice m_Dice[Ends] MN_GUARDED_BY(m_Mutex);
    std::multimap<long long, CPacket> m_Queue MN_GUARDED_BY(m_Mutex);  // by due time, then in order of sending
    unsigned int m_dwQueued[Ends] MN_GUARDED_BY(m_Mutex) = {};
    unsigned int m_dwInside MN_GUARDED_BY(m_Mutex) = 0;  // deliveries that run
    mantle::CMNWaiter* m_pCloser MN_GUARDED_BY(m_Mutex) = nullptr;
};

unsigned long CIPStackWire::CImpl::Open(const CIPStackConfig& endA, const CIPStackConfig& endB,
                                        const CIPStackWireSettings& settings)
{
    {
        mantle::CMNMutexGuard guard(m_Mutex);
        if (m_bOpen) {
            return mantle::MN_ERROR_ALREADY_INITIALIZED;
        }
        m_Settings = settings;
        for (unsigned int i = 0; i < Ends; ++i) {
            m_Dice[i].Seed(settings.m_qwSeed * Ends + i);
        }
    }
    IIPStackManager* manager = IIPStackManager::Instance();
    const CIPStackConfig* const configs[Ends] = {&endA, &endB};
    for (unsigned int i = 0; i < Ends; ++i) {
        m_LowLevels[i].m_pWire = this;
        m_LowLevels[i].m_dwIndex = i;
        const unsigned long result = manager->CreateStack(*configs[i], &m_LowLevels[i], m_pLinks[i]);
        if (result != mantle::MN_OK) {
            if (i > 0) {
                manager->DestroyStack(m_pLinks[0]);
            }
            return result;
        }
    }
    {
        mantle::CMNMutexGuard guard(m_Mutex);
        m_bOpen = true;
    }
    CIPCore::Instance().AddTimerSource(this);
    const CIPCoreGuard core;
    CIPLinkTable::SetPartners(static_cast<CIPLink*>(m_pLinks[0])->GetNetif(),
                              static_cast<CIPLink*>(m_pLinks[1])->GetNetif());
    return mantle::MN_OK;
}

void CIPStackWire::CImpl::SetSettings(const CIPStackWireSettings& settings)
{
    mantle::CMNMutexGuard guard(m_Mutex);
    m_Settings = settings;
}

void CIPStackWire::CImpl::Close()
{
    mantle::CMNWaiter& waiter = mantle::CMNWaiter::Current();
    {
        mantle::CMNMutexGuard guard(m_Mutex);
        if (!m_bOpen) {
            return;
        }
        m_bOpen = false;
        m_pCloser = &waiter;
    }
    CIPCore::Instance().RemoveTimerSource(this);
    for (;;) {
        const std::uint32_t sequence = waiter.GetSequence();
        {
            mantle::CMNMutexGuard guard(m_Mutex);
            if (m_dwInside == 0) {
                m_pCloser = nullptr;
                m_Queue.clear();
                m_dwQueued[0] = m_dwQueued[1] = 0;
                break;
            }
        }
        waiter.Wait(sequence, mantle::CMNWaiter::s_llForever);
    }
    for (IIPStack*& link : m_pLinks) {
        IIPStackManager::Instance()->DestroyStack(link);
        link = nullptr;
    }
}

void CIPStackWire::CImpl::Lose(CIPCounters::EId why) noexcept
{
    m_qwLost.fetch_add(1, std::memory_order_relaxed);
    CIPCounters::Add(why);
}

CFate CIPStackWire::CImpl::Decide(unsigned int from)
{
    // Three rolls for every packet, whatever the settings, so that a change of one leaves the others' choices alone.
    const bool lost = m_Dice[from].Roll(m_Settings.m_dwLossPerMille);
    const bool duplicated = m_Dice[from].Roll(m_Settings.m_dwDuplicatePerMille);
    const bool reordered = m_Dice[from].Roll(m_Settings.m_dwReorderPerMille);
    CFate fate;
    fate.m_dwDelayUs = m_Settings.m_dwDelayUs;
    if (lost) {
        Lose(CIPCounters::WireLost);
        fate.m_dwCopies = 0;
        return fate;
    }
    if (duplicated) {
        m_qwDuplicated.fetch_add(1, std::memory_order_relaxed);
        CIPCounters::Add(CIPCounters::WireDuplicated);
        fate.m_dwCopies = 2;
    }
    if (reordered) {
        m_qwReordered.fetch_add(1, std::memory_order_relaxed);
        CIPCounters::Add(CIPCounters::WireReordered);
        fate.m_dwDelayUs += m_Settings.m_dwReorderDelayUs;
    }
    return fate;
}

void CIPStackWire::CImpl::Carry(unsigned int from, const char* data, unsigned long length)
{
    CFate fate;
    bool earlier = false;
    {
        mantle::CMNMutexGuard guard(m_Mutex);
        if (!m_bOpen) {
            return;
        }
        fate = Decide(from);
        if (fate.m_dwDelayUs != 0) {
            const long long due = mantle::CMNClock::NowUs() + fate.m_dwDelayUs;
            earlier = fate.m_dwCopies > 0 && (m_Queue.empty() || due < m_Queue.begin()->first);
            for (; fate.m_dwCopies > 0; --fate.m_dwCopies) {
                if (m_dwQueued[from] >= m_Settings.m_dwQueuePackets) {
                    Lose(CIPCounters::WireQueueFull);
                    continue;
                }
                try {
                    m_Queue.emplace(due, CPacket{from, std::vector<char>(data, data + length)});
                    ++m_dwQueued[from];
                } catch (const std::bad_alloc&) {
                    Lose(CIPCounters::MemoryFailed);
                }
            }
        }
        if (fate.m_dwCopies > 0) {
            ++m_dwInside;
        }
    }
    if (earlier) {
        CIPCore::Instance().WakeTimerThread();
    }
    if (fate.m_dwCopies > 0) {
        for (unsigned int i = 0; i < fate.m_dwCopies; ++i) {
            Deliver(from, data, length);
        }
        LeaveDelivery();
    }
}

void CIPStackWire::CImpl::Deliver(unsigned int from, const char* data, unsigned long length)
{
    // What the other end does not accept, it counts.
    m_pLinks[Ends - 1 - from]->Input(data, length);
}

void CIPStackWire::CImpl::LeaveDelivery()
{
    mantle::CMNWaiter* closer = nullptr;
    {
        mantle::CMNMutexGuard guard(m_Mutex);
        if (--m_dwInside == 0) {
            closer = m_pCloser;
        }
    }
    if (closer != nullptr) {
        closer->Signal();
    }
}

long long CIPStackWire::CImpl::NextDeadlineUs()
{
    mantle::CMNMutexGuard guard(m_Mutex);
    return m_Queue.empty() ? NoDeadline : m_Queue.begin()->first;
}

void CIPStackWire::CImpl::Run(long long nowUs)
{
    for (;;) {
        CPacket packet;
        {
            mantle::CMNMutexGuard guard(m_Mutex);
            if (!m_bOpen || m_Queue.empty() || m_Queue.begin()->first > nowUs) {
                return;
            }
            packet = std::move(m_Queue.begin()->second);
            m_Queue.erase(m_Queue.begin());
            --m_dwQueued[packet.m_dwFrom];
            ++m_dwInside;
        }
        Deliver(packet.m_dwFrom, packet.m_Bytes.data(), packet.m_Bytes.size());
        LeaveDelivery();
    }
}

CIPStackWire::CIPStackWire() : m_pImpl(new CImpl) {}

CIPStackWire::~CIPStackWire()
{
    m_pImpl->Close();
}

unsigned long CIPStackWire::Open(const CIPStackConfig& endA, const CIPStackConfig& endB,
                                 const CIPStackWireSettings& settings)
{
    return m_pImpl->Open(endA, endB, settings);
}

void CIPStackWire::SetSettings(const CIPStackWireSettings& settings)
{
    m_pImpl->SetSettings(settings);
}

std::uint64_t CIPStackWire::GetLost() const
{
    return m_pImpl->m_qwLost.load(std::memory_order_relaxed);
}

std::uint64_t CIPStackWire::GetDuplicated() const
{
    return m_pImpl->m_qwDuplicated.load(std::memory_order_relaxed);
}

std::uint64_t CIPStackWire::GetReordered() const
{
    return m_pImpl->m_qwReordered.load(std::memory_order_relaxed);
}

void CIPStackWire::Close()
{
    m_pImpl->Close();
}

}  // namespace ipstack
