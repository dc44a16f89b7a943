#include "socket/CPSSocketBase.h"

#include <cerrno>
#include <memory>
#include <type_traits>
#include <vector>

#include "ipstack/ps_defines.h"
#include "ipstack/ps_socket.h"
#include "mantle/CMNInetAddr.h"
#include "mantle/CMNMessageBlock.h"
#include "tests/unit/scripted/ScriptedStackTest.h"

namespace uxport
{
namespace
{

constexpr int SOCKET = 101;  // what the scripted stack gives first
constexpr int SYSTEM_ERROR = EMFILE;

static_assert(std::has_virtual_destructor_v<CPSSocketBase>);
static_assert(!std::is_copy_constructible_v<CPSSocketBase>);

class CPSSocketBaseTest : public ScriptedStackTest
{
protected:
    void Open()
    {
        m_pSocket = std::make_unique<CPSSocketBase>();
        m_pSocket->SetHandle(SOCKET);
    }
    void TearDown() override
    {
        m_pSocket.reset();
        ScriptedStackTest::TearDown();
    }

    std::unique_ptr<CPSSocketBase> m_pSocket = std::make_unique<CPSSocketBase>();
};

TEST_F(CPSSocketBaseTest, Open_WithoutReuse_MakesASocketAndSetsNothing)
{
    EXPECT_EQ(m_pSocket->Open(10, 2, 17, 0), 0);
    EXPECT_EQ(m_pSocket->GetHandle(), SOCKET);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_socket(10,2,17)=101"}));
}

TEST_F(CPSSocketBaseTest, Open_WithReuse_AsksForAddressReuse)
{
    EXPECT_EQ(m_pSocket->Open(2, 1, 0, 1), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_socket(2,1,0)=101", "ps_setsockopt(101,1,2,1,4)=0"}));
}

TEST_F(CPSSocketBaseTest, Open_ReuseIsAnyOtherNumber_PassesOne)
{
    EXPECT_EQ(m_pSocket->Open(2, 1, 0, -5), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_socket(2,1,0)=101", "ps_setsockopt(101,1,2,1,4)=0"}));
}

TEST_F(CPSSocketBaseTest, Open_ReuseRefused_SucceedsAllTheSame)
{
    m_Stack.On("ps_setsockopt").Fails(PS_ENOPROTOOPT);
    EXPECT_EQ(m_pSocket->Open(2, 1, 0, 1), 0);
    EXPECT_EQ(m_pSocket->GetHandle(), SOCKET);
}

TEST_F(CPSSocketBaseTest, Open_FamilyOneWithReuse_AsksForNoReuse)
{
    EXPECT_EQ(m_pSocket->Open(1, 1, 0, 1), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_socket(1,1,0)=101"}));
}

TEST_F(CPSSocketBaseTest, Open_StackHasNoSocket_ReturnsMinusOneAndClosesNothing)
{
    m_Stack.On("ps_socket").Fails(PS_EMFILE);
    EXPECT_EQ(m_pSocket->Open(2, 1, 0, 1), -1);
    EXPECT_EQ(m_pSocket->GetHandle(), -1);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_socket(2,1,0)=-1"}));
}

TEST_F(CPSSocketBaseTest, Open_StackHasNoSocket_KeepsTheSystemsErrno)
{
    m_Stack.On("ps_socket").Fails(PS_EMFILE).WithErrno(SYSTEM_ERROR);
    errno = 0;
    EXPECT_EQ(m_pSocket->Open(2, 1, 0, 0), -1);
    EXPECT_EQ(errno, SYSTEM_ERROR);
    EXPECT_EQ(get_pserrno(), PS_EMFILE);
}

TEST_F(CPSSocketBaseTest, Open_Open_ClosesTheOldHandleFirst)
{
    Open();
    m_Stack.On("ps_socket").Returns(8);
    EXPECT_EQ(m_pSocket->Open(2, 1, 0, 0), 0);
    EXPECT_EQ(m_pSocket->GetHandle(), 8);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_close(101)=0", "ps_socket(2,1,0)=8"}));
}

TEST_F(CPSSocketBaseTest, Open_OpenAndStackHasNoSocket_IsClosedAfterwards)
{
    Open();
    m_Stack.On("ps_socket").Fails(PS_EMFILE);
    EXPECT_EQ(m_pSocket->Open(2, 1, 0, 0), -1);
    EXPECT_EQ(m_pSocket->GetHandle(), -1);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_close(101)=0", "ps_socket(2,1,0)=-1"}));
}

TEST_F(CPSSocketBaseTest, Close_NeverOpened_ReturnsZeroWithoutACall)
{
    EXPECT_EQ(m_pSocket->Close(), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSSocketBaseTest, Close_Open_ClosesOnce)
{
    Open();
    EXPECT_EQ(m_pSocket->Close(), 0);
    EXPECT_EQ(m_pSocket->GetHandle(), -1);
    EXPECT_EQ(m_pSocket->Close(), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_close(101)=0"}));
}

TEST_F(CPSSocketBaseTest, Close_StackFails_ReturnsItsAnswerOnceAndForgetsTheHandle)
{
    Open();
    m_Stack.On("ps_close").Fails(PS_EBADF);
    EXPECT_EQ(m_pSocket->Close(), -1);
    EXPECT_EQ(m_pSocket->GetHandle(), -1);
    EXPECT_EQ(m_pSocket->Close(), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_close(101)=-1"}));
}

TEST_F(CPSSocketBaseTest, Destructor_Open_ClosesOnce)
{
    Open();
    m_pSocket.reset();
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_close(101)=0"}));
}

TEST_F(CPSSocketBaseTest, SetHandle_ThenDestructor_ClosesTheHandleGiven)
{
    m_pSocket->SetHandle(55);
    m_pSocket.reset();
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_close(55)=0"}));
}

TEST_F(CPSSocketBaseTest, SetOption_Any_GoesToTheStack)
{
    Open();
    m_Stack.On("ps_setsockopt").Returns(2);
    const int value = 77;
    EXPECT_EQ(m_pSocket->SetOption(6, 1, &value, sizeof value), 2);
    m_Stack.On("ps_setsockopt").Fails(PS_EINVAL);
    EXPECT_EQ(m_pSocket->SetOption(0, 2, nullptr, 0), -1);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_setsockopt(101,6,1,77,4)=2", "ps_setsockopt(101,0,2,null,0)=-1"}));
}

TEST_F(CPSSocketBaseTest, GetOption_Any_GoesToTheStack)
{
    Open();
    m_Stack.On("ps_getsockopt").WithValue(4321).Returns(3);
    long value = 0;
    int length = sizeof value;
    EXPECT_EQ(m_pSocket->GetOption(0xFFF, 0x1001, &value, &length), 3);
    EXPECT_EQ(value, 4321);
    m_Stack.On("ps_getsockopt").Fails(PS_ENOPROTOOPT);
    EXPECT_EQ(m_pSocket->GetOption(1, 1, &value, &length), -1);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_getsockopt(101,4095,4097,8)=3", "ps_getsockopt(101,1,1,8)=-1"}));
}

TEST_F(CPSSocketBaseTest, Recv_Any_PassesEverythingOn)
{
    Open();
    char buffer[10] = {};
    m_Stack.On("ps_recv").WithData("abc");
    EXPECT_EQ(m_pSocket->Recv(buffer, sizeof buffer, 1), 3);
    EXPECT_STREQ(buffer, "abc");
    m_Stack.On("ps_recv").Fails(PS_ECONNRESET);
    EXPECT_EQ(m_pSocket->Recv(buffer, 4, 0), -1);
    m_Stack.On("ps_recv").Returns(0);
    EXPECT_EQ(m_pSocket->Recv(buffer, 5, 0), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_recv(101,10,1)=3", "ps_recv(101,4,0)=-1", "ps_recv(101,5,0)=0"}));
}

TEST_F(CPSSocketBaseTest, Send_Any_PassesEverythingOn)
{
    Open();
    m_Stack.On("ps_send").Returns(2);
    EXPECT_EQ(m_pSocket->Send("abc", 3, 4), 2);
    m_Stack.On("ps_send").Fails(PS_EPIPE);
    EXPECT_EQ(m_pSocket->Send("abc", 3, 0), -1);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_send(101,'abc',4)=2", "ps_send(101,'abc',0)=-1"}));
}

TEST_F(CPSSocketBaseTest, RecvV_Any_ReturnsMinusOneWithoutACall)
{
    Open();
    char buffer[4];
    iovec_ace piece = {buffer, sizeof buffer};
    EXPECT_EQ(m_pSocket->RecvV(&piece, 1), -1);
    EXPECT_EQ(m_pSocket->RecvV(nullptr, 0), -1);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSSocketBaseTest, SendV_Pieces_AreWrittenInOrder)
{
    Open();
    char one[] = "one";
    char three[] = "three";
    const iovec_ace pieces[] = {{one, 3}, {one, 0}, {three, 5}};
    EXPECT_EQ(m_pSocket->SendV(pieces, 3), 8);
    EXPECT_EQ(m_Stack.TakeSent(SOCKET), "onethree");
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_writev(101,[3,0,5],3)=8"}));
}

TEST_F(CPSSocketBaseTest, SendV_NoPiece_IsPassedThrough)
{
    Open();
    m_Stack.On("ps_writev").Returns(0);
    EXPECT_EQ(m_pSocket->SendV(nullptr, 0), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_writev(101,[],0)=0"}));
}

TEST_F(CPSSocketBaseTest, SendV_1024Pieces_AreSent)
{
    Open();
    std::string bytes(1024, 'x');
    bytes.back() = 'y';
    std::vector<iovec_ace> pieces;
    for (char& byte : bytes)
        pieces.push_back({&byte, 1});
    EXPECT_EQ(m_pSocket->SendV(pieces.data(), 1024), 1024);
    EXPECT_EQ(m_Stack.TakeSent(SOCKET), bytes);
    EXPECT_EQ(m_Stack.CountOf("ps_writev"), 1u);
}

TEST_F(CPSSocketBaseTest, SendV_1025Pieces_SendsNothing)
{
    Open();
    char byte = 'x';
    const std::vector<iovec_ace> pieces(1025, iovec_ace{&byte, 1});
    EXPECT_EQ(m_pSocket->SendV(pieces.data(), pieces.size()), -1);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSSocketBaseTest, SendV_StackFails_ReturnsItsAnswer)
{
    Open();
    char byte = 'x';
    const iovec_ace piece = {&byte, 1};
    m_Stack.On("ps_writev").Fails(PS_ECONNRESET);
    EXPECT_EQ(m_pSocket->SendV(&piece, 1), -1);
}

TEST_F(CPSSocketBaseTest, GetLocalAddr_Ipv4_IsTaken)
{
    Open();
    m_Stack.On("ps_getsockname").WithAddress("1.2.3.4", 80);
    CMNInetAddr address;
    EXPECT_EQ(m_pSocket->GetLocalAddr(address), 0);
    EXPECT_EQ(address.ToString(), "1.2.3.4:80");
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_getsockname(101,28)=0:1.2.3.4:80{16,2}"}));
}

TEST_F(CPSSocketBaseTest, GetRemoteAddr_Ipv6_IsTaken)
{
    Open();
    m_Stack.On("ps_getpeername").WithAddress("fe80::1", 443);
    CMNInetAddr address;
    EXPECT_EQ(m_pSocket->GetRemoteAddr(address), 0);
    EXPECT_EQ(address.ToString(), "[fe80::1]:443");
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_getpeername(101,28)=0:[fe80::1]:443{28,10}"}));
}

TEST_F(CPSSocketBaseTest, GetAddr_ReceiverHoldsIpv6_OffersTheSameRoomAndTakesIpv4)
{
    Open();
    m_Stack.On("ps_getsockname").WithAddress("1.2.3.4", 80);
    CMNInetAddr address("::1", 5);
    EXPECT_EQ(m_pSocket->GetLocalAddr(address), 0);
    EXPECT_EQ(address.ToString(), "1.2.3.4:80");
}

TEST_F(CPSSocketBaseTest, GetAddr_UnknownFamily_ReturnsZeroAndLeavesTheAddress)
{
    Open();
    const std::string record("\x10\x07\x00\x50\x01\x02\x03\x04\0\0\0\0\0\0\0\0", 16);
    m_Stack.On("ps_getpeername").WithRecord(record);
    m_Stack.On("ps_getsockname").WithRecord(record);
    CMNInetAddr address("9.9.9.9", 99);
    EXPECT_EQ(m_pSocket->GetRemoteAddr(address), 0);
    EXPECT_EQ(m_pSocket->GetLocalAddr(address), 0);
    EXPECT_EQ(address.ToString(), "9.9.9.9:99");
}

TEST_F(CPSSocketBaseTest, GetAddr_StackWritesNothing_ReturnsZeroAndLeavesTheAddress)
{
    Open();
    CMNInetAddr address("9.9.9.9", 99);
    EXPECT_EQ(m_pSocket->GetRemoteAddr(address), 0);
    EXPECT_EQ(address.ToString(), "9.9.9.9:99");
}

TEST_F(CPSSocketBaseTest, GetAddr_StackFails_ReturnsItsAnswerAndLeavesTheAddress)
{
    Open();
    CMNInetAddr address("9.9.9.9", 99);
    m_Stack.On("ps_getpeername").Fails(PS_ENOTCONN);
    EXPECT_EQ(m_pSocket->GetRemoteAddr(address), -1);
    m_Stack.On("ps_getsockname").WithAddress("1.2.3.4", 80).Returns(5);
    EXPECT_EQ(m_pSocket->GetLocalAddr(address), 5);
    EXPECT_EQ(address.ToString(), "9.9.9.9:99");
}

}  // namespace
}  // namespace uxport
