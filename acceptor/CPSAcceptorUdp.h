// A UDP endpoint of many peers.
#ifndef UXPORT_ACCEPTOR_CPSACCEPTORUDP_H
#define UXPORT_ACCEPTOR_CPSACCEPTORUDP_H

#include "acceptor/CPSAcceptorDatagramT.h"
#include "acceptor/CPSPairInetAddr.h"
#include "socket/CPSSocketUdp.h"

namespace uxport
{

class CPSAcceptorUdp;
class CPSTransportUdp;

extern template class CPSAcceptorDatagramT<CPSAcceptorUdp, CPSTransportUdp, CPSSocketUdp>;

// Its children are in the table that all UDP acceptors of the process share, under the peer's address and the
// address that StartListen was given. Two acceptors that are given the same address with port 0 would share their
// peers: give each its own port. A stop takes the children out of the table and closes them.
class CPSAcceptorUdp : public CPSAcceptorDatagramT<CPSAcceptorUdp, CPSTransportUdp, CPSSocketUdp>
{
public:
    explicit CPSAcceptorUdp(IPSReactor* reactor);
    ~CPSAcceptorUdp() override;

private:
    int Open_i(const CMNInetAddr& localAddr, unsigned short, unsigned short) override;
    CPSTransportUdp* FindChild_i(const CMNInetAddr& peer) override;
    bool AddChild_i(const CMNInetAddr& peer, CPSTransportUdp* transport) override;
    void RemoveChild_i(const CMNInetAddr& peer) override;
    void OnStop_i() override;
    void OnLeft_i() override {}

    CPSPairInetAddr Key_i(const CMNInetAddr& peer) const { return {peer, GetListenAddr_i()}; }
};

}  // namespace uxport

#endif
