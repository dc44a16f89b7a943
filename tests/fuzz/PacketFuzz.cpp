// Packets into a link with live TCP, UDP and raw endpoints of both families.
#include "CPacketRound.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    CPacketRound(data, size).Run();
    return 0;
}
