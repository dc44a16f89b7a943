// Links of the kit: one whose far side is the test, and a wire between two addresses of the stack.
#ifndef TESTS_KIT_KITLINK_H
#define TESTS_KIT_KITLINK_H

#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>

#include "KitSupport.h"
#include "mantle/CMNWaiter.h"

namespace kit
{

// A link whose packets the test writes and reads. What the stack emits is kept until taken.
class CLink : public ipstack::IIPStackLowLevel
{
public:
    // "10.9.0.1" and, where given, an IPv6 address; a failure to make the link fails the case.
    explicit CLink(const std::string& address, const std::string& address6 = std::string(), unsigned int mtu = 1400,
                   const std::string& mask = "255.255.255.0");
    ~CLink() override;

    unsigned long IPStackLowLevelOutput(const char* data, unsigned long length, unsigned char flag) override;

    // Hands a packet to the stack. Returns: what IIPStack::Input answered.
    unsigned long Inject(const CBytes& packet);

    // Waits for a packet that `wanted` accepts; others are dropped. Empty at the limit.
    CBytes Take(const std::function<bool(const CBytes&)>& wanted, int limitMs = s_nLimitMs);

    // What has been emitted and not been taken; the link forgets it.
    std::deque<CBytes> TakeAll();

private:
    ipstack::IIPStack* m_pStack = nullptr;
    mantle::CMNWaiter m_Waiter;
    std::mutex m_Mutex;
    std::deque<CBytes> m_Emitted;
};

// A wire between 10.20.0.1 / fd20::1 and 10.20.0.2 / fd20::2.
class CWire
{
public:
    explicit CWire(const ipstack::CIPStackWireSettings& settings = ipstack::CIPStackWireSettings(),
                   unsigned int mtu = 1400);

    static CAddress EndA(unsigned int port = 0) { return CAddress::V4(10, 20, 0, 1, port); }
    static CAddress EndB(unsigned int port = 0) { return CAddress::V4(10, 20, 0, 2, port); }
    static CAddress EndA6(unsigned int port = 0);
    static CAddress EndB6(unsigned int port = 0);
    static ipstack::CIPStackConfig ConfigA(unsigned int mtu);
    static ipstack::CIPStackConfig ConfigB(unsigned int mtu);

    // A connection from end A to end B.
    CPair Connect(bool v6 = false);

    // Loses everything, or nothing.
    void Cut();
    void Mend();

    ipstack::CIPStackWire m_Wire;
};

// The stack's counters by name.
using CCounters = std::map<std::string, std::uint64_t>;
CCounters Counters();

// Names that are greater in `after` than in `before`; how much one grew.
std::set<std::string> Grown(const CCounters& before, const CCounters& after);
std::uint64_t Growth(const CCounters& before, const CCounters& after, const std::string& name);

}  // namespace kit

#endif
