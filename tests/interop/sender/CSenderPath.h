// Where the sender's packets go.
#ifndef TESTS_INTEROP_SENDER_CSENDERPATH_H
#define TESTS_INTEROP_SENDER_CSENDERPATH_H

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

// Sends whole IP packets past every check of the system's: out of a device, or each in a UDP datagram to an end of a UDP
// path. No faster than the rate, and no longer than the time.
class CSenderPath
{
public:
    CSenderPath(unsigned int packetsPerSecond, unsigned int seconds);
    ~CSenderPath();
    CSenderPath(const CSenderPath&) = delete;
    CSenderPath& operator=(const CSenderPath&) = delete;

    // Throw std::system_error with what the system refuses.
    void OpenDevice(const std::string& name);
    void OpenUdp(const std::string& address, std::uint16_t port);

    // Waits until it is this packet's turn. Throws std::system_error, std::runtime_error when the time is over.
    void Send(const std::vector<std::uint8_t>& packet);

    std::uint64_t GetSent() const { return m_qwSent; }

private:
    using CClock = std::chrono::steady_clock;

    void WaitForTurn() const;

    const unsigned int m_dwRate;
    const CClock::time_point m_Start = CClock::now();
    const CClock::time_point m_End;
    int m_nSocket = -1;
    int m_nDevice = 0;  // index; 0 for a UDP path
    std::uint64_t m_qwSent = 0;
};

#endif
