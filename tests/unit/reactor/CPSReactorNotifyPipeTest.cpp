#include "reactor/CPSReactorNotifyPipe.h"

#include <thread>

#include "ipstack/ps_defines.h"
#include "tests/unit/reactor/ReactorSupport.h"
#include "tests/unit/scripted/ScriptedStackTest.h"

using namespace uxport;

namespace
{

constexpr int WRITE_END = 102;
constexpr int READ_END = 103;

class CPSReactorNotifyPipeTest : public ScriptedStackTest
{
protected:
    CPSReactorNotifyPipeTest() { m_Reactor.Open(); }

    void TearDown() override
    {
        m_Notify.Close();
        m_Reactor.Close();
        ScriptedStackTest::TearDown();
    }

    void ScriptPipe()
    {
        m_Stack.On("ps_getsockname").WithAddress("127.0.0.1", 40000);
        m_Stack.On("ps_accept").Returns(READ_END).WithAddress("127.0.0.1", 40000);
    }
    void Open()
    {
        ScriptPipe();
        ASSERT_EQ(m_Notify.Open(&m_Reactor), MN_OK);
        m_Stack.TakeCalls();
        m_Reactor.TakeLog();
    }
    void OpenWorking()
    {
        m_Stack.EnablePipes(true);
        ASSERT_EQ(m_Notify.Open(&m_Reactor), MN_OK);
        ASSERT_EQ(m_Notify.GetHandle(), READ_END);
        m_Stack.TakeCalls();
        m_Reactor.TakeLog();
    }
    void Receive(int handle, long mask) { m_Stack.On("ps_recv").WithData(WakeRecord(handle, mask)); }
    std::vector<std::string> SentRecords()
    {
        std::vector<std::string> records;
        for (const CScriptedCall& call : m_Stack.TakeRecords()) {
            if (call.m_strName == "ps_send")
                records.push_back(call.m_Data);
        }
        return records;
    }

    CTestReactor m_Reactor;
    CPSReactorNotifyPipe m_Notify;
};

TEST_F(CPSReactorNotifyPipeTest, Open_NullReactor_Refused)
{
    EXPECT_EQ(m_Notify.Open(nullptr), MN_ERROR_INVALID_ARG);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
    EXPECT_EQ(m_Notify.GetHandle(), -1);
}

TEST_F(CPSReactorNotifyPipeTest, Open_PipeFails_ItsCodeAndNotRegistered)
{
    m_Stack.On("ps_socket").Fails(PS_EMFILE);
    EXPECT_EQ(m_Notify.Open(&m_Reactor), MN_ERROR_FAILURE);
    EXPECT_EQ(m_Reactor.TakeLog(), CTexts());
    EXPECT_EQ(m_Notify.Notify(nullptr, EVENTQUEUE_MASK), MN_ERROR_NOT_INITIALIZED);
}

TEST_F(CPSReactorNotifyPipeTest, Open_Succeeds_ReadEndNonBlockingAndRegisteredForReading)
{
    ScriptPipe();
    EXPECT_EQ(m_Notify.Open(&m_Reactor), MN_OK);
    EXPECT_EQ(m_Reactor.GetMask(READ_END), READ_MASK);
    EXPECT_EQ(m_Reactor.GetHandler(READ_END), &m_Notify);
    EXPECT_EQ(m_Notify.GetHandle(), READ_END);
    EXPECT_EQ(m_Stack.TakeCallsOf("ps_socket_nonblock"), (CCalls{"ps_socket_nonblock(103)=0"}))
        << "the write end stays blocking";
}

TEST_F(CPSReactorNotifyPipeTest, Open_RegistrationRefused_PipeClosedAgain)
{
    ScriptPipe();
    m_Reactor.m_dwRegister = MN_ERROR_NOT_AVAILABLE;
    EXPECT_EQ(m_Notify.Open(&m_Reactor), MN_ERROR_NOT_AVAILABLE);
    EXPECT_EQ(m_Notify.GetHandle(), -1);
    EXPECT_EQ(m_Stack.TakeCallsOf("ps_close"), (CCalls{"ps_close(103)=0", "ps_close(102)=0"}));
}

TEST_F(CPSReactorNotifyPipeTest, Open_HandleHadAHandler_FoundIsAFailureHere)
{
    CTestHandler other(READ_END);
    m_Reactor.RegisterHandler(&other, WRITE_MASK);
    ScriptPipe();
    EXPECT_EQ(m_Notify.Open(&m_Reactor), MN_ERROR_FOUND);
    EXPECT_EQ(m_Notify.GetHandle(), -1);
    EXPECT_FALSE(m_Reactor.IsRegistered(READ_END));
}

TEST_F(CPSReactorNotifyPipeTest, Close_Open_UnregistersAndClosesThePipe)
{
    Open();
    EXPECT_EQ(m_Notify.Close(), MN_OK);
    EXPECT_EQ(m_Reactor.TakeLog(), (CTexts{"removed 103"}));
    EXPECT_EQ(m_Notify.Close(), MN_OK);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_close(103)=0", "ps_close(102)=0"})) << "once only";
}

TEST_F(CPSReactorNotifyPipeTest, Close_StackRefuses_ThePipesCode)
{
    Open();
    m_Stack.On("ps_close", READ_END).Returns(-1);
    EXPECT_EQ(m_Notify.Close(), MN_ERROR_FAILURE);
    EXPECT_EQ(m_Notify.Notify(nullptr, EVENTQUEUE_MASK), MN_ERROR_NOT_INITIALIZED);
}

TEST_F(CPSReactorNotifyPipeTest, Destructor_Open_ClosesAndUnregisters)
{
    ScriptPipe();
    {
        CPSReactorNotifyPipe notify;
        ASSERT_EQ(notify.Open(&m_Reactor), MN_OK);
        m_Stack.TakeCalls();
    }
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_close(103)=0", "ps_close(102)=0"}));
    EXPECT_FALSE(m_Reactor.IsRegistered(READ_END));
}

TEST_F(CPSReactorNotifyPipeTest, Notify_NeverOpenedOrClosed_NotInitialized)
{
    EXPECT_EQ(m_Notify.Notify(nullptr, EVENTQUEUE_MASK), MN_ERROR_NOT_INITIALIZED);
    Open();
    m_Notify.Close();
    m_Stack.TakeCalls();
    EXPECT_EQ(m_Notify.Notify(nullptr, EVENTQUEUE_MASK), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSReactorNotifyPipeTest, Notify_NullOrHandler_SixteenBytesPaddingZero)
{
    Open();
    CTestHandler handler(0x01020304);
    EXPECT_EQ(m_Notify.Notify(nullptr, EVENTQUEUE_MASK), MN_OK);
    EXPECT_EQ(m_Notify.Notify(&handler, 0x7fffffffffffff0fl), MN_OK);
    EXPECT_EQ(m_Notify.Notify(&m_Notify, 0), MN_OK);
    CTestHandler none(-1);
    EXPECT_EQ(m_Notify.Notify(&none, READ_MASK), MN_OK);
    EXPECT_EQ(SentRecords(), (CCalls{WakeRecord(-1, 256), WakeRecord(0x01020304, 0x7fffffffffffff0fl),
                                     WakeRecord(READ_END, 0), WakeRecord(-1, 4)}));
}

TEST_F(CPSReactorNotifyPipeTest, Notify_SendFailsOrIsShort_UnexpectedAndNotRetried)
{
    Open();
    for (const long result : {-1l, 0l, 15l}) {
        m_Stack.On("ps_send").Returns(result);
        EXPECT_EQ(m_Notify.Notify(nullptr, READ_MASK), MN_ERROR_UNEXPECTED) << result;
    }
    EXPECT_EQ(m_Stack.CountOf("ps_send", WRITE_END), 3u);
    m_Stack.On("ps_send").Returns(16);
    EXPECT_EQ(m_Notify.Notify(nullptr, READ_MASK), MN_OK);
}

TEST_F(CPSReactorNotifyPipeTest, OnInput_NothingToRead_OneReceive)
{
    Open();
    EXPECT_EQ(m_Notify.OnInput(READ_END), 0);
    EXPECT_EQ(m_Stack.TakeCalls(), (CCalls{"ps_recv(103,16,0)=0"}));
}

TEST_F(CPSReactorNotifyPipeTest, OnInput_ReceiveFails_EndsAndStaysRegistered)
{
    Open();
    m_Stack.On("ps_recv").Fails(PS_ECONNRESET);
    EXPECT_EQ(m_Reactor.ProcessHandleEvent(READ_END, 7, 0, 0, 0), MN_OK);
    EXPECT_TRUE(m_Reactor.IsRegistered(READ_END));
    EXPECT_EQ(m_Stack.CountOf("ps_recv"), 1u);
}

TEST_F(CPSReactorNotifyPipeTest, OnInput_QueueRecord_RunsTheEvents)
{
    Open();
    CTestEventCounts counts;
    m_Reactor.PostEvent(new CTestEvent(counts));
    Receive(-1, EVENTQUEUE_MASK);
    EXPECT_EQ(m_Notify.OnInput(READ_END), 0);
    EXPECT_EQ(counts.m_nFired, 1);
    EXPECT_EQ(m_Stack.CountOf("ps_recv"), 2u) << "the drain goes on until nothing is left";
}

TEST_F(CPSReactorNotifyPipeTest, OnInput_HandlerRecords_DispatchedWithTheirMasks)
{
    Open();
    CTexts log;
    CTestHandler reader(5, &log);
    CTestHandler both(6, &log);
    m_Reactor.RegisterHandler(&reader, READ_MASK);
    m_Reactor.RegisterHandler(&both, READ_MASK | WRITE_MASK);
    Receive(5, READ_MASK);
    Receive(5, WRITE_MASK);  // not registered for that: nothing is called
    Receive(6, READ_MASK | WRITE_MASK);
    Receive(6, CLOSE_MASK);
    EXPECT_EQ(m_Notify.OnInput(READ_END), 0);
    EXPECT_EQ(log, (CTexts{"in 5", "in 6", "out 6", "close 6,12"}));
}

TEST_F(CPSReactorNotifyPipeTest, OnInput_ConnectRegistration_ConnectRecordIsCalledWriteRecordNot)
{
    Open();
    CTestHandler connecting(5);
    m_Reactor.RegisterHandler(&connecting, CONNECT_MASK);
    Receive(5, WRITE_MASK);
    m_Notify.OnInput(READ_END);
    EXPECT_EQ(connecting.TakeCalls(), CTexts());
    Receive(5, CONNECT_MASK);
    m_Notify.OnInput(READ_END);
    EXPECT_EQ(connecting.TakeCalls(), (CTexts{"out 5"})) << "a record drops no connect";
}

TEST_F(CPSReactorNotifyPipeTest, OnInput_UnregisteredHandle_DrainGoesOn)
{
    Open();
    CTestHandler handler(5);
    m_Reactor.RegisterHandler(&handler, READ_MASK);
    Receive(99, READ_MASK);
    Receive(5, READ_MASK);
    EXPECT_EQ(m_Notify.OnInput(READ_END), 0);
    EXPECT_EQ(handler.TakeCalls(), (CTexts{"in 5"}));
}

TEST_F(CPSReactorNotifyPipeTest, OnInput_StopRecordInTheMiddle_RestOnTheNextReadiness)
{
    Open();
    CTestHandler handler(5);
    m_Reactor.RegisterHandler(&handler, READ_MASK);
    Receive(5, READ_MASK);
    Receive(READ_END, 0);
    Receive(5, READ_MASK);
    Receive(5, READ_MASK);
    EXPECT_EQ(m_Notify.OnInput(READ_END), 0);
    EXPECT_EQ(handler.TakeCalls(), (CTexts{"in 5"}));
    EXPECT_EQ(m_Stack.CountOf("ps_recv"), 2u);
    EXPECT_EQ(m_Notify.OnInput(READ_END), 0);
    EXPECT_EQ(handler.TakeCalls(), (CTexts{"in 5", "in 5"}));
}

TEST_F(CPSReactorNotifyPipeTest, OnInput_PartialRecord_DroppedAndTheDrainEnds)
{
    Open();
    CTestHandler handler(5);
    m_Reactor.RegisterHandler(&handler, READ_MASK);
    for (const std::size_t length : {1u, 8u, 15u}) {
        m_Stack.On("ps_recv").WithData(WakeRecord(5, READ_MASK).substr(0, length));
        EXPECT_EQ(m_Notify.OnInput(READ_END), 0);
        EXPECT_EQ(handler.TakeCalls(), CTexts()) << length;
    }
    EXPECT_EQ(m_Stack.CountOf("ps_recv"), 3u);
}

TEST_F(CPSReactorNotifyPipeTest, OnInput_ManyRecords_EndsAfter256)
{
    Open();
    CTestHandler handler(5);
    m_Reactor.RegisterHandler(&handler, READ_MASK);
    m_Stack.On("ps_recv").WithData(WakeRecord(5, READ_MASK)).Times(300);
    EXPECT_EQ(m_Notify.OnInput(READ_END), 0);
    EXPECT_EQ(handler.TakeCalls().size(), 256u);
    EXPECT_EQ(m_Stack.CountOf("ps_recv"), 256u);
    EXPECT_EQ(m_Notify.OnInput(READ_END), 0);
    EXPECT_EQ(handler.TakeCalls().size(), 44u);
}

TEST_F(CPSReactorNotifyPipeTest, OnInput_EventsLeftBehindTheRun_EndsTheDrain)
{
    Open();
    CTestEventCounts counts;
    m_Reactor.PostEvent(new CTestEvent(counts, [&] { return m_Reactor.PostEvent(new CTestEvent(counts)); }));
    Receive(-1, EVENTQUEUE_MASK);
    Receive(-1, EVENTQUEUE_MASK);
    EXPECT_EQ(m_Notify.OnInput(READ_END), 0);
    EXPECT_EQ(counts.m_nFired, 1);
    EXPECT_EQ(m_Stack.CountOf("ps_recv"), 1u);
    EXPECT_EQ(m_Notify.OnInput(READ_END), 0);
    EXPECT_EQ(counts.m_nFired, 2);
}

TEST_F(CPSReactorNotifyPipeTest, OnInput_EventClosesThePipe_EndsQuietly)
{
    Open();
    CTestEventCounts counts;
    m_Reactor.PostEvent(new CTestEvent(counts, [this] { return m_Notify.Close(); }));
    Receive(-1, EVENTQUEUE_MASK);
    Receive(5, READ_MASK);
    EXPECT_EQ(m_Notify.OnInput(READ_END), 0);
    EXPECT_EQ(counts.m_nFired, 1);
}

TEST_F(CPSReactorNotifyPipeTest, OnOutputOnExceptionOnClose_AnswerOnly)
{
    Open();
    EXPECT_EQ(m_Notify.OnOutput(READ_END), 0);
    EXPECT_EQ(m_Notify.OnException(READ_END), -1);
    EXPECT_EQ(m_Notify.OnClose(READ_END, 4), -1);
    EXPECT_EQ(m_Stack.TakeCalls(), CCalls());
}

TEST_F(CPSReactorNotifyPipeTest, Notify_OwnThreadAndPipeFull_UnexpectedAndNothingTorn)
{
    OpenWorking();
    CTestHandler handler(5);
    m_Reactor.RegisterHandler(&handler, READ_MASK);
    for (int i = 0; i < CPSReactorNotifyPipe::s_nMaxRecords; ++i)
        ASSERT_EQ(m_Notify.Notify(&handler, READ_MASK), MN_OK) << i;
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(m_Notify.Notify(&handler, READ_MASK), MN_ERROR_UNEXPECTED);
    EXPECT_EQ(m_Stack.CountOf("ps_send", WRITE_END), 4095u) << "what finds no room is not sent at all";
    m_Notify.OnInput(READ_END);
    EXPECT_EQ(handler.TakeCalls().size(), 256u);
    for (int i = 0; i < 256; ++i)
        EXPECT_EQ(m_Notify.Notify(&handler, READ_MASK), MN_OK);
    EXPECT_EQ(m_Notify.Notify(&handler, READ_MASK), MN_ERROR_UNEXPECTED);
    for (int pass = 0; pass < 16; ++pass)
        m_Notify.OnInput(READ_END);
    EXPECT_EQ(handler.TakeCalls().size(), 4095u);
}

TEST_F(CPSReactorNotifyPipeTest, Notify_QueueRecordFoundNoRoom_WrittenAfterTheNextDrain)
{
    OpenWorking();
    CTestHandler handler(5);
    m_Reactor.RegisterHandler(&handler, READ_MASK);
    for (int i = 0; i < CPSReactorNotifyPipe::s_nMaxRecords; ++i)
        m_Notify.Notify(&handler, READ_MASK);
    EXPECT_EQ(m_Notify.Notify(nullptr, EVENTQUEUE_MASK), MN_ERROR_UNEXPECTED);
    EXPECT_EQ(m_Notify.Notify(nullptr, EVENTQUEUE_MASK), MN_ERROR_UNEXPECTED);
    m_Stack.TakeCalls();
    m_Notify.OnInput(READ_END);
    EXPECT_EQ(SentRecords(), (CCalls{WakeRecord(-1, 256)})) << "owed once, whatever the number of refusals";
    m_Notify.OnInput(READ_END);
    EXPECT_EQ(SentRecords(), CCalls());
}

TEST_F(CPSReactorNotifyPipeTest, Notify_OtherRecordFoundNoRoom_IsNotOwed)
{
    OpenWorking();
    CTestHandler handler(5);
    for (int i = 0; i < CPSReactorNotifyPipe::s_nMaxRecords; ++i)
        m_Notify.Notify(&handler, READ_MASK);
    EXPECT_EQ(m_Notify.Notify(&handler, READ_MASK), MN_ERROR_UNEXPECTED);
    EXPECT_EQ(m_Notify.Notify(nullptr, READ_MASK), MN_ERROR_UNEXPECTED);
    m_Stack.TakeCalls();
    m_Notify.OnInput(READ_END);
    EXPECT_EQ(SentRecords(), CCalls());
}

TEST_F(CPSReactorNotifyPipeTest, Notify_OtherThreadAndPipeFull_WaitsForRoom)
{
    OpenWorking();
    CTestHandler handler(5);
    m_Reactor.RegisterHandler(&handler, READ_MASK);
    for (int i = 0; i < CPSReactorNotifyPipe::s_nMaxRecords; ++i)
        m_Notify.Notify(&handler, READ_MASK);
    std::thread other([&] { EXPECT_EQ(m_Notify.Notify(&handler, READ_MASK), MN_OK); });
    while (m_Stack.CountOf("ps_send", WRITE_END) != 4096)
        std::this_thread::yield();
    std::size_t seen = 0;
    while (seen < 4096) {
        m_Notify.OnInput(READ_END);
        seen += handler.TakeCalls().size();
    }
    other.join();
    EXPECT_EQ(seen, 4096u);
}

TEST_F(CPSReactorNotifyPipeTest, Reopen_AfterAFullPipe_RoomForAllAgain)
{
    OpenWorking();
    CTestHandler handler(5);
    for (int i = 0; i < CPSReactorNotifyPipe::s_nMaxRecords; ++i)
        m_Notify.Notify(&handler, READ_MASK);
    m_Notify.Notify(nullptr, EVENTQUEUE_MASK);  // owed, and forgotten by the close
    m_Notify.Close();
    ASSERT_EQ(m_Notify.Open(&m_Reactor), MN_OK);
    m_Stack.TakeCalls();
    m_Notify.OnInput(m_Notify.GetHandle());
    EXPECT_EQ(SentRecords(), CCalls());
    for (int i = 0; i < CPSReactorNotifyPipe::s_nMaxRecords; ++i)
        ASSERT_EQ(m_Notify.Notify(&handler, READ_MASK), MN_OK);
}

}  // namespace
