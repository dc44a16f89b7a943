#include "CIPError.h"

namespace ipstack
{

namespace
{

thread_local int t_nError = 0;

}  // namespace

int CIPError::Fail(int error) noexcept
{
    t_nError = error;
    return -1;
}

int CIPError::Get() noexcept
{
    return t_nError;
}

int CIPError::FromLwip(err_t error) noexcept
{
    switch (error) {
    case ERR_OK:
        return 0;
    case ERR_MEM:
        return PS_ENOMEM;
    case ERR_BUF:
        return PS_ENOBUFS;
    case ERR_RTE:
        return PS_ENETUNREACH;
    case ERR_USE:
        return PS_EADDRINUSE;
    case ERR_ALREADY:
        return PS_EALREADY;
    case ERR_ISCONN:
        return PS_EISCONN;
    case ERR_CONN:
    case ERR_CLSD:
        return PS_ENOTCONN;
    case ERR_IF:
        return PS_ENETDOWN;
    case ERR_ABRT:
        return PS_ETIMEDOUT;
    case ERR_RST:
        return PS_ECONNRESET;
    default:
        return PS_EINVAL;
    }
}

}  // namespace ipstack
