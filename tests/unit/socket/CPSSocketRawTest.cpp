#include "socket/CPSSocketRaw.h"

#include <cstring>
#include <memory>

#include "ipstack/ps_defines.h"
#include "mantle/CMNInetAddr.h"
#include "tests/unit/scripted/ScriptedStackTest.h"

namespace uxport
{
namespace
{

class CPSSocketRawTest : public ScriptedStackTest
{
protected:
    void TearDown() override
    {
        m_pSocket.reset();
        ScriptedStackTest::TearDown();
    }

    std::unique_ptr<CPSSocketRaw> m_pSocket = std::make_unique<CPSSocketRaw>();
};

TEST_F(CPSSocketRawTest, OpenRawSocket_Unbound_AsksForReuse)
{
    EXPECT_EQ(m_pSocket->OpenRawSocket(2, 1), 0);
    EXPECT_EQ(m_pSocket->GetHandle(), 101);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_socket(2,3,1)=101", "ps_setsockopt(101,1,2,1,4)=0"}));
}

TEST_F(CPSSocketRawTest, OpenRawSocket_Bound_AsksForNoReuse)
{
    EXPECT_EQ(m_pSocket->OpenRawSocket(10, 58, CMNInetAddr("fe80::1", 0)), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_socket(10,3,58)=101", "ps_bind(101,[fe80::1]:0{28,10},28)=0"}));
}

TEST_F(CPSSocketRawTest, OpenRawSocket_BindFails_Closes)
{
    m_Stack.On("ps_bind").Fails(PS_EADDRNOTAVAIL);
    EXPECT_EQ(m_pSocket->OpenRawSocket(2, 1, CMNInetAddr("10.0.0.1", 0)), -1);
    EXPECT_EQ(m_pSocket->GetHandle(), -1);
    EXPECT_EQ(m_Stack.TakeCalls(),
              (CCalls{"ps_socket(2,3,1)=101", "ps_bind(101,10.0.0.1:0{16,2},16)=-1", "ps_close(101)=0"}));
}

TEST_F(CPSSocketRawTest, OpenRawSocket_StackHasNoSocket_ReturnsMinusOne)
{
    m_Stack.On("ps_socket").Fails(PS_EPROTONOSUPPORT);
    EXPECT_EQ(m_pSocket->OpenRawSocket(2, 1), -1);
    m_Stack.On("ps_socket").Fails(PS_EPROTONOSUPPORT);
    EXPECT_EQ(m_pSocket->OpenRawSocket(2, 1, CMNInetAddr("10.0.0.1", 0)), -1);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_socket(2,3,1)=-1", "ps_socket(2,3,1)=-1"}));
}

TEST_F(CPSSocketRawTest, Close_WithReason_IgnoresIt)
{
    m_pSocket->SetHandle(7);
    EXPECT_EQ(m_pSocket->Close(99), 0);
    EXPECT_EQ(m_pSocket->Close(99), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_close(7)=0"}));
}

TEST_F(CPSSocketRawTest, RecvFrom_Packet_ReturnsTheCountAndTheSource)
{
    m_pSocket->SetHandle(7);
    m_Stack.On("ps_recvfrom").WithData("packet").WithAddress("10.0.0.2", 0);
    char buffer[100];
    CMNInetAddr from;
    EXPECT_EQ(m_pSocket->RecvFrom(buffer, sizeof buffer, from, 0), 6);
    EXPECT_EQ(from.ToString(), "10.0.0.2:0");
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_recvfrom(7,100,0,28)=6:10.0.0.2:0{16,2}"}));
}

TEST_F(CPSSocketRawTest, RecvFrom_StackFails_ReturnsItsAnswerAndLeavesTheAddress)
{
    m_pSocket->SetHandle(7);
    m_Stack.On("ps_recvfrom").Fails(PS_EBADF);
    char buffer[100];
    CMNInetAddr from("9.9.9.9", 99);
    EXPECT_EQ(m_pSocket->RecvFrom(buffer, sizeof buffer, from, 0), -1);
    EXPECT_EQ(from.ToString(), "9.9.9.9:99");
}

TEST_F(CPSSocketRawTest, SendTo_Any_WritesTheTwoBytes)
{
    m_pSocket->SetHandle(7);
    CMNInetAddr to("10.0.0.2", 0);
    std::memset(to.GetPtr(), 0xee, 2);
    EXPECT_EQ(m_pSocket->SendTo("abc", 3, to, 0), 3);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_sendto(7,'abc',0,10.0.0.2:0{16,2},16)=3"}));
}

TEST_F(CPSSocketRawTest, Destructor_Open_ClosesOnce)
{
    m_pSocket->SetHandle(7);
    std::unique_ptr<CPSSocketBase> base = std::move(m_pSocket);
    base.reset();
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_close(7)=0"}));
}

}  // namespace
}  // namespace uxport
