// The options of the TCP transport.
#include "transport/CPSTransportTcp.h"

#include <cstdint>
#include <thread>

#include "ipstack/ps_defines.h"
#include "tests/unit/doubles/OptionChecks.h"
#include "tests/unit/doubles/TransportTcpTest.h"

namespace uxport
{
namespace
{

class CPSTransportTcpOptionsTest : public TransportTcpTest
{
protected:
    MNResult Set(unsigned long option, std::uint64_t value) { return Transport().SetOption(option, &value); }
};

TEST_F(CPSTransportTcpOptionsTest, AnyOption_NullOpenOrClosed_ReturnsInvalidArg)
{
    ExpectNullRefused(Transport());
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
    Transport().Disconnect(0);
    ExpectNullRefused(Transport());
}

TEST_F(CPSTransportTcpOptionsTest, SetOption_NotSettable_ReturnsInvalidArgWithoutACall)
{
    ExpectOthersNotSettable(Transport(), {103, 108, 109, 110});
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSTransportTcpOptionsTest, GetOption_NotReadable_ReturnsInvalidArgAndLeavesTheValue)
{
    ExpectOthersNotReadable(Transport(), {101, 103, 104, 105, 106, 107, 109, 110});
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSTransportTcpOptionsTest, Get101_Any_AsksForTheWaitingBytes)
{
    m_Stack.On("ps_ioctl").WithValue(321);
    std::int32_t waiting = 0;
    EXPECT_EQ(Transport().GetOption(101, &waiting), MN_OK);
    EXPECT_EQ(waiting, 321);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_ioctl(7,21531)=0"}));
}

TEST_F(CPSTransportTcpOptionsTest, Get101_StackFails_ReturnsSocketError)
{
    m_Stack.On("ps_ioctl").Fails(PS_EBADF);
    std::int32_t waiting = 0;
    EXPECT_EQ(Transport().GetOption(101, &waiting), MN_ERROR_NETWORK_SOCKET_ERROR);
}

TEST_F(CPSTransportTcpOptionsTest, Get103_OpenAndClosed_GivesTheHandle)
{
    std::int32_t values[2] = {0, 4711};  // 32 bits, not more
    EXPECT_EQ(Transport().GetOption(103, values), MN_OK);
    EXPECT_EQ(values[0], 7);
    Transport().Disconnect(0);
    EXPECT_EQ(Transport().GetOption(103, values), MN_OK);
    EXPECT_EQ(values[0], -1);
    EXPECT_EQ(values[1], 4711);
}

TEST_F(CPSTransportTcpOptionsTest, Set103_OtherThanMinusOne_ReturnsInvalidArgAndKeepsTheSocket)
{
    for (std::int32_t value : {0, 1, 7, -2}) {
        EXPECT_EQ(Transport().SetOption(103, &value), MN_ERROR_INVALID_ARG) << value;
        EXPECT_EQ(Transport().GetHandle(), s_nSocket);
    }
}

TEST_F(CPSTransportTcpOptionsTest, Set103_MinusOne_ForgetsTheSocketUnclosed)
{
    std::int32_t none = -1;
    EXPECT_EQ(Transport().SetOption(103, &none), MN_OK);
    EXPECT_EQ(Transport().GetHandle(), -1);
    EXPECT_EQ(Transport().Close_t(0), MN_OK);
    EXPECT_EQ(m_Stack.CountOf("ps_close"), 0u);
}

TEST_F(CPSTransportTcpOptionsTest, Set103_OpenThenReleaseAndThreeTurns_ClosesNothingAndLeavesNothing)
{
    Open();
    std::int32_t none = -1;
    EXPECT_EQ(Transport().SetOption(103, &none), MN_OK);
    m_pTransport = nullptr;
    for (int turn = 0; turn < 3; ++turn)
        EXPECT_EQ(Turn(s_nSocket, PS_POLLIN), "");
    EXPECT_EQ(NewLiveObjects(), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ScheduleTimer(0,0s0us,1)=0"}));
    EXPECT_EQ(m_Stack.CountOf("ps_close"), 0u);
}

TEST_F(CPSTransportTcpOptionsTest, Set103_OnAnotherThread_LeavesNoRegistration)
{
    Open();
    std::thread([this] {
        std::int32_t none = -1;
        EXPECT_EQ(Transport().SetOption(103, &none), MN_OK);
    }).join();
    EXPECT_EQ(Turn(s_nSocket, PS_POLLIN), "");
    EXPECT_EQ(m_Stack.CountOf("ps_close"), 0u);
}

TEST_F(CPSTransportTcpOptionsTest, Set103_HandleTakenOverByAnother_LeavesThatRegistration)
{
    Open();
    mantle::CMNAutoPtr<CPSTransportTcp> other(new CPSTransportTcp(&m_Reactor));
    other->GetPeer().SetHandle(s_nSocket);
    CRecordingTransportSink sink;
    ASSERT_EQ(other->OpenWithSink(&sink), MN_OK);
    std::int32_t none = -1;
    EXPECT_EQ(Transport().SetOption(103, &none), MN_OK);
    EXPECT_EQ(Turn(), "7:1");
}

TEST_F(CPSTransportTcpOptionsTest, Get104And105_Any_AskTheSocket)
{
    m_Stack.On("ps_getsockname").WithAddress("10.0.0.1", 80);
    m_Stack.On("ps_getpeername").WithAddress("10.0.0.2", 4000);
    CMNInetAddr local;
    CMNInetAddr peer;
    EXPECT_EQ(Transport().GetOption(104, &local), MN_OK);
    EXPECT_EQ(Transport().GetOption(105, &peer), MN_OK);
    EXPECT_EQ(local.ToString(), "10.0.0.1:80");
    EXPECT_EQ(peer.ToString(), "10.0.0.2:4000");
}

TEST_F(CPSTransportTcpOptionsTest, Get104And105_StackFails_ReturnSocketErrorButTheQueriesZero)
{
    m_Stack.Default("ps_getsockname").Fails(PS_EBADF);
    m_Stack.Default("ps_getpeername").Fails(PS_ENOTCONN);
    CMNInetAddr address("9.9.9.9", 99);
    EXPECT_EQ(Transport().GetOption(104, &address), MN_ERROR_NETWORK_SOCKET_ERROR);
    EXPECT_EQ(Transport().GetOption(105, &address), MN_ERROR_NETWORK_SOCKET_ERROR);
    EXPECT_EQ(Transport().GetLocalAddr(address), MN_OK);
    EXPECT_EQ(Transport().GetPeerAddr(address), MN_OK);
    EXPECT_EQ(address.ToString(), "9.9.9.9:99");
}

TEST_F(CPSTransportTcpOptionsTest, Get106_Closed_WritesZeroAndReturnsNotInitialized)
{
    Transport().Disconnect(0);
    m_Stack.TakeCalls();
    std::int32_t alive = 5;
    EXPECT_EQ(Transport().GetOption(106, &alive), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(alive, 0);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSTransportTcpOptionsTest, Get106_DataWaits_IsAliveAndOnlyPeeks)
{
    m_Stack.On("ps_recv").WithData("x");
    std::int32_t alive[2] = {0, 4711};
    EXPECT_EQ(Transport().GetOption(106, alive), MN_OK);
    EXPECT_EQ(alive[0], 1);
    EXPECT_EQ(alive[1], 4711);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_recv(7,1,1)=1"}));
}

TEST_F(CPSTransportTcpOptionsTest, Get106_PeekGivesZero_IsNotAlive)
{
    std::int32_t alive = 5;
    EXPECT_EQ(Transport().GetOption(106, &alive), MN_OK);
    EXPECT_EQ(alive, 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_recv(7,1,1)=0"}));
}

TEST_F(CPSTransportTcpOptionsTest, Get106_PeekFailsWith115_IsAlive)
{
    m_Stack.On("ps_recv").Fails(115);
    std::int32_t alive = 0;
    EXPECT_EQ(Transport().GetOption(106, &alive), MN_OK);
    EXPECT_EQ(alive, 1);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_recv(7,1,1)=-1", "get_pserrno()=115"}));
}

TEST_F(CPSTransportTcpOptionsTest, Get106_PeekFailsOtherwise_IsNotAlive)
{
    for (const int cause : {PS_EAGAIN, PS_ECONNRESET, PS_EALREADY}) {
        m_Stack.On("ps_recv").Fails(cause);
        std::int32_t alive = 5;
        EXPECT_EQ(Transport().GetOption(106, &alive), MN_OK);
        EXPECT_EQ(alive, 0) << cause;
    }
}

TEST_F(CPSTransportTcpOptionsTest, Get107_Any_IsTwoIn64Bits)
{
    std::uint64_t type = ~0ull;
    EXPECT_EQ(Transport().GetOption(107, &type), MN_OK);
    EXPECT_EQ(type, 2u);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSTransportTcpOptionsTest, Set108_Zero_SwitchesKeepAliveOffInOneCall)
{
    EXPECT_EQ(Set(108, 0), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_setsockopt(7,4095,8,0,4)=0"}));
}

TEST_F(CPSTransportTcpOptionsTest, Set108_Seconds_SwitchesOnAndSetsTheIdleTime)
{
    EXPECT_EQ(Set(108, 30), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_setsockopt(7,4095,8,1,4)=0", "ps_setsockopt(7,6,3,30,8)=0"}));
}

TEST_F(CPSTransportTcpOptionsTest, Set108_HighBitsOnly_CountsAsOn)
{
    EXPECT_EQ(Set(108, 1ull << 32), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_setsockopt(7,4095,8,1,4)=0", "ps_setsockopt(7,6,3,4294967296,8)=0"}));
}

TEST_F(CPSTransportTcpOptionsTest, Set108_EitherCallFails_ReturnsSocketError)
{
    m_Stack.On("ps_setsockopt").Fails(PS_EBADF);
    EXPECT_EQ(Set(108, 0), MN_ERROR_NETWORK_SOCKET_ERROR);
    m_Stack.On("ps_setsockopt").Fails(PS_EBADF);
    EXPECT_EQ(Set(108, 30), MN_ERROR_NETWORK_SOCKET_ERROR);
    m_Stack.TakeCalls();
    m_Stack.On("ps_setsockopt").Returns(0);
    m_Stack.On("ps_setsockopt").Fails(PS_ENOPROTOOPT);
    EXPECT_EQ(Set(108, 30), MN_ERROR_NETWORK_SOCKET_ERROR);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_setsockopt(7,4095,8,1,4)=0", "ps_setsockopt(7,6,3,30,8)=-1"}));
}

TEST_F(CPSTransportTcpOptionsTest, Set109And110_Any_Pass64Bits)
{
    EXPECT_EQ(Set(109, 100000), MN_OK);
    EXPECT_EQ(Set(110, 1ull << 33), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(),
              (CCalls{"ps_setsockopt(7,4095,4097,100000,8)=0", "ps_setsockopt(7,4095,4098,8589934592,8)=0"}));
}

TEST_F(CPSTransportTcpOptionsTest, Set109And110_StackFails_ReturnSocketError)
{
    m_Stack.On("ps_setsockopt").Fails(PS_EINVAL).Times(2);
    EXPECT_EQ(Set(109, 1), MN_ERROR_NETWORK_SOCKET_ERROR);
    EXPECT_EQ(Set(110, 1), MN_ERROR_NETWORK_SOCKET_ERROR);
}

TEST_F(CPSTransportTcpOptionsTest, Get109And110_Any_AskFor64Bits)
{
    m_Stack.On("ps_getsockopt").WithValue(100000);
    m_Stack.On("ps_getsockopt").WithValue(200000);
    std::uint64_t send = 0;
    std::uint64_t receive = 0;
    EXPECT_EQ(Transport().GetOption(109, &send), MN_OK);
    EXPECT_EQ(Transport().GetOption(110, &receive), MN_OK);
    EXPECT_EQ(send, 100000u);
    EXPECT_EQ(receive, 200000u);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_getsockopt(7,4095,4097,8)=0", "ps_getsockopt(7,4095,4098,8)=0"}));
}

TEST_F(CPSTransportTcpOptionsTest, Get109And110_StackFails_ReturnSocketError)
{
    m_Stack.On("ps_getsockopt").Fails(PS_EBADF).Times(2);
    std::uint64_t size = 0;
    EXPECT_EQ(Transport().GetOption(109, &size), MN_ERROR_NETWORK_SOCKET_ERROR);
    EXPECT_EQ(Transport().GetOption(110, &size), MN_ERROR_NETWORK_SOCKET_ERROR);
}

TEST_F(CPSTransportTcpOptionsTest, Get112_Any_ReturnsInvalidArgAndLeavesThePlace)
{
    IPSTransport* inner = nullptr;
    EXPECT_EQ(Transport().GetOption(112, &inner), MN_ERROR_INVALID_ARG);
    EXPECT_EQ(inner, nullptr);
    EXPECT_EQ(Transport().GetOption(112, nullptr), MN_ERROR_INVALID_ARG);
}

}  // namespace
}  // namespace uxport
