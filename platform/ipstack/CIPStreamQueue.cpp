#include "CIPStreamQueue.h"

#include <algorithm>
#include <cstring>

namespace ipstack
{

bool CIPStreamQueue::Append(pbuf* packet)
{
    const u16_t length = packet->tot_len;
    if (length == 0) {
        pbuf_free(packet);
        return true;
    }
    const bool flat =
        !packet->next && packet->ref == 1 && pbuf_match_allocsrc(packet, PBUF_TYPE_ALLOC_SRC_MASK_STD_HEAP);
    if (length < s_wSmall && m_pLast) {
        if (m_wTailRoom < length) {
            pbuf* block = pbuf_alloc(PBUF_RAW, s_wBlock, PBUF_RAM);
            if (!block) {
                return false;
            }
            block->len = block->tot_len = 0;
            Link(block);
            m_wTailRoom = s_wBlock;
        }
        pbuf_copy_partial(packet, static_cast<char*>(m_pLast->payload) + m_pLast->len, length, 0);
        m_pLast->len = static_cast<u16_t>(m_pLast->len + length);
        m_wTailRoom = static_cast<u16_t>(m_wTailRoom - length);
        pbuf_free(packet);
    } else if (flat) {
        Link(packet);
    } else {
        pbuf* copy = pbuf_alloc(PBUF_RAW, length, PBUF_RAM);
        if (!copy) {
            return false;
        }
        pbuf_copy_partial(packet, copy->payload, length, 0);
        pbuf_free(packet);
        Link(copy);
    }
    m_nSize += length;
    return true;
}

void CIPStreamQueue::Link(pbuf* buffer) noexcept
{
    buffer->next = nullptr;
    (m_pLast ? m_pLast->next : m_pFirst) = buffer;
    m_pLast = buffer;
    m_wTailRoom = 0;
}

std::size_t CIPStreamQueue::Read(void* data, std::size_t room, bool peek, pbuf*& used) noexcept
{
    std::size_t done = 0;
    auto* target = static_cast<char*>(data);
    for (pbuf* buffer = m_pFirst; buffer && done < room;) {
        const std::size_t count = std::min<std::size_t>(buffer->len, room - done);
        std::memcpy(target + done, buffer->payload, count);
        done += count;
        if (peek) {
            buffer = buffer->next;
            continue;
        }
        if (count < buffer->len) {
            buffer->payload = static_cast<char*>(buffer->payload) + count;
            buffer->len = static_cast<u16_t>(buffer->len - count);
            break;
        }
        pbuf* next = buffer->next;
        buffer->next = used;
        used = buffer;
        buffer = m_pFirst = next;
    }
    if (!peek) {
        m_nSize -= done;
        if (!m_pFirst) {
            m_pLast = nullptr;
            m_wTailRoom = 0;
        }
    }
    return done;
}

void CIPStreamQueue::FreeUsed(pbuf* used) noexcept
{
    while (used) {
        pbuf* next = used->next;
        used->next = nullptr;
        pbuf_free(used);
        used = next;
    }
}

void CIPStreamQueue::Clear() noexcept
{
    FreeUsed(m_pFirst);
    m_pFirst = m_pLast = nullptr;
    m_nSize = 0;
    m_wTailRoom = 0;
}

std::size_t CIPStreamQueue::GetFootprint() const noexcept
{
    std::size_t total = 0;
    for (const pbuf* buffer = m_pFirst; buffer; buffer = buffer->next) {
        // A buffer's data starts behind its headers, so this is a little less than what was allocated.
        total += sizeof(pbuf) +
                 static_cast<std::size_t>(static_cast<char*>(buffer->payload) - reinterpret_cast<const char*>(buffer)) +
                 buffer->len;
    }
    return total + m_wTailRoom;
}

}  // namespace ipstack
