// A transport of a user thread.
#ifndef UXPORT_PROXY_CPSTRANSPORTTHREADPROXY_H
#define UXPORT_PROXY_CPSTRANSPORTTHREADPROXY_H

#include <list>

#include "mantle/CMNAtomic.h"
#include "mantle/CMNReferenceControl.h"
#include "mantle/CMNStopFlag.h"
#include "mantle/CMNTimerWrapperID.h"
#include "proxy/CPSPreparedEvent.h"
#include "uxport/IPSTransport.h"
#include "uxport/IPSTransportSink.h"

namespace mantle
{
class CMNThread;
}

namespace uxport
{

class IPSReactor;

// The application's transport on its own thread, and the sink of the network-side transport on the network
// thread. Commands go to the network thread as events, callbacks come to the user thread as events; options
// and addresses are asked of the network-side transport at once, from the calling thread. What that transport
// refuses is queued here, so that the application sees no refusal.
//
// Thread: IPSTransport's operations belong to the user thread, except SendData, options, addresses and
// references, which any thread may use. The object dies on the network thread, whoever released it last.
class CPSTransportThreadProxy : public IPSTransport,
                                public IPSTransportSink,
                                public mantle::CMNReferenceControlT<mantle::CMNMutexThread>,
                                public mantle::CMNStopFlag,
                                public mantle::CMNTimerWrapperIDSink,
                                private mantle::CMNPendingDelete
{
public:
    // Thread: the network thread. Starts as started, bound to `threadUser`'s id.
    CPSTransportThreadProxy(IPSTransport* transport, IPSReactor* reactorNetwork, mantle::CMNThread* threadUser,
                            unsigned long type);
    ~CPSTransportThreadProxy() override;

    unsigned long AddReference() override { return AddReference_i(); }
    unsigned long ReleaseReference() override { return ReleaseReference_i(); }
    bool TryAddReference() { return TryAddReference_i(); }

    // Stores the sink and posts nothing. Returns: 0; MN_ERROR_INVALID_ARG for null.
    MNResult OpenWithSink(IPSTransportSink* sink) override;
    IPSTransportSink* GetSink() override { return m_pSink; }

    // Takes all of `data`, whatever becomes of it on the network side; `param` then reads the whole length.
    // On a network thread sends in place. Returns: 0; MN_ERROR_NOT_INITIALIZED when the network thread takes no more
    // events, MN_ERROR_UNEXPECTED when there is no memory (`data` is untouched); in place MN_ERROR_UNEXPECTED with the
    // rest in `data`, MN_ERROR_NULL_POINTER without a transport, and the refusal of a datagram.
    MNResult SendData(CMNMessageBlock& data, CPSTransportParameter* param) override;

    // Returns: what the network-side transport returns; MN_ERROR_NULL_POINTER without one; MN_ERROR_INVALID_ARG for a
    // null place of OPT_TYPE and OPT_NETWORK_TRANSPORT.
    MNResult SetOption(unsigned long optionId, void* arg) override;
    MNResult GetOption(unsigned long optionId, void* arg) override;

    // Nothing is delivered from here on. Returns: 0, also when stopped already; MN_ERROR_UNEXPECTED when there is no
    // memory, and nothing has changed (letting go of the object closes, too); the post's result.
    MNResult Disconnect(long reason) override;
    MNResult GetPeerAddr(CMNInetAddr& addr) override;
    MNResult GetLocalAddr(CMNInetAddr& addr) override;

    // The last reference has gone: starts the deletion.
    void OnReferenceDestory() override;

    // From the network-side transport. Return: the post's result; MN_ERROR_NOT_INITIALIZED when this object is dying or
    // the user thread takes no more events, the network-side transport is then disconnected.
    MNResult OnReceive(CMNMessageBlock& data, IPSTransport* transport, CPSTransportParameter* param) override;
    MNResult OnSend(IPSTransport* transport, CPSTransportParameter* param) override;
    MNResult OnDisconnect(long reason, IPSTransport* transport) override;

    // The deletion's timer.
    void OnTimer(mantle::CMNTimerWrapperID* timer) override;

    // The network-side transport.
    IPSTransport* GetTransport() const { return m_pTransport.Get(); }

    // Sends on the network thread; null `data` drains the queue only. `owned`: `data` is this object's to keep or
    // destroy. Returns: 0, also when the data was refused and queued; MN_ERROR_NULL_POINTER without a transport; for
    // UDP what the transport returned.
    MNResult Send_i(CMNMessageBlock* data, CPSTransportParameter* param, bool owned);

private:
    // Data that waits; m_pParam points into the item itself, so that it is neither copied nor moved.
    struct CItem
    {
        CItem(CMNMessageBlock* data, const CPSTransportParameter* param);
        ~CItem();
        CItem(const CItem&) = delete;
        CItem& operator=(const CItem&) = delete;

        CMNMessageBlock* m_pData;  // owned, the whole chain
        CPSTransportParameter m_Param;
        CPSTransportParameter* m_pParam;
    };

    // At the end of a thread that dropped the deletion's timer.
    void DeletePending() override { OnTimer(&m_TimerDelete); }

    bool IsUdp() const { return (m_dwType & CONNECTION_TYPE_UDP) != 0; }
    bool Queue_i(CMNMessageBlock* data, CPSTransportParameter* param, bool owned);
    MNResult Drain_i();
    MNResult Refused_i(MNResult refusal);
    void Drained_i();
    MNResult PostToUser_i(mantle::IMNEventQueue::CPlace& place);

    // Makes a callback's event and posts it. Without memory a stream ends, and its owner is told so.
    template <class Event, class... Args>
    MNResult MakeAndPost_i(Args&&... args);

    mantle::CMNAutoPtr<IPSTransport> m_pTransport;
    IPSTransportSink* m_pSink = nullptr;  // the application's; user thread only
    mantle::CMNThread* m_pThreadUser;
    IPSReactor* m_pReactorNetwork;
    unsigned long m_dwType;
    CPSPreparedEvent m_OnDisconnect;  // until it is told
    CPSPreparedEvent m_Delete;
    mantle::CMNTimerWrapperID m_TimerDelete;
    // Network thread only.
    bool m_bSendBlocked = false;  // the queue holds data that was refused
    bool m_bNotifyOnSend = true;  // the application is owed an OnSend
    std::list<CItem> m_SendQueue;
    mantle::CMNAtomic32 m_LastRefusalWouldBlock{0};  // 1: the last refusal was MN_ERROR_PARTIAL_DATA
};

}  // namespace uxport

#endif
