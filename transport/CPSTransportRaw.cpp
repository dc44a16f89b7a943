#include "transport/CPSTransportRaw.h"

#include <cstdint>

#include "ipstack/ps_defines.h"

namespace uxport
{

CPSTransportRaw::~CPSTransportRaw()
{
    CPSTransportRaw::Close_t(0);
}

MNResult CPSTransportRaw::SetOption(unsigned long optionId, void* arg)
{
    if (optionId != OPT_RAW_HEADER_INCLUDED)
        return CPSTransportDatagramT::SetOption(optionId, arg);
    if (!arg)
        return MN_ERROR_INVALID_ARG;
    const int result = m_Socket.SetOption(PS_IPPROTO_IP, PS_IP_HDRINCL, arg, sizeof(std::uint64_t));
    return result < 0 ? MN_ERROR_NETWORK_SOCKET_ERROR : MN_OK;
}

}  // namespace uxport
