#include "CMNUDPSocket.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/udp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#if !defined(UDP_SEGMENT)
#  define UDP_SEGMENT 103  // linux/udp.h
#endif
#if !defined(UDP_GRO)
#  define UDP_GRO 104  // linux/udp.h
#endif

namespace connhub
{

namespace
{

using mantle::CMNInetAddr;

// The kernel's own limits of a segmented send (UDP_MAX_SEGMENTS, and the length of an IP packet).
constexpr std::size_t s_nMaxSegments = 64;
constexpr std::size_t s_nMaxSegmentedBytes = 65000;

constexpr std::size_t s_nSendPieces = 32;  // of one call
constexpr std::size_t s_nReceivePieces = 16;
constexpr std::size_t s_nReceiveBytes = 65536;  // for each piece

// What the system may hold for the socket. Merged datagrams count with all their memory.
constexpr int s_nReceiveBuffer = 4 << 20;
constexpr int s_nSendBuffer = 2 << 20;

struct CControl
{
    alignas(std::size_t) char m_Bytes[CMSG_SPACE(sizeof(int))];
};

// The system's record has the family where CMNInetAddr's has length and family; the rest is the same.
socklen_t ToSystem(const CMNInetAddr& address, sockaddr_storage& system) noexcept
{
    const bool ip6 = address.GetType() == CMNInetAddr::s_wFamilyIpv6;
    const std::size_t length = ip6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
    std::memcpy(&system, address.GetPtr(), length);
    system.ss_family = ip6 ? AF_INET6 : AF_INET;
    return static_cast<socklen_t>(length);
}

void FromSystem(const sockaddr_storage& system, CMNInetAddr& address) noexcept
{
    const bool ip6 = system.ss_family == AF_INET6;
    const std::size_t length = ip6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
    unsigned char record[sizeof(sockaddr_in6)];
    std::memcpy(record, &system, length);
    record[0] = static_cast<unsigned char>(length);
    record[1] = static_cast<unsigned char>(ip6 ? CMNInetAddr::s_wFamilyIpv6 : CMNInetAddr::s_wFamilyIpv4);
    address.Set(record, static_cast<int>(length));
}

void SetBuffer(int handle, int forced, int usual, int bytes) noexcept
{
    // Beyond the system's limit where the process may, else up to it.
    if (::setsockopt(handle, SOL_SOCKET, forced, &bytes, sizeof(bytes)) != 0) {
        ::setsockopt(handle, SOL_SOCKET, usual, &bytes, sizeof(bytes));
    }
}

bool IsFull(int error) noexcept
{
    return error == EAGAIN || error == EWOULDBLOCK;
}

}  // namespace

struct CMNReceiveRoom::CSystem
{
    std::unique_ptr<char[]> m_Data{new char[s_nReceivePieces * s_nReceiveBytes]};
    mmsghdr m_Messages[s_nReceivePieces];
    iovec m_Pieces[s_nReceivePieces];
    sockaddr_storage m_From[s_nReceivePieces];
    CControl m_Control[s_nReceivePieces];
};

CMNReceiveRoom::CMNReceiveRoom() : m_pSystem(new CSystem) {}

CMNReceiveRoom::~CMNReceiveRoom() = default;

bool CMNReceiveRoom::IsFull() const noexcept
{
    return m_nCount == s_nReceivePieces;
}

CMNReceiveRoom::CPiece CMNReceiveRoom::GetPiece(std::size_t index) const
{
    mmsghdr& message = m_pSystem->m_Messages[index];
    CPiece piece;
    piece.m_pData = static_cast<const char*>(m_pSystem->m_Pieces[index].iov_base);
    piece.m_nBytes = message.msg_len;
    piece.m_nEach = piece.m_nBytes;
    piece.m_bWhole = (message.msg_hdr.msg_flags & MSG_TRUNC) == 0;
    FromSystem(m_pSystem->m_From[index], piece.m_From);
    for (cmsghdr* at = CMSG_FIRSTHDR(&message.msg_hdr); at; at = CMSG_NXTHDR(&message.msg_hdr, at)) {
        if (at->cmsg_level == IPPROTO_UDP && at->cmsg_type == UDP_GRO) {
            int size = 0;
            std::memcpy(&size, CMSG_DATA(at), sizeof(size));
            if (size > 0) {
                piece.m_nEach = static_cast<std::size_t>(size);
            }
        }
    }
    return piece;
}

mantle::MNResult CMNUDPSocket::Open(const CMNInetAddr& local)
{
    sockaddr_storage address;
    const socklen_t length = ToSystem(local, address);
    const int handle = ::socket(address.ss_family, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_UDP);
    if (handle < 0) {
        return mantle::MN_ERROR_FAILURE;
    }
    const int on = 1;
    if (address.ss_family == AF_INET6) {
        ::setsockopt(handle, IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof(on));
    }
    if (::bind(handle, reinterpret_cast<const sockaddr*>(&address), length) != 0) {
        ::close(handle);
        return mantle::MN_ERROR_FAILURE;
    }
    SetBuffer(handle, SO_RCVBUFFORCE, SO_RCVBUF, s_nReceiveBuffer);
    SetBuffer(handle, SO_SNDBUFFORCE, SO_SNDBUF, s_nSendBuffer);
    // Older systems know neither; datagrams then come and go one by one.
    ::setsockopt(handle, IPPROTO_UDP, UDP_GRO, &on, sizeof(on));
    const int off = 0;
    m_bSegmenting = ::setsockopt(handle, IPPROTO_UDP, UDP_SEGMENT, &off, sizeof(off)) == 0;
    m_nHandle = handle;
    m_wFamily = local.GetType();
    return mantle::MN_OK;
}

void CMNUDPSocket::Close() noexcept
{
    if (m_nHandle >= 0) {
        ::close(m_nHandle);
        m_nHandle = -1;
    }
}

void CMNUDPSocket::FreeAddress(int spare, int poll) noexcept
{
    if (m_nHandle >= 0) {
        // A wait that just looks at the socket holds it a moment longer than its descriptor.
        ::epoll_ctl(poll, EPOLL_CTL_DEL, m_nHandle, nullptr);
        ::dup3(spare, m_nHandle, O_CLOEXEC);
    }
}

bool CMNUDPSocket::GetLocalAddress(CMNInetAddr& local) const
{
    sockaddr_storage address{};
    socklen_t length = sizeof(address);
    if (::getsockname(m_nHandle, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        return false;
    }
    FromSystem(address, local);
    return true;
}

CMNUDPSocket::EOutcome CMNUDPSocket::SendOne(const char* data, std::size_t length, const CMNInetAddr& to,
                                             CMNUDPCounts& counts)
{
    sockaddr_storage address;
    const socklen_t addressLength = ToSystem(to, address);
    ssize_t sent;
    do {
        sent = ::sendto(m_nHandle, data, length, MSG_DONTWAIT | MSG_NOSIGNAL,
                        reinterpret_cast<const sockaddr*>(&address), addressLength);
    } while (sent < 0 && errno == EINTR);
    if (sent < 0) {
        if (IsFull(errno)) {
            return EOutcome::FULL;
        }
        CMNUDPCounts::Add(counts.m_qwFailed);
        return EOutcome::DONE;
    }
    CMNUDPCounts::Add(counts.m_qwSendCalls);
    CMNUDPCounts::Add(counts.m_qwSent);
    CMNUDPCounts::Add(counts.m_qwSentBytes, length);
    return EOutcome::DONE;
}

CMNUDPSocket::EOutcome CMNUDPSocket::Send(CMNDatagramBatch& batch, CMNUDPCounts& counts)
{
    mmsghdr messages[s_nSendPieces];
    iovec pieces[s_nSendPieces];
    sockaddr_storage addresses[s_nSendPieces];
    CControl controls[s_nSendPieces]{};
    CMNDatagramBatch::CRun runs[s_nSendPieces];

    while (!batch.IsEmpty()) {
        unsigned int used = 0;
        for (std::size_t skip = 0; used < s_nSendPieces && skip < batch.GetCount(); ++used) {
            CMNDatagramBatch::CRun& run = runs[used];
            run = batch.GetRun(skip, m_bSegmenting ? s_nMaxSegments : 1, s_nMaxSegmentedBytes);
            skip += run.m_nCount;
            pieces[used] = iovec{const_cast<char*>(run.m_pData), run.m_nBytes};
            msghdr& header = messages[used].msg_hdr;
            header = msghdr{};
            header.msg_name = &addresses[used];
            header.msg_namelen = ToSystem(*run.m_pTo, addresses[used]);
            header.msg_iov = &pieces[used];
            header.msg_iovlen = 1;
            if (run.m_nCount > 1) {
                const auto each = static_cast<std::uint16_t>(run.m_nEach);
                header.msg_control = controls[used].m_Bytes;
                header.msg_controllen = CMSG_SPACE(sizeof(each));
                cmsghdr* control = CMSG_FIRSTHDR(&header);
                control->cmsg_level = IPPROTO_UDP;
                control->cmsg_type = UDP_SEGMENT;
                control->cmsg_len = CMSG_LEN(sizeof(each));
                std::memcpy(CMSG_DATA(control), &each, sizeof(each));
            }
        }
        const int sent = ::sendmmsg(m_nHandle, messages, used, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent > 0) {
            CMNUDPCounts::Add(counts.m_qwSendCalls);
            std::size_t count = 0;
            std::size_t bytes = 0;
            for (int index = 0; index < sent; ++index) {
                count += runs[index].m_nCount;
                bytes += runs[index].m_nBytes;
                if (runs[index].m_nCount > 1) {
                    CMNUDPCounts::Add(counts.m_qwSegmentedSends);
                }
            }
            CMNUDPCounts::Add(counts.m_qwSent, count);
            CMNUDPCounts::Add(counts.m_qwSentBytes, bytes);
            batch.Pop(count);
        } else if (errno == EINTR) {
            continue;
        } else if (IsFull(errno)) {
            return EOutcome::FULL;
        } else if (runs[0].m_nCount > 1) {
            // No segmentation on the way to this address, or not in this size: one by one from now on.
            CMNUDPCounts::Add(counts.m_qwSegmentedRefused);
            m_bSegmenting = false;
        } else {
            CMNUDPCounts::Add(counts.m_qwFailed);
            batch.Pop(1);
        }
    }
    return EOutcome::DONE;
}

bool CMNUDPSocket::Receive(CMNReceiveRoom& room, CMNUDPCounts& counts)
{
    CMNReceiveRoom::CSystem& system = *room.m_pSystem;
    for (std::size_t index = 0; index < s_nReceivePieces; ++index) {
        system.m_Pieces[index] = iovec{system.m_Data.get() + index * s_nReceiveBytes, s_nReceiveBytes};
        msghdr& header = system.m_Messages[index].msg_hdr;
        header = msghdr{};
        header.msg_name = &system.m_From[index];
        header.msg_namelen = sizeof(sockaddr_storage);
        header.msg_iov = &system.m_Pieces[index];
        header.msg_iovlen = 1;
        header.msg_control = system.m_Control[index].m_Bytes;
        header.msg_controllen = sizeof(CControl);
    }
    int received;
    do {
        received = ::recvmmsg(m_nHandle, system.m_Messages, s_nReceivePieces, MSG_DONTWAIT, nullptr);
    } while (received < 0 && errno == EINTR);
    room.m_nCount = received > 0 ? static_cast<std::size_t>(received) : 0;
    if (room.m_nCount != 0) {
        CMNUDPCounts::Add(counts.m_qwReceiveCalls);
    }
    return room.m_nCount != 0;
}

}  // namespace connhub
