#include "socket/CPSSocketUdp.h"

#include <cstring>
#include <memory>

#include "ipstack/ps_defines.h"
#include "mantle/CMNInetAddr.h"
#include "mantle/CMNMessageBlock.h"
#include "tests/unit/scripted/ScriptedStackTest.h"

namespace uxport
{
namespace
{

class CPSSocketUdpTest : public ScriptedStackTest
{
protected:
    void TearDown() override
    {
        m_pSocket.reset();
        ScriptedStackTest::TearDown();
    }

    std::unique_ptr<CPSSocketUdp> m_pSocket = std::make_unique<CPSSocketUdp>();
};

TEST_F(CPSSocketUdpTest, Open_Any_MakesABoundDatagramSocketWithoutReuse)
{
    EXPECT_EQ(m_pSocket->Open(CMNInetAddr("10.0.0.1", 53)), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_socket(2,2,0)=101", "ps_bind(101,10.0.0.1:53{16,2},16)=0"}));
}

TEST_F(CPSSocketUdpTest, Open_BindFails_Closes)
{
    m_Stack.On("ps_bind").Fails(PS_EADDRINUSE);
    EXPECT_EQ(m_pSocket->Open(CMNInetAddr("10.0.0.1", 53)), -1);
    EXPECT_EQ(m_pSocket->GetHandle(), -1);
    EXPECT_EQ(m_Stack.TakeCalls(),
              (CCalls{"ps_socket(2,2,0)=101", "ps_bind(101,10.0.0.1:53{16,2},16)=-1", "ps_close(101)=0"}));
}

TEST_F(CPSSocketUdpTest, Open_StackHasNoSocket_ReturnsMinusOne)
{
    m_Stack.On("ps_socket").Fails(PS_EMFILE);
    EXPECT_EQ(m_pSocket->Open(CMNInetAddr("10.0.0.1", 53)), -1);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_socket(2,2,0)=-1"}));
}

TEST_F(CPSSocketUdpTest, RecvFrom_Ipv4_ReturnsTheCountAndTheSource)
{
    m_pSocket->SetHandle(7);
    m_Stack.On("ps_recvfrom").WithData("abc").WithAddress("10.0.0.2", 9);
    char buffer[100] = {};
    CMNInetAddr from;
    EXPECT_EQ(m_pSocket->RecvFrom(buffer, sizeof buffer, from, 1), 3);
    EXPECT_STREQ(buffer, "abc");
    EXPECT_EQ(from.ToString(), "10.0.0.2:9");
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_recvfrom(7,100,1,28)=3:10.0.0.2:9{16,2}"}));
}

TEST_F(CPSSocketUdpTest, RecvFrom_Ipv6_ReturnsTheSource)
{
    m_pSocket->SetHandle(7);
    m_Stack.On("ps_recvfrom").WithData("abc").WithAddress("fe80::2", 9);
    char buffer[100];
    CMNInetAddr from;
    EXPECT_EQ(m_pSocket->RecvFrom(buffer, sizeof buffer, from, 0), 3);
    EXPECT_EQ(from.ToString(), "[fe80::2]:9");
}

TEST_F(CPSSocketUdpTest, RecvFrom_EmptyDatagram_ReturnsZeroAndTheSource)
{
    m_pSocket->SetHandle(7);
    m_Stack.On("ps_recvfrom").Returns(0).WithAddress("10.0.0.2", 9);
    char buffer[100];
    CMNInetAddr from;
    EXPECT_EQ(m_pSocket->RecvFrom(buffer, sizeof buffer, from, 0), 0);
    EXPECT_EQ(from.ToString(), "10.0.0.2:9");
}

TEST_F(CPSSocketUdpTest, RecvFrom_UnknownFamily_ReturnsTheCountAndLeavesTheAddress)
{
    m_pSocket->SetHandle(7);
    m_Stack.On("ps_recvfrom").WithData("abc").WithRecord(std::string("\x10\x01", 2) + std::string(14, 'x'));
    char buffer[100];
    CMNInetAddr from("9.9.9.9", 99);
    EXPECT_EQ(m_pSocket->RecvFrom(buffer, sizeof buffer, from, 0), 3);
    EXPECT_EQ(from.ToString(), "9.9.9.9:99");
}

TEST_F(CPSSocketUdpTest, RecvFrom_StackFails_ReturnsItsAnswerAndLeavesTheAddress)
{
    m_pSocket->SetHandle(7);
    m_Stack.On("ps_recvfrom").WithAddress("10.0.0.2", 9).Returns(-3);
    char buffer[100];
    CMNInetAddr from("9.9.9.9", 99);
    EXPECT_EQ(m_pSocket->RecvFrom(buffer, sizeof buffer, from, 0), -3);
    EXPECT_EQ(from.ToString(), "9.9.9.9:99");
}

TEST_F(CPSSocketUdpTest, SendTo_Any_WritesTheTwoBytesAndPassesEverythingOn)
{
    m_pSocket->SetHandle(7);
    CMNInetAddr storage("10.0.0.2", 9);
    std::memset(storage.GetPtr(), 0, 2);
    const CMNInetAddr& to = storage;
    EXPECT_EQ(m_pSocket->SendTo("abc", 3, to, 5), 3);
    EXPECT_EQ(static_cast<const unsigned char*>(to.GetPtr())[0], 16);
    EXPECT_EQ(static_cast<const unsigned char*>(to.GetPtr())[1], 2);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_sendto(7,'abc',5,10.0.0.2:9{16,2},16)=3"}));
}

TEST_F(CPSSocketUdpTest, SendTo_StackFails_ReturnsItsAnswer)
{
    m_pSocket->SetHandle(7);
    m_Stack.On("ps_sendto").Fails(PS_EMSGSIZE);
    EXPECT_EQ(m_pSocket->SendTo("abc", 3, CMNInetAddr("fe80::2", 9), 0), -1);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_sendto(7,'abc',0,[fe80::2]:9{28,10},28)=-1"}));
}

TEST_F(CPSSocketUdpTest, SendVTo_Any_ReturnsMinusOneWithoutACall)
{
    m_pSocket->SetHandle(7);
    char byte = 'x';
    const iovec_ace piece = {&byte, 1};
    EXPECT_EQ(m_pSocket->SendVTo(&piece, 1, CMNInetAddr("10.0.0.2", 9)), -1);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSSocketUdpTest, Destructor_Open_ClosesOnce)
{
    m_pSocket->SetHandle(7);
    std::unique_ptr<CPSSocketBase> base = std::move(m_pSocket);
    base.reset();
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_close(7)=0"}));
}

}  // namespace
}  // namespace uxport
