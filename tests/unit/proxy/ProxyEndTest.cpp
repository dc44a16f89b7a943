// The end of the process with proxies in every state.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <vector>

#include "ipstack/ps_defines.h"
#include "manager/CPSConnectionManager.h"
#include "mantle/CMNInetAddr.h"
#include "mantle/CMNMessageBlock.h"
#include "mantle/CMNReferenceControl.h"
#include "mantle/CMNThreadManager.h"
#include "mantle/CMNThreadUser.h"
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
constexpr int CONNECTIONS = 4;

// Keeps every connection.
class CKeepingSink : public IPSAcceptorConnectorSink
{
public:
    MNResult OnConnectIndication(long, IPSTransport* transport, IPSAcceptorConnectorId*) override
    {
        if (!transport)
            return MN_OK;
        static_cast<void>(transport->OpenWithSink(&m_Data));
        m_Kept.emplace_back(transport);
        if (m_Kept.size() == CONNECTIONS && m_AtComplete)
            m_AtComplete();
        return MN_OK;
    }

    CSilentSink m_Data;
    std::vector<mantle::CMNAutoPtr<IPSTransport>> m_Kept;
    std::function<void()> m_AtComplete;
};

// What an application holds to the very end, and beyond the clean-up.
struct CApplication
{
    mantle::CMNThreadUser* m_pMain = nullptr;
    std::unique_ptr<mantle::CMNThreadUser> m_pOwner;
    CKeepingSink m_Sink;
    IPSAcceptor* m_pAcceptor = nullptr;
    IPSConnector* m_pConnector = nullptr;
};

CApplication& Application()
{
    static CApplication& application = *new CApplication;
    return application;
}

// Behind everything that has been posted to the network thread so far.
void WaitForTheNetwork()
{
    OnScriptedNetwork([] {});
}

void StartNetwork()
{
    StartScriptedNetwork(LISTENER);
    Application().m_pMain = mantle::CMNThreadUser::AdoptCurrentThread();
    ASSERT_NE(Application().m_pMain, nullptr);
}

void Make()
{
    CApplication& app = Application();
    ASSERT_EQ(IPSConnectionManager::Instance()->CreateConnectionServer(CONNECTION_TYPE_TCP, app.m_pAcceptor), MN_OK);
    ASSERT_EQ(IPSConnectionManager::Instance()->CreateConnectionClient(CONNECTION_TYPE_TCP, app.m_pConnector), MN_OK);
}

// A server that listens and a client in the middle of its attempt.
void Start()
{
    CApplication& app = Application();
    ASSERT_EQ(app.m_pAcceptor->StartListen(&app.m_Sink, CMNInetAddr("10.0.0.1", 80), 0, 0), MN_OK);
    CMNTimeValue timeout(3600, 0);
    ASSERT_EQ(app.m_pConnector->AsycConnect(&app.m_Sink, CMNInetAddr("10.0.0.2", 80), &timeout, nullptr, 0, 0), MN_OK);
}

void PeersConnect()
{
    CScriptedStack& stack = CScriptedStack::Instance();
    for (int i = 0; i < CONNECTIONS; ++i)
        stack.On("ps_accept", LISTENER).Returns(FIRST_ACCEPTED + i);
    stack.SetReadyOnce(LISTENER, PS_POLLIN);
}

// The indications are in the queue of main, which has not run them.
void MakeIndications()
{
    CScriptedStack& stack = CScriptedStack::Instance();
    WaitForTheNetwork();
    PeersConnect();
    while (stack.CountOf("ps_accept", LISTENER) <= CONNECTIONS)
        WaitForTheNetwork();
    WaitForTheNetwork();
}

// Every connection is main's and open.
void MakeConnections()
{
    MakeIndications();
    CApplication& app = Application();
    app.m_Sink.m_AtComplete = [&app] { app.m_pMain->Stop(); };
    ASSERT_EQ(app.m_pMain->RunEventLoop(), MN_OK);
    ASSERT_EQ(app.m_Sink.m_Kept.size(), static_cast<std::size_t>(CONNECTIONS));
}

void ReleaseAll()
{
    CApplication& app = Application();
    app.m_Sink.m_Kept.clear();
    app.m_pAcceptor->ReleaseReference();
    app.m_pConnector->ReleaseReference();
}

void MakeEverything()
{
    StartNetwork();
    Make();
    Start();
    MakeConnections();
}

TEST(ProxyEndTest, MainReturns_ProxiesNeverStarted_EndsCleanly)
{
    CChildProcess::Run([] {
        StartNetwork();
        Make();
    });
}

TEST(ProxyEndTest, MainReturns_StartsJustPosted_EndsCleanly)
{
    CChildProcess::Run([] {
        StartNetwork();
        Make();
        Start();
    });
}

TEST(ProxyEndTest, MainReturns_ListeningAndInTheMiddleOfAnAttempt_EndsCleanly)
{
    CChildProcess::Run([] {
        StartNetwork();
        Make();
        Start();
        WaitForTheNetwork();
    });
}

TEST(ProxyEndTest, MainReturns_IndicationsInTheQueue_EndsCleanly)
{
    CChildProcess::Run([] {
        StartNetwork();
        Make();
        Start();
        MakeIndications();
    });
}

TEST(ProxyEndTest, MainReturns_IndicationsOfReleasedProxies_EndsCleanly)
{
    CChildProcess::Run([] {
        StartNetwork();
        Make();
        Start();
        MakeIndications();
        ReleaseAll();
    });
}

TEST(ProxyEndTest, MainReturns_ConnectionsOpen_EndsCleanly)
{
    CChildProcess::Run(MakeEverything);
}

TEST(ProxyEndTest, MainReturns_DataOnItsWayBothWays_EndsCleanly)
{
    CChildProcess::Run([] {
        MakeEverything();
        CScriptedStack& stack = CScriptedStack::Instance();
        for (int i = 0; i < CONNECTIONS; ++i) {
            stack.On("ps_recv", FIRST_ACCEPTED + i).WithData("data");
            stack.On("ps_writev", FIRST_ACCEPTED + i).Returns(1);
            stack.SetReadyOnce(FIRST_ACCEPTED + i, PS_POLLIN);
            CMNMessageBlock block(5, "hello", CMNMessageBlock::DONT_DELETE, 5);
            EXPECT_EQ(Application().m_Sink.m_Kept[static_cast<std::size_t>(i)]->SendData(block, nullptr), MN_OK);
        }
    });
}

TEST(ProxyEndTest, MainReturns_AllReleasedJustNow_EndsCleanly)
{
    CChildProcess::Run([] {
        MakeEverything();
        ReleaseAll();
    });
}

TEST(ProxyEndTest, MainReturns_DisconnectedNotReleased_EndsCleanly)
{
    CChildProcess::Run([] {
        MakeEverything();
        for (const auto& transport : Application().m_Sink.m_Kept)
            EXPECT_EQ(transport->Disconnect(0), MN_OK);
        EXPECT_EQ(Application().m_pAcceptor->StopListen(0), MN_OK);
        EXPECT_EQ(Application().m_pConnector->CancelConnect(), MN_OK);
    });
}

TEST(ProxyEndTest, MainReturns_ReleasedOnTheNetworkThread_EndsCleanly)
{
    CChildProcess::Run([] {
        MakeEverything();
        IPSConnectionManager::Instance()->GetReactor()->PostEvent(new CTestCall(ReleaseAll));
    });
}

TEST(ProxyEndTest, MainReturns_OwnerThreadStillRuns_EndsCleanly)
{
    CChildProcess::Run([] {
        StartNetwork();
        CApplication& app = Application();
        app.m_pOwner = std::make_unique<mantle::CMNThreadUser>();
        ASSERT_EQ(app.m_pOwner->Create(mantle::CMNThreadManager::Instance()->GetNewThreadType()), MN_OK);
        app.m_Sink.m_AtComplete = [&app] { app.m_pMain->Stop(); };
        ASSERT_EQ(app.m_pOwner->SendEvent(new CTestCall([] {
            Make();
            Start();
        })),
                  MN_OK);
        WaitForTheNetwork();
        PeersConnect();
        ASSERT_EQ(app.m_pMain->RunEventLoop(), MN_OK);
    });
}

TEST(ProxyEndTest, MainReturns_OwnerThreadEndedBefore_EndsCleanly)
{
    CChildProcess::Run([] {
        StartNetwork();
        CApplication& app = Application();
        app.m_pOwner = std::make_unique<mantle::CMNThreadUser>();
        ASSERT_EQ(app.m_pOwner->Create(mantle::CMNThreadManager::Instance()->GetNewThreadType()), MN_OK);
        ASSERT_EQ(app.m_pOwner->SendEvent(new CTestCall([] {
            Make();
            Start();
        })),
                  MN_OK);
        ASSERT_EQ(app.m_pOwner->Stop(), MN_OK);
        ASSERT_EQ(app.m_pOwner->Join(), MN_OK);
        MakeIndications();
        CScriptedStack& stack = CScriptedStack::Instance();
        for (int i = 0; i < CONNECTIONS; ++i)
            EXPECT_EQ(stack.CountOf("ps_close", FIRST_ACCEPTED + i), 1u);
        EXPECT_TRUE(app.m_Sink.m_Kept.empty());
    });
}

TEST(ProxyEndTest, ExitInOnReceive_EverythingUnderWay_EndsCleanly)
{
    CChildProcess::Run([] {
        MakeEverything();
        Application().m_Sink.m_Data.m_AtReceive = [] { std::exit(testing::Test::HasFailure() ? 1 : 0); };
        CScriptedStack::Instance().On("ps_recv", FIRST_ACCEPTED + 1).WithData("the end");
        CScriptedStack::Instance().SetReadyOnce(FIRST_ACCEPTED + 1, PS_POLLIN);
        ASSERT_EQ(Application().m_pMain->RunEventLoop(), MN_OK);
        FAIL() << "the loop came back";
    });
}

TEST(ProxyEndTest, AfterTheCleanUp_ApplicationGoesOn_IsRefusedAndKeepsItsData)
{
    CChildProcess::Run([] {
        MakeEverything();
        mantle::CMNThreadManager::Instance()->CleanUp();
        CApplication& app = Application();
        const CMNInetAddr address("10.0.0.1", 80);
        IPSTransport& transport = *app.m_Sink.m_Kept.front();
        CMNMessageBlock block(5, "hello", CMNMessageBlock::DONT_DELETE, 5);
        EXPECT_EQ(transport.SendData(block, nullptr), MN_ERROR_NOT_INITIALIZED);
        EXPECT_EQ(block.GetChainedLength(), 5u);
        std::uint64_t type = 0;
        EXPECT_EQ(transport.GetOption(OPT_TYPE, &type), MN_OK);
        EXPECT_EQ(transport.Disconnect(0), MN_ERROR_NOT_INITIALIZED);
        EXPECT_EQ(transport.Disconnect(0), MN_OK);
        EXPECT_EQ(app.m_pAcceptor->StopListen(0), MN_ERROR_NOT_INITIALIZED);
        EXPECT_EQ(app.m_pAcceptor->StartListen(&app.m_Sink, address, 0, 0), MN_ERROR_NOT_INITIALIZED);
        EXPECT_EQ(app.m_pConnector->CancelConnect(), MN_ERROR_NOT_INITIALIZED);
        EXPECT_EQ(app.m_pConnector->AsycConnect(&app.m_Sink, address, nullptr, nullptr, 0, 0),
                  MN_ERROR_NOT_INITIALIZED);
    });
}

TEST(ProxyEndTest, AfterTheCleanUp_ApplicationLetsGo_ProxiesGoAndSocketsAreClosed)
{
    CChildProcess::Run([] {
        MakeEverything();
        mantle::CMNThreadManager::Instance()->CleanUp();
        ReleaseAll();
        for (int i = 0; i < CONNECTIONS; ++i)
            EXPECT_EQ(CScriptedStack::Instance().CountOf("ps_close", FIRST_ACCEPTED + i), 1u);
        EXPECT_EQ(CScriptedStack::Instance().CountOf("ps_close", LISTENER), 1u);
        // The deletion of the network-side transports, the attempt's among them, waits for a timer that never comes.
        EXPECT_EQ(mantle::CMNLiveObjects::Count(), CONNECTIONS + 1);
    });
}

}  // namespace
}  // namespace uxport
