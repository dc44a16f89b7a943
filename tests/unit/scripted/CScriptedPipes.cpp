#include "tests/unit/scripted/CScriptedPipes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "mantle/CMNClock.h"
#include "mantle/CMNInetAddr.h"
#include "mantle/CMNWaiter.h"
#include "tests/unit/scripted/CScriptedRun.h"

using mantle::CMNClock;
using mantle::CMNInetAddr;
using mantle::CMNWaiter;

namespace
{

constexpr const char* HOST = "127.0.0.1";
constexpr unsigned short PORT = 5555;
constexpr long long MAX_BLOCK_US = 20000000;  // a send or receive that blocks for longer fails the test
constexpr short ERROR_EVENTS = PS_POLLERR | PS_POLLHUP;

using CLock = std::lock_guard<std::mutex>;
using CUniqueLock = std::unique_lock<std::mutex>;

std::string Record(unsigned short port)
{
    const CMNInetAddr address(HOST, port);
    return std::string(static_cast<const char*>(address.PrepareForStack()),
                       static_cast<std::size_t>(address.GetSize()));
}

}  // namespace

CScriptedPipes& CScriptedPipes::Instance()
{
    static CScriptedPipes& s_Pipes = *new CScriptedPipes;
    return s_Pipes;
}

void CScriptedPipes::Enable(bool record)
{
    CLock lock(m_Mutex);
    m_bEnabled = true;
    m_bRecord = record;
}

bool CScriptedPipes::IsEnabled() const
{
    CLock lock(m_Mutex);
    return m_bEnabled;
}

bool CScriptedPipes::IsRecorded() const
{
    CLock lock(m_Mutex);
    return m_bRecord;
}

void CScriptedPipes::Reset()
{
    CLock lock(m_Mutex);
    m_bEnabled = false;
    m_bRecord = false;
    m_nListener = -1;
    m_wNextPort = 40000;
    m_Sockets.clear();
    m_Ready.clear();
    m_ReadyOnce.clear();
}

void CScriptedPipes::SetReady(int handle, short events, bool once)
{
    CLock lock(m_Mutex);
    (once ? m_ReadyOnce : m_Ready)[handle] = events;
    Wake();
}

bool CScriptedPipes::Owns(int handle) const
{
    CLock lock(m_Mutex);
    return m_Sockets.count(handle) != 0;
}

bool CScriptedPipes::IsMeetingPoint(const ps_sockaddr* address) const
{
    CMNInetAddr decoded;
    return IsEnabled() && address && decoded.Set(address, static_cast<int>(sizeof(ps_sockaddr_in))) == mantle::MN_OK &&
           decoded == CMNInetAddr(HOST, PORT);
}

int CScriptedPipes::Bind(int handle)
{
    CLock lock(m_Mutex);
    m_Sockets[handle].m_wPort = PORT;
    m_nListener = handle;
    return 0;
}

int CScriptedPipes::Connect(int handle)
{
    CLock lock(m_Mutex);
    const auto listener = m_Sockets.find(m_nListener);
    if (listener == m_Sockets.end()) {
        CScriptedRun::Error() = PS_ECONNREFUSED;
        return -1;
    }
    m_Sockets[handle].m_wPort = m_wNextPort++;
    listener->second.m_Waiting.push_back(handle);
    return 0;
}

int CScriptedPipes::Accept(int handle, int newHandle, std::string& peerRecord)
{
    CLock lock(m_Mutex);
    CSocket& listener = m_Sockets[handle];
    if (listener.m_Waiting.empty()) {
        CScriptedRun::Error() = PS_EAGAIN;
        return -1;
    }
    const int peer = listener.m_Waiting.front();
    listener.m_Waiting.pop_front();
    m_Sockets[newHandle].m_nPeer = peer;
    m_Sockets[newHandle].m_wPort = PORT;
    m_Sockets[peer].m_nPeer = newHandle;
    peerRecord = Record(m_Sockets[peer].m_wPort);
    return newHandle;
}

std::string CScriptedPipes::LocalRecord(int handle) const
{
    CLock lock(m_Mutex);
    const auto found = m_Sockets.find(handle);
    return Record(found == m_Sockets.end() ? static_cast<unsigned short>(0) : found->second.m_wPort);
}

std::string CScriptedPipes::PeerRecord(int handle) const
{
    int peer = -1;
    {
        CLock lock(m_Mutex);
        const auto found = m_Sockets.find(handle);
        if (found != m_Sockets.end())
            peer = found->second.m_nPeer;
    }
    return LocalRecord(peer);
}

void CScriptedPipes::SetNonBlocking(int handle)
{
    CLock lock(m_Mutex);
    m_Sockets[handle].m_bNonBlocking = true;
}

void CScriptedPipes::SetReceiveBuffer(int handle, int size)
{
    CLock lock(m_Mutex);
    m_Sockets[handle].m_nRoom = static_cast<std::size_t>(size);
}

int CScriptedPipes::Close(int handle)
{
    CLock lock(m_Mutex);
    const auto peer = m_Sockets.find(m_Sockets[handle].m_nPeer);
    if (peer != m_Sockets.end())
        peer->second.m_bHungUp = true;
    m_Sockets.erase(handle);
    Wake();
    return 0;
}

long CScriptedPipes::Send(int handle, const void* data, unsigned long length)
{
    CUniqueLock lock(m_Mutex);
    const bool blocking = !m_Sockets[handle].m_bNonBlocking;
    long result = 0;
    const auto look = [&] {
        const auto own = m_Sockets.find(handle);
        const auto peer = own == m_Sockets.end() ? own : m_Sockets.find(own->second.m_nPeer);
        if (peer == m_Sockets.end()) {
            result = -1;
            return true;
        }
        if (peer->second.m_Inbox.size() + length > peer->second.m_nRoom)
            return false;
        peer->second.m_Inbox.append(static_cast<const char*>(data), length);
        result = static_cast<long>(length);
        Wake();
        return true;
    };
    if (!look() && blocking && !WaitFor(lock, CMNClock::NowUs() + MAX_BLOCK_US, look)) {
        ADD_FAILURE() << "a send into a full pipe was never let go on";
        return -1;
    }
    if (result == -1)
        CScriptedRun::Error() = PS_EPIPE;
    return result;
}

long CScriptedPipes::Recv(int handle, void* data, unsigned long length)
{
    CUniqueLock lock(m_Mutex);
    const bool blocking = !m_Sockets[handle].m_bNonBlocking;
    long result = 0;
    const auto look = [&] {
        const auto own = m_Sockets.find(handle);
        if (own == m_Sockets.end() || (own->second.m_Inbox.empty() && own->second.m_bHungUp)) {
            result = -1;
            return true;
        }
        std::string& inbox = own->second.m_Inbox;
        const std::size_t count = std::min<std::size_t>(length, inbox.size());
        if (count == 0)
            return false;
        std::memcpy(data, inbox.data(), count);
        inbox.erase(0, count);
        result = static_cast<long>(count);
        Wake();
        return true;
    };
    if (!look() && blocking && !WaitFor(lock, CMNClock::NowUs() + MAX_BLOCK_US, look)) {
        ADD_FAILURE() << "a receive from an empty pipe was never given anything";
        return -1;
    }
    if (result == -1)
        CScriptedRun::Error() = PS_ECONNRESET;
    return result;
}

int CScriptedPipes::Poll(ps_pollfd* entries, unsigned int count, int timeout)
{
    CUniqueLock lock(m_Mutex);
    int ready = 0;
    const auto look = [&] {
        ready = 0;
        for (unsigned int i = 0; i < count; ++i) {
            entries[i].revents = Readiness(entries[i].fd, entries[i].events);
            if (entries[i].revents != 0) {
                ForgetOnce(entries[i].fd);
                ++ready;
            }
        }
        return ready != 0;
    };
    if (!look() && timeout != 0)
        WaitFor(lock, timeout < 0 ? CMNWaiter::s_llForever : CMNClock::NowUs() + timeout * 1000ll, look);
    return ready;
}

int CScriptedPipes::Select(const ps_fdsets& asked, ps_fdsets& out, const ps_timeval* timeout)
{
    const ps_fdsets in = asked;  // may be the same record as `out`
    CUniqueLock lock(m_Mutex);
    const auto look = [&] {
        out.read.count = out.write.count = out.except.count = 0;
        for (unsigned int i = 0; i < in.read.count; ++i) {
            if (Readiness(in.read.handles[i], PS_POLLIN) != 0)
                out.read.handles[out.read.count++] = in.read.handles[i];
        }
        for (unsigned int i = 0; i < in.write.count; ++i) {
            if (Readiness(in.write.handles[i], PS_POLLOUT) != 0)
                out.write.handles[out.write.count++] = in.write.handles[i];
        }
        for (unsigned int i = 0; i < out.read.count; ++i)
            ForgetOnce(out.read.handles[i]);
        for (unsigned int i = 0; i < out.write.count; ++i)
            ForgetOnce(out.write.handles[i]);
        return out.read.count + out.write.count != 0;
    };
    const long long span = timeout ? timeout->tv_sec * 1000000ll + timeout->tv_usec : 0;
    if (!look() && (!timeout || span != 0))
        WaitFor(lock, timeout ? CMNClock::NowUs() + span : CMNWaiter::s_llForever, look);
    return static_cast<int>(out.read.count + out.write.count);
}

// Sleeps until `look` says so, the lock released meanwhile. Returns: false at the deadline.
template <class Look>
bool CScriptedPipes::WaitFor(CUniqueLock& lock, long long deadline, Look look)
{
    CMNWaiter& waiter = CMNWaiter::Current();
    const auto place = m_Waiters.insert(&waiter);
    bool found = false;
    bool late = false;
    while (!(found = look()) && !late) {
        const auto sequence = waiter.GetSequence();
        lock.unlock();
        late = !waiter.Wait(sequence, deadline);
        lock.lock();
    }
    m_Waiters.erase(place);
    return found;
}

void CScriptedPipes::Wake()
{
    for (CMNWaiter* waiter : m_Waiters)
        waiter->Signal();
}

short CScriptedPipes::Readiness(int handle, short wanted)
{
    int events = 0;
    const auto socket = m_Sockets.find(handle);
    if (socket != m_Sockets.end()) {
        if (!socket->second.m_Inbox.empty() || !socket->second.m_Waiting.empty())
            events |= PS_POLLIN;
        if (socket->second.m_nPeer != -1 && !socket->second.m_bHungUp)
            events |= PS_POLLOUT;
        if (socket->second.m_bHungUp)
            events |= PS_POLLHUP;
    }
    if (const auto ready = m_Ready.find(handle); ready != m_Ready.end())
        events |= ready->second;
    if (const auto once = m_ReadyOnce.find(handle); once != m_ReadyOnce.end())
        events |= once->second;
    return static_cast<short>(events & (wanted | ERROR_EVENTS));
}

void CScriptedPipes::ForgetOnce(int handle)
{
    m_ReadyOnce.erase(handle);
}
