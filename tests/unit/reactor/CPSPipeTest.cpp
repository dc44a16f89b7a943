#include "reactor/CPSPipe.h"

#include <thread>

#include "ipstack/ps_socket.h"
#include "tests/unit/scripted/ScriptedStackTest.h"

using namespace uxport;

namespace
{

class CPSPipeTest : public ScriptedStackTest
{
protected:
    void ScriptNames(unsigned short own = 40000, unsigned short peer = 40000)
    {
        m_Stack.On("ps_getsockname").WithAddress("127.0.0.1", own);
        m_Stack.On("ps_accept").Returns(103).WithAddress("127.0.0.1", peer);
    }
    void ExpectClosed(const CPSPipe& pipe)
    {
        EXPECT_EQ(pipe.GetReadHandle(), -1);
        EXPECT_EQ(pipe.GetWriteHandle(), -1);
    }
};

const char* const LISTENER = "ps_socket(2,1,0)=101";
const char* const BIND = "ps_bind(101,127.0.0.1:5555{16,2},16)=0";
const char* const LISTEN = "ps_listen(101,5)=0";
const char* const WRITE_END = "ps_socket(2,1,0)=102";
const char* const CONNECT = "ps_connect(102,127.0.0.1:5555{16,2},16)=0";
const char* const OWN_NAME = "ps_getsockname(102,28)=0:127.0.0.1:40000{16,2}";

TEST_F(CPSPipeTest, Constructed_BothHandlesNone)
{
    CPSPipe pipe;
    ExpectClosed(pipe);
    EXPECT_EQ(pipe.Close(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSPipeTest, Open_AllStepsSucceed_InThisOrder)
{
    ScriptNames();
    CPSPipe pipe;
    EXPECT_EQ(pipe.Open(), MN_OK);
    EXPECT_EQ(pipe.GetReadHandle(), 103);
    EXPECT_EQ(pipe.GetWriteHandle(), 102);
    EXPECT_EQ(m_Stack.TakeCalls(),
              (CCalls{LISTENER, BIND, LISTEN, WRITE_END, CONNECT, OWN_NAME,
                      "ps_accept(101,16)=103:127.0.0.1:40000{16,2}", "ps_nodelay(103,1)=0", "ps_nodelay(102,1)=0",
                      "ps_set_snd_rcv_buffer(103,65520,65520)=0", "ps_set_snd_rcv_buffer(102,65520,65520)=0"}));
    static_assert(CPSPipe::s_nBufferSize % 16 == 0, "a buffer holds whole records");
}

TEST_F(CPSPipeTest, Open_FirstSocketFails_Failure)
{
    m_Stack.On("ps_socket").Fails(PS_EMFILE);
    CPSPipe pipe;
    EXPECT_EQ(pipe.Open(), MN_ERROR_FAILURE);
    ExpectClosed(pipe);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_socket(2,1,0)=-1"}));
}

TEST_F(CPSPipeTest, Open_AnyNegativeSocketOrBind_Failure)
{
    m_Stack.On("ps_socket").Returns(-7);
    CPSPipe pipe;
    EXPECT_EQ(pipe.Open(), MN_ERROR_FAILURE);
    m_Stack.On("ps_bind").Returns(-7);
    EXPECT_EQ(pipe.Open(), MN_ERROR_FAILURE);
    ExpectClosed(pipe);
}

TEST_F(CPSPipeTest, Open_BindFails_FailureAndTheListenerStaysOpen)
{
    m_Stack.On("ps_bind").Fails(PS_EADDRINUSE);
    CPSPipe pipe;
    EXPECT_EQ(pipe.Open(), MN_ERROR_FAILURE);
    ExpectClosed(pipe);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{LISTENER, "ps_bind(101,127.0.0.1:5555{16,2},16)=-1"}));
}

TEST_F(CPSPipeTest, Open_ListenFails_FailureAndTheListenerStaysOpen)
{
    m_Stack.On("ps_listen").Fails(PS_EADDRINUSE);
    CPSPipe pipe;
    EXPECT_EQ(pipe.Open(), MN_ERROR_FAILURE);
    ExpectClosed(pipe);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{LISTENER, BIND, "ps_listen(101,5)=-1"}));
}

TEST_F(CPSPipeTest, Open_SecondSocketFails_FailureAndTheListenerStaysOpen)
{
    m_Stack.On("ps_socket").Returns(101);
    m_Stack.On("ps_socket").Fails(PS_EMFILE);
    CPSPipe pipe;
    EXPECT_EQ(pipe.Open(), MN_ERROR_FAILURE);
    ExpectClosed(pipe);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{LISTENER, BIND, LISTEN, "ps_socket(2,1,0)=-1"}));
}

TEST_F(CPSPipeTest, Open_ConnectFails_WriteEndClosedTheListenerStaysOpen)
{
    m_Stack.On("ps_connect").Fails(PS_ECONNREFUSED);
    CPSPipe pipe;
    EXPECT_EQ(pipe.Open(), MN_ERROR_FAILURE);
    ExpectClosed(pipe);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{LISTENER, BIND, LISTEN, WRITE_END,
                                           "ps_connect(102,127.0.0.1:5555{16,2},16)=-1", "ps_close(102)=0"}));
}

TEST_F(CPSPipeTest, Open_OwnNameUnknown_WriteEndClosed)
{
    m_Stack.On("ps_getsockname").Fails(PS_EBADF);
    CPSPipe pipe;
    EXPECT_EQ(pipe.Open(), MN_ERROR_FAILURE);
    ExpectClosed(pipe);
    EXPECT_EQ(m_Stack.TakeCallsOf("ps_close"), (CCalls{"ps_close(102)=0"}));
}

TEST_F(CPSPipeTest, Open_AcceptFails_WriteEndClosedTheListenerStaysOpen)
{
    m_Stack.On("ps_getsockname").WithAddress("127.0.0.1", 40000);
    m_Stack.On("ps_accept").Fails(PS_ECONNABORTED);
    CPSPipe pipe;
    EXPECT_EQ(pipe.Open(), MN_ERROR_FAILURE);
    ExpectClosed(pipe);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{LISTENER, BIND, LISTEN, WRITE_END, CONNECT, OWN_NAME, "ps_accept(101,16)=-1",
                                           "ps_close(102)=0"}));
}

TEST_F(CPSPipeTest, Open_NoDelayOrBuffersRefused_OpenAllTheSame)
{
    ScriptNames();
    m_Stack.On("ps_nodelay").Fails(PS_EINVAL).Times(2);
    m_Stack.On("ps_set_snd_rcv_buffer").Fails(PS_EINVAL).Times(2);
    CPSPipe pipe;
    EXPECT_EQ(pipe.Open(), MN_OK);
}

TEST_F(CPSPipeTest, Open_StrangersWereFaster_ClosedUntilTheOwnEndComes)
{
    m_Stack.On("ps_getsockname").WithAddress("127.0.0.1", 40000);
    m_Stack.On("ps_accept").Returns(201).WithAddress("127.0.0.1", 39999);
    m_Stack.On("ps_accept").Returns(202).WithAddress("10.0.0.1", 40000);
    m_Stack.On("ps_accept").Returns(103).WithAddress("127.0.0.1", 40000);
    CPSPipe pipe;
    EXPECT_EQ(pipe.Open(), MN_OK);
    EXPECT_EQ(pipe.GetReadHandle(), 103);
    EXPECT_EQ(m_Stack.TakeCallsOf("ps_close"), (CCalls{"ps_close(201)=0", "ps_close(202)=0"}));
}

TEST_F(CPSPipeTest, Open_OnlyStrangers_FailureAndNoneKept)
{
    m_Stack.On("ps_getsockname").WithAddress("127.0.0.1", 40000);
    m_Stack.On("ps_accept").Returns(201).WithAddress("127.0.0.1", 39999).Times(6);
    CPSPipe pipe;
    EXPECT_EQ(pipe.Open(), MN_ERROR_FAILURE);
    ExpectClosed(pipe);
    EXPECT_EQ(m_Stack.CountOf("ps_close", 201), 6u);
    EXPECT_EQ(m_Stack.CountOf("ps_close", 102), 1u);
    EXPECT_EQ(m_Stack.CountOf("ps_close", 101), 0u);
}

TEST_F(CPSPipeTest, Close_Open_ReadEndThenWriteEndOnce)
{
    ScriptNames();
    CPSPipe pipe;
    pipe.Open();
    m_Stack.TakeCalls();
    EXPECT_EQ(pipe.Close(), MN_OK);
    ExpectClosed(pipe);
    EXPECT_EQ(pipe.Close(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_close(103)=0", "ps_close(102)=0"}));
}

TEST_F(CPSPipeTest, Close_EitherEndFails_FailureAndBothGone)
{
    for (const int failing : {102, 103}) {
        m_Stack.Reset();
        ScriptNames();
        m_Stack.On("ps_close", failing).Returns(failing == 102 ? -1 : 5);
        CPSPipe pipe;
        pipe.Open();
        m_Stack.TakeCalls();
        EXPECT_EQ(pipe.Close(), MN_ERROR_FAILURE);
        ExpectClosed(pipe);
        EXPECT_EQ(m_Stack.CountOf("ps_close"), 2u) << "the other end is closed too";
        EXPECT_EQ(pipe.Close(), MN_OK);
    }
}

TEST_F(CPSPipeTest, Destructor_Open_Closes)
{
    ScriptNames();
    {
        CPSPipe pipe;
        pipe.Open();
        m_Stack.TakeCalls();
    }
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_close(103)=0", "ps_close(102)=0"}));
}

TEST_F(CPSPipeTest, Open_AgainAfterClose_NewListenerOnTheSamePort)
{
    m_Stack.EnablePipes(true);
    CPSPipe pipe;
    EXPECT_EQ(pipe.Open(), MN_OK);
    pipe.Close();
    EXPECT_EQ(pipe.Open(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCallsOf("ps_bind"),
              (CCalls{"ps_bind(101,127.0.0.1:5555{16,2},16)=0", "ps_bind(104,127.0.0.1:5555{16,2},16)=0"}));
}

TEST_F(CPSPipeTest, Open_ManyThreadsAtOnce_EachGetsItsOwnEnds)
{
    constexpr std::size_t THREADS = 4;
    constexpr std::size_t EACH = 8;
    m_Stack.EnablePipes();
    m_Stack.Default("ps_socket").Calls([] { std::this_thread::yield(); });  // invites the others in
    std::vector<std::thread> threads;
    for (std::size_t thread = 0; thread < THREADS; ++thread) {
        threads.emplace_back([thread] {
            for (std::size_t i = 0; i < EACH; ++i) {
                CPSPipe pipe;
                ASSERT_EQ(pipe.Open(), MN_OK);
                const char sent = static_cast<char>('a' + thread * EACH + i);
                char received = 0;
                ASSERT_EQ(ps_send(pipe.GetWriteHandle(), &sent, 1, 0), 1);
                ASSERT_EQ(ps_recv(pipe.GetReadHandle(), &received, 1, 0), 1);
                EXPECT_EQ(received, sent);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    const std::vector<CScriptedCall> sockets = m_Stack.TakeRecords();
    ASSERT_EQ(sockets.size(), 2 * THREADS * EACH);
    for (std::size_t i = 0; i < sockets.size(); i += 2)
        EXPECT_EQ(sockets[i].m_nThread, sockets[i + 1].m_nThread) << "two pipes were opened at once";
}

}  // namespace
