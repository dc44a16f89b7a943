// The key of a UDP peer.
#ifndef UXPORT_ACCEPTOR_CPSPAIRINETADDR_H
#define UXPORT_ACCEPTOR_CPSPAIRINETADDR_H

#include "connhub/CMNPairInetAddr.h"

namespace uxport
{

// First the peer, second the listening address.
using CPSPairInetAddr = connhub::CMNPairInetAddr;

// The fold of a peer table's own hash. It does not promise not to throw: a standard table then keeps each node's hash.
struct PSInetAddrHash
{
    std::size_t operator()(const CPSPairInetAddr& pair) const { return connhub::InetAddrHash()(pair); }
};

}  // namespace uxport

#endif
