// What every suite of the kit uses: sockets that close themselves, addresses, waits with a limit.
#ifndef TESTS_KIT_KITSUPPORT_H
#define TESTS_KIT_KITSUPPORT_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "KitAddress.h"
#include "ipstack/ipstack.h"

namespace kit
{

// A wait that takes longer has failed. By the clock in force: milliseconds of stack time.
constexpr int s_nLimitMs = 20000;

// Both directions, as most looks ask.
constexpr short s_nInOut = PS_POLLIN | PS_POLLOUT;

// Starts the stack unless it runs. A case with the hand-moved clock makes the clock first.
void StartStack();

// A socket that closes itself.
class CSocket
{
public:
    CSocket() = default;
    explicit CSocket(int handle) : m_nHandle(handle) {}
    ~CSocket() { Close(); }
    CSocket(CSocket&& other) noexcept : m_nHandle(other.Release()) {}
    CSocket& operator=(CSocket&& other) noexcept;
    CSocket(const CSocket&) = delete;
    CSocket& operator=(const CSocket&) = delete;

    int Get() const { return m_nHandle; }
    int Release();
    int Close();         // 0 when there is nothing to close
    int CloseByReset();  // linger 0: the peer sees a reset

private:
    int m_nHandle = -1;
};

// Non-blocking sockets; a failure to make one fails the case.
CSocket Tcp(int family = PS_AF_INET);
CSocket Udp(int family = PS_AF_INET);
CSocket Raw(int protocol, int family = PS_AF_INET);
CSocket BlockingTcp(int family = PS_AF_INET);
CSocket BoundUdp(const CAddress& at = CAddress::Loopback());
CSocket Listener(const CAddress& at = CAddress::Loopback(), int backlog = 16);

CAddress LocalAddress(int handle);
CAddress PeerAddress(int handle);

int Bind(int handle, const CAddress& at);
int Connect(int handle, const CAddress& to);
long SendTo(int handle, const CBytes& data, const CAddress& to);

// One connection, both ends non-blocking.
struct CPair
{
    CSocket m_Client;
    CSocket m_Server;
};
CPair Connected(const CAddress& serverAt = CAddress::Loopback());
CPair ConnectedThrough(const CSocket& listener);

// Takes one waiting connection, waiting for it with the limit; non-blocking.
CSocket Accept(const CSocket& listener);

// What a look reports, and what a wait ends with (0: nothing within the limit).
short Look(int handle, short events = s_nInOut);
short WaitFor(int handle, short events, int limitMs = s_nLimitMs);

// ps_poll with a limit; an event that a sleeper sees only at the end of a long limit fails the case, as its
// wake-up was lost.
int PollInTime(ps_pollfd* entries, unsigned int count, int limitMs);

// Waits until `condition` holds; false at the limit.
bool WaitUntil(const std::function<bool()>& condition, int limitMs = s_nLimitMs);

// Lets the hand-moved clock pass so much stack time.
void PassStackTime(int milliseconds);
long long StackTimeMs();

// Bytes whose value tells their place in a stream.
CBytes Pattern(std::size_t offset, std::size_t count);

// Bytes waiting, as ps_ioctl says; -1 on failure.
int Waiting(int handle);

// Waits until so many bytes wait there.
bool Arrived(int handle, int count);

// One send of the stream's bytes from `offset`.
long SendPattern(int handle, std::size_t offset, std::size_t count);

// Sends pieces of `piece` bytes until the socket takes none; returns how many bytes it took.
std::size_t Fill(int handle, std::size_t piece, std::size_t offset = 0);

// Sends all; waits for room.
bool SendAll(int handle, const CBytes& data);

// Reads exactly so many bytes, or fewer when the stream ends or the limit passes.
CBytes ReceiveBytes(int handle, std::size_t count);
bool ReceivePattern(int handle, std::size_t offset, std::size_t count);

// Waits for one datagram; empty when none came.
CBytes ReceiveDatagram(int handle, CAddress* from = nullptr);

// Moves `total` stream bytes from one end to the other and compares them.
bool Transfer(int from, int to, std::size_t total, std::size_t piece = 16384);

// Reads to the end of the stream. Returns: the bytes; `end` is the error that the last read left (-2 when the
// limit passed first).
CBytes ReceiveToEnd(int handle, int& end);

// Runs the function in several threads, each with its number, to their ends.
void InThreads(int count, const std::function<void(int)>& run);

int SetOption(int handle, int level, int name, int value);
int GetOption(int handle, int level, int name);  // -1 on failure

}  // namespace kit

// The call answers -1 and leaves this cause.
#define KIT_EXPECT_ERROR(cause, call)                             \
  do {                                                            \
    EXPECT_EQ(-1, static_cast<long>(call)) << #call;              \
    EXPECT_EQ(cause, get_pserrno()) << "cause left by " << #call; \
  } while (false)

#endif
