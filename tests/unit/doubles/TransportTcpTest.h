// The fixture of the TCP transport's tests.
#ifndef TESTS_UNIT_DOUBLES_TRANSPORTTCPTEST_H
#define TESTS_UNIT_DOUBLES_TRANSPORTTCPTEST_H

#include "tests/unit/doubles/EndpointTest.h"
#include "transport/CPSTransportTcp.h"

// One transport with a connected socket, held by one reference.
class TransportTcpTest : public EndpointTest
{
protected:
    void SetUp() override
    {
        EndpointTest::SetUp();
        m_pTransport = new uxport::CPSTransportTcp(&m_Reactor);
        Transport().GetPeer().SetHandle(s_nSocket);
    }
    void TearDown() override
    {
        m_pTransport = nullptr;
        EndpointTest::TearDown();
    }

    uxport::CPSTransportTcp& Transport() { return *m_pTransport.Get(); }

    // Opens it and forgets the calls that takes.
    void Open()
    {
        ASSERT_EQ(Transport().OpenWithSink(&m_Sink), uxport::MN_OK);
        m_Stack.TakeCalls();
    }

    mantle::CMNAutoPtr<uxport::CPSTransportTcp> m_pTransport;
    CRecordingTransportSink m_Sink;
};

#endif
