// Bytes that have arrived and wait to be read.
#ifndef IPSTACK_CIPSTREAMQUEUE_H
#define IPSTACK_CIPSTREAMQUEUE_H

#include <cstddef>

#include "lwip/pbuf.h"

namespace ipstack
{

// A list of flat buffers, each linked by its own `next`, so that a total is not bound to 16 bits as a chain's is.
// Small segments are copied into the room behind the last buffer: a queue of single bytes costs little more than
// the bytes. No lock of its own.
class CIPStreamQueue
{
public:
    CIPStreamQueue() = default;
    ~CIPStreamQueue() { Clear(); }
    CIPStreamQueue(const CIPStreamQueue&) = delete;
    CIPStreamQueue& operator=(const CIPStreamQueue&) = delete;

    std::size_t GetSize() const noexcept { return m_nSize; }

    // Appends and owns the packet, a chain too. Returns: false when there is no memory; the packet is then the
    // caller's as before.
    bool Append(pbuf* packet);

    // Copies up to `room` bytes out, and takes them off the queue unless `peek`. Buffers that are used up are put in
    // front of `used`, to be freed by FreeUsed without any lock: they are flat memory of the C library's.
    std::size_t Read(void* data, std::size_t room, bool peek, pbuf*& used) noexcept;
    static void FreeUsed(pbuf* used) noexcept;

    void Clear() noexcept;

    // Memory that the queue holds, overhead included. For tests.
    std::size_t GetFootprint() const noexcept;

private:
    // Segments shorter than this are copied; the buffers they are copied into have this room.
    static constexpr u16_t s_wSmall = 512;
    static constexpr u16_t s_wBlock = 4000;

    void Link(pbuf* buffer) noexcept;

    pbuf* m_pFirst = nullptr;
    pbuf* m_pLast = nullptr;
    std::size_t m_nSize = 0;
    u16_t m_wTailRoom = 0;  // bytes free behind the last buffer's data
};

}  // namespace ipstack

#endif
