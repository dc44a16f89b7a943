#include <cstring>

#include "CIPSocket.h"
#include "lwip/ip.h"

namespace ipstack
{

namespace
{

struct CIPLinger
{
    int m_nOn;
    int m_nSeconds;
};

// The names of level 1 become those of level 0xFFF; the rest stay.
int Unified(int& level, int name) noexcept
{
    if (level != PS_SOL_SOCKET_LINUX) {
        return name;
    }
    level = PS_SOL_SOCKET;
    switch (name) {
    case PS_SO_LINUX_REUSEADDR:
        return PS_SO_REUSEADDR;
    case PS_SO_LINUX_TYPE:
        return PS_SO_TYPE;
    case PS_SO_LINUX_ERROR:
        return PS_SO_ERROR;
    case PS_SO_LINUX_BROADCAST:
        return PS_SO_BROADCAST;
    case PS_SO_LINUX_SNDBUF:
        return PS_SO_SNDBUF;
    case PS_SO_LINUX_RCVBUF:
        return PS_SO_RCVBUF;
    case PS_SO_LINUX_KEEPALIVE:
        return PS_SO_KEEPALIVE;
    case PS_SO_LINUX_LINGER:
        return PS_SO_LINGER;
    default:
        return -1;
    }
}

void SetFlag(u8_t& flags, u8_t flag, bool on) noexcept
{
    flags = static_cast<u8_t>(on ? flags | flag : flags & ~flag);
}

constexpr int s_nByteMost = 255;

}  // namespace

long CIPSocket::SetOption(int level, int name, const void* value, int length)
{
    name = Unified(level, name);
    if (!value) {
        return -PS_EINVAL;
    }
    if (level == PS_SOL_SOCKET && name == PS_SO_LINGER) {
        CIPLinger linger;
        if (length != sizeof(linger)) {
            return -PS_EINVAL;
        }
        std::memcpy(&linger, value, sizeof(linger));
        CIPCoreGuard guard;
        m_bLinger = linger.m_nOn != 0;
        m_nLingerSeconds = linger.m_nSeconds;
        return 0;
    }
    int number = 0;
    const bool readable = CIPOptionValue::Read(value, length, number);
    CIPCoreGuard guard;
    if (IsClosed()) {
        return -PS_EBADF;
    }
    // An unknown name is told before a bad value.
    int known;
    if (GetCommonOption(level, name, known) == -PS_ENOPROTOOPT && GetOwnOption(level, name, known) == -PS_ENOPROTOOPT) {
        return -PS_ENOPROTOOPT;
    }
    if (!readable) {
        return -PS_EINVAL;
    }
    long result = SetCommonOption(level, name, number);
    if (result == -PS_ENOPROTOOPT) {
        result = SetOwnOption(level, name, number);
    }
    if (result == 0) {
        OnSettingsLocked();
    }
    return result;
}

long CIPSocket::GetOption(int level, int name, void* value, int* length)
{
    name = Unified(level, name);
    if (!value || !length) {
        return -PS_EINVAL;
    }
    CIPCoreGuard guard;
    if (IsClosed()) {
        return -PS_EBADF;
    }
    if (level == PS_SOL_SOCKET && name == PS_SO_LINGER) {
        const CIPLinger linger = {m_bLinger ? 1 : 0, m_nLingerSeconds};
        if (*length < static_cast<int>(sizeof(linger))) {
            return -PS_EINVAL;
        }
        std::memcpy(value, &linger, sizeof(linger));
        *length = sizeof(linger);
        return 0;
    }
    int number = 0;
    long result = GetCommonOption(level, name, number);
    if (result == -PS_ENOPROTOOPT) {
        result = GetOwnOption(level, name, number);
    }
    if (result != 0) {
        return result;
    }
    const int error = CIPOptionValue::Write(value, length, number);
    if (error == 0 && level == PS_SOL_SOCKET && name == PS_SO_ERROR) {
        m_nError.store(0);
    }
    return -error;
}

long CIPSocket::SetCommonOption(int level, int name, int value)
{
    if (level == PS_SOL_SOCKET) {
        switch (name) {
        case PS_SO_REUSEADDR:
            m_bReuse = value != 0;
            return 0;
        case PS_SO_KEEPALIVE:
            SetFlag(m_cSocketOptions, SOF_KEEPALIVE, value != 0);
            return 0;
        case PS_SO_BROADCAST:
            SetFlag(m_cSocketOptions, SOF_BROADCAST, value != 0);
            return 0;
        case PS_SO_SNDBUF:
        case PS_SO_RCVBUF:
            if (value < 0) {
                return -PS_EINVAL;
            }
            (name == PS_SO_SNDBUF ? m_nSendLimit : m_nReceiveLimit).store(value < s_nMostLimit ? value : s_nMostLimit);
            return 0;
        case PS_SO_ERROR:
        case PS_SO_TYPE:
            return -PS_EINVAL;  // for reading only
        default:
            return -PS_ENOPROTOOPT;
        }
    }
    if (level == PS_IPPROTO_IP && (name == PS_IP_TOS || name == PS_IP_TTL)) {
        if (value < (name == PS_IP_TTL ? 1 : 0) || value > s_nByteMost) {
            return -PS_EINVAL;
        }
        (name == PS_IP_TOS ? m_cTos : m_cTtl) = static_cast<u8_t>(value);
        return 0;
    }
    return -PS_ENOPROTOOPT;
}

long CIPSocket::GetCommonOption(int level, int name, int& value)
{
    if (level == PS_SOL_SOCKET) {
        switch (name) {
        case PS_SO_REUSEADDR:
            value = m_bReuse;
            return 0;
        case PS_SO_KEEPALIVE:
            value = (m_cSocketOptions & SOF_KEEPALIVE) != 0;
            return 0;
        case PS_SO_BROADCAST:
            value = (m_cSocketOptions & SOF_BROADCAST) != 0;
            return 0;
        case PS_SO_SNDBUF:
            value = m_nSendLimit.load();
            return 0;
        case PS_SO_RCVBUF:
            value = m_nReceiveLimit.load();
            return 0;
        case PS_SO_ERROR:
            value = m_nError.load();
            return 0;
        case PS_SO_TYPE:
            value = m_nType;
            return 0;
        default:
            return -PS_ENOPROTOOPT;
        }
    }
    if (level == PS_IPPROTO_IP && (name == PS_IP_TOS || name == PS_IP_TTL)) {
        value = name == PS_IP_TOS ? m_cTos : m_cTtl;
        return 0;
    }
    return -PS_ENOPROTOOPT;
}

}  // namespace ipstack
