// A listening TCP endpoint.
#ifndef UXPORT_ACCEPTOR_CPSACCEPTORTCP_H
#define UXPORT_ACCEPTOR_CPSACCEPTORTCP_H

#include "acceptor/CPSAcceptorBase.h"
#include "socket/CPSSocketTcp.h"
#include "uxport/IPSEventHandler.h"

namespace uxport
{

class CPSAcceptorTcp : public CPSAcceptorBase, public IPSEventHandler
{
public:
    // Connections that the stack keeps until they are accepted.
    static constexpr int s_nBacklog = 1024;

    explicit CPSAcceptorTcp(IPSReactor* reactor) : CPSAcceptorBase(reactor) {}
    ~CPSAcceptorTcp() override;

    MNResult StartListen(IPSAcceptorConnectorSink* sink, const CMNInetAddr& localAddr, unsigned short,
                         unsigned short) override;
    MNResult StopListen(long reason) override;

    int GetHandle() const override { return m_Socket.GetHandle(); }

    // Accepts until the stack has nothing more to give and offers each connection to the sink, which may stop,
    // start again or release the acceptor meanwhile; the last release ends the pass, and so does any error of an
    // accept. Returns: 0.
    int OnInput(int handle) override;
    int OnOutput(int) override { return -1; }
    int OnClose(int, long) override { return 0; }

private:
    bool Listen_i(const CMNInetAddr& localAddr);
    bool AcceptOne_i();

    CPSSocketTcp m_Socket;
};

}  // namespace uxport

#endif
