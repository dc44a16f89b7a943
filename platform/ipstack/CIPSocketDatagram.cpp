#include "CIPSocketDatagram.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "lwip/ip.h"

namespace ipstack
{

CIPSocketDatagram::~CIPSocketDatagram()
{
    mantle::CMNMutexGuard guard(m_QueueMutex);
    ClearQueue();
}

void CIPSocketDatagram::ClearQueue()
{
    while (CDatagram* datagram = m_pFirst) {
        m_pFirst = datagram->m_pNext;
        std::free(datagram);
    }
    m_pLast = nullptr;
    m_nBytes = m_nCount = 0;
}

void CIPSocketDatagram::CloseLocked()
{
    RemovePcb();
    mantle::CMNMutexGuard guard(m_QueueMutex);
    m_bReceiveShut = true;
    ClearQueue();
}

void CIPSocketDatagram::Enqueue(const pbuf* packet, u16_t offset, u16_t length, const CIPAddress& from)
{
    const auto limit = static_cast<std::size_t>(m_nReceiveLimit.load());
    mantle::CMNMutexGuard guard(m_QueueMutex);
    if (m_bReceiveShut) {
        return;
    }
    // One datagram fits into an empty queue, however large it is.
    const bool full = m_nCount != 0 && (m_nBytes + length > limit || m_nCount >= limit / s_nShare);
    void* memory = full ? nullptr : std::malloc(sizeof(CDatagram) + length);
    if (!memory) {
        CIPCounters::Add(m_eFull);
        return;
    }
    auto* datagram = new (memory) CDatagram{nullptr, from, length};
    pbuf_copy_partial(packet, datagram->Data(), length, offset);
    (m_pFirst ? m_pLast->m_pNext : m_pFirst) = datagram;
    m_pLast = datagram;
    m_nBytes += length;
    ++m_nCount;
    RaiseLocked(CIPReadiness::s_dwIn);
}

long CIPSocketDatagram::Receive(void* data, unsigned long length, bool peek, CIPAddress& from)
{
    for (;;) {
        {
            mantle::CMNMutexGuard guard(m_QueueMutex);
            if (CDatagram* datagram = m_pFirst) {
                const std::size_t count = std::min<std::size_t>(length, datagram->m_nLength);
                if (count != 0) {
                    std::memcpy(data, datagram->Data(), count);
                }
                from = datagram->m_From;
                if (!peek) {
                    CIPCounters::Add(m_eCut, datagram->m_nLength - count);
                    m_pFirst = datagram->m_pNext;
                    m_nBytes -= datagram->m_nLength;
                    --m_nCount;
                    std::free(datagram);
                    if (!m_pFirst) {
                        m_pLast = nullptr;
                        if (!m_bReceiveShut) {
                            Clear(CIPReadiness::s_dwIn);
                        }
                    }
                }
                return static_cast<long>(count);
            }
            if (m_bReceiveShut) {
                return IsClosed() ? -PS_EBADF : peek ? 0 : -PS_ENOTCONN;
            }
        }
        if (IsNonBlocking()) {
            return peek ? -PS_EINPROGRESS : 0;
        }
        if (!WaitFor(CIPReadiness::s_dwIn)) {
            return -PS_EBADF;
        }
    }
}

long CIPSocketDatagram::Shutdown(int direction)
{
    constexpr int both = 2;
    if (direction != PS_SHUT_RD && direction != PS_SHUT_WR && direction != both) {
        return -PS_EINVAL;
    }
    CIPCoreGuard guard;
    if (IsClosed()) {
        return -PS_EBADF;
    }
    if (!m_bConnected) {
        return -PS_ENOTCONN;
    }
    if (direction != PS_SHUT_RD) {
        m_bSendShut = true;
    }
    if (direction != PS_SHUT_WR) {
        mantle::CMNMutexGuard queueGuard(m_QueueMutex);
        m_bReceiveShut = true;
        RaiseLocked(CIPReadiness::s_dwIn);
    }
    return 0;
}

long CIPSocketDatagram::GetPeer(CIPAddress& address)
{
    CIPCoreGuard guard;
    if (IsClosed() || !m_bConnected) {
        return IsClosed() ? -PS_EBADF : -PS_ENOTCONN;
    }
    address = m_Peer;
    return 0;
}

long CIPSocketDatagram::GetWaiting()
{
    mantle::CMNMutexGuard guard(m_QueueMutex);
    return m_pFirst ? static_cast<long>(m_pFirst->m_nLength) : 0;
}

std::uint32_t CIPSocketDatagram::GetBitsLocked()
{
    mantle::CMNMutexGuard guard(m_QueueMutex);
    return CIPReadiness::s_dwOut | (m_pFirst || m_bReceiveShut ? CIPReadiness::s_dwIn : 0);
}

long CIPSocketDatagram::SetOwnOption(int, int, int)
{
    return -PS_ENOPROTOOPT;
}

long CIPSocketDatagram::GetOwnOption(int, int, int&)
{
    return -PS_ENOPROTOOPT;
}

int CIPSocketDatagram::Gather(const ps_iovec* pieces, unsigned long count, unsigned long most, pbuf_layer layer,
                              pbuf*& packet)
{
    unsigned long total = 0;
    for (unsigned long i = 0; i < count; ++i) {
        if (!pieces[i].iov_base && pieces[i].iov_len != 0) {
            return PS_EINVAL;
        }
        if (pieces[i].iov_len > most || total + pieces[i].iov_len > most) {
            return PS_EMSGSIZE;
        }
        total += pieces[i].iov_len;
    }
    packet = pbuf_alloc(layer, static_cast<u16_t>(total), PBUF_RAM);
    if (!packet) {
        return PS_ENOMEM;
    }
    auto* target = static_cast<char*>(packet->payload);
    for (unsigned long i = 0; i < count; ++i) {
        if (pieces[i].iov_len != 0) {
            std::memcpy(target, pieces[i].iov_base, pieces[i].iov_len);
            target += pieces[i].iov_len;
        }
    }
    return 0;
}

int CIPSocketDatagram::Route(const ip_addr_t& bound, const CIPAddress& to, netif*& link, ip_addr_t& source)
{
    if (ip_addr_ismulticast(&to.m_Ip)) {
        return PS_ENETUNREACH;  // no group can be joined
    }
    link = ip_route(&bound, &to.m_Ip);
    if (!link) {
        return PS_ENETUNREACH;
    }
    if (!ip_addr_isany(&bound)) {
        ip_addr_copy(source, bound);
        return 0;
    }
    const ip_addr_t* own = ip_netif_get_local_ip(link, &to.m_Ip);
    if (!own) {
        return PS_ENETUNREACH;
    }
    ip_addr_copy(source, *own);
    return 0;
}

int CIPSocketDatagram::ChooseDestination(const CIPAddress* to, CIPAddress& destination) const
{
    if (IsClosed()) {
        return PS_EBADF;
    }
    if (m_bSendShut) {
        return PS_EPIPE;
    }
    if (!to) {
        destination = m_Peer;
        return m_bConnected ? 0 : PS_EDESTADDRREQ;
    }
    destination = *to;
    return FitDestination(destination);
}

}  // namespace ipstack
