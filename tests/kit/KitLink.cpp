#include "KitLink.h"

#include <algorithm>

#include "mantle/CMNClock.h"

namespace kit
{

CLink::CLink(const std::string& address, const std::string& address6, unsigned int mtu, const std::string& mask)
{
    StartStack();
    ipstack::CIPStackConfig config;
    config.m_strAddress = address;
    config.m_strMask = mask;
    config.m_strAddress6 = address6;
    config.m_dwMtu = mtu;
    EXPECT_EQ(0U, ipstack::IIPStackManager::Instance()->CreateStack(config, this, m_pStack));
    EXPECT_NE(nullptr, m_pStack);
}

CLink::~CLink()
{
    if (m_pStack) {
        EXPECT_EQ(0U, ipstack::IIPStackManager::Instance()->DestroyStack(m_pStack));
    }
}

unsigned long CLink::IPStackLowLevelOutput(const char* data, unsigned long length, unsigned char)
{
    const unsigned char* const bytes = reinterpret_cast<const unsigned char*>(data);
    {
        std::lock_guard<std::mutex> guard(m_Mutex);
        m_Emitted.emplace_back(bytes, bytes + length);
    }
    m_Waiter.Signal();
    return 0;
}

unsigned long CLink::Inject(const CBytes& packet)
{
    return m_pStack->Input(reinterpret_cast<const char*>(packet.data()), packet.size());
}

CBytes CLink::Take(const std::function<bool(const CBytes&)>& wanted, int limitMs)
{
    const long long end = mantle::CMNClock::NowUs() + limitMs * 1000LL;
    for (;;) {
        const std::uint32_t sequence = m_Waiter.GetSequence();
        {
            std::lock_guard<std::mutex> guard(m_Mutex);
            while (!m_Emitted.empty()) {
                CBytes packet = std::move(m_Emitted.front());
                m_Emitted.pop_front();
                if (wanted(packet)) {
                    return packet;
                }
            }
        }
        if (mantle::CMNClock::NowUs() >= end) {
            return CBytes();
        }
        m_Waiter.Wait(sequence, end);
    }
}

std::deque<CBytes> CLink::TakeAll()
{
    std::lock_guard<std::mutex> guard(m_Mutex);
    std::deque<CBytes> all;
    all.swap(m_Emitted);
    return all;
}

CWire::CWire(const ipstack::CIPStackWireSettings& settings, unsigned int mtu)
{
    StartStack();
    EXPECT_EQ(0U, m_Wire.Open(ConfigA(mtu), ConfigB(mtu), settings));
}

CAddress CWire::EndA6(unsigned int port)
{
    const std::uint8_t address[16] = {0xFD, 0x20, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    return CAddress::V6(address, port);
}

CAddress CWire::EndB6(unsigned int port)
{
    const std::uint8_t address[16] = {0xFD, 0x20, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2};
    return CAddress::V6(address, port);
}

ipstack::CIPStackConfig CWire::ConfigA(unsigned int mtu)
{
    ipstack::CIPStackConfig config;
    config.m_strAddress = "10.20.0.1";
    config.m_strAddress6 = mtu >= 1280 ? "fd20::1" : "";
    config.m_dwMtu = mtu;
    return config;
}

ipstack::CIPStackConfig CWire::ConfigB(unsigned int mtu)
{
    ipstack::CIPStackConfig config = ConfigA(mtu);
    config.m_strAddress = "10.20.0.2";
    config.m_strAddress6 = mtu >= 1280 ? "fd20::2" : "";
    return config;
}

CPair CWire::Connect(bool v6)
{
    const CSocket listener = Listener(v6 ? EndB6() : EndB());
    CPair pair;
    pair.m_Client = Tcp(v6 ? PS_AF_INET6 : PS_AF_INET);
    EXPECT_EQ(0, Bind(pair.m_Client.Get(), v6 ? EndA6() : EndA()));
    EXPECT_EQ(0, kit::Connect(pair.m_Client.Get(), LocalAddress(listener.Get()))) << "cause " << get_pserrno();
    pair.m_Server = Accept(listener);
    EXPECT_EQ(PS_POLLOUT, WaitFor(pair.m_Client.Get(), PS_POLLOUT));
    return pair;
}

void CWire::Cut()
{
    ipstack::CIPStackWireSettings settings;
    settings.m_dwLossPerMille = 1000;
    m_Wire.SetSettings(settings);
}

void CWire::Mend()
{
    m_Wire.SetSettings(ipstack::CIPStackWireSettings());
}

CCounters Counters()
{
    ipstack::IIPStackManager* const manager = ipstack::IIPStackManager::Instance();
    std::vector<ipstack::CIPStackCounter> room(manager->GetCounters(nullptr, 0) + 64);
    const std::size_t count = std::min(manager->GetCounters(room.data(), room.size()), room.size());
    CCounters counters;
    for (std::size_t i = 0; i < count; ++i) {
        counters[room[i].m_szName] = room[i].m_qwValue;
    }
    return counters;
}

std::set<std::string> Grown(const CCounters& before, const CCounters& after)
{
    std::set<std::string> names;
    for (const auto& entry : after) {
        if (Growth(before, after, entry.first) > 0) {
            names.insert(entry.first);
        }
    }
    return names;
}

std::uint64_t Growth(const CCounters& before, const CCounters& after, const std::string& name)
{
    const auto old = before.find(name);
    const auto now = after.find(name);
    const std::uint64_t was = old == before.end() ? 0 : old->second;
    return now != after.end() && now->second > was ? now->second - was : 0;
}

}  // namespace kit
