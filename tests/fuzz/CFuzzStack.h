// The stack of a fuzzer.
#ifndef TESTS_FUZZ_CFUZZSTACK_H
#define TESTS_FUZZ_CFUZZSTACK_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "CFuzzPeer.h"
#include "ipstack/ipstack.h"

// Started once in the process, on the hand-moved clock, with one link; a failed assertion of lwIP's ends the process.
// Thread: main.
class CFuzzStack
{
public:
    static constexpr const char* s_szOwn = "10.66.0.1";
    static constexpr const char* s_szOwn6 = "fd66::1";
    static constexpr const char* s_szPeer = "10.66.0.9";
    static constexpr const char* s_szPeer6 = "fd66::9";
    static constexpr unsigned int s_dwMtu = 1400;

    static CFuzzStack& Instance();

    CFuzzPeer& GetPeer() { return m_Peer; }
    void Input(const std::vector<std::uint8_t>& packet);

    // Lets stack time pass.
    static void Pass(int milliseconds);

    // What is there now is not an input's.
    void Mark() { m_AtStart = GetCounters(); }

    // Lets stack time pass until lwIP holds no connection any more that was not there at the start.
    void RestConnections();

    // After an input, with all its sockets closed: lwIP's objects are gone after minutes, nothing was lost from the
    // account of the link's packets.
    void CheckRest();

private:
    // Longer than any state outlives its socket.
    static constexpr int s_nMostRestMs = 300000;
    static constexpr int s_nRestStepMs = 5000;

    CFuzzStack();
    std::map<std::string, std::uint64_t> GetCounters() const;
    std::string FindHeld(const std::map<std::string, std::uint64_t>& counters) const;

    CFuzzPeer m_Peer;
    ipstack::IIPStack* m_pLink = nullptr;
    std::map<std::string, std::uint64_t> m_AtStart;
};

#endif
