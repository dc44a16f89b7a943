// The fixture of the connector wrapper's tests.
#ifndef TESTS_UNIT_DOUBLES_CONNECTORTEST_H
#define TESTS_UNIT_DOUBLES_CONNECTORTEST_H

#include "connector/CPSConnectorWrapper.h"
#include "ipstack/ps_defines.h"
#include "mantle/CMNClock.h"
#include "tests/unit/doubles/EndpointTest.h"

// A TCP connector, held by one reference, and a clock that only the test moves.
class ConnectorTest : public EndpointTest
{
protected:
    const std::string m_strSucceeded = "OnConnectIndication(0,transport)";
    const std::string m_strFailed = "OnConnectIndication(10001,null)";
    const std::string m_strFailureScheduled = "ScheduleTimer(10001,0s0us,1)=0";
    const std::string m_strDeletion = "ScheduleTimer(0,0s0us,1)=0";

    void SetUp() override
    {
        EndpointTest::SetUp();
        m_pConnector = new uxport::CPSConnectorWrapper(&m_Reactor);
        ASSERT_EQ(m_pConnector->Init(uxport::CONNECTION_TYPE_TCP), uxport::MN_OK);
    }
    void TearDown() override
    {
        m_pConnector = nullptr;
        EndpointTest::TearDown();
    }

    // The calls of an attempt on `handle`.
    static CCalls Attempt(int handle)
    {
        const std::string text = std::to_string(handle);
        return {"ps_socket(2,1,0)=" + text, "ps_socket_nonblock(" + text + ")=0", "RegisterHandler(" + text + ",2)=0",
                "ps_connect(" + text + ",10.0.0.2:80{16,2},16)=0", "NotifyHandler(" + text + ",8)=0"};
    }

    // The first `count` calls of an attempt on handle 7, the call that fails, the failure's timer.
    CCalls Failing(std::size_t count, const std::string& failure) const
    {
        CCalls calls = Attempt(s_nSocket);
        calls.resize(count);
        calls.push_back(failure);
        calls.push_back(m_strFailureScheduled);
        return calls;
    }

    static CCalls Join(CCalls first, const CCalls& second)
    {
        first.insert(first.end(), second.begin(), second.end());
        return first;
    }

    uxport::MNResult Connect() { return m_pConnector->AsycConnect(&m_Sink, m_Peer, nullptr, nullptr, 0, 0); }
    uxport::MNResult ConnectWithin(long seconds)
    {
        uxport::CMNTimeValue timeout(seconds, 0);
        return m_pConnector->AsycConnect(&m_Sink, m_Peer, &timeout, nullptr, 0, 0);
    }
    void PassSeconds(long seconds) { m_Clock.Advance(uxport::CMNTimeValue(seconds, 0)); }

    mantle::CMNManualClock m_Clock{false};
    const uxport::CMNInetAddr m_Peer{"10.0.0.2", 80};
    CRecordingConnectSink m_Sink;
    mantle::CMNAutoPtr<uxport::CPSConnectorWrapper> m_pConnector;
};

#endif
