// Starting and stopping.
#include "acceptor/CPSAcceptorDatagramT.h"

#include <thread>
#include <type_traits>

#include "tests/unit/doubles/AcceptorDatagramTest.h"

namespace uxport
{
namespace
{

static_assert(std::is_base_of_v<CPSAcceptorBase, CPSAcceptorUdp> && std::is_base_of_v<CPSAcceptorBase, CPSAcceptorRaw>);
static_assert(std::is_base_of_v<IPSEventHandler, CPSAcceptorUdp> && std::is_base_of_v<IPSEventHandler, CPSAcceptorRaw>);
static_assert(std::is_base_of_v<mantle::CMNStopFlag, CPSAcceptorUdp> &&
              std::is_base_of_v<mantle::CMNStopFlag, CPSAcceptorRaw>);

// Tells of each stop, and whether the stop flag was set before.
template <class Acceptor>
class CTellingAcceptor : public Acceptor
{
public:
    using Acceptor::Acceptor;
    MNResult StopListen(long reason) override
    {
        CScriptedStack::Instance().Note("StopListen(" + std::to_string(reason) + ")" +
                                        (this->IsFlagStopped() ? " stopped" : " started"));
        return Acceptor::StopListen(reason);
    }
};

class CPSAcceptorDatagramTTest : public AcceptorDatagramTest
{
protected:
    mantle::CMNStopFlag& Flag() { return dynamic_cast<mantle::CMNStopFlag&>(*m_pAcceptor); }

    void UseTellingAcceptor()
    {
        if (IsUdp())
            m_pAcceptor = new CTellingAcceptor<CPSAcceptorUdp>(&m_Reactor);
        else
            m_pAcceptor = new CTellingAcceptor<CPSAcceptorRaw>(&m_Reactor);
    }

    // The start's calls up to `count`, then `rest`.
    CCalls Failing(std::size_t count, const CCalls& rest) const
    {
        CCalls calls = Starting();
        calls.resize(count);
        calls.insert(calls.end(), rest.begin(), rest.end());
        return calls;
    }

    // The failed start left nothing: no handle, no registration, no sink; and it may be tried again.
    void ExpectIdle()
    {
        EXPECT_EQ(Handler().GetHandle(), -1);
        EXPECT_TRUE(Flag().IsFlagStopped());
        EXPECT_EQ(Turn(), "");
        m_Stack.SetNextHandle(8);
        m_Stack.TakeCalls();
        EXPECT_EQ(Start(), MN_OK);
        EXPECT_EQ(m_Stack.TakeCalls(), Starting(8));
        EXPECT_EQ(Turn(), "8:1");
    }
};

INSTANTIATE_DATAGRAM_SUITE(CPSAcceptorDatagramTTest);

TEST_P(CPSAcceptorDatagramTTest, Constructor_Fresh_IsStoppedWithoutAHandle)
{
    EXPECT_EQ(Handler().GetHandle(), -1);
    EXPECT_TRUE(Flag().IsFlagStopped());
    EXPECT_FALSE(m_pAcceptor->IsConnector());
    EXPECT_EQ(m_pAcceptor->GetReferenceCount(), 1u);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_P(CPSAcceptorDatagramTTest, StartListen_Idle_OpensTunesAndRegistersForReading)
{
    EXPECT_EQ(Start(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), Starting());
    EXPECT_FALSE(Flag().IsFlagStopped());
    EXPECT_EQ(Handler().GetHandle(), s_nSocket);
    EXPECT_EQ(Turn(), "7:1");
    EXPECT_EQ(m_Sink.m_nIndications, 0);
}

TEST_P(CPSAcceptorDatagramTTest, StartListen_Numbers_ChooseTheRawSocketOnly)
{
    EXPECT_EQ(m_pAcceptor->StartListen(&m_Sink, m_Local, 10, 17), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls().front(), IsUdp() ? "ps_socket(2,2,0)=7" : "ps_socket(10,3,17)=7");
}

TEST_P(CPSAcceptorDatagramTTest, StartListen_NullSink_ReturnsInvalidArgWithoutACall)
{
    EXPECT_EQ(m_pAcceptor->StartListen(nullptr, m_Local, 2, 17), MN_ERROR_INVALID_ARG);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
    EXPECT_TRUE(Flag().IsFlagStopped());
}

TEST_P(CPSAcceptorDatagramTTest, StartListen_Listening_ReturnsAlreadyInitializedWhateverTheSink)
{
    Listen();
    EXPECT_EQ(Start(), MN_ERROR_ALREADY_INITIALIZED);
    EXPECT_EQ(m_pAcceptor->StartListen(nullptr, m_Local, 0, 0), MN_ERROR_ALREADY_INITIALIZED);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
    Arrive(m_PeerA, "x");
    EXPECT_EQ(m_Sink.m_nIndications, 1);
}

TEST_P(CPSAcceptorDatagramTTest, StartListen_OpenFails_ReturnsFailureAndLeavesNothing)
{
    m_Stack.On("ps_socket").Fails(PS_EMFILE);
    EXPECT_EQ(Start(), MN_ERROR_FAILURE);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{IsUdp() ? "ps_socket(2,2,0)=-1" : "ps_socket(2,3,89)=-1"}));
    ExpectIdle();
}

TEST_P(CPSAcceptorDatagramTTest, StartListen_OptionsRefused_AreIgnored)
{
    m_Stack.Default("ps_setsockopt").Fails(PS_EINVAL);
    EXPECT_EQ(Start(), MN_OK);
    EXPECT_EQ(Turn(), "7:1");
}

TEST_P(CPSAcceptorDatagramTTest, StartListen_RegistrationFails_RemovesClosesAndForgetsTheSink)
{
    m_Reactor.Refuse("RegisterHandler", MN_ERROR_UNEXPECTED);
    EXPECT_EQ(Start(), MN_ERROR_FAILURE);
    EXPECT_EQ(m_Stack.TakeCalls(), Failing(5, {"RegisterHandler(7,4)=10006", "RemoveHandler(7,4)=0", "ps_close(7)=0"}));
    ExpectIdle();
}

TEST_P(CPSAcceptorDatagramTTest, StartListen_HandleRegisteredBefore_CountsAsFailure)
{
    m_Reactor.Refuse("RegisterHandler", MN_ERROR_FOUND);
    EXPECT_EQ(Start(), MN_ERROR_FAILURE);
    m_Stack.TakeCalls();
    ExpectIdle();
}

TEST_P(CPSAcceptorDatagramTTest, StartListen_FailsWithTheFlagStillSet_MakesTheVirtualCallAndCleansUpBehindIt)
{
    UseTellingAcceptor();
    m_Reactor.Refuse("RegisterHandler", MN_ERROR_UNEXPECTED);
    EXPECT_EQ(Start(), MN_ERROR_FAILURE);
    EXPECT_EQ(m_Stack.TakeCalls(), Failing(5, {"RegisterHandler(7,4)=10006", "StopListen(10006) stopped",
                                               "RemoveHandler(7,4)=0", "ps_close(7)=0"}));
    m_Stack.On("ps_socket").Fails(PS_EMFILE);
    EXPECT_EQ(Start(), MN_ERROR_FAILURE);
    EXPECT_EQ(m_Stack.TakeCalls().back(), "StopListen(10001) stopped");
    EXPECT_TRUE(Flag().IsFlagStopped());
}

TEST_P(CPSAcceptorDatagramTTest, StartListen_NonBlockingRefused_LeavesSocketAndSinkAndTheFlagSet)
{
    UseTellingAcceptor();
    m_Stack.On("ps_socket_nonblock").Fails(PS_EBADF);
    EXPECT_EQ(Start(), MN_ERROR_FAILURE);
    EXPECT_EQ(m_Stack.TakeCalls(), Failing(4, {"ps_socket_nonblock(7)=-1"}));
    EXPECT_EQ(Handler().GetHandle(), s_nSocket);
    EXPECT_TRUE(Flag().IsFlagStopped());
    EXPECT_EQ(Start(), MN_ERROR_ALREADY_INITIALIZED);
    EXPECT_EQ(m_pAcceptor->StopListen(0), MN_OK);
    EXPECT_EQ(Handler().GetHandle(), s_nSocket);
    EXPECT_EQ(Turn(), "");
    m_Stack.TakeCalls();
    m_pAcceptor = nullptr;
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_close(7)=0"}));
}

TEST_P(CPSAcceptorDatagramTTest, StopListen_Listening_RemovesThenCloses)
{
    Listen();
    EXPECT_EQ(m_pAcceptor->StopListen(77), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), m_Stopping);
    EXPECT_TRUE(Flag().IsFlagStopped());
    ExpectIdle();
}

TEST_P(CPSAcceptorDatagramTTest, StopListen_Idle_ReturnsZeroWithoutACall)
{
    EXPECT_EQ(m_pAcceptor->StopListen(0), MN_OK);
    Listen();
    m_pAcceptor->StopListen(0);
    m_Stack.TakeCalls();
    EXPECT_EQ(m_pAcceptor->StopListen(0), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_P(CPSAcceptorDatagramTTest, StopListen_OnAnotherThread_IsReported)
{
    ExpectReports(1);
    std::thread([this] { EXPECT_EQ(m_pAcceptor->StopListen(0), MN_OK); }).join();
    EXPECT_EQ(Reports(), (CCalls{"CPSAcceptorDatagramT::StopListen"}));
}

TEST_P(CPSAcceptorDatagramTTest, RemoveTransport_StoppedOrUnknown_ReturnsZero)
{
    EXPECT_EQ(Remove(m_PeerA), MN_OK);
    Listen();
    EXPECT_EQ(Remove(m_PeerA), MN_OK);
    m_pAcceptor->StopListen(0);
    m_Stack.TakeCalls();
    EXPECT_EQ(Remove(m_PeerA), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_P(CPSAcceptorDatagramTTest, RemoveTransport_OnAnotherThread_IsReported)
{
    ExpectReports(1);
    std::thread([this] { EXPECT_EQ(Remove(m_PeerA), MN_OK); }).join();
    EXPECT_EQ(Reports(), (CCalls{"CPSAcceptorDatagramT::RemoveTransport"}));
}

TEST_P(CPSAcceptorDatagramTTest, LastRelease_Listening_StopsAndDeletesAtOnce)
{
    Listen();
    m_pAcceptor = nullptr;
    EXPECT_EQ(m_Stack.TakeCalls(), m_Stopping);
    EXPECT_EQ(NewLiveObjects(), 0);
}

TEST_P(CPSAcceptorDatagramTTest, HandlerOperations_NeverWanted_AnswerAsAgreed)
{
    Listen();
    EXPECT_EQ(Handler().OnOutput(s_nSocket), -1);
    EXPECT_EQ(Handler().OnException(s_nSocket), -1);
    EXPECT_EQ(Handler().OnClose(s_nSocket, READ_MASK), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
    EXPECT_EQ(Handler().GetHandle(), s_nSocket);
}

TEST_P(CPSAcceptorDatagramTTest, ReceiveFails_InTheLoop_IsRemovedButStaysOpenUntilStopped)
{
    Listen();
    m_Stack.On("ps_recvfrom").Fails(PS_EBADF);
    Turn(s_nSocket, PS_POLLIN);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_recvfrom(7,65535,0,28)=-1"}));
    EXPECT_EQ(Turn(), "");
    EXPECT_EQ(Start(), MN_ERROR_ALREADY_INITIALIZED);
    EXPECT_EQ(m_pAcceptor->StopListen(0), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), m_Stopping);
    ExpectIdle();
}

}  // namespace
}  // namespace uxport
