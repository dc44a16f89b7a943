// What the UDP and the raw transport share.
#ifndef UXPORT_TRANSPORT_CPSTRANSPORTDATAGRAMT_H
#define UXPORT_TRANSPORT_CPSTRANSPORTDATAGRAMT_H

#include "mantle/CMNInetAddr.h"
#include "transport/CPSTransportBase.h"

namespace uxport
{

// One association with a peer, one datagram for each block. With an acceptor it is that one's child: it sends on the
// acceptor's socket, is given what its peer sends, and closing takes it out of the acceptor's table. Without one it
// has a connected socket of its own. `Transport` is the deriving class.
template <class Transport, class Acceptor, class Socket>
class CPSTransportDatagramT : public CPSTransportBase
{
public:
    int GetHandle() const override { return m_Socket.GetHandle(); }

    // Reads what waits on the own socket, each datagram given to the sink as it came.
    int OnInput(int) override { return Receive_i(m_Socket); }

    // OnSend. The transport itself never asks for room to write.
    int OnOutput(int handle) override;

    // A child: nothing to do. Otherwise tunes the socket and registers it for reading. Returns: 0; MN_ERROR_FAILURE
    // when it can't be made non-blocking; what the registration returned.
    MNResult Open_t() override;
    MNResult Close_t(long reason) override;

    // Sends the first block only, as one datagram, an empty one too. The count in `param` is what was offered: the
    // whole chain, whether it went out or not.
    MNResult SendData(CMNMessageBlock& data, CPSTransportParameter* param) override;
    MNResult SetOption(unsigned long optionId, void* arg) override;
    MNResult GetOption(unsigned long optionId, void* arg) override;

    // Returns: 0, the bytes sent are then read; MN_ERROR_FAILURE when the stack refused the datagram.
    MNResult SendInternal(CMNMessageBlock& data);

    // The socket, for the acceptor that lends its handle or the connector that opens it.
    Socket& GetPeer() { return m_Socket; }

protected:
    // `acceptor` may be null; it is kept alive.
    CPSTransportDatagramT(IPSReactor* reactor, const CMNInetAddr& peer, Acceptor* acceptor);
    ~CPSTransportDatagramT() override;

    Socket m_Socket;

private:
    Acceptor* m_pAcceptor;  // one child's reference held; null with an own socket
    CMNInetAddr m_PeerAddr;
};

}  // namespace uxport

#endif
