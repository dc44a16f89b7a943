// Sending and receiving of TCP sockets.
#include <algorithm>
#include <climits>
#include <cstring>

#include "CIPCounters.h"
#include "CIPSocketTcp.h"
#include "lwip/priv/tcp_priv.h"

namespace ipstack
{

namespace
{

// A socket is writable when an eighth of its limit is free and lwIP's list of buffers is not nearly full.
constexpr std::size_t s_nWritableShare = 8;
constexpr u16_t s_wWritableQueue = TCP_SND_QUEUELEN / 4 * 3;

constexpr std::size_t s_nWriteMost = 0xFFFF;  // lwIP's lengths have 16 bits

// Windows that are scaled come in steps of this.
constexpr std::uint32_t s_dwStep = 1u << TCP_RCV_SCALE;

}  // namespace

std::size_t CIPSocketTcp::GetRoom(const tcp_pcb* pcb) const noexcept
{
    const std::size_t limit = std::max<std::size_t>(static_cast<std::size_t>(m_nSendLimit.load()), 2u * pcb->mss);
    const std::size_t used = TCP_SND_BUF - pcb->snd_buf;
    return limit > used ? std::min<std::size_t>(limit - used, pcb->snd_buf) : 0;
}

bool CIPSocketTcp::IsWritable(const tcp_pcb* pcb) const noexcept
{
    const auto limit = static_cast<std::size_t>(m_nSendLimit.load());
    return GetRoom(pcb) >= std::max(s_nWhole, limit / s_nWritableShare) && pcb->snd_queuelen < s_wWritableQueue;
}

void CIPSocketTcp::UpdateOut(const tcp_pcb* pcb)
{
    if (IsWritable(pcb)) {
        RaiseLocked(CIPReadiness::s_dwOut);
    } else {
        Clear(CIPReadiness::s_dwOut);
    }
}

void CIPSocketTcp::OnSent(tcp_pcb* pcb)
{
    if (m_eState == Connected && !m_bSendShut && IsWritable(pcb)) {
        RaiseLocked(CIPReadiness::s_dwOut);
    }
}

bool CIPSocketTcp::WriteWhole(tcp_pcb* pcb, const char* data, u16_t length)
{
    u8_t flags = TCP_WRITE_FLAG_COPY;
    const u16_t size = pcb->mss;
    if (tcp_seg* last = pcb->unsent) {
        flags |= TCP_WRITE_FLAG_MORE;
        while (last->next) {
            last = last->next;
        }
        const auto most = static_cast<u16_t>(std::min<u32_t>(size, std::min<u32_t>(pcb->snd_wnd_max / 2, 0xFFFF)));
        if (last->len < most && most - last->len < length) {
            // It would be cut at the segment's end, and its parts might arrive one by one: begin a new segment.
            pcb->unsent_oversize = 0;
            pcb->mss = last->len;
        }
    } else if (pcb->unacked) {
        flags |= TCP_WRITE_FLAG_MORE;
    }
    const err_t error = tcp_write(pcb, data, length, flags);
    pcb->mss = size;
    return error == ERR_OK;
}

long CIPSocketTcp::Write(const ps_iovec* pieces, unsigned long count, unsigned long total, unsigned long skip)
{
    if (IsClosed() || m_eState != Connected) {
        return m_eState == Connecting && !IsClosed() ? 0 : -GetStateError(PS_ENOTCONN);
    }
    tcp_pcb* pcb = GetPcb();
    if (m_bSendShut || !pcb) {
        return -PS_EPIPE;
    }
    if (total == 0) {
        return 0;
    }
    if (m_dwUncredited.load(std::memory_order_relaxed) >= s_dwStep) {
        Credit(pcb, false);  // the new window goes along with the data
    }
    long done = 0;
    if (total <= s_nWhole) {
        char whole[s_nWhole];
        std::size_t length = 0;
        for (unsigned long i = 0; i < count; ++i) {
            if (pieces[i].iov_len != 0) {
                std::memcpy(whole + length, pieces[i].iov_base, pieces[i].iov_len);
                length += pieces[i].iov_len;
            }
        }
        if (GetRoom(pcb) >= length && WriteWhole(pcb, whole, static_cast<u16_t>(length))) {
            done = static_cast<long>(length);
        }
    } else {
        bool full = false;
        for (unsigned long i = 0; i < count && !full; ++i) {
            const char* data = static_cast<const char*>(pieces[i].iov_base);
            unsigned long left = pieces[i].iov_len;
            const unsigned long skipped = std::min(skip, left);
            data += skipped;
            left -= skipped;
            skip -= skipped;
            while (left != 0) {
                const std::size_t room = GetRoom(pcb);
                const std::size_t length = std::min({static_cast<std::size_t>(left), room, s_nWriteMost});
                u8_t flags = TCP_WRITE_FLAG_COPY;
                const bool last = length == room || (length == left && i + 1 == count);
                if (!last || pcb->unsent || pcb->unacked) {
                    flags |= TCP_WRITE_FLAG_MORE;
                }
                if (length == 0 || tcp_write(pcb, data, static_cast<u16_t>(length), flags) != ERR_OK) {
                    full = true;
                    break;
                }
                data += length;
                left -= length;
                done += static_cast<long>(length);
            }
        }
    }
    if (done != 0) {
        tcp_output(pcb);
        m_pEnd->NoteUnsent();
    }
    UpdateOut(pcb);
    return done;
}

long CIPSocketTcp::Send(const ps_iovec* pieces, unsigned long count, const CIPAddress*)
{
    unsigned long total = 0;
    for (unsigned long i = 0; i < count; ++i) {
        if (pieces[i].iov_len > static_cast<unsigned long>(LONG_MAX) - total ||
            (!pieces[i].iov_base && pieces[i].iov_len != 0)) {
            return -PS_EINVAL;
        }
        total += pieces[i].iov_len;
    }
    unsigned long done = 0;
    for (;;) {
        long taken;
        {
            CIPCoreGuard guard;
            taken = Write(pieces, count, total, done);
        }
        if (taken < 0) {
            return done != 0 && taken != -PS_EBADF ? static_cast<long>(done) : taken;
        }
        done += static_cast<unsigned long>(taken);
        if (done == total || IsNonBlocking()) {
            return static_cast<long>(done);
        }
        if (!WaitFor(CIPReadiness::s_dwOut)) {
            return -PS_EBADF;
        }
    }
}

err_t CIPSocketTcp::OnReceived(tcp_pcb* pcb, pbuf* packet)
{
    mantle::CMNMutexGuard guard(m_QueueMutex);
    if (!packet) {
        m_bOpen = false;
        RaiseLocked(CIPReadiness::s_dwIn);
        return ERR_OK;
    }
    if (m_bReceiveShut) {
        CIPCounters::Add(CIPCounters::TcpUnreadDiscarded, packet->tot_len);
        m_dwUncredited.fetch_add(packet->tot_len);
        Credit(pcb, true);
        pbuf_free(packet);
        return ERR_OK;
    }
    if (!m_Queue.Append(packet)) {
        return ERR_MEM;  // lwIP keeps it and comes again
    }
    if (pcb->rcv_wnd < pcb->mss) {
        tcp_ack_now(pcb);  // the peer has to stop: it learns so at once, not with a delayed acknowledgement
    }
    RaiseLocked(CIPReadiness::s_dwIn);
    return ERR_OK;
}

long CIPSocketTcp::Receive(void* data, unsigned long length, bool peek, CIPAddress& from)
{
    for (;;) {
        std::size_t count;
        pbuf* used = nullptr;
        {
            mantle::CMNMutexGuard guard(m_QueueMutex);
            count = m_Queue.Read(data, length, peek, used);
            if (count == 0) {
                if (!m_bOpen || m_bReceiveShut) {
                    return peek && !IsClosed() ? 0 : -GetStateError(PS_ENOTCONN);
                }
                if (length == 0) {
                    return 0;
                }
            } else if (!peek && m_Queue.GetSize() == 0 && m_bOpen && !m_bReceiveShut) {
                Clear(CIPReadiness::s_dwIn);
            }
        }
        if (count != 0) {
            from = m_Peer;  // settled before the first byte came
            CIPStreamQueue::FreeUsed(used);
            if (!peek && m_dwUncredited.fetch_add(static_cast<std::uint32_t>(count)) + count >=
                             m_dwCreditStep.load(std::memory_order_relaxed)) {
                CIPCoreGuard guard;
                if (tcp_pcb* pcb = GetPcb()) {
                    Credit(pcb, true);
                }
            }
            return static_cast<long>(count);
        }
        if (IsNonBlocking()) {
            return peek ? -PS_EINPROGRESS : 0;
        }
        if (!WaitFor(CIPReadiness::s_dwIn)) {
            return -PS_EBADF;
        }
    }
}

long CIPSocketTcp::GetWaiting()
{
    mantle::CMNMutexGuard guard(m_QueueMutex);
    return static_cast<long>(m_Queue.GetSize());
}

}  // namespace ipstack
