#include "socket/CPSSocketTcp.h"

#include <cstring>
#include <memory>

#include "ipstack/ps_defines.h"
#include "mantle/CMNInetAddr.h"
#include "tests/unit/scripted/ScriptedStackTest.h"

namespace uxport
{
namespace
{

class CPSSocketTcpTest : public ScriptedStackTest
{
protected:
    void TearDown() override
    {
        m_pSocket.reset();
        ScriptedStackTest::TearDown();
    }

    std::unique_ptr<CPSSocketTcp> m_pSocket = std::make_unique<CPSSocketTcp>();
};

TEST_F(CPSSocketTcpTest, Open_WithoutReuse_MakesAnIpv4StreamSocket)
{
    EXPECT_EQ(m_pSocket->Open(0), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_socket(2,1,0)=101"}));
}

TEST_F(CPSSocketTcpTest, Open_WithReuse_AsksForIt)
{
    EXPECT_EQ(m_pSocket->Open(1), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_socket(2,1,0)=101", "ps_setsockopt(101,1,2,1,4)=0"}));
}

TEST_F(CPSSocketTcpTest, Open_StackHasNoSocket_ReturnsMinusOne)
{
    m_Stack.On("ps_socket").Fails(PS_EMFILE);
    EXPECT_EQ(m_pSocket->Open(0), -1);
}

TEST_F(CPSSocketTcpTest, OpenLocal_Any_BindsBehindTheOpen)
{
    EXPECT_EQ(m_pSocket->Open(1, CMNInetAddr("10.0.0.1", 80)), 0);
    EXPECT_EQ(m_pSocket->GetHandle(), 101);
    EXPECT_EQ(m_Stack.TakeCalls(),
              (CCalls{"ps_socket(2,1,0)=101", "ps_setsockopt(101,1,2,1,4)=0", "ps_bind(101,10.0.0.1:80{16,2},16)=0"}));
}

TEST_F(CPSSocketTcpTest, OpenLocal_Ipv6_PassesItsLengthAndFamily)
{
    EXPECT_EQ(m_pSocket->Open(0, CMNInetAddr("::1", 80)), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_socket(2,1,0)=101", "ps_bind(101,[::1]:80{28,10},28)=0"}));
}

TEST_F(CPSSocketTcpTest, OpenLocal_ConstantAddress_GetsItsTwoBytesWritten)
{
    CMNInetAddr storage("10.0.0.1", 80);
    std::memset(storage.GetPtr(), 0, 2);
    const CMNInetAddr& local = storage;
    EXPECT_EQ(m_pSocket->Open(0, local), 0);
    EXPECT_EQ(static_cast<const unsigned char*>(local.GetPtr())[0], 16);
    EXPECT_EQ(static_cast<const unsigned char*>(local.GetPtr())[1], 2);
    EXPECT_EQ(m_Stack.TakeCalls().back(), "ps_bind(101,10.0.0.1:80{16,2},16)=0");
}

TEST_F(CPSSocketTcpTest, OpenLocal_BindFails_ClosesAndReturnsItsResult)
{
    m_Stack.On("ps_bind").Fails(PS_EADDRINUSE);
    EXPECT_EQ(m_pSocket->Open(0, CMNInetAddr("10.0.0.1", 80)), -1);
    EXPECT_EQ(m_pSocket->GetHandle(), -1);
    EXPECT_EQ(m_Stack.TakeCalls(),
              (CCalls{"ps_socket(2,1,0)=101", "ps_bind(101,10.0.0.1:80{16,2},16)=-1", "ps_close(101)=0"}));
}

TEST_F(CPSSocketTcpTest, OpenLocal_BindFailsWithAnotherNumber_ReturnsThatOne)
{
    m_Stack.On("ps_bind").Returns(-98);
    EXPECT_EQ(m_pSocket->Open(0, CMNInetAddr("10.0.0.1", 80)), -98);
    EXPECT_EQ(m_pSocket->GetHandle(), -1);
}

TEST_F(CPSSocketTcpTest, OpenLocal_StackHasNoSocket_DoesNotBind)
{
    m_Stack.On("ps_socket").Fails(PS_EMFILE);
    EXPECT_EQ(m_pSocket->Open(0, CMNInetAddr("10.0.0.1", 80)), -1);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_socket(2,1,0)=-1"}));
}

TEST_F(CPSSocketTcpTest, Close_WithReason_IgnoresIt)
{
    m_pSocket->SetHandle(7);
    m_Stack.On("ps_close").Returns(3);
    EXPECT_EQ(m_pSocket->Close(12345), 3);
    EXPECT_EQ(m_pSocket->GetHandle(), -1);
    EXPECT_EQ(m_pSocket->Close(12345), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_close(7)=3"}));
}

TEST_F(CPSSocketTcpTest, CloseWriterAndReader_Open_ShutOneDirectionEach)
{
    m_pSocket->SetHandle(7);
    EXPECT_EQ(m_pSocket->CloseWriter(), 0);
    m_Stack.On("ps_shutdown").Fails(PS_ENOTCONN);
    EXPECT_EQ(m_pSocket->CloseReader(), -1);
    EXPECT_EQ(m_pSocket->GetHandle(), 7);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_shutdown(7,1)=0", "ps_shutdown(7,0)=-1"}));
}

TEST_F(CPSSocketTcpTest, Destructor_Open_ClosesOnce)
{
    m_pSocket->SetHandle(7);
    std::unique_ptr<CPSSocketBase> base = std::move(m_pSocket);
    base.reset();
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_close(7)=0"}));
}

}  // namespace
}  // namespace uxport
