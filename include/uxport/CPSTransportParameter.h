// The record that goes beside each send and each notification.
#ifndef UXPORT_CPSTRANSPORTPARAMETER_H
#define UXPORT_CPSTRANSPORTPARAMETER_H

#include <cstdint>

namespace uxport
{

struct CPSTransportParameter
{
    std::uint64_t SentLength = 0;  // written by SendData: bytes that the call took from the block
    std::uint32_t Tag = 2;         // carried along with the data, read by nobody in the library
};

}  // namespace uxport

#endif
