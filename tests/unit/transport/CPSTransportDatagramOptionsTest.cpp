// The options of the UDP and raw transports.
#include <cstdint>

#include "tests/unit/doubles/OptionChecks.h"
#include "tests/unit/doubles/TransportDatagramTest.h"

namespace uxport
{
namespace
{

class CPSTransportDatagramOptionsTest : public TransportDatagramTest
{
protected:
    MNResult Set(unsigned long option, std::uint64_t value) { return Transport().SetOption(option, &value); }
};

INSTANTIATE_DATAGRAM_SUITE(CPSTransportDatagramOptionsTest);

TEST_P(CPSTransportDatagramOptionsTest, AnyOption_NullOpenOrClosed_ReturnsInvalidArg)
{
    ExpectNullRefused(Transport());
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
    Transport().Disconnect(0);
    ExpectNullRefused(Transport());
}

TEST_P(CPSTransportDatagramOptionsTest, OptionsOfOtherTransports_SetOrRead_AreRefusedWithoutACall)
{
    if (IsUdp())
        ExpectOthersNotSettable(Transport(), {109, 110});
    else
        ExpectOthersNotSettable(Transport(), {109, 110, 136});
    ExpectOthersNotReadable(Transport(), {101, 103, 104, 105, 106, 107, 109, 110});
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
    EXPECT_EQ(Transport().GetHandle(), s_nSocket);
}

TEST_P(CPSTransportDatagramOptionsTest, Get101_AnswerAndFailure_AreTheStacks)
{
    m_Stack.On("ps_ioctl").WithValue(321);
    std::int32_t waiting = 0;
    EXPECT_EQ(Transport().GetOption(101, &waiting), MN_OK);
    EXPECT_EQ(waiting, 321);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_ioctl(7,21531)=0"}));
    m_Stack.On("ps_ioctl").Fails(PS_EBADF);
    EXPECT_EQ(Transport().GetOption(101, &waiting), MN_ERROR_NETWORK_SOCKET_ERROR);
}

TEST_P(CPSTransportDatagramOptionsTest, Get103_OpenAndClosed_GivesTheHandleIn32Bits)
{
    std::int32_t values[2] = {0, 4711};
    EXPECT_EQ(Transport().GetOption(103, values), MN_OK);
    EXPECT_EQ(values[0], s_nSocket);
    Transport().Disconnect(0);
    EXPECT_EQ(Transport().GetOption(103, values), MN_OK);
    EXPECT_EQ(values[0], -1);
    EXPECT_EQ(values[1], 4711);
}

TEST_P(CPSTransportDatagramOptionsTest, Get104_AnswerAndFailure_AreTheSocketsButTheQueryIsZero)
{
    m_Stack.On("ps_getsockname").WithAddress("10.0.0.1", 53);
    CMNInetAddr local;
    EXPECT_EQ(Transport().GetOption(104, &local), MN_OK);
    EXPECT_EQ(local.ToString(), "10.0.0.1:53");
    m_Stack.On("ps_getsockname").Fails(PS_EBADF).Times(2);
    EXPECT_EQ(Transport().GetOption(104, &local), MN_ERROR_NETWORK_SOCKET_ERROR);
    EXPECT_EQ(Transport().GetLocalAddr(local), MN_OK);
    EXPECT_EQ(local.ToString(), "10.0.0.1:53");
}

TEST_P(CPSTransportDatagramOptionsTest, Get105_OpenAndClosed_IsTheStoredAddressWithoutACall)
{
    for (const bool closed : {false, true}) {
        if (closed)
            Transport().Disconnect(0);
        m_Stack.TakeCalls();
        CMNInetAddr peer;
        EXPECT_EQ(Transport().GetOption(105, &peer), MN_OK);
        EXPECT_EQ(peer, m_Peer);
        CMNInetAddr again;
        EXPECT_EQ(Transport().GetPeerAddr(again), MN_OK);
        EXPECT_EQ(again, m_Peer);
        EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
    }
}

TEST_P(CPSTransportDatagramOptionsTest, Get106_OpenAndClosed_IsTheHandlesStateWithoutACall)
{
    std::int32_t alive[2] = {0, 4711};
    EXPECT_EQ(Transport().GetOption(106, alive), MN_OK);
    EXPECT_EQ(alive[0], 1);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
    Transport().Disconnect(0);
    m_Stack.TakeCalls();
    EXPECT_EQ(Transport().GetOption(106, alive), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(alive[0], 0);
    EXPECT_EQ(alive[1], 4711);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_P(CPSTransportDatagramOptionsTest, Get107_UdpAndRaw_AreBothEightIn64Bits)
{
    std::uint64_t type = ~0ull;
    EXPECT_EQ(Transport().GetOption(107, &type), MN_OK);
    EXPECT_EQ(type, 8u);
}

TEST_P(CPSTransportDatagramOptionsTest, Set109And110_Any_Pass64Bits)
{
    EXPECT_EQ(Set(109, 100000), MN_OK);
    EXPECT_EQ(Set(110, 1ull << 33), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(),
              (CCalls{"ps_setsockopt(7,4095,4097,100000,8)=0", "ps_setsockopt(7,4095,4098,8589934592,8)=0"}));
    m_Stack.On("ps_setsockopt").Fails(PS_EINVAL).Times(2);
    EXPECT_EQ(Set(109, 1), MN_ERROR_NETWORK_SOCKET_ERROR);
    EXPECT_EQ(Set(110, 1), MN_ERROR_NETWORK_SOCKET_ERROR);
}

TEST_P(CPSTransportDatagramOptionsTest, Get109And110_TwoSizes_AskInTheOtherNumberingAndCrossed)
{
    m_Stack.On("ps_getsockopt").WithValue(100000);
    m_Stack.On("ps_getsockopt").WithValue(200000);
    std::uint64_t send = 0;
    std::uint64_t receive = 0;
    EXPECT_EQ(Transport().GetOption(109, &send), MN_OK);
    EXPECT_EQ(Transport().GetOption(110, &receive), MN_OK);
    EXPECT_EQ(send, 100000u);
    EXPECT_EQ(receive, 200000u);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_getsockopt(7,1,8,8)=0", "ps_getsockopt(7,1,7,8)=0"}));
    m_Stack.On("ps_getsockopt").Fails(PS_EBADF).Times(2);
    EXPECT_EQ(Transport().GetOption(109, &send), MN_ERROR_NETWORK_SOCKET_ERROR);
    EXPECT_EQ(Transport().GetOption(110, &receive), MN_ERROR_NETWORK_SOCKET_ERROR);
}

TEST_P(CPSTransportDatagramOptionsTest, Set136_Any_ReachesTheRawSocketOnly)
{
    EXPECT_EQ(Set(136, 1), IsUdp() ? MN_ERROR_INVALID_ARG : MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), IsUdp() ? CCalls() : (CCalls{"ps_setsockopt(7,0,3,1,8)=0"}));
    EXPECT_EQ(Set(136, 0), IsUdp() ? MN_ERROR_INVALID_ARG : MN_OK);
}

TEST_P(CPSTransportDatagramOptionsTest, Set136_AnyNegativeAnswer_IsASocketErrorOnRaw)
{
    for (const long answer : {-1, -92}) {
        if (!IsUdp())
            m_Stack.On("ps_setsockopt").Returns(answer);
        EXPECT_EQ(Set(136, 1), IsUdp() ? MN_ERROR_INVALID_ARG : MN_ERROR_NETWORK_SOCKET_ERROR) << answer;
    }
}

}  // namespace
}  // namespace uxport
