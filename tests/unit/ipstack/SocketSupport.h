// Sockets for the stack's unit tests.
#ifndef TESTS_UNIT_IPSTACK_SOCKETSUPPORT_H
#define TESTS_UNIT_IPSTACK_SOCKETSUPPORT_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "ipstack/ipstack.h"
#include "mantle/CMNClock.h"

namespace socketsupport
{

// Starts the stack; a second call does nothing.
void Start(unsigned int mostSockets = 8192);

// The hand-moved clock with the calling thread taking part: make it before the stack is started.
class CTime
{
public:
    // Lets this much pass.
    static void Pass(int milliseconds);
    static long long NowMs() { return mantle::CMNClock::NowUs() / 1000; }

private:
    mantle::CMNManualClock m_Clock;
    mantle::CMNClockParticipant m_Participant;
};

// A loopback address in host byte order.
struct CLoopback
{
    explicit CLoopback(std::uint16_t port);
    explicit CLoopback(const ps_sockaddr_in& record) : m_Record(record) {}
    const ps_sockaddr* Get() const { return reinterpret_cast<const ps_sockaddr*>(&m_Record); }
    std::uint16_t GetPort() const;

    ps_sockaddr_in m_Record{};
};

// Non-blocking sockets; a failure fails the case.
int MakeTcp();
int MakeUdp(std::uint16_t port = 0);
int MakeListener(std::uint16_t port = 0, int backlog = 16);
std::uint16_t GetPort(int handle);
int StartConnect(std::uint16_t port);
int TakeConnection(int listener);

// Two ends of one connection.
struct CPair
{
    int m_nClient = 0;
    int m_nServer = 0;
};
CPair MakePair();
CPair MakePair(int listener);

// A look at the handle's events, and a wait for some of them (0 at the limit).
short Look(int handle);
short WaitFor(int handle, short events, int limitMs = 60000);

// Sends pieces until there is no room; returns how much was taken. The bytes are those of Pattern.
std::size_t Fill(int handle, std::size_t piece, std::size_t offset = 0);
std::vector<char> Pattern(std::size_t offset, std::size_t length);

// Reads this much, or until the stream ends or nothing comes; returns whether it was the pattern from `offset` on.
bool ReadPattern(int handle, std::size_t offset, std::size_t length);

int CountWaiting(int handle);

// The stack's counters by name.
std::uint64_t GetCounter(const std::string& name);

}  // namespace socketsupport

#endif
