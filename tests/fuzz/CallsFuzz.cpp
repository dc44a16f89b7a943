// Sequences of ps_* calls, their packets to the stack's own addresses included.
#include "CCallsRound.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    CCallsRound(data, size).Run();
    return 0;
}
