// Working pipes beside the script.
#ifndef TESTS_UNIT_SCRIPTED_CSCRIPTEDPIPES_H
#define TESTS_UNIT_SCRIPTED_CSCRIPTEDPIPES_H

#include <deque>
#include <map>
#include <mutex>
#include <set>
#include <string>

#include "ipstack/ps_defines.h"

namespace mantle
{
class CMNWaiter;
}

// Sockets that meet on 127.0.0.1:5555, and waits. Thread: any.
class CScriptedPipes
{
public:
    static CScriptedPipes& Instance();

    void Enable(bool record);
    bool IsEnabled() const;
    bool IsRecorded() const;
    void SetReady(int handle, short events, bool once);
    void Reset();

    // Whether a socket is one of a pipe, and whether this address makes it one.
    bool Owns(int handle) const;
    bool IsMeetingPoint(const ps_sockaddr* address) const;

    int Bind(int handle);
    int Connect(int handle);
    int Accept(int handle, int newHandle, std::string& peerRecord);
    std::string LocalRecord(int handle) const;
    std::string PeerRecord(int handle) const;
    void SetNonBlocking(int handle);
    void SetReceiveBuffer(int handle, int size);
    int Close(int handle);

    // Whole or not at all; a blocking socket waits. Return: the count, 0 (non-blocking), -1 closed.
    long Send(int handle, const void* data, unsigned long length);
    long Recv(int handle, void* data, unsigned long length);

    int Poll(ps_pollfd* entries, unsigned int count, int timeout);
    int Select(const ps_fdsets& asked, ps_fdsets& out, const ps_timeval* timeout);

private:
    struct CSocket
    {
        unsigned short m_wPort = 0;
        int m_nPeer = -1;
        bool m_bNonBlocking = false;
        bool m_bHungUp = false;
        std::size_t m_nRoom = 65520;
        std::string m_Inbox;
        std::deque<int> m_Waiting;  // connecting ends, on a listener
    };

    template <class Look>
    bool WaitFor(std::unique_lock<std::mutex>& lock, long long deadline, Look look);
    void Wake();
    short Readiness(int handle, short wanted);
    void ForgetOnce(int handle);

    mutable std::mutex m_Mutex;
    bool m_bEnabled = false;
    bool m_bRecord = false;
    int m_nListener = -1;  // the newest on the meeting point
    unsigned short m_wNextPort = 40000;
    std::map<int, CSocket> m_Sockets;
    std::map<int, short> m_Ready;
    std::map<int, short> m_ReadyOnce;
    std::multiset<mantle::CMNWaiter*> m_Waiters;
};

#endif
