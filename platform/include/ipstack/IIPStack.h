// One link of the stack, as the layer below it sees it.
#ifndef IPSTACK_IIPSTACK_H
#define IPSTACK_IIPSTACK_H

#include "ipstack/ps_defines.h"

namespace ipstack
{

// The layer below a link: carries the packets that the stack emits.
class IPSTACK_API IIPStackLowLevel
{
public:
    virtual ~IIPStackLowLevel() = default;

    // Carries one IP packet. Thread: whatever thread the stack emits it in, never two at a time for one link;
    // no lock of the stack is held, so the packet may be fed into a stack at once. Packets that follow one another are
    // a burst (mantle/CMNBurst.h); what is put off is done before the next thread sends, and before the link may go.
    // Owns: `data` is good during the call only. Returns: ignored.
    virtual unsigned long IPStackLowLevelOutput(const char* data, unsigned long length, unsigned char flag) = 0;
};

// One link of the stack: an address, a network and a layer below it.
class IPSTACK_API IIPStack
{
public:
    // Hands one received IP packet to the stack. Thread: any. Owns: copied before the call returns.
    // Returns: 0 when the packet was taken in, otherwise a result code (MN_ERROR_INVALID_ARG: malformed or not
    // acceptable on this link, dropped and counted; MN_ERROR_NOT_INITIALIZED: the link is being taken down).
    // Inside a burst (mantle/CMNBurst.h) the stack sees the packet at the burst's end, or before the thread calls the
    // stack otherwise or sleeps (in a CMNWaiter; any other wait comes after CMNBurst::Finish); 0 then says that it is
    // kept until then, and what is dropped is only counted.
    virtual unsigned long Input(const char* data, unsigned long length) = 0;

protected:
    virtual ~IIPStack() = default;
};

}  // namespace ipstack

#endif
