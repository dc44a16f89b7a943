#include "transport/CPSTransportBase.h"

#include <optional>
#include <thread>

#include "ipstack/ps_defines.h"
#include "tests/unit/doubles/EndpointTest.h"

namespace uxport
{
namespace
{

constexpr int SOCKET = 7;

// A protocol whose hooks answer what the test says and tell the record.
class CPlainTransport : public CPSTransportBase
{
public:
    explicit CPlainTransport(IPSReactor* reactor) : CPSTransportBase(reactor) {}

    int GetHandle() const override { return SOCKET; }
    MNResult Open_t() override
    {
        CScriptedStack::Instance().Note("Open_t");
        return m_dwOpenResult;
    }
    MNResult Close_t(long reason) override
    {
        CScriptedStack::Instance().Note("Close_t(" + std::to_string(reason) + ")");
        return m_dwCloseResult;
    }
    MNResult SendData(CMNMessageBlock&, CPSTransportParameter*) override { return MN_OK; }
    MNResult SetOption(unsigned long, void*) override { return MN_OK; }
    MNResult GetOption(unsigned long optionId, void* arg) override
    {
        CScriptedStack::Instance().Note("GetOption(" + std::to_string(optionId) + ")");
        if (m_OptionAddress)
            *static_cast<CMNInetAddr*>(arg) = *m_OptionAddress;
        return m_dwOptionResult;
    }

    MNResult m_dwOpenResult = MN_OK;
    MNResult m_dwCloseResult = MN_OK;
    MNResult m_dwOptionResult = MN_OK;
    std::optional<CMNInetAddr> m_OptionAddress;
};

class CPSTransportBaseTest : public EndpointTest
{
protected:
    CPlainTransport& Transport() { return *m_pTransport.Get(); }
    void TearDown() override
    {
        m_pTransport = nullptr;
        EndpointTest::TearDown();
    }
    void SetUp() override
    {
        EndpointTest::SetUp();
        m_pTransport = new CPlainTransport(&m_Reactor);
    }

    mantle::CMNAutoPtr<CPlainTransport> m_pTransport;
    CRecordingTransportSink m_Sink;
    CRecordingTransportSink m_OtherSink;
};

TEST_F(CPSTransportBaseTest, Constructor_Fresh_HasNoSink)
{
    EXPECT_EQ(Transport().GetSink(), nullptr);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSTransportBaseTest, OpenWithSink_Null_ReturnsInvalidArgAndChangesNothing)
{
    EXPECT_EQ(Transport().OpenWithSink(nullptr), MN_ERROR_INVALID_ARG);
    EXPECT_EQ(Transport().GetSink(), nullptr);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSTransportBaseTest, OpenWithSink_NullWhileOpen_KeepsTheSink)
{
    ASSERT_EQ(Transport().OpenWithSink(&m_Sink), MN_OK);
    EXPECT_EQ(Transport().OpenWithSink(nullptr), MN_ERROR_INVALID_ARG);
    EXPECT_EQ(Transport().GetSink(), &m_Sink);
}

TEST_F(CPSTransportBaseTest, OpenWithSink_First_OpensOnce)
{
    EXPECT_EQ(Transport().OpenWithSink(&m_Sink), MN_OK);
    EXPECT_EQ(Transport().GetSink(), &m_Sink);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"Open_t"}));
}

TEST_F(CPSTransportBaseTest, OpenWithSink_Second_ReplacesTheSinkWithoutOpeningAgain)
{
    ASSERT_EQ(Transport().OpenWithSink(&m_Sink), MN_OK);
    EXPECT_EQ(Transport().OpenWithSink(&m_OtherSink), MN_OK);
    EXPECT_EQ(Transport().GetSink(), &m_OtherSink);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"Open_t"}));
    m_OtherSink.m_strName = "other: ";
    Transport().OnClose(SOCKET, READ_MASK);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"Close_t(0)", "other: OnDisconnect(10001)"}));
}

TEST_F(CPSTransportBaseTest, OpenWithSink_OpenFails_ClosesForgetsTheSinkAndReturnsTheCode)
{
    Transport().m_dwOpenResult = MN_ERROR_UNEXPECTED;
    Transport().m_dwCloseResult = MN_ERROR_FAILURE;
    EXPECT_EQ(Transport().OpenWithSink(&m_Sink), MN_ERROR_UNEXPECTED);
    EXPECT_EQ(Transport().GetSink(), nullptr);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"Open_t", "Close_t(0)"}));
}

TEST_F(CPSTransportBaseTest, OpenWithSink_AfterAFailure_OpensAgain)
{
    Transport().m_dwOpenResult = MN_ERROR_FAILURE;
    ASSERT_EQ(Transport().OpenWithSink(&m_Sink), MN_ERROR_FAILURE);
    m_Stack.TakeCalls();
    Transport().m_dwOpenResult = MN_OK;
    EXPECT_EQ(Transport().OpenWithSink(&m_Sink), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"Open_t"}));
}

TEST_F(CPSTransportBaseTest, OpenWithSink_OpenFails_LeavesTheObjectToItsHolders)
{
    Transport().m_dwOpenResult = MN_ERROR_FAILURE;
    ASSERT_EQ(Transport().OpenWithSink(&m_Sink), MN_ERROR_FAILURE);
    Turn();
    EXPECT_EQ(NewLiveObjects(), 1);
    EXPECT_FALSE(Transport().IsDeletePending());
}

TEST_F(CPSTransportBaseTest, Disconnect_Open_ClosesWithTheReasonAndTellsNobody)
{
    ASSERT_EQ(Transport().OpenWithSink(&m_Sink), MN_OK);
    m_Stack.TakeCalls();
    EXPECT_EQ(Transport().Disconnect(1234), MN_OK);
    EXPECT_EQ(Transport().GetSink(), nullptr);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"Close_t(1234)"}));
}

TEST_F(CPSTransportBaseTest, Disconnect_CloseAnswersACode_ReturnsItAndForgetsTheSink)
{
    ASSERT_EQ(Transport().OpenWithSink(&m_Sink), MN_OK);
    Transport().m_dwCloseResult = MN_ERROR_NOT_FOUND;
    EXPECT_EQ(Transport().Disconnect(0), MN_ERROR_NOT_FOUND);
    EXPECT_EQ(Transport().GetSink(), nullptr);
}

TEST_F(CPSTransportBaseTest, Disconnect_ThenNetworkEvent_GivesNoOnDisconnect)
{
    ASSERT_EQ(Transport().OpenWithSink(&m_Sink), MN_OK);
    Transport().Disconnect(0);
    m_Stack.TakeCalls();
    EXPECT_EQ(Transport().OnClose(SOCKET, READ_MASK), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"Close_t(0)"}));
}

TEST_F(CPSTransportBaseTest, OnClose_Open_ClosesThenTellsTheSinkOnceWith10001)
{
    ASSERT_EQ(Transport().OpenWithSink(&m_Sink), MN_OK);
    m_Stack.TakeCalls();
    EXPECT_EQ(Transport().OnClose(SOCKET, READ_MASK), 0);
    EXPECT_EQ(m_Sink.m_pTransport, &Transport());
    EXPECT_EQ(Transport().OnClose(SOCKET, READ_MASK), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"Close_t(0)", "OnDisconnect(10001)", "Close_t(0)"}));
}

TEST_F(CPSTransportBaseTest, OnClose_NoSink_ReturnsZeroAndCallsNobody)
{
    EXPECT_EQ(Transport().OnClose(SOCKET, READ_MASK), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"Close_t(0)"}));
}

TEST_F(CPSTransportBaseTest, OnClose_SinkLooksForItself_FindsNoSink)
{
    ASSERT_EQ(Transport().OpenWithSink(&m_Sink), MN_OK);
    m_Sink.m_AtDisconnect = [](IPSTransport* transport) { EXPECT_EQ(transport->GetSink(), nullptr); };
    Transport().OnClose(SOCKET, READ_MASK);
}

TEST_F(CPSTransportBaseTest, OnClose_SinkDisconnectsInside_IsToldOnce)
{
    ASSERT_EQ(Transport().OpenWithSink(&m_Sink), MN_OK);
    m_Stack.TakeCalls();
    m_Sink.m_AtDisconnect = [](IPSTransport* transport) { EXPECT_EQ(transport->Disconnect(5), MN_OK); };
    Transport().OnClose(SOCKET, READ_MASK);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"Close_t(0)", "OnDisconnect(10001)", "Close_t(5)"}));
}

TEST_F(CPSTransportBaseTest, OnClose_SinkReleasesTheLastReference_ObjectLivesUntilTheNextTurn)
{
    auto* transport = new CPlainTransport(&m_Reactor);
    transport->AddReference();
    ASSERT_EQ(transport->OpenWithSink(&m_Sink), MN_OK);
    m_Sink.m_AtDisconnect = [](IPSTransport* closing) { EXPECT_EQ(closing->ReleaseReference(), 0u); };
    EXPECT_EQ(transport->OnClose(SOCKET, READ_MASK), 0);
    EXPECT_TRUE(transport->IsDeletePending());
    EXPECT_EQ(NewLiveObjects(), 2);
    Turn();
    EXPECT_EQ(NewLiveObjects(), 1);
}

TEST_F(CPSTransportBaseTest, OnClose_SinkAnswersACode_IsIgnored)
{
    ASSERT_EQ(Transport().OpenWithSink(&m_Sink), MN_OK);
    m_Sink.m_dwAnswer = MN_ERROR_FAILURE;
    EXPECT_EQ(Transport().OnClose(SOCKET, READ_MASK), 0);
}

TEST_F(CPSTransportBaseTest, GetAddr_OptionAnswersZero_ReturnsZeroAndTheAddress)
{
    Transport().m_OptionAddress = CMNInetAddr("1.2.3.4", 5);
    CMNInetAddr peer;
    CMNInetAddr local;
    EXPECT_EQ(Transport().GetPeerAddr(peer), MN_OK);
    EXPECT_EQ(Transport().GetLocalAddr(local), MN_OK);
    EXPECT_EQ(peer.ToString(), "1.2.3.4:5");
    EXPECT_EQ(local.ToString(), "1.2.3.4:5");
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"GetOption(105)", "GetOption(104)"}));
}

TEST_F(CPSTransportBaseTest, GetAddr_OptionAnswersAPositiveCode_ReturnsZeroAndLeavesTheAddress)
{
    for (const MNResult code : {MN_ERROR_NETWORK_SOCKET_ERROR, MN_ERROR_INVALID_ARG}) {
        Transport().m_dwOptionResult = code;
        CMNInetAddr address("9.9.9.9", 99);
        EXPECT_EQ(Transport().GetPeerAddr(address), MN_OK);
        EXPECT_EQ(Transport().GetLocalAddr(address), MN_OK);
        EXPECT_EQ(address.ToString(), "9.9.9.9:99");
    }
}

TEST_F(CPSTransportBaseTest, GetAddr_OptionAnswersNegative_ReturnsFailure)
{
    Transport().m_dwOptionResult = static_cast<MNResult>(-1);
    CMNInetAddr address;
    EXPECT_EQ(Transport().GetPeerAddr(address), MN_ERROR_FAILURE);
    EXPECT_EQ(Transport().GetLocalAddr(address), MN_ERROR_FAILURE);
}

TEST_F(CPSTransportBaseTest, OnException_Any_IsTheHandlersDefault)
{
    EXPECT_EQ(Transport().OnException(SOCKET), -1);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

}  // namespace
}  // namespace uxport
