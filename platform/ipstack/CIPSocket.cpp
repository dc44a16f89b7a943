#include "CIPSocket.h"

#include <climits>
#include <cstdint>
#include <cstring>

#include "CIPSocketTable.h"
#include "CIPTcpBacklog.h"
#include "CIPWaiting.h"
#include "lwip/ip.h"

namespace ipstack
{

namespace
{

constexpr int s_nNarrow = 4;  // lengths of an option's value
constexpr int s_nWide = 8;

}  // namespace

bool CIPOptionValue::Read(const void* value, int length, int& result) noexcept
{
    if (length == s_nNarrow) {
        std::memcpy(&result, value, sizeof(result));
        return true;
    }
    if (length == s_nWide) {
        std::int64_t wide;
        std::memcpy(&wide, value, sizeof(wide));
        result = static_cast<int>(wide);
        return wide >= INT_MIN && wide <= INT_MAX;
    }
    return false;
}

int CIPOptionValue::Write(void* value, int* length, int result) noexcept
{
    if (*length >= s_nWide) {
        const std::int64_t wide = result;
        std::memcpy(value, &wide, sizeof(wide));
        *length = s_nWide;
        return 0;
    }
    if (*length == s_nNarrow) {
        std::memcpy(value, &result, sizeof(result));
        *length = s_nNarrow;
        return 0;
    }
    return PS_EINVAL;
}

long CIPSocket::Disconnect()
{
    return -PS_EAFNOSUPPORT;
}

long CIPSocket::Listen(int)
{
    return -PS_EOPNOTSUPP;
}

long CIPSocket::Accept(CIPAddress&)
{
    return -PS_EOPNOTSUPP;
}

void CIPSocket::SetHandleLocked(int handle) noexcept
{
    m_nHandle = handle;
    CIPReadiness::Open(handle, GetBitsLocked());
}

bool CIPSocket::WaitFor(std::uint32_t bits)
{
    if (!IsClosed()) {
        CIPWaiting::ForHandle(m_nHandle, bits);
    }
    return !IsClosed();
}

int CIPSocket::FitBindAddress(CIPAddress& address) const noexcept
{
    if (address.GetFamily() == m_nFamily) {
        return 0;
    }
    if (m_nFamily == PS_AF_INET6 && address.IsAny()) {
        ip_addr_set_zero_ip6(&address.m_Ip);
        return 0;
    }
    return PS_EAFNOSUPPORT;
}

int CIPSocket::FitDestination(CIPAddress& address) const noexcept
{
    if (address.GetFamily() != m_nFamily) {
        return PS_EAFNOSUPPORT;
    }
    if (address.IsAny()) {
        if (m_nFamily == PS_AF_INET6) {
            ip_addr_set_loopback(1, &address.m_Ip);
        } else {
            ip_addr_set_loopback(0, &address.m_Ip);
        }
    }
    return 0;
}

long CIPSocket::SetLimits(int send, int receive)
{
    if (send < 0 || receive < 0) {
        return -PS_EINVAL;
    }
    CIPCoreGuard guard;
    if (IsClosed()) {
        return -PS_EBADF;
    }
    m_nSendLimit.store(send < s_nMostLimit ? send : s_nMostLimit);
    m_nReceiveLimit.store(receive < s_nMostLimit ? receive : s_nMostLimit);
    OnSettingsLocked();
    return 0;
}

long CIPSocketCloser::Close(int handle)
{
    CIPSocketUse use(handle);
    if (!use) {
        return -PS_EBADF;
    }
    CIPCoreGuard guard;
    const bool wasFull = CIPSocketTable::IsFull();
    if (!CIPSocketTable::Close(handle)) {
        return -PS_EBADF;
    }
    use->m_bClosed.store(true);
    CIPReadiness::Close(handle, CIPCore::Instance().GetWakes());
    use->CloseLocked();
    if (wasFull) {
        CIPTcpBacklog::OnTableRoom();
    }
    return 0;
}

}  // namespace ipstack
