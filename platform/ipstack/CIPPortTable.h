// Who has which local port.
#ifndef IPSTACK_CIPPORTTABLE_H
#define IPSTACK_CIPPORTTABLE_H

#include <cstdint>
#include <vector>

#include "CIPAddress.h"

namespace ipstack
{

// Local addresses in use by TCP and UDP sockets. lwIP's own scans for a free port are not used: they walk every
// connection and count ports up.
//
// Every call: the core lock is held.
class CIPPortTable
{
public:
    enum EProtocol : unsigned int
    {
        Tcp,
        Udp,
        ProtocolCount
    };

    // What a use of an address keeps out.
    enum EUse : unsigned int
    {
        Bound,    // a socket is bound to it: nobody else may be
        Open,     // an accepted connection: nobody else may bind
        Closing,  // a connection that no socket has any more: address reuse binds past it
        UseCount
    };

    // Ports that the stack chooses: s_wFirst and up.
    static constexpr u16_t s_wFirst = 32768;

    // The address of the reactors' wake-up pipes, which any number of listeners may hold.
    static constexpr u16_t s_wPipePort = 5555;

    // One use of an address; gives it back when it ends.
    class CHold
    {
    public:
        CHold() = default;
        CHold(CHold&& other) noexcept { *this = static_cast<CHold&&>(other); }
        CHold& operator=(CHold&& other) noexcept;
        CHold(const CHold&) = delete;
        CHold& operator=(const CHold&) = delete;
        ~CHold() { Release(); }

        bool IsHeld() const noexcept { return m_bHeld; }
        const CIPAddress& GetAddress() const noexcept { return m_Address; }

        // Binds the address, or chooses a free port when its port is 0. Returns: 0; PS_EADDRINUSE, also when all
        // ports are taken; PS_ENOMEM, and what was held before is held still.
        int Bind(EProtocol protocol, const CIPAddress& address, bool reuse);

        // Notes an accepted connection's address. Returns: 0; PS_ENOMEM.
        int Join(EProtocol protocol, const CIPAddress& address);

        void Change(EUse use) noexcept;
        void Release() noexcept;

    private:
        friend class CIPPortTable;

        CIPAddress m_Address;
        EProtocol m_eProtocol = Tcp;
        EUse m_eUse = Bound;
        bool m_bHeld = false;
    };

    // Uses of a port, of all kinds. For tests.
    static unsigned int CountUses(EProtocol protocol, u16_t port) noexcept;

private:
    struct CEntry
    {
        ip_addr_t m_Ip;
        std::uint32_t m_dwUses[UseCount];
    };
    using CPort = std::vector<CEntry>;

    static bool IsFree(EProtocol protocol, const CIPAddress& address, bool reuse) noexcept;
    static u16_t ChoosePort(EProtocol protocol, CIPAddress address) noexcept;
    static int Enter(CHold& hold, EProtocol protocol, const CIPAddress& address, EUse use) noexcept;

    static CPort* s_Ports[ProtocolCount][65536];
};

}  // namespace ipstack

#endif
