#include "CFuzzStack.h"

#include <algorithm>
#include <memory>

#include "CFuzzInput.h"
#include "mantle/CMNClock.h"
#include "platform/ipstack/CIPAssertion.h"
#include "tests/support/KeepForEver.h"

using ipstack::IIPStackManager;

CFuzzStack& CFuzzStack::Instance()
{
    static CFuzzStack* const s_pStack = new CFuzzStack;
    return *s_pStack;
}

CFuzzStack::CFuzzStack()
{
    KeepForEver(new mantle::CMNManualClock);
    KeepForEver(new mantle::CMNClockParticipant);
    ipstack::CIPAssertion::SetAbort(true);
    IIPStackManager* const manager = IIPStackManager::Instance();
    Require(manager->Startup({}) == 0, "the stack starts");
    ipstack::CIPStackConfig config;
    config.m_strAddress = s_szOwn;
    config.m_strAddress6 = s_szOwn6;
    config.m_dwMtu = s_dwMtu;
    Require(manager->CreateStack(config, &m_Peer, m_pLink) == 0, "the link is made");
    Mark();
}

void CFuzzStack::Input(const std::vector<std::uint8_t>& packet)
{
    // A copy that ends where the packet does, so that a read past it shows.
    const std::unique_ptr<char[]> copy(new char[packet.size()]);
    std::copy(packet.begin(), packet.end(), copy.get());
    m_pLink->Input(copy.get(), static_cast<unsigned long>(packet.size()));
}

void CFuzzStack::Pass(int milliseconds)
{
    ps_poll(nullptr, 0, milliseconds);
}

std::map<std::string, std::uint64_t> CFuzzStack::GetCounters() const
{
    IIPStackManager* const manager = IIPStackManager::Instance();
    std::vector<ipstack::CIPStackCounter> counters(manager->GetCounters(nullptr, 0));
    manager->GetCounters(counters.data(), counters.size());
    std::map<std::string, std::uint64_t> values;
    for (const ipstack::CIPStackCounter& counter : counters) {
        values[counter.m_szName] = counter.m_qwValue;
    }
    return values;
}

// The first kind of lwIP's objects of which there are more than at the start.
std::string CFuzzStack::FindHeld(const std::map<std::string, std::uint64_t>& counters) const
{
    const std::string gauges = "lwip.used.";
    for (auto at = counters.lower_bound(gauges); at != counters.end(); ++at) {
        if (at->first.compare(0, gauges.size(), gauges) != 0) {
            break;
        }
        if (at->second != m_AtStart.at(at->first)) {
            return at->first;
        }
    }
    return {};
}

void CFuzzStack::RestConnections()
{
    const char* const gauge = "lwip.used.tcp_pcb";
    for (int passed = 0; passed < s_nMostRestMs && GetCounters().at(gauge) != m_AtStart.at(gauge);
         passed += s_nRestStepMs) {
        Pass(s_nRestStepMs);
    }
}

void CFuzzStack::CheckRest()
{
    std::map<std::string, std::uint64_t> now = GetCounters();
    std::string held = FindHeld(now);
    for (int passed = 0; passed < s_nMostRestMs && !held.empty(); passed += s_nRestStepMs) {
        Pass(s_nRestStepMs);
        now = GetCounters();
        held = FindHeld(now);
    }
    if (!held.empty()) {
        std::fprintf(stderr, "%s: %llu\n", held.c_str(), static_cast<unsigned long long>(now[held]));
    }
    Require(held.empty(), "lwIP's memory comes back");
    std::uint64_t reasons = 0;
    for (const auto& counter : now) {
        reasons += counter.first.compare(0, 7, "filter.") == 0 ? counter.second : 0U;
    }
    Require(now["link.in"] == now["link.delivered"] + reasons, "each packet is delivered or its drop is counted");
    Require(now["stack.assertion"] == 0, "no assertion of lwIP's fails");
    Require(now["stack.core_lock_missing"] == 0, "lwIP runs under its lock");
}
