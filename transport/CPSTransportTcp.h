// One connected TCP stream.
#ifndef UXPORT_TRANSPORT_CPSTRANSPORTTCP_H
#define UXPORT_TRANSPORT_CPSTRANSPORTTCP_H

#include "mantle/CMNAtomic.h"
#include "mantle/CMNInetAddr.h"
#include "mantle/CMNTimerWrapperID.h"
#include "socket/CPSSocketTcp.h"
#include "transport/CPSTransportBase.h"

namespace uxport
{

// Keeps no data of its own: what the stack does not take of a send stays with the caller, who is answered
// MN_ERROR_PARTIAL_DATA and told by OnSend when to try again.
class CPSTransportTcp : public CPSTransportBase, public mantle::CMNTimerWrapperIDSink
{
public:
    explicit CPSTransportTcp(IPSReactor* reactor) : CPSTransportBase(reactor) {}
    ~CPSTransportTcp() override;

    int GetHandle() const override { return m_Socket.GetHandle(); }

    // Reads what waits, in blocks of 65535 bytes at most, each given to the sink as it came.
    int OnInput(int) override { return Receive_i(m_Socket); }

    // Room to write: OnSend, when it is owed.
    int OnOutput(int handle) override;

    // Tunes the socket and registers it for reading. Returns: 0; MN_ERROR_FAILURE when it can't be made non-blocking;
    // what the registration returned.
    MNResult Open_t() override;
    MNResult Close_t(long reason) override;

    MNResult SendData(CMNMessageBlock& data, CPSTransportParameter* param) override;
    MNResult SetOption(unsigned long optionId, void* arg) override;
    MNResult GetOption(unsigned long optionId, void* arg) override;
    void OnTimer(mantle::CMNTimerWrapperID* timer) override;

    // One gathered write; what was not taken is not announced later. Returns: 0 however little was taken;
    // MN_ERROR_NETWORK_SOCKET_ERROR when the socket has failed.
    MNResult SendInternal(CMNMessageBlock& data);

    // The socket, for the acceptor or connector that puts the connected handle in.
    CPSSocketTcp& GetPeer() { return m_Socket; }

private:
    // Writes up to 1024 pieces and moves the read position on. Returns: the count, -1 when the socket failed.
    long Write_i(CMNMessageBlock& data);
    MNResult SetKeepAlive_i(std::uint64_t seconds);
    MNResult GetAlive_i(std::int32_t& alive);

    CPSSocketTcp m_Socket;
    mantle::CMNTimerWrapperID m_Timer;  // cancelled on close; nothing schedules it
    mantle::CMNAtomic32 m_lOwesOnSend{1};
    CMNInetAddr m_LocalAddr;
    CMNInetAddr m_PeerAddr;
};

}  // namespace uxport

#endif
