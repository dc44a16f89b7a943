// The fixture of the thread proxies' tests.
#ifndef TESTS_UNIT_PROXY_PROXYTEST_H
#define TESTS_UNIT_PROXY_PROXYTEST_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "mantle/CMNMessageBlock.h"
#include "mantle/CMNThreadManager.h"
#include "proxy/CPSTransportThreadProxy.h"
#include "tests/unit/doubles/CRecordingSinks.h"
#include "tests/unit/proxy/CFakeTransport.h"
#include "tests/unit/proxy/CNetworkThread.h"
#include "tests/unit/proxy/COrders.h"
#include "tests/unit/proxy/CStepReactor.h"
#include "tests/unit/scripted/ScriptedStackTest.h"

// The test's own thread is the user thread, the manager's the network thread; the queue of either is stepped by hand.
class ProxyTest : public ScriptedStackTest
{
protected:
    // The script of an application or of a peer.
    using CActions = std::vector<std::function<void()>>;

    void SetUp() override
    {
        ScriptedStackTest::SetUp();
        CNetworkThread::Instance();
        m_Stack.Ignore("ps_send");  // wake-up records of the reactor, whose loop stands still
        m_Thread.SetThreadId(mantle::CMNThreadManager::GetThreadSelfId());
        m_Thread.UseEventQueue(&m_UserQueue);
    }
    void TearDown() override
    {
        RunOut();
        EXPECT_EQ(m_Network.GetPendingEventsCount(), 0u);
        ScriptedStackTest::TearDown();
    }

    static void OnNetwork(const std::function<void()>& function) { CNetworkThread::Instance().Run(function); }

    // One event of either queue. Return: what it returned; 10011 when there is none.
    uxport::MNResult StepNetwork()
    {
        uxport::MNResult result = uxport::MN_OK;
        OnNetwork([&] { result = m_Network.Events().RunOne(); });
        return result;
    }
    uxport::MNResult StepUser() { return m_UserQueue.RunOne(); }

    // The timers that are due.
    static void TickNetwork() { CNetworkThread::Instance().FireTimers(); }
    unsigned long TickUser() { return m_Thread.OwnTimers().CheckExpire(); }

    unsigned long PendingNetwork() { return m_Network.GetPendingEventsCount(); }
    unsigned long PendingUser() { return m_UserQueue.GetPendingEventsCount(); }

    // Both queues and the timers that are due, until nothing is left.
    void RunOut()
    {
        bool more = true;
        while (more) {
            more = TickUser() != 0;
            while (PendingUser() != 0) {
                StepUser();
                more = true;
            }
            while (PendingNetwork() != 0) {
                StepNetwork();
                more = true;
            }
            if (CNetworkThread::Instance().IsTimerDue()) {
                TickNetwork();
                more = true;
            }
        }
    }

    // Everything in every order: the application's actions ('A') and the peer's ('P', on the network thread), the
    // events of the user's ('U') and the network's queue ('N'), a timer of the user thread ('T'), the timers of the
    // network thread ('M').
    void Play(COrders& orders, const CActions& application, const CActions& peer)
    {
        std::size_t done = 0;
        std::size_t donePeer = 0;
        while (true) {
            std::string possible;
            if (done != application.size())
                possible += 'A';
            if (donePeer != peer.size())
                possible += 'P';
            if (PendingUser() != 0)
                possible += 'U';
            if (PendingNetwork() != 0)
                possible += 'N';
            if (m_Thread.OwnTimers().GetPendingTimersCount() != 0)
                possible += 'T';
            if (CNetworkThread::Instance().IsTimerDue())
                possible += 'M';
            if (possible.empty())
                return;
            switch (orders.Choose(possible)) {
            case 'A':
                application[done++]();
                break;
            case 'P':
                OnNetwork(peer[donePeer++]);
                break;
            case 'U':
                StepUser();
                break;
            case 'N':
                StepNetwork();
                break;
            case 'T':
                EXPECT_EQ(m_Thread.OwnTimers().CheckExpire(nullptr, 1), 1u);
                break;
            default:
                TickNetwork();
                break;
            }
        }
    }

    // A block with a copy of `text`.
    static std::unique_ptr<uxport::CMNMessageBlock> Block(const std::string& text)
    {
        auto block = std::make_unique<uxport::CMNMessageBlock>(text.size());
        EXPECT_EQ(block->Write(text.data(), text.size()), uxport::MN_OK);
        return block;
    }
    static std::string Text(const uxport::CMNMessageBlock& block)
    {
        std::string text(block.GetChainedLength(), '\0');
        block.PeekChained(&text[0], text.size());
        return text;
    }

    CStepReactor m_Network;
    CStepQueue m_UserQueue;
};

// One connection, made on the network thread; the test holds one reference on the proxy and none on the transport.
class TransportProxyTest : public ProxyTest
{
protected:
    void Make(unsigned long type = uxport::CONNECTION_TYPE_TCP)
    {
        OnNetwork([this, type] {
            m_pFake = new CFakeTransport;
            m_pProxy = new uxport::CPSTransportThreadProxy(m_pFake, &m_Network, &m_Thread, type);
            EXPECT_EQ(m_pProxy->AddReference(), 1u);
            EXPECT_EQ(m_pFake->OpenWithSink(m_pProxy), uxport::MN_OK);
        });
        m_Stack.TakeCalls();
    }
    void MakeOpen(unsigned long type = uxport::CONNECTION_TYPE_TCP)
    {
        Make(type);
        EXPECT_EQ(m_pProxy->OpenWithSink(&m_Sink), uxport::MN_OK);
    }
    void Release()
    {
        uxport::CPSTransportThreadProxy* proxy = m_pProxy;
        m_pProxy = nullptr;
        proxy->ReleaseReference();  // events may hold more
    }
    void TearDown() override
    {
        if (m_pProxy)
            Release();
        ProxyTest::TearDown();
    }

    // From the peer, on the network thread.
    uxport::MNResult Arrive(const std::string& text, uxport::CPSTransportParameter* param = nullptr)
    {
        uxport::MNResult result = uxport::MN_OK;
        OnNetwork([&] { result = m_pProxy->OnReceive(*Block(text), m_pFake, param); });
        return result;
    }
    uxport::MNResult Ready(uxport::CPSTransportParameter* param = nullptr)
    {
        uxport::MNResult result = uxport::MN_OK;
        OnNetwork([&] { result = m_pProxy->OnSend(m_pFake, param); });
        return result;
    }
    uxport::MNResult PeerCloses(long reason = 10001)
    {
        uxport::MNResult result = uxport::MN_OK;
        OnNetwork([&] { result = m_pProxy->OnDisconnect(reason, m_pFake); });
        return result;
    }
    uxport::MNResult Send(const std::string& text, uxport::CPSTransportParameter* param = nullptr)
    {
        const auto block = Block(text);
        const uxport::MNResult result = m_pProxy->SendData(*block, param);
        EXPECT_EQ(Text(*block), result == uxport::MN_OK ? std::string() : text);
        return result;
    }

    CFakeTransport* m_pFake = nullptr;  // good as long as the proxy is
    uxport::CPSTransportThreadProxy* m_pProxy = nullptr;
    CRecordingTransportSink m_Sink;
};

#endif
