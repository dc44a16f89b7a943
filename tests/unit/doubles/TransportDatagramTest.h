// The fixture of the UDP and raw transports' tests.
#ifndef TESTS_UNIT_DOUBLES_TRANSPORTDATAGRAMTEST_H
#define TESTS_UNIT_DOUBLES_TRANSPORTDATAGRAMTEST_H

#include "ipstack/ps_defines.h"
#include "tests/unit/doubles/EDatagram.h"
#include "tests/unit/doubles/EndpointTest.h"
#include "transport/CPSTransportRaw.h"
#include "transport/CPSTransportUdp.h"

// A transport with a connected socket of its own, held by one reference.
class TransportDatagramTest : public EndpointTest, public testing::WithParamInterface<EDatagram>
{
protected:
    const uxport::CMNInetAddr m_Peer{"10.0.0.2", 4000};

    bool IsUdp() const { return GetParam() == EDatagram::UDP; }

    void SetUp() override
    {
        EndpointTest::SetUp();
        if (IsUdp())
            m_pTransport = Make<uxport::CPSTransportUdp>();
        else
            m_pTransport = Make<uxport::CPSTransportRaw>();
    }
    void TearDown() override
    {
        m_pTransport = nullptr;
        EndpointTest::TearDown();
    }

    uxport::CPSTransportBase& Transport() { return *m_pTransport.Get(); }
    void Open()
    {
        ASSERT_EQ(Transport().OpenWithSink(&m_Sink), uxport::MN_OK);
        m_Stack.TakeCalls();
    }

    mantle::CMNAutoPtr<uxport::CPSTransportBase> m_pTransport;
    CRecordingTransportSink m_Sink;

private:
    template <class T>
    T* Make()
    {
        auto* transport = new T(&m_Reactor, m_Peer, nullptr);
        transport->GetPeer().SetHandle(s_nSocket);
        return transport;
    }
};

#endif
