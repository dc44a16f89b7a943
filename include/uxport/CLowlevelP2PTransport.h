// A link of the stack over an ordinary UDP path.
#ifndef UXPORT_CLOWLEVELP2PTRANSPORT_H
#define UXPORT_CLOWLEVELP2PTRANSPORT_H

#include "connhub/IMNUDPTransport.h"
#include "connhub/IMNUDPTransportSink.h"
#include "ipstack/IIPStack.h"
#include "mantle/CMNInetAddr.h"
#include "uxport/PSDefines.h"

namespace uxport
{

// Carries the packets of one link of the stack to a peer, one IP packet a datagram with nothing in front of it, and
// feeds what arrives into the link. Whatever reaches the UDP port is taken as a packet from the peer, from wherever it
// comes; what the stack does not like it drops and counts.
//
// Making: the object, then the link over it (IIPStackManager::CreateStack), then Open with the link.
// Taking down: the link first (IIPStackManager::DestroyStack, which waits for running output; packets that still come
// in meet a closed link), then the object. Never under a lock that the stack takes, and not from inside an output of
// the link.
class UXPORT_API CLowlevelP2PTransport : public ipstack::IIPStackLowLevel, public connhub::IMNUDPTransportSink
{
public:
    CLowlevelP2PTransport();

    // Waits for a running OnReceive, unless it is made inside one.
    ~CLowlevelP2PTransport() override;

    // Binds to (`localHost`, `localPort`) and sends to (`remoteHost`, `remotePort`) from now on; numeric addresses.
    // Again: the old socket is closed first, and packets that leave meanwhile are dropped; none leaves from the old
    // socket to the new destination. Where nothing can be opened, packets are dropped until the next Open.
    // Thread: one at a time, any. Owns: `stack` must live as long as this object is open. Returns: 0.
    // Reenter: may be called inside OnReceive.
    unsigned long Open(ipstack::IIPStack* stack, const mantle::CMNString& remoteHost, unsigned short remotePort,
                       const mantle::CMNString& localHost, unsigned short localPort);

    // One packet of the stack. Thread: any. Returns: 0, also when it was dropped.
    unsigned long IPStackLowLevelOutput(const char* data, unsigned long length, unsigned char flag) override;

    // One datagram. Thread: connhub's. Returns: the stack's result for the packet.
    unsigned long OnReceive(CMNMessageBlock& data, const CMNInetAddr& from) override;

private:
    mantle::CMNString m_strName;
    ipstack::IIPStack* m_pStack MN_GUARDED_BY(m_Mutex) = nullptr;
    CMNInetAddr m_Destination MN_GUARDED_BY(m_Mutex);
    mantle::CMNAutoPtr<connhub::IMNUDPTransport> m_pTransport MN_GUARDED_BY(m_Mutex);

    // Held while a packet is sent, never while something is received or released.
    mantle::CMNMutexThread m_Mutex;
};

}  // namespace uxport

#endif
