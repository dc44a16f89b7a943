#include "socket/CPSIPCBase.h"

#include "ipstack/ps_defines.h"
#include "tests/unit/scripted/ScriptedStackTest.h"

namespace uxport
{
namespace
{

constexpr int SOCKET = 7;

// The base alone; nothing closes its handle.
class CBareHandle : public CPSIPCBase
{
};

class CPSIPCBaseTest : public ScriptedStackTest
{
protected:
    CBareHandle m_Ipc;
};

TEST_F(CPSIPCBaseTest, Constructor_Fresh_HasNoHandle)
{
    EXPECT_EQ(m_Ipc.GetHandle(), -1);
}

TEST_F(CPSIPCBaseTest, SetHandle_Any_IsReadBackWithoutACall)
{
    m_Ipc.SetHandle(SOCKET);
    EXPECT_EQ(m_Ipc.GetHandle(), SOCKET);
    m_Ipc.SetHandle(8);
    EXPECT_EQ(m_Ipc.GetHandle(), 8);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSIPCBaseTest, Enable_Zero_SwitchesToNonBlocking)
{
    m_Ipc.SetHandle(SOCKET);
    EXPECT_EQ(m_Ipc.Enable(0), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_socket_nonblock(7)=0"}));
}

TEST_F(CPSIPCBaseTest, Enable_StackRefuses_ReturnsMinusOne)
{
    m_Ipc.SetHandle(SOCKET);
    m_Stack.On("ps_socket_nonblock", SOCKET).Fails(PS_EBADF);
    EXPECT_EQ(m_Ipc.Enable(0), -1);
}

TEST_F(CPSIPCBaseTest, Enable_StackAnswersAnotherNumber_ReturnsZero)
{
    m_Ipc.SetHandle(SOCKET);
    m_Stack.On("ps_socket_nonblock", SOCKET).Returns(3);
    EXPECT_EQ(m_Ipc.Enable(0), 0);
}

TEST_F(CPSIPCBaseTest, Enable_OtherValues_ReturnMinusOneWithoutACall)
{
    m_Ipc.SetHandle(SOCKET);
    for (const int value : {1, 2, -1, 2048})
        EXPECT_EQ(m_Ipc.Enable(value), -1) << value;
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSIPCBaseTest, Disable_Zero_ClearsTheNonBlockingBitAlone)
{
    m_Ipc.SetHandle(SOCKET);
    m_Stack.On("ps_fcntl", SOCKET).Returns(7);
    m_Stack.On("ps_fcntl", SOCKET).Returns(0);
    EXPECT_EQ(m_Ipc.Disable(0), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_fcntl(7,3,0)=7", "ps_fcntl(7,4,6)=0"}));
}

TEST_F(CPSIPCBaseTest, Disable_FlagsCannotBeRead_WritesNone)
{
    m_Ipc.SetHandle(SOCKET);
    m_Stack.On("ps_fcntl", SOCKET).Fails(PS_EBADF);
    EXPECT_EQ(m_Ipc.Disable(0), -1);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_fcntl(7,3,0)=-1"}));
}

TEST_F(CPSIPCBaseTest, Disable_FlagsCannotBeWritten_ReturnsMinusOne)
{
    m_Ipc.SetHandle(SOCKET);
    m_Stack.On("ps_fcntl", SOCKET).Returns(1);
    m_Stack.On("ps_fcntl", SOCKET).Fails(PS_EINVAL);
    EXPECT_EQ(m_Ipc.Disable(0), -1);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_fcntl(7,3,0)=1", "ps_fcntl(7,4,0)=-1"}));
}

TEST_F(CPSIPCBaseTest, Disable_WriteAnswersAnotherNumber_ReturnsZero)
{
    m_Ipc.SetHandle(SOCKET);
    m_Stack.On("ps_fcntl", SOCKET).Returns(1);
    m_Stack.On("ps_fcntl", SOCKET).Returns(5);
    EXPECT_EQ(m_Ipc.Disable(0), 0);
}

TEST_F(CPSIPCBaseTest, Disable_OtherValues_ReturnMinusOneWithoutACall)
{
    m_Ipc.SetHandle(SOCKET);
    for (const int value : {1, 2, -1})
        EXPECT_EQ(m_Ipc.Disable(value), -1) << value;
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSIPCBaseTest, Control_Any_GoesToTheStackWithItsArgument)
{
    m_Ipc.SetHandle(SOCKET);
    m_Stack.On("ps_ioctl", SOCKET).WithValue(12).Returns(4);
    int waiting = 0;
    EXPECT_EQ(m_Ipc.Control(PS_FIONREAD, &waiting), 4);
    EXPECT_EQ(waiting, 12);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_ioctl(7,21531)=4"}));
}

TEST_F(CPSIPCBaseTest, Control_StackRefuses_ReturnsItsAnswer)
{
    m_Ipc.SetHandle(SOCKET);
    m_Stack.On("ps_ioctl", SOCKET).Fails(PS_EBADF);
    EXPECT_EQ(m_Ipc.Control(1, nullptr), -1);
}

TEST_F(CPSIPCBaseTest, AnyOperation_NoHandle_StillAsksTheStack)
{
    m_Stack.Default("ps_socket_nonblock", -1).Fails(PS_EBADF);
    m_Stack.Default("ps_fcntl", -1).Fails(PS_EBADF);
    EXPECT_EQ(m_Ipc.Enable(0), -1);
    EXPECT_EQ(m_Ipc.Disable(0), -1);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_socket_nonblock(-1)=-1", "ps_fcntl(-1,3,0)=-1"}));
}

}  // namespace
}  // namespace uxport
