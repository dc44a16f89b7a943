#include "transport/CPSTransportUdp.h"

namespace uxport
{

CPSTransportUdp::~CPSTransportUdp()
{
    CPSTransportUdp::Close_t(0);
}

}  // namespace uxport
