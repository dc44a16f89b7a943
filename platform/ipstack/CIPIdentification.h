// Identifications that do not tell one peer how much is sent to others.
#ifndef IPSTACK_CIPIDENTIFICATION_H
#define IPSTACK_CIPIDENTIFICATION_H

#include <cstddef>
#include <cstdint>

namespace ipstack
{

// Numbers without order, of a sequence of its own for each pair of addresses (a bucket by keyed hash, RFC 7739, section
// 5.3); lwIP counts all packets with one counter. Each half of the numbers comes once, in an order that a fresh key
// makes, and then the other half: 32768 packets of one bucket in a row all differ (RFC 6864, section 4.3).
//
// Every call: the core lock is held.
class CIPIdentification
{
public:
    // Writes an identification into a packet of lwIP's that leaves by a link: into every IPv4 packet, whose header
    // checksum is brought up to date, and into IPv6 fragments. The fragments of one datagram, which lwIP emits one
    // behind the other, get the same one.
    static void Write(std::uint8_t* packet, std::size_t length) noexcept;

    // While one lives, packets keep the identification that a program has given them.
    class CKeep
    {
    public:
        explicit CKeep(bool keep) noexcept { s_bKept = keep; }
        ~CKeep() { s_bKept = false; }
        CKeep(const CKeep&) = delete;
        CKeep& operator=(const CKeep&) = delete;
    };

    // One sequence of numbers of `bits` bits, 32 at most.
    class CSequence
    {
    public:
        std::uint32_t Next(unsigned int bits) noexcept;

    private:
        std::uint64_t m_qwKey = 0;  // 0: none yet
        std::uint32_t m_dwDrawn = 0;
    };

private:
    static bool s_bKept;
};

}  // namespace ipstack

#endif
