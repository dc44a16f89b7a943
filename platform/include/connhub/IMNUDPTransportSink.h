// Where a UDP transport delivers what arrives.
#ifndef CONNHUB_IMNUDPTRANSPORTSINK_H
#define CONNHUB_IMNUDPTRANSPORTSINK_H

#include "connhub/CHDefines.h"

namespace mantle
{
class CMNInetAddr;
class CMNMessageBlock;
}  // namespace mantle

namespace connhub
{

class CONNHUB_API IMNUDPTransportSink
{
public:
    // One datagram; its bytes are the block's readable ones, none for an empty datagram. Thread: connhub's, which all
    // transports share, so a sink that waits holds all of them up. What was received together is a burst
    // (mantle/CMNBurst.h): what a sink hands on may be put off until the last of it has been delivered, so that nobody
    // waits in a sink for the effect but as it is said there. No lock of connhub is held. Owns: block and address are
    // good during the call only; a duplicate of the block is a copy. Returns: ignored.
    // Reenter: any operation of any transport, the last release of this one included.
    virtual unsigned long OnReceive(mantle::CMNMessageBlock& data, const mantle::CMNInetAddr& from) = 0;

    virtual ~IMNUDPTransportSink() = default;
};

}  // namespace connhub

#endif
