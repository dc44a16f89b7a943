// What the transports of all protocols share.
#ifndef UXPORT_TRANSPORT_CPSTRANSPORTBASE_H
#define UXPORT_TRANSPORT_CPSTRANSPORTBASE_H

#include "mantle/CMNReferenceControl.h"
#include "uxport/IPSEventHandler.h"
#include "uxport/IPSTransport.h"

namespace uxport
{

class CPSSocketBase;
class IPSReactor;

// Event handler and IPSTransport at once. Thread: the reactor's. The last release deletes the object on a
// zero-delay timer of the releasing thread, so that it outlives the call that released it.
class CPSTransportBase : public IPSEventHandler,
                         public IPSTransport,
                         public mantle::CMNReferenceControlTimerDeleteT<mantle::CMNMutexNullSingleThread>
{
public:
    int GetHandle() const override = 0;

    // The reactor removed the transport: closes and tells the sink, once, with MN_ERROR_FAILURE.
    int OnClose(int handle, long mask) override;

    unsigned long AddReference() override { return AddReference_i(); }
    unsigned long ReleaseReference() override { return ReleaseReference_i(); }
    ~CPSTransportBase() override = default;

    MNResult OpenWithSink(IPSTransportSink* sink) override;
    IPSTransportSink* GetSink() override { return m_pSink; }
    MNResult Disconnect(long reason) override;
    MNResult GetPeerAddr(CMNInetAddr& addr) override;
    MNResult GetLocalAddr(CMNInetAddr& addr) override;

    // Prepares the socket and registers it; called once, by the first OpenWithSink. Returns: 0 or a code.
    virtual MNResult Open_t() = 0;

    // Stops everything; safe to call again. Does not call the sink. Returns: 0.
    virtual MNResult Close_t(long reason) = 0;

    // Size of one receive, and what the socket may hold each way.
    static constexpr unsigned long s_dwReceiveSize = 65535;
    static constexpr int s_nBufferSize = 65535;

    // Receives of one OnInput at most; the socket stays readable, so the loop comes back.
    static constexpr int s_nMaxReceives = 1024;

protected:
    explicit CPSTransportBase(IPSReactor* reactor) : m_pReactor(reactor) {}

    // Reads what waits, in blocks of s_dwReceiveSize at most, each given to the sink as it came.
    // Returns: what OnInput answers: 0; -1 when the socket failed.
    int Receive_i(CPSSocketBase& socket);

    IPSTransportSink* m_pSink = nullptr;  // not owned
    IPSReactor* m_pReactor;               // not owned
};

}  // namespace uxport

#endif
