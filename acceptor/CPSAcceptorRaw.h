// A raw IP endpoint of many peers.
#ifndef UXPORT_ACCEPTOR_CPSACCEPTORRAW_H
#define UXPORT_ACCEPTOR_CPSACCEPTORRAW_H

#include "acceptor/CPSAcceptorDatagramT.h"
#include "connhub/CMNIPSessionManagerT.h"
#include "socket/CPSSocketRaw.h"
#include "transport/CPSTransportRaw.h"

namespace uxport
{

class CPSAcceptorRaw;

extern template class CPSAcceptorDatagramT<CPSAcceptorRaw, CPSTransportRaw, CPSSocketRaw>;

// The two numbers of StartListen are the address family (2 or 10) and the IP protocol; the address is not bound, it is
// only half of the key of the peers. The children stay in the table over a stop, closed, and open again with the next
// packet of their peer after a start; one that is disconnected in between keeps its entry and drops what comes.
class CPSAcceptorRaw : public CPSAcceptorDatagramT<CPSAcceptorRaw, CPSTransportRaw, CPSSocketRaw>
{
public:
    explicit CPSAcceptorRaw(IPSReactor* reactor) : CPSAcceptorDatagramT(reactor) {}
    ~CPSAcceptorRaw() override;

private:
    int Open_i(const CMNInetAddr& localAddr, unsigned short family, unsigned short protocol) override;
    CPSTransportRaw* FindChild_i(const CMNInetAddr& peer) override;
    bool AddChild_i(const CMNInetAddr& peer, CPSTransportRaw* transport) override;
    void RemoveChild_i(const CMNInetAddr& peer) override;
    void OnStop_i() override;
    void OnLeft_i() override { m_Peers.Clear(); }

    connhub::CMNIPSessionManagerT<CPSTransportRaw> m_Peers;
};

}  // namespace uxport

#endif
