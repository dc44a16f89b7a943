// What the UDP and the raw acceptor share.
#ifndef UXPORT_ACCEPTOR_CPSACCEPTORDATAGRAMT_H
#define UXPORT_ACCEPTOR_CPSACCEPTORDATAGRAMT_H

#include "acceptor/CPSAcceptorBase.h"
#include "mantle/CMNInetAddr.h"
#include "mantle/CMNStopFlag.h"
#include "uxport/IPSEventHandler.h"

namespace uxport
{

// One socket for any number of peers. The first datagram of a peer makes a transport, its child, which is offered to
// the sink; every datagram is handed to the sink of its peer's transport. `Acceptor` is the deriving class, which
// keeps the table of the children.
//
// The table references the children and the children reference their acceptor. A child's reference keeps the object
// alive, not the service: once the children are all that is left, the acceptor stops by itself and lets its table go,
// and the deletion of the last child deletes it.
template <class Acceptor, class Transport, class Socket>
class CPSAcceptorDatagramT : public CPSAcceptorBase, public IPSEventHandler, public mantle::CMNStopFlag
{
public:
    unsigned long ReleaseReference() override;

    // Returns: 0; MN_ERROR_ALREADY_INITIALIZED while the socket is open; MN_ERROR_INVALID_ARG for a null sink;
    // MN_ERROR_FAILURE when the socket can't be opened, bound or registered, nothing stays open then, or can't be made
    // non-blocking: it then stays open, together with the sink, until the acceptor is deleted.
    MNResult StartListen(IPSAcceptorConnectorSink* sink, const CMNInetAddr& localAddr, unsigned short number1,
                         unsigned short number2) override;
    MNResult StopListen(long reason) override;

    int GetHandle() const override { return m_Socket.GetHandle(); }

    // Reads until the socket has nothing more, or an empty datagram, which ends the pass too; what is behind it is read
    // on the next turn. The sinks may stop the acceptor or release it meanwhile; either ends the pass.
    // Returns: what the last receive did when it was not more than 0; else 0.
    int OnInput(int handle) override;
    int OnOutput(int) override { return -1; }
    int OnClose(int, long) override { return 0; }

    // Takes the entry of `peer` out of the table, whatever transport it holds; that one is closed. Returns: 0, also when
    // there is none and while stopped.
    MNResult RemoveTransport(const CMNInetAddr& peer, Transport* transport);

    // A child's reference.
    void AddChildReference();
    void ReleaseChildReference();

protected:
    explicit CPSAcceptorDatagramT(IPSReactor* reactor) : CPSAcceptorBase(reactor) { BindStopFlagToCurrentThread(); }

    const CMNInetAddr& GetListenAddr_i() const { return m_ListenAddr; }

    Socket m_Socket;

private:
    // Returns: 0 when the socket is open.
    virtual int Open_i(const CMNInetAddr& localAddr, unsigned short number1, unsigned short number2) = 0;

    // The table. FindChild_i: null when there is none. AddChild_i: false when there is no table any more.
    virtual Transport* FindChild_i(const CMNInetAddr& peer) = 0;
    virtual bool AddChild_i(const CMNInetAddr& peer, Transport* transport) = 0;
    virtual void RemoveChild_i(const CMNInetAddr& peer) = 0;

    // The acceptor stops: its socket is about to be closed. It has been left by all but its children.
    virtual void OnStop_i() = 0;
    virtual void OnLeft_i() = 0;

    void Deliver_i(const CMNInetAddr& peer, CMNMessageBlock& block);
    bool AddChildSafely_i(const CMNInetAddr& peer, Transport* transport) noexcept;

    // Gives up what a started or half-started acceptor has.
    void CleanUp_i();

    CMNInetAddr m_ListenAddr;
    unsigned long m_dwChildren = 0;  // of the references, those of children
};

}  // namespace uxport

#endif
