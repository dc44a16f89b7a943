#include "KitSupport.h"

#include <algorithm>
#include <thread>

#include "mantle/CMNClock.h"

namespace kit
{

namespace
{

// A time-out of this length or more is a limit, which nothing that happens comes close to.
constexpr int s_nLongWaitMs = 500;

unsigned char PatternByte(std::size_t place)
{
    return static_cast<unsigned char>(place * 131U + (place >> 8) * 29U + (place >> 16) * 7U);
}

CSocket MakeSocket(int family, int type, int protocol)
{
    StartStack();
    CSocket made(ps_socket(family, type, protocol));
    EXPECT_GE(made.Get(), 1) << "ps_socket(" << family << ", " << type << ", " << protocol << "), cause "
                             << get_pserrno();
    return made;
}

CSocket MakeNonBlocking(int family, int type, int protocol)
{
    CSocket made = MakeSocket(family, type, protocol);
    EXPECT_EQ(0, ps_socket_nonblock(made.Get()));
    return made;
}

}  // namespace

void StartStack()
{
    ipstack::IIPStackManager* const manager = ipstack::IIPStackManager::Instance();
    ASSERT_NE(nullptr, manager);
    if (!manager->IsInitialized()) {
        ASSERT_EQ(0U, manager->Startup(ipstack::CIPStackSettings()));
    }
}

CSocket& CSocket::operator=(CSocket&& other) noexcept
{
    if (this != &other) {
        Close();
        m_nHandle = other.Release();
    }
    return *this;
}

int CSocket::Release()
{
    const int handle = m_nHandle;
    m_nHandle = -1;
    return handle;
}

int CSocket::Close()
{
    return m_nHandle > 0 ? ps_close(Release()) : 0;
}

int CSocket::CloseByReset()
{
    const int linger[2] = {1, 0};
    EXPECT_EQ(0, ps_setsockopt(m_nHandle, PS_SOL_SOCKET, PS_SO_LINGER, linger, sizeof(linger)));
    return Close();
}

CSocket Tcp(int family)
{
    return MakeNonBlocking(family, PS_SOCK_STREAM, 0);
}

CSocket Udp(int family)
{
    return MakeNonBlocking(family, PS_SOCK_DGRAM, 0);
}

CSocket Raw(int protocol, int family)
{
    return MakeNonBlocking(family, PS_SOCK_RAW, protocol);
}

CSocket BlockingTcp(int family)
{
    return MakeSocket(family, PS_SOCK_STREAM, 0);
}

CSocket BoundUdp(const CAddress& at)
{
    CSocket made = Udp(at.Family());
    EXPECT_EQ(0, Bind(made.Get(), at)) << "cause " << get_pserrno();
    return made;
}

CSocket Listener(const CAddress& at, int backlog)
{
    CSocket made = Tcp(at.Family());
    EXPECT_EQ(0, Bind(made.Get(), at)) << "cause " << get_pserrno();
    EXPECT_EQ(0, ps_listen(made.Get(), backlog)) << "cause " << get_pserrno();
    return made;
}

CAddress LocalAddress(int handle)
{
    CAddress address;
    int length = CAddress::RoomLength();
    EXPECT_EQ(0, ps_getsockname(handle, address.Room(), &length));
    return address;
}

CAddress PeerAddress(int handle)
{
    CAddress address;
    int length = CAddress::RoomLength();
    EXPECT_EQ(0, ps_getpeername(handle, address.Room(), &length));
    return address;
}

int Bind(int handle, const CAddress& at)
{
    return ps_bind(handle, at.Get(), at.Length());
}

int Connect(int handle, const CAddress& to)
{
    return ps_connect(handle, to.Get(), to.Length());
}

long SendTo(int handle, const CBytes& data, const CAddress& to)
{
    return ps_sendto(handle, data.data(), data.size(), 0, to.Get(), to.Length());
}

CPair Connected(const CAddress& serverAt)
{
    const CSocket listener = Listener(serverAt);
    return ConnectedThrough(listener);
}

CPair ConnectedThrough(const CSocket& listener)
{
    CPair pair;
    const CAddress server = LocalAddress(listener.Get());
    pair.m_Client = Tcp(server.Family());
    EXPECT_EQ(0, Connect(pair.m_Client.Get(), server)) << "cause " << get_pserrno();
    pair.m_Server = Accept(listener);
    EXPECT_EQ(PS_POLLOUT, WaitFor(pair.m_Client.Get(), PS_POLLOUT));
    return pair;
}

CSocket Accept(const CSocket& listener)
{
    EXPECT_EQ(PS_POLLIN, WaitFor(listener.Get(), PS_POLLIN)) << "no connection came";
    CSocket accepted(ps_accept(listener.Get(), nullptr, nullptr));
    EXPECT_GE(accepted.Get(), 1) << "cause " << get_pserrno();
    EXPECT_EQ(0, ps_socket_nonblock(accepted.Get()));
    return accepted;
}

short Look(int handle, short events)
{
    return WaitFor(handle, events, 0);
}

short WaitFor(int handle, short events, int limitMs)
{
    ps_pollfd entry = {handle, events, 0};
    const int ready = PollInTime(&entry, 1, limitMs);
    EXPECT_EQ(entry.revents != 0 ? 1 : 0, ready);
    return entry.revents;
}

int PollInTime(ps_pollfd* entries, unsigned int count, int limitMs)
{
    const long long start = StackTimeMs();
    const int ready = ps_poll(entries, count, limitMs);
    if (ready > 0 && limitMs >= s_nLongWaitMs) {
        EXPECT_LT(StackTimeMs() - start, limitMs) << "what was ready was seen at the time-out only: a wake-up was lost";
    }
    return ready;
}

bool WaitUntil(const std::function<bool()>& condition, int limitMs)
{
    const long long end = StackTimeMs() + limitMs;
    while (!condition()) {
        if (StackTimeMs() >= end) {
            return false;
        }
        PassStackTime(1);
    }
    return true;
}

void PassStackTime(int milliseconds)
{
    ps_pollfd nobody = {-1, 0, 0};
    EXPECT_EQ(0, ps_poll(&nobody, 1, milliseconds));
}

long long StackTimeMs()
{
    return mantle::CMNClock::NowUs() / 1000;
}

CBytes Pattern(std::size_t offset, std::size_t count)
{
    CBytes bytes(count);
    for (std::size_t i = 0; i < count; ++i) {
        bytes[i] = PatternByte(offset + i);
    }
    return bytes;
}

int Waiting(int handle)
{
    std::int32_t count = 0;
    return ps_ioctl(handle, PS_FIONREAD, &count) == 0 ? count : -1;
}

bool Arrived(int handle, int count)
{
    return WaitUntil([=] { return Waiting(handle) == count; });
}

long SendPattern(int handle, std::size_t offset, std::size_t count)
{
    const CBytes bytes = Pattern(offset, count);
    return ps_send(handle, bytes.data(), bytes.size(), 0);
}

std::size_t Fill(int handle, std::size_t piece, std::size_t offset)
{
    std::size_t taken = 0;
    for (;;) {
        const long sent = SendPattern(handle, offset + taken, piece);
        EXPECT_GE(sent, 0) << "cause " << get_pserrno();
        EXPECT_LE(sent, static_cast<long>(piece));
        if (sent <= 0) {
            return taken;
        }
        taken += static_cast<std::size_t>(sent);
    }
}

bool SendAll(int handle, const CBytes& data)
{
    std::size_t done = 0;
    while (done < data.size()) {
        const long sent = ps_send(handle, data.data() + done, data.size() - done, 0);
        if (sent < 0) {
            return false;
        }
        done += static_cast<std::size_t>(sent);
        if (sent == 0 && WaitFor(handle, PS_POLLOUT) != PS_POLLOUT) {
            return false;
        }
    }
    return true;
}

CBytes ReceiveBytes(int handle, std::size_t count)
{
    CBytes bytes(count);
    std::size_t done = 0;
    while (done < count) {
        const long got = ps_recv(handle, bytes.data() + done, count - done, 0);
        if (got < 0 || (got == 0 && WaitFor(handle, PS_POLLIN) == 0)) {
            break;
        }
        done += static_cast<std::size_t>(got);
    }
    bytes.resize(done);
    return bytes;
}

bool ReceivePattern(int handle, std::size_t offset, std::size_t count)
{
    return ReceiveBytes(handle, count) == Pattern(offset, count);
}

CBytes ReceiveDatagram(int handle, CAddress* from)
{
    CBytes bytes(70000);
    CAddress source;
    int length = CAddress::RoomLength();
    if (WaitFor(handle, PS_POLLIN) != PS_POLLIN) {
        return CBytes();
    }
    const long got = ps_recvfrom(handle, bytes.data(), bytes.size(), 0, source.Room(), &length);
    bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    if (from) {
        *from = source;
    }
    return bytes;
}

bool Transfer(int from, int to, std::size_t total, std::size_t piece)
{
    CBytes buffer(65536);
    std::size_t sent = 0;
    std::size_t received = 0;
    while (received < total) {
        bool moved = false;
        if (sent < total) {
            const long taken = SendPattern(from, sent, std::min(piece, total - sent));
            if (taken < 0) {
                ADD_FAILURE() << "send failed, cause " << get_pserrno();
                return false;
            }
            sent += static_cast<std::size_t>(taken);
            moved = taken > 0;
        }
        const long got = ps_recv(to, buffer.data(), buffer.size(), 0);
        if (got < 0) {
            ADD_FAILURE() << "receive failed after " << received << ", cause " << get_pserrno();
            return false;
        }
        if (!std::equal(buffer.begin(), buffer.begin() + got,
                        Pattern(received, static_cast<std::size_t>(got)).begin())) {
            ADD_FAILURE() << "bytes differ after " << received;
            return false;
        }
        received += static_cast<std::size_t>(got);
        moved = moved || got > 0;
        if (!moved) {
            ps_pollfd entries[2] = {{to, PS_POLLIN, 0}, {sent < total ? from : -1, PS_POLLOUT, 0}};
            if (PollInTime(entries, 2, s_nLimitMs) < 1) {
                ADD_FAILURE() << "stopped after " << sent << " sent and " << received << " received";
                return false;
            }
        }
    }
    return true;
}

CBytes ReceiveToEnd(int handle, int& end)
{
    CBytes all;
    CBytes buffer(65536);
    for (;;) {
        const long got = ps_recv(handle, buffer.data(), buffer.size(), 0);
        if (got < 0) {
            end = get_pserrno();
            return all;
        }
        all.insert(all.end(), buffer.begin(), buffer.begin() + got);
        if (got == 0 && WaitFor(handle, PS_POLLIN) == 0) {
            end = -2;
            return all;
        }
    }
}

void InThreads(int count, const std::function<void(int)>& run)
{
    std::vector<std::thread> threads;
    threads.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        threads.emplace_back(run, i);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

int SetOption(int handle, int level, int name, int value)
{
    return ps_setsockopt(handle, level, name, &value, sizeof(value));
}

int GetOption(int handle, int level, int name)
{
    int value = 0;
    int length = sizeof(value);
    return ps_getsockopt(handle, level, name, &value, &length) == 0 ? value : -1;
}

}  // namespace kit
