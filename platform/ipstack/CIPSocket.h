// What every socket has.
#ifndef IPSTACK_CIPSOCKET_H
#define IPSTACK_CIPSOCKET_H

#include <atomic>
#include <cstddef>

#include "CIPAddress.h"
#include "CIPCore.h"
#include "CIPPortTable.h"
#include "CIPReadiness.h"
#include "ipstack/ps_defines.h"
#include "lwip/opt.h"

namespace ipstack
{

// A value of an option as the caller gives or takes it, 4 or 8 bytes long.
class CIPOptionValue
{
public:
    // Returns: false for a length that is neither, or a value that no int holds.
    static bool Read(const void* value, int length, int& result) noexcept;

    // Writes 8 bytes where there is room for them, 4 where the room is just that. Returns: 0; PS_EINVAL for any
    // other room.
    static int Write(void* value, int* length, int result) noexcept;
};

// One socket. Operations answer 0 or a count, or a negative error number.
//
// Thread: any. State: operations named ...Locked and the comment "core lock" beside a member say that the core
// lock is held; the others take it themselves where they need it.
class CIPSocket
{
public:
    // Buffer limits: unless set, and at most.
    static constexpr int s_nDefaultLimit = 65535;
    static constexpr int s_nMostLimit = 512 * 1024;

    CIPSocket(int family, int type) noexcept : m_nFamily(family), m_nType(type) {}
    virtual ~CIPSocket() = default;
    CIPSocket(const CIPSocket&) = delete;
    CIPSocket& operator=(const CIPSocket&) = delete;

    // Called once, by whoever has taken the socket off its handle: lets go of everything of lwIP's. State: the core
    // lock is held.
    virtual void CloseLocked() = 0;

    virtual long Bind(const CIPAddress& address) = 0;
    virtual long Connect(const CIPAddress& address) = 0;
    virtual long Disconnect();
    virtual long Listen(int backlog);
    virtual long Accept(CIPAddress& peer);
    // `to` is null for the connected peer.
    virtual long Send(const ps_iovec* pieces, unsigned long count, const CIPAddress* to) = 0;
    virtual long Receive(void* data, unsigned long length, bool peek, CIPAddress& from) = 0;
    virtual long Shutdown(int direction) = 0;
    virtual long GetLocal(CIPAddress& address) = 0;
    virtual long GetPeer(CIPAddress& address) = 0;
    virtual long GetWaiting() = 0;

    long SetOption(int level, int name, const void* value, int length);
    long GetOption(int level, int name, void* value, int* length);
    long SetLimits(int send, int receive);

    // The error that the socket carries.
    int GetError() const noexcept { return m_nError.load(); }

    int GetFamily() const noexcept { return m_nFamily; }
    bool IsNonBlocking() const noexcept { return m_bNonBlocking.load(std::memory_order_relaxed); }
    void SetNonBlocking(bool on) noexcept { m_bNonBlocking.store(on, std::memory_order_relaxed); }

    // Takes the handle into use. State: the core lock is held.
    void SetHandleLocked(int handle) noexcept;

protected:
    // The bits that the socket is ready for now. State: the core lock is held.
    virtual std::uint32_t GetBitsLocked() = 0;

    // Options of one kind of socket: `level` and `name` are those of the first table that knows them. Returns:
    // 0, or a negative error number; -PS_ENOPROTOOPT when the name is none of its own. State: the core lock is held.
    virtual long SetOwnOption(int level, int name, int value) = 0;
    virtual long GetOwnOption(int level, int name, int& value) = 0;
    virtual void OnSettingsLocked() = 0;

    // While the socket has no handle yet, its bits are asked for when it gets one.
    void RaiseLocked(std::uint32_t bits)
    {
        if (m_nHandle != 0) {
            CIPReadiness::Raise(m_nHandle, bits, CIPCore::Instance().GetWakes());
        }
    }
    void Clear(std::uint32_t bits) noexcept
    {
        if (m_nHandle != 0) {
            CIPReadiness::Clear(m_nHandle, bits);
        }
    }

    // Sleeps until the handle has one of the bits. Returns: false when the socket has been closed.
    bool WaitFor(std::uint32_t bits);
    bool IsClosed() const noexcept { return m_bClosed.load(); }

    // An address of another family becomes the socket's own where that has a meaning: the IPv4 any-address is the
    // any-address of a family 10 socket. Returns: 0 or PS_EAFNOSUPPORT.
    int FitBindAddress(CIPAddress& address) const noexcept;

    // The any-address as a destination is the stack itself. Returns: 0 or PS_EAFNOSUPPORT.
    int FitDestination(CIPAddress& address) const noexcept;

    std::atomic<int> m_nError{0};
    std::atomic<int> m_nSendLimit{s_nDefaultLimit};
    std::atomic<int> m_nReceiveLimit{s_nDefaultLimit};
    u8_t m_cSocketOptions = 0;     // core lock: SOF_KEEPALIVE, SOF_BROADCAST
    u8_t m_cTos = 0;               // core lock
    u8_t m_cTtl = IP_DEFAULT_TTL;  // core lock
    bool m_bReuse = false;         // core lock
    bool m_bLinger = false;        // core lock
    int m_nLingerSeconds = 0;      // core lock

private:
    friend class CIPSocketCloser;

    long SetCommonOption(int level, int name, int value);
    long GetCommonOption(int level, int name, int& value);

    const int m_nFamily;
    const int m_nType;
    int m_nHandle = 0;  // 0 until it has one; then fixed
    std::atomic<bool> m_bNonBlocking{false};
    std::atomic<bool> m_bClosed{false};
};

// Closing by handle.
class CIPSocketCloser
{
public:
    // Returns: 0 or -PS_EBADF.
    static long Close(int handle);
};

}  // namespace ipstack

#endif
