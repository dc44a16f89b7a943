// How much strangers can make the stack answer.
#ifndef IPSTACK_CIPANSWERLIMIT_H
#define IPSTACK_CIPANSWERLIMIT_H

#include <cstdint>

#include "lwip/ip_addr.h"

struct pbuf;

namespace ipstack
{

// What draws an answer of the stack's own may be forged: acknowledgements, resets, ICMP errors and echo replies are
// limited in number a second, for each connection or peer and in all (RFC 5961, section 7; RFC 4443, section 2.4 f;
// RFC 1812, section 4.3.2.8). The limits over all change a little from second to second, so that nobody can find out
// by what is left of them whether a guess about another's connection was right.
//
// Every call: the core lock is held.
class CIPAnswerLimit
{
public:
    enum EKind : unsigned int
    {
        Acknowledgement,
        Reset,
        IcmpError,
        EchoReply,
        Kinds
    };

    // Answers of one kind a second: over all, give or take a quarter, and to one connection (acknowledgements and
    // resets together) or one peer.
    struct CMost
    {
        std::uint32_t m_dwInAll;
        std::uint32_t m_dwEach;
    };
    static constexpr CMost s_Acknowledgements{5000, 10};
    static constexpr CMost s_Resets{5000, 1000};
    static constexpr CMost s_IcmpErrors{1000, 100};
    static constexpr CMost s_EchoReplies{10000, 5000};

    static const CMost& GetMost(EKind kind) noexcept { return s_Most[kind]; }
    // For tests that need many answers.
    static void SetMost(EKind kind, const CMost& most) noexcept { s_Most[kind] = most; }

    // What one connection or peer has been answered within a second.
    struct CShare
    {
        std::uint32_t m_dwSecond = 0;
        std::uint32_t m_dwCount = 0;
    };

    // Whether a connection may answer now; counts the answer, sent or withheld. `share` is null for a connection that
    // keeps none.
    static bool AllowConnection(EKind kind, CShare* share) noexcept;

    // While one lives, the answers that lwIP gives to whom no connection belongs are limited: MayLeave says which.
    class CScope
    {
    public:
        CScope() noexcept { s_bArmed = true; }
        ~CScope() { s_bArmed = false; }
        CScope(const CScope&) = delete;
        CScope& operator=(const CScope&) = delete;
    };
    static bool IsArmed() noexcept { return s_bArmed; }

    // Whether a packet that lwIP emits inside a scope may leave by a link: other kinds than these answers always may.
    static bool MayLeave(const pbuf* packet) noexcept;

private:
    static bool AllowPeer(EKind kind, const ip_addr_t& peer) noexcept;

    static CMost s_Most[Kinds];
    static bool s_bArmed;
};

}  // namespace ipstack

#endif
