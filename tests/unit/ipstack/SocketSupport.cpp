#include "SocketSupport.h"

#include <cstring>

#include <gtest/gtest.h>

namespace socketsupport
{

namespace
{

constexpr std::uint32_t s_dwLoopback = 0x7F000001;

std::uint16_t Swap(std::uint16_t value)
{
    return static_cast<std::uint16_t>(value << 8 | value >> 8);
}

int NonBlocking(int handle)
{
    EXPECT_GT(handle, 0) << "cause " << get_pserrno();
    EXPECT_EQ(0, ps_socket_nonblock(handle));
    return handle;
}

}  // namespace

void Start(unsigned int mostSockets)
{
    ipstack::IIPStackManager* const manager = ipstack::IIPStackManager::Instance();
    if (!manager->IsInitialized()) {
        ipstack::CIPStackSettings settings;
        settings.m_dwMaxSockets = mostSockets;
        EXPECT_EQ(0U, manager->Startup(settings));
    }
}

void CTime::Pass(int milliseconds)
{
    EXPECT_EQ(0, ps_poll(nullptr, 0, milliseconds));
}

CLoopback::CLoopback(std::uint16_t port)
{
    m_Record.sin_len = sizeof(m_Record);
    m_Record.sin_family = PS_AF_INET;
    m_Record.sin_port = Swap(port);
    for (unsigned int i = 0; i < 4; ++i) {
        reinterpret_cast<unsigned char*>(&m_Record.sin_addr)[i] =
            static_cast<unsigned char>(s_dwLoopback >> (24 - 8 * i));
    }
}

std::uint16_t CLoopback::GetPort() const
{
    return Swap(m_Record.sin_port);
}

int MakeTcp()
{
    Start();
    return NonBlocking(ps_socket(PS_AF_INET, PS_SOCK_STREAM, 0));
}

int MakeUdp(std::uint16_t port)
{
    Start();
    const int handle = NonBlocking(ps_socket(PS_AF_INET, PS_SOCK_DGRAM, 0));
    EXPECT_EQ(0, ps_bind(handle, CLoopback(port).Get(), sizeof(ps_sockaddr_in))) << "cause " << get_pserrno();
    return handle;
}

int MakeListener(std::uint16_t port, int backlog)
{
    const int handle = MakeTcp();
    EXPECT_EQ(0, ps_bind(handle, CLoopback(port).Get(), sizeof(ps_sockaddr_in))) << "cause " << get_pserrno();
    EXPECT_EQ(0, ps_listen(handle, backlog));
    return handle;
}

std::uint16_t GetPort(int handle)
{
    ps_sockaddr_in record{};
    int length = sizeof(record);
    EXPECT_EQ(0, ps_getsockname(handle, reinterpret_cast<ps_sockaddr*>(&record), &length));
    return CLoopback(record).GetPort();
}

int StartConnect(std::uint16_t port)
{
    const int handle = MakeTcp();
    EXPECT_EQ(0, ps_connect(handle, CLoopback(port).Get(), sizeof(ps_sockaddr_in))) << "cause " << get_pserrno();
    return handle;
}

int TakeConnection(int listener)
{
    return NonBlocking(ps_accept(listener, nullptr, nullptr));
}

CPair MakePair()
{
    const int listener = MakeListener();
    const CPair pair = MakePair(listener);
    EXPECT_EQ(0, ps_close(listener));
    return pair;
}

CPair MakePair(int listener)
{
    CPair pair;
    pair.m_nClient = StartConnect(GetPort(listener));
    pair.m_nServer = TakeConnection(listener);
    EXPECT_EQ(PS_POLLOUT, Look(pair.m_nClient));
    return pair;
}

short Look(int handle)
{
    return WaitFor(handle, PS_POLLIN | PS_POLLOUT, 0);
}

short WaitFor(int handle, short events, int limitMs)
{
    ps_pollfd entry = {handle, events, 0};
    ps_poll(&entry, 1, limitMs);
    return entry.revents;
}

std::vector<char> Pattern(std::size_t offset, std::size_t length)
{
    std::vector<char> bytes(length);
    for (std::size_t i = 0; i < length; ++i) {
        const std::size_t place = offset + i;
        bytes[i] = static_cast<char>(place * 37 + (place >> 8) * 11 + (place >> 16));
    }
    return bytes;
}

std::size_t Fill(int handle, std::size_t piece, std::size_t offset)
{
    std::size_t taken = 0;
    for (;;) {
        const std::vector<char> bytes = Pattern(offset + taken, piece);
        const long sent = ps_send(handle, bytes.data(), bytes.size(), 0);
        EXPECT_GE(sent, 0) << "cause " << get_pserrno();
        if (sent <= 0) {
            return taken;
        }
        taken += static_cast<std::size_t>(sent);
    }
}

bool ReadPattern(int handle, std::size_t offset, std::size_t length)
{
    std::vector<char> buffer(65536);
    std::size_t done = 0;
    while (done < length) {
        const long got = ps_recv(handle, buffer.data(), std::min(buffer.size(), length - done), 0);
        if (got < 0 || (got == 0 && (WaitFor(handle, PS_POLLIN) & PS_POLLIN) == 0)) {
            ADD_FAILURE() << "stopped after " << done << " of " << length << ", cause " << get_pserrno();
            return false;
        }
        const std::vector<char> wanted = Pattern(offset + done, static_cast<std::size_t>(got));
        if (std::memcmp(wanted.data(), buffer.data(), wanted.size()) != 0) {
            ADD_FAILURE() << "other bytes after " << done;
            return false;
        }
        done += static_cast<std::size_t>(got);
    }
    return true;
}

int CountWaiting(int handle)
{
    std::int32_t waiting = -1;
    EXPECT_EQ(0, ps_ioctl(handle, PS_FIONREAD, &waiting));
    return waiting;
}

std::uint64_t GetCounter(const std::string& name)
{
    std::vector<ipstack::CIPStackCounter> counters(1000);
    const std::size_t count = ipstack::IIPStackManager::Instance()->GetCounters(counters.data(), counters.size());
    EXPECT_LE(count, counters.size());
    for (std::size_t i = 0; i < count; ++i) {
        if (name == counters[i].m_szName) {
            return counters[i].m_qwValue;
        }
    }
    ADD_FAILURE() << "no counter " << name;
    return 0;
}

}  // namespace socketsupport
