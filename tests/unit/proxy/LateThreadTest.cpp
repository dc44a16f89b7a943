// Threads that nobody joins, and static objects, that call the library after its objects have ended: nothing that they
// hold a pointer to is gone, and every call gets a result. Each case is a child process whose clean-up reaches an object
// that is older than the connection manager, and is therefore destroyed behind it, in the middle of the clean-up.
#include "proxy/CPSLateDeletes.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <thread>

#include "ipstack/ps_defines.h"
#include "mantle/CMNEnsureSingleThread.h"
#include "mantle/CMNInetAddr.h"
#include "mantle/CMNMessageBlock.h"
#include "mantle/CMNSingleton.h"
#include "mantle/CMNThreadManager.h"
#include "mantle/CMNThreadUser.h"
#include "tests/unit/doubles/CChildProcess.h"
#include "tests/unit/doubles/CSilentSink.h"
#include "tests/unit/doubles/ScriptedNetwork.h"
#include "tests/unit/scripted/CScriptedStack.h"
#include "tests/unit/scripted/CTestEvent.h"
#include "uxport/IPSAcceptor.h"
#include "uxport/IPSAcceptorConnectorSink.h"
#include "uxport/IPSConnectionManager.h"
#include "uxport/IPSConnector.h"
#include "uxport/IPSReactor.h"
#include "uxport/IPSTransport.h"

namespace uxport
{
namespace
{

constexpr int LISTENER = 7;
constexpr int ACCEPTED = 20;

class CAtCleanUp : public mantle::CMNCleanUpBase
{
public:
    ~CAtCleanUp() override
    {
        if (m_Run)
            m_Run();
    }
    std::function<void()> m_Run;
};

class CKeepingSink : public IPSAcceptorConnectorSink
{
public:
    MNResult OnConnectIndication(long, IPSTransport* transport, IPSAcceptorConnectorId*) override
    {
        if (!transport)
            return MN_OK;
        static_cast<void>(transport->OpenWithSink(&m_Data));
        transport->AddReference();
        m_pTransport = transport;
        m_pMain->Stop();
        return MN_OK;
    }

    CSilentSink m_Data;
    IPSTransport* m_pTransport = nullptr;
    mantle::CMNThreadUser* m_pMain = nullptr;
};

// What an application still holds when the library has ended.
struct CApplication
{
    CAtCleanUp* m_pAtCleanUp = nullptr;
    CKeepingSink m_Sink;
    IPSConnectionManager* m_pManager = nullptr;
    IPSReactor* m_pReactor = nullptr;
    IPSAcceptor* m_pAcceptor = nullptr;
    IPSConnector* m_pConnector = nullptr;
    CTestEventCounts m_Counts;
};

CApplication& Application()
{
    static CApplication& application = *new CApplication;
    return application;
}

// A server, a client and one connection of main's.
void MakeEverything()
{
    CApplication& app = Application();
    app.m_pAtCleanUp = new CAtCleanUp;
    StartScriptedNetwork(LISTENER);
    app.m_Sink.m_pMain = mantle::CMNThreadUser::AdoptCurrentThread();
    app.m_pManager = IPSConnectionManager::Instance();
    app.m_pReactor = app.m_pManager->GetReactor();
    ASSERT_EQ(app.m_pManager->CreateConnectionServer(CONNECTION_TYPE_TCP, app.m_pAcceptor), MN_OK);
    ASSERT_EQ(app.m_pManager->CreateConnectionClient(CONNECTION_TYPE_TCP, app.m_pConnector), MN_OK);
    ASSERT_EQ(app.m_pAcceptor->StartListen(&app.m_Sink, CMNInetAddr("10.0.0.1", 80), 0, 0), MN_OK);
    OnScriptedNetwork([] {});
    CScriptedStack::Instance().On("ps_accept", LISTENER).Returns(ACCEPTED);
    CScriptedStack::Instance().SetReadyOnce(LISTENER, PS_POLLIN);
    ASSERT_EQ(app.m_Sink.m_pMain->RunEventLoop(), MN_OK);
    ASSERT_NE(app.m_Sink.m_pTransport, nullptr);
}

// What any thread may call.
void CallFromAnyThread()
{
    CApplication& app = Application();
    CMNMessageBlock block(5, "hello", CMNMessageBlock::DONT_DELETE, 5);
    EXPECT_EQ(app.m_Sink.m_pTransport->SendData(block, nullptr), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(block.GetChainedLength(), 5u);
    std::uint64_t type = 0;
    EXPECT_EQ(app.m_Sink.m_pTransport->GetOption(OPT_TYPE, &type), MN_OK);
    const int destroyed = app.m_Counts.m_nDestroyed;
    EXPECT_EQ(app.m_pReactor->PostEvent(new CTestEvent(app.m_Counts)), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(app.m_pReactor->SendEvent(new CTestEvent(app.m_Counts)), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(app.m_Counts.m_nDestroyed, destroyed + 2);
    EXPECT_EQ(app.m_pManager->GetReactor(), app.m_pReactor);
    EXPECT_FALSE(app.m_pManager->IsNetworkThread(mantle::CMNThreadManager::GetThreadSelfId()));
    EXPECT_EQ(app.m_Sink.m_pMain->PostEvent(new CTestEvent(app.m_Counts)), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(IPSConnectionManager::Instance(), nullptr);
}

// What belongs to main.
void CallFromMain()
{
    CApplication& app = Application();
    const CMNInetAddr address("10.0.0.1", 80);
    EXPECT_EQ(app.m_Sink.m_pTransport->Disconnect(0), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(app.m_pAcceptor->StopListen(0), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(app.m_pAcceptor->StartListen(&app.m_Sink, address, 0, 0), MN_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(app.m_pConnector->AsycConnect(&app.m_Sink, address, nullptr, nullptr, 0, 0), MN_ERROR_NOT_INITIALIZED);
}

// The last release by a thread that is neither side's is reported, and works all the same.
template <class Object>
void ReleaseElsewhere(Object& object)
{
    const auto handler = mantle::CMNEnsureSingleThread::SetHandler([](const mantle::CMNSingleThreadReport&) {});
    object.ReleaseReference();
    mantle::CMNEnsureSingleThread::SetHandler(handler);
}

TEST(LateThreadTest, ObjectsHaveEnded_AnotherThreadCalls_EveryCallGetsAResult)
{
    CChildProcess::Run([] {
        MakeEverything();
        bool called = false;
        Application().m_pAtCleanUp->m_Run = [&called] {
            std::thread(CallFromAnyThread).join();
            called = true;
        };
        mantle::CMNThreadManager::Instance()->CleanUp();
        EXPECT_TRUE(called);
        std::thread(CallFromAnyThread).join();
    });
}

TEST(LateThreadTest, ObjectsHaveEnded_TheCleanUpsThreadCalls_EveryCallGetsAResult)
{
    CChildProcess::Run([] {
        MakeEverything();
        bool called = false;
        Application().m_pAtCleanUp->m_Run = [&called] {
            CallFromAnyThread();
            CallFromMain();
            called = true;
        };
        mantle::CMNThreadManager::Instance()->CleanUp();
        EXPECT_TRUE(called);
        CallFromAnyThread();
        CApplication& app = Application();
        IPSConnector* connector = nullptr;
        EXPECT_EQ(app.m_pManager->CreateConnectionClient(CONNECTION_TYPE_TCP, connector), MN_ERROR_FAILURE);
        EXPECT_EQ(connector, nullptr);
    });
}

// The network-side transport is the network thread's, without a lock; the clean-up's thread takes that one's place.
TEST(LateThreadTest, NetworkThreadHasEnded_AnotherThreadReleasesTheLastReference_DeletedByTheCleanUpsThread)
{
    CChildProcess::Run([] {
        MakeEverything();
        CScriptedStack& stack = CScriptedStack::Instance();
        std::size_t closed = 99;
        auto* newest = new CAtCleanUp;  // destroyed before the manager ends
        newest->m_Run = [&] {
            std::thread([] { ReleaseElsewhere(*Application().m_Sink.m_pTransport); }).join();
            closed = stack.CountOf("ps_close", ACCEPTED);
        };
        mantle::CMNThreadManager::Instance()->CleanUp();
        EXPECT_EQ(closed, 0u);
        EXPECT_EQ(stack.CountOf("ps_close", ACCEPTED), 1u);
    });
}

TEST(LateThreadTest, CleanUpIsOver_ApplicationReleases_DeletedThereOnTheCleanUpsThreadOnly)
{
    CChildProcess::Run([] {
        MakeEverything();
        mantle::CMNThreadManager::Instance()->CleanUp();
        CScriptedStack& stack = CScriptedStack::Instance();
        std::thread([] { ReleaseElsewhere(*Application().m_pAcceptor); }).join();
        EXPECT_EQ(stack.CountOf("ps_close", LISTENER), 0u) << "kept to the end of the process";
        Application().m_Sink.m_pTransport->ReleaseReference();
        EXPECT_EQ(stack.CountOf("ps_close", ACCEPTED), 1u);
    });
}

}  // namespace
}  // namespace uxport
