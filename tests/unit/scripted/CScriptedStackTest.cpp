#include "tests/unit/scripted/CScriptedStack.h"

#include <gtest/gtest-spi.h>

#include <thread>

#include "ipstack/IIPStackManager.h"
#include "ipstack/ps_socket.h"
#include "mantle/CMNInetAddr.h"
#include "tests/unit/scripted/ScriptedStackTest.h"

namespace
{

const ps_sockaddr* Address(const mantle::CMNInetAddr& address)
{
    return static_cast<const ps_sockaddr*>(address.PrepareForStack());
}

class CScriptedStackTest : public ScriptedStackTest
{
};

TEST_F(CScriptedStackTest, Script_AnswersInOrder_ThenDefaults)
{
    m_Stack.On("ps_socket").Returns(7);
    m_Stack.On("ps_socket").Fails(PS_EMFILE);
    EXPECT_EQ(ps_socket(2, 1, 0), 7);
    EXPECT_EQ(ps_socket(2, 1, 0), -1);
    EXPECT_EQ(get_pserrno(), PS_EMFILE);
    EXPECT_EQ(ps_socket(10, 2, 17), 101);
    m_Stack.Default("ps_socket").Returns(9);
    EXPECT_EQ(ps_socket(2, 1, 0), 9);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_socket(2,1,0)=7", "ps_socket(2,1,0)=-1", "get_pserrno()=24",
                                           "ps_socket(10,2,17)=101", "ps_socket(2,1,0)=9"}));
    EXPECT_EQ(m_Stack.CountOf("ps_socket"), 4u);
}

TEST_F(CScriptedStackTest, Script_AnswerForHandle_ComesFirst)
{
    m_Stack.On("ps_send").Returns(1);
    m_Stack.On("ps_send", 8).Returns(2);
    EXPECT_EQ(ps_send(8, "abc", 3, 0), 2);
    EXPECT_EQ(ps_send(8, "abc", 3, 0), 1);
    EXPECT_EQ(ps_send(8, "abc", 3, 0), 3);
    EXPECT_EQ(m_Stack.TakeSent(8), "abaabc");
    EXPECT_EQ(m_Stack.TakeSent(8), "");
}

TEST_F(CScriptedStackTest, Record_Addresses_ShowBothLeadingBytes)
{
    const mantle::CMNInetAddr four("10.1.2.3", 80);
    const mantle::CMNInetAddr six("::1", 81);
    EXPECT_EQ(ps_bind(5, Address(four), four.GetSize()), 0);
    EXPECT_EQ(ps_connect(5, Address(six), six.GetSize()), 0);
    ps_sockaddr odd{};
    odd.sa_len = 3;
    odd.sa_family = 99;
    EXPECT_EQ(ps_sendto(5, "x", 1, 0, &odd, 16), 1);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_bind(5,10.1.2.3:80{16,2},16)=0", "ps_connect(5,[::1]:81{28,10},28)=0",
                                           "ps_sendto(5,'x',0,?{3,99},16)=1"}));
}

TEST_F(CScriptedStackTest, Answers_DataAddressValue_ReachTheCaller)
{
    m_Stack.On("ps_recvfrom").WithData("hello").WithAddress("10.0.0.9", 53);
    m_Stack.On("ps_getsockopt").WithValue(77);
    m_Stack.On("ps_ioctl").WithValue(12);
    char data[3];
    ps_sockaddr from{};
    int length = 28;
    EXPECT_EQ(ps_recvfrom(4, data, sizeof data, 0, &from, &length), 3);
    EXPECT_EQ(std::string(data, 3), "hel");
    EXPECT_EQ(length, 16);
    long value = 0;
    length = sizeof value;
    EXPECT_EQ(ps_getsockopt(4, 1, 7, &value, &length), 0);
    EXPECT_EQ(value, 77);
    int waiting = 0;
    EXPECT_EQ(ps_ioctl(4, PS_FIONREAD, &waiting), 0);
    EXPECT_EQ(waiting, 12);
    EXPECT_EQ(m_Stack.TakeCalls(),
              (CCalls{"ps_recvfrom(4,3,0,28)=3:10.0.0.9:53{16,2}", "ps_getsockopt(4,1,7,8)=0", "ps_ioctl(4,21531)=0"}));
}

TEST_F(CScriptedStackTest, Poll_ReadyAnswer_CountsEntries)
{
    m_Stack.On("ps_poll").WithReady(5, PS_POLLIN).WithReady(6, PS_POLLERR).WithReady(7, PS_POLLIN);
    ps_pollfd entries[2] = {{5, PS_POLLIN, 0}, {6, PS_POLLIN | PS_POLLOUT, 0}};
    EXPECT_EQ(ps_poll(entries, 2, -1), 2);
    EXPECT_EQ(entries[0].revents, PS_POLLIN);
    EXPECT_EQ(entries[1].revents, PS_POLLERR);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_poll([5:1,6:3],2,-1)=2"}));
}

TEST_F(CScriptedStackTest, Poll_BeyondScript_FailsTheTest)
{
    EXPECT_NONFATAL_FAILURE(ps_poll(nullptr, 0, -1), "beyond the script");
    EXPECT_NONFATAL_FAILURE(CScriptedStack::Instance().On("ps_pol"), "no call ps_pol");
}

TEST_F(CScriptedStackTest, Leftovers_NameWhatWasNotAsked)
{
    m_Stack.On("ps_recv", 5).Times(2);
    m_Stack.On("ps_listen");
    EXPECT_EQ(m_Stack.Leftovers(), (CCalls{"ps_listen x1", "ps_recv(5) x2"}));
    m_Stack.Reset();
    EXPECT_EQ(m_Stack.Leftovers(), CCalls());
}

TEST_F(CScriptedStackTest, Answer_Function_RunsInsideTheCall)
{
    m_Stack.On("ps_close").Calls([] { ps_nodelay(3, 1); }).Returns(-1);
    EXPECT_EQ(ps_close(3), -1);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_close(3)=-1", "ps_nodelay(3,1)=0"}));
}

TEST_F(CScriptedStackTest, Pipes_TwoThreads_MoveBytesAndWake)
{
    m_Stack.EnablePipes();
    const mantle::CMNInetAddr meeting("127.0.0.1", 5555);
    const int listener = ps_socket(2, 1, 0);
    ps_bind(listener, Address(meeting), meeting.GetSize());
    const int writeEnd = ps_socket(2, 1, 0);
    ASSERT_EQ(ps_connect(writeEnd, Address(meeting), meeting.GetSize()), 0);
    ps_sockaddr own{};
    ps_sockaddr peer{};
    int length = 28;
    ASSERT_EQ(ps_getsockname(writeEnd, &own, &length), 0);
    length = 28;
    const int readEnd = ps_accept(listener, &peer, &length);
    ASSERT_GT(readEnd, 0);
    EXPECT_EQ(memcmp(&own, &peer, 16), 0);

    ps_socket_nonblock(readEnd);
    char data[16];
    EXPECT_EQ(ps_recv(readEnd, data, sizeof data, 0), 0);
    std::thread writer([writeEnd] { ps_send(writeEnd, "0123456789abcdef", 16, 0); });
    ps_pollfd entry{readEnd, PS_POLLIN, 0};
    EXPECT_EQ(ps_poll(&entry, 1, -1), 1);
    EXPECT_EQ(entry.revents, PS_POLLIN);
    EXPECT_EQ(ps_recv(readEnd, data, sizeof data, 0), 16);
    writer.join();
    ps_close(writeEnd);
    EXPECT_EQ(ps_recv(readEnd, data, sizeof data, 0), -1);
    ps_close(readEnd);
    EXPECT_EQ(ps_poll(&entry, 1, 0), 0);
}

TEST_F(CScriptedStackTest, Pipes_FullBlockingSend_WaitsForRoom)
{
    m_Stack.EnablePipes();
    const mantle::CMNInetAddr meeting("127.0.0.1", 5555);
    const int listener = ps_socket(2, 1, 0);
    ps_bind(listener, Address(meeting), meeting.GetSize());
    const int writeEnd = ps_socket(2, 1, 0);
    ps_connect(writeEnd, Address(meeting), meeting.GetSize());
    const int readEnd = ps_accept(listener, nullptr, nullptr);
    ps_set_snd_rcv_buffer(readEnd, 32, 32);
    EXPECT_EQ(ps_send(writeEnd, "0123456789abcdef", 16, 0), 16);
    EXPECT_EQ(ps_send(writeEnd, "0123456789abcdef", 16, 0), 16);
    std::thread writer([writeEnd] { EXPECT_EQ(ps_send(writeEnd, "x", 1, 0), 1); });
    char data[32];
    EXPECT_EQ(ps_recv(readEnd, data, sizeof data, 0), 32);
    EXPECT_EQ(ps_recv(readEnd, data, sizeof data, 0), 1);
    writer.join();
}

TEST_F(CScriptedStackTest, SetReady_OnceAndAlways_WakeASelect)
{
    m_Stack.EnablePipes();
    ps_fdsets sets{};
    sets.read.count = 1;
    sets.read.handles[0] = 5;
    sets.write.count = 1;
    sets.write.handles[0] = 5;
    std::thread other([this] { m_Stack.SetReadyOnce(5, PS_POLLOUT); });
    EXPECT_EQ(ps_select(6, &sets, &sets, nullptr), 1);
    other.join();
    EXPECT_EQ(sets.read.count, 0u);
    EXPECT_EQ(sets.write.count, 1u);
    const ps_timeval look = {0, 0};
    EXPECT_EQ(ps_select(6, &sets, &sets, &look), 0);
    m_Stack.SetReady(5, PS_POLLIN);
    sets.read.count = 1;
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(ps_select(6, &sets, &sets, nullptr), 1);
        EXPECT_EQ(sets.read.count, 1u);
    }
}

TEST_F(CScriptedStackTest, Manager_Operations_AreScriptedToo)
{
    m_Stack.On("Manager::IsInitialized").Returns(0);
    EXPECT_FALSE(ipstack::IIPStackManager::Instance()->IsInitialized());
    EXPECT_TRUE(ipstack::IIPStackManager::Instance()->IsInitialized());
    EXPECT_EQ(ipstack::IIPStackManager::Instance()->AttachThread(), 0u);
    EXPECT_EQ(m_Stack.TakeCalls(),
              (CCalls{"Manager::IsInitialized()=0", "Manager::IsInitialized()=1", "Manager::AttachThread()=0"}));
}

}  // namespace
