// The end of the process with a running network thread and everything it may have under way.
#include "manager/CPSConnectionManager.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <future>
#include <memory>
#include <thread>
#include <vector>

#include "ipstack/ps_defines.h"
#include "mantle/CMNInetAddr.h"
#include "mantle/CMNMessageBlock.h"
#include "mantle/CMNThreadManager.h"
#include "mantle/CMNTimeValue.h"
#include "tests/unit/doubles/CChildProcess.h"
#include "tests/unit/doubles/CSilentSink.h"
#include "tests/unit/doubles/ScriptedNetwork.h"
#include "tests/unit/scripted/CScriptedStack.h"
#include "tests/unit/scripted/CTestEvent.h"
#include "uxport/IPSAcceptor.h"
#include "uxport/IPSAcceptorConnectorSink.h"
#include "uxport/IPSConnector.h"
#include "uxport/IPSReactor.h"
#include "uxport/IPSTransport.h"
#include "uxport/IPSTransportSink.h"

namespace uxport
{
namespace
{

constexpr int LISTENER = 7;
constexpr int FIRST_ACCEPTED = 20;
constexpr int CONNECTIONS = 6;
const CMNTimeValue TEN_MILLISECONDS(0, 10000);

IPSReactor* Reactor()
{
    return IPSConnectionManager::Instance()->GetReactor();
}

// Keeps every second connection and opens all of them.
class CKeepingSink : public IPSAcceptorConnectorSink
{
public:
    MNResult OnConnectIndication(long, IPSTransport* transport, IPSAcceptorConnectorId*) override
    {
        if (!transport)
            return MN_OK;
        static_cast<void>(transport->OpenWithSink(&m_Data));
        if (++m_nAccepted % 2 == 0)
            m_Kept.emplace_back(transport);
        if (m_nAccepted == CONNECTIONS)
            m_Complete.set_value();
        return MN_OK;
    }

    CSilentSink m_Data;
    int m_nAccepted = 0;
    std::vector<mantle::CMNAutoPtr<IPSTransport>> m_Kept;
    std::promise<void> m_Complete;
};

class CRepeatingTimer : public IMNTimerHandler
{
public:
    void OnTimeout(const CMNTimeValue&, void*) override
    {
        if (m_AtTimeout)
            m_AtTimeout();
    }

    std::function<void()> m_AtTimeout;
};

// What an application holds in globals to the very end, and beyond the clean-up.
struct CApplication
{
    CKeepingSink m_Sink;
    CRepeatingTimer m_Timer;
    CTestEventCounts m_Counts;
    IPSAcceptor* m_pAcceptor = nullptr;
    IPSConnector* m_pConnector = nullptr;
};

CApplication& Application()
{
    static CApplication& application = *new CApplication;
    return application;
}

void StartNetwork()
{
    StartScriptedNetwork(LISTENER);
}

void MakeConnections()
{
    CScriptedStack& stack = CScriptedStack::Instance();
    CApplication& app = Application();
    OnScriptedNetwork([&app] {
        auto* manager = IPSConnectionManager::Instance();
        ASSERT_EQ(manager->CreateConnectionServer(CONNECTION_TYPE_TCP, app.m_pAcceptor), MN_OK);
        ASSERT_EQ(app.m_pAcceptor->StartListen(&app.m_Sink, CMNInetAddr("10.0.0.1", 80), 0, 0), MN_OK);
        ASSERT_EQ(manager->CreateConnectionClient(CONNECTION_TYPE_TCP, app.m_pConnector), MN_OK);
        CMNTimeValue timeout(3600, 0);
        const CMNInetAddr peer("10.0.0.2", 80);
        ASSERT_EQ(app.m_pConnector->AsycConnect(&app.m_Sink, peer, &timeout, nullptr, 0, 0), MN_OK);
    });
    for (int i = 0; i < CONNECTIONS; ++i)
        stack.On("ps_accept", LISTENER).Returns(FIRST_ACCEPTED + i);
    stack.SetReadyOnce(LISTENER, PS_POLLIN);
    app.m_Sink.m_Complete.get_future().wait();
}

// Events that post again when they die, behind one that holds the loop up until the end has begun.
void MakePendingEvents()
{
    CTestEventCounts& counts = Application().m_Counts;
    IPSReactor* reactor = Reactor();
    reactor->PostEvent(new CTestCall([] {
        while (!mantle::CMNThreadManager::Instance()->IsCleaningUp())
            std::this_thread::yield();
    }));
    for (int i = 0; i < 1000; ++i) {
        auto* event = new CTestEvent(counts);
        event->AtDelete([&counts, reactor] { reactor->PostEvent(new CTestEvent(counts)); });
        reactor->PostEvent(event);
    }
}

void MakeTimers()
{
    OnScriptedNetwork([] { Reactor()->ScheduleTimer(&Application().m_Timer, nullptr, TEN_MILLISECONDS, 0); });
}

// Every connection kept loses its last reference on the network thread.
void MakeDeletions()
{
    Reactor()->PostEvent(new CTestCall([] { Application().m_Sink.m_Kept.clear(); }));
}

void MakeEverything()
{
    StartNetwork();
    MakeConnections();
    MakeTimers();
    MakeDeletions();
}

// Never comes back: the end comes from another thread.
void WaitForTheEnd()
{
    std::promise<void>().get_future().wait_for(std::chrono::hours(1));
}

TEST(ProcessEndTest, MainReturns_NetworkThreadRuns_EndsCleanly)
{
    CChildProcess::Run(StartNetwork);
}

TEST(ProcessEndTest, MainReturns_ConnectionsOpen_EndsCleanly)
{
    CChildProcess::Run([] {
        StartNetwork();
        MakeConnections();
    });
}

TEST(ProcessEndTest, MainReturns_EventsPending_EndsCleanly)
{
    CChildProcess::Run([] {
        StartNetwork();
        MakePendingEvents();
    });
}

TEST(ProcessEndTest, MainReturns_TimersScheduled_EndsCleanly)
{
    CChildProcess::Run([] {
        StartNetwork();
        MakeTimers();
    });
}

TEST(ProcessEndTest, MainReturns_DeletionsPending_EndsCleanly)
{
    CChildProcess::Run([] {
        StartNetwork();
        MakeConnections();
        MakeDeletions();
    });
}

TEST(ProcessEndTest, MainReturns_EverythingUnderWay_EndsCleanly)
{
    CChildProcess::Run([] {
        MakeEverything();
        MakePendingEvents();
    });
}

TEST(ProcessEndTest, MainReturns_InitZeroWithEventsPending_EndsCleanly)
{
    CChildProcess::Run([] {
        CScriptedStack::Instance().EnablePipes();
        ASSERT_EQ(IPSConnectionManager::Instance()->Init(0), MN_OK);
        for (int i = 0; i < 10; ++i)
            Reactor()->PostEvent(new CTestEvent(Application().m_Counts));
    });
}

TEST(ProcessEndTest, MainReturns_ManagerMadeButNotInitialised_EndsCleanly)
{
    CChildProcess::Run([] { ASSERT_NE(IPSConnectionManager::Instance(), nullptr); });
}

TEST(ProcessEndTest, ExitOnTheMainThread_EverythingUnderWay_EndsCleanly)
{
    CChildProcess::Run([] {
        MakeEverything();
        MakePendingEvents();
        std::exit(testing::Test::HasFailure() ? 1 : 0);
    });
}

TEST(ProcessEndTest, ExitInAnEvent_EverythingUnderWay_EndsCleanly)
{
    CChildProcess::Run([] {
        MakeEverything();
        Reactor()->PostEvent(new CTestCall([] { std::exit(0); }));
        WaitForTheEnd();
    });
}

TEST(ProcessEndTest, ExitInATimer_EverythingUnderWay_EndsCleanly)
{
    CChildProcess::Run([] {
        MakeEverything();
        OnScriptedNetwork([] { Application().m_Timer.m_AtTimeout = [] { std::exit(0); }; });
        WaitForTheEnd();
    });
}

TEST(ProcessEndTest, ExitInOnReceive_EverythingUnderWay_EndsCleanly)
{
    CChildProcess::Run([] {
        StartNetwork();
        MakeConnections();
        MakeTimers();
        Application().m_Sink.m_Data.m_AtReceive = [] { std::exit(0); };
        CScriptedStack::Instance().On("ps_recv", FIRST_ACCEPTED + 1).WithData("the end");
        CScriptedStack::Instance().SetReadyOnce(FIRST_ACCEPTED + 1, PS_POLLIN);
        WaitForTheEnd();
    });
}

TEST(ProcessEndTest, CleanUp_Twice_DestroysTheManagerOnceAndInstanceIsNull)
{
    CChildProcess::Run([] {
        MakeEverything();
        mantle::CMNThreadManager::Instance()->CleanUp();
        EXPECT_EQ(IPSConnectionManager::Instance(), nullptr);
        mantle::CMNThreadManager::Instance()->CleanUp();
        EXPECT_EQ(IPSConnectionManager::Instance(), nullptr);
    });
}

TEST(ProcessEndTest, AfterTheCleanUp_ApplicationLetsGo_NothingIsTouchedThatIsGone)
{
    CChildProcess::Run([] {
        StartNetwork();
        MakeConnections();
        mantle::CMNThreadManager::Instance()->CleanUp();
        CApplication& app = Application();
        ASSERT_EQ(app.m_Sink.m_Kept.size(), 3u);
        EXPECT_EQ(app.m_pAcceptor->StopListen(0), MN_OK);
        EXPECT_EQ(app.m_pConnector->CancelConnect(), MN_OK);
        EXPECT_EQ(app.m_Sink.m_Kept.front()->Disconnect(0), MN_OK);
        std::int32_t none = -1;
        EXPECT_EQ(app.m_Sink.m_Kept.back()->SetOption(OPT_FD, &none), MN_OK);
        EXPECT_EQ(app.m_pAcceptor->ReleaseReference(), 0u);
        EXPECT_EQ(app.m_pConnector->ReleaseReference(), 0u);
        app.m_Sink.m_Kept.clear();
        EXPECT_EQ(CScriptedStack::Instance().CountOf("ps_close", LISTENER), 1u);
        EXPECT_EQ(CScriptedStack::Instance().CountOf("ps_close", FIRST_ACCEPTED + 1), 1u);
    });
}

TEST(ProcessEndTest, AfterTheCleanUp_ApplicationGoesOn_IsRefused)
{
    CChildProcess::Run([] {
        StartNetwork();
        MakeConnections();
        mantle::CMNThreadManager::Instance()->CleanUp();
        CApplication& app = Application();
        const CMNInetAddr address("10.0.0.1", 80);
        CMNTimeValue timeout(1, 0);
        EXPECT_EQ(app.m_pAcceptor->StopListen(0), MN_OK);
        EXPECT_EQ(app.m_pAcceptor->StartListen(&app.m_Sink, address, 0, 0), MN_ERROR_FAILURE);
        EXPECT_EQ(app.m_pConnector->AsycConnect(&app.m_Sink, address, &timeout, nullptr, 0, 0),
                  MN_ERROR_NOT_INITIALIZED);
        CScriptedStack::Instance().On("ps_writev").Returns(0);
        CMNMessageBlock block(5, "hello", CMNMessageBlock::DONT_DELETE, 5);
        EXPECT_EQ(app.m_Sink.m_Kept.front()->SendData(block, nullptr), MN_ERROR_PARTIAL_DATA);
    });
}

}  // namespace
}  // namespace uxport
